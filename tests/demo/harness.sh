# shellcheck shell=bash
# What the tests with the real POV-Ray share. Sourced with the arguments
# TROVIK MODULE-DIRECTORY SOURCE-DIRECTORY; works in a directory of its own.
set -euo pipefail

trovik=$1
# shellcheck disable=SC2034  # for the tests
demo=$3/demo
# POV-Ray does not take every folder, and breaks its messages at 80 columns, also
# within the names of files: the folder is a plain and short one.
[[ ${TMPDIR:=/tmp} =~ ^[A-Za-z0-9/._-]{1,9}$ ]] || TMPDIR=/tmp
tree=$(mktemp -d "$TMPDIR/trovik-XXXXXX")
trap 'rm -rf "$tree"' EXIT
export TROVIK_MODULE_PATH=$2
export HOME="$tree/.home" XDG_CONFIG_HOME="$tree/.home/config" XDG_STATE_HOME="$tree/.home/state"
export XDG_DATA_HOME="$tree/.home/data" XDG_CACHE_HOME="$tree/.home/cache"
# What a killed POV-Ray leaves behind goes with the test.
export POV_TEMP_DIR="$tree/.home"
unset TROVIK_SETTINGS TROVIK_OPTIONS TROVIK_STATE TROVIK_IMAGE_HELPER
# Where links for names that POV-Ray refuses are made.
export TMPDIR="$tree/.home/t"
mkdir -p "$TMPDIR"
cd "$tree"

output=$tree/.home/output
status=0

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  [ ! -e "$output" ] || sed 's/^/  | /' "$output" >&2
  exit 1
}

# Renders at a small size; leaves the exit code in $status, what was said in $output.
render() { # SCENE [ARGUMENT]...
  status=0
  "$trovik" run povray "$@" --set Width=64 --set Height=36 >"$output" 2>&1 </dev/null || status=$?
}

expect_status() {
  [ "$status" -eq "$1" ] || fail "the exit code is $status, not $1"
}
expect_text() {
  grep -qF -- "$1" "$output" || fail "\"$1\" is not in the output"
}

# POV-Ray breaks its lines at 80 columns, wherever that is in a message; here
# the whole log of the first failed frame is one line.
expect_said() {
  local log
  log=$(sed -n 's/^ *log  //p' "$output" | head -n 1)
  [ -f "$log" ] || fail "no log is named"
  tr -s '\n ' ' ' <"$log" | grep -qF -- "$1" || fail "\"$1\" is not in $log"
}

# The directory holds these files and no others.
expect_only() { # DIRECTORY NAME...
  local directory=$1 found wanted
  shift
  found=$(find "$directory" -mindepth 1 -maxdepth 1 -printf '%f\n' | LC_ALL=C sort)
  wanted=$(printf '%s\n' "$@" | LC_ALL=C sort)
  [ "$found" = "$wanted" ] || fail "$directory holds:
$found
instead of:
$wanted"
}

expect_png() { # FILE...
  local file
  for file in "$@"; do
    # Signature, then width and height in the first chunk.
    [ "$(od -An -tx1 -N8 "$file" | tr -d ' \n')" = 89504e470d0a1a0a ] || fail "$file is no PNG"
    [ "$(od -An -tx1 -j16 -N8 "$file" | tr -d ' \n')" = 0000004000000024 ] || fail "$file is not 64 x 36"
  done
}

# A scene that renders in no time.
ball() { # FILE [FURTHER LINE]...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  {
    echo '#version 3.7;'
    echo 'global_settings { assumed_gamma 1 }'
    echo 'camera { location <0, 2, -5> look_at 0 }'
    echo 'light_source { <4, 6, -6> rgb 1 }'
    echo 'sphere { <0, 1, 0>, 1 pigment { rgb 1 } }'
    printf '%s\n' "$@"
  } >"$file"
}
