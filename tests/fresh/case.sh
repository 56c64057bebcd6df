# shellcheck shell=bash
# What the cases share. Sourced inside a bare root, which is thrown away.
set -euo pipefail

fresh=/srv/fresh
case=$(basename "$0" .sh)
said=$(mktemp)

fail() {
  printf '== %s: FAILED: %s\n' "$case" "$*"
  exit 1
}

# Runs a command, shows what it says, and how long it took. What it said is in
# the file $said afterwards, its exit code in $status.
try() { # TEXT COMMAND...
  local start=$SECONDS
  printf '== %s: %s\n' "$case" "$1"
  shift
  set +e
  (set -e; "$@") 2>&1 </dev/null | tee "$said" | sed -u 's/^/   | /'
  status=${PIPESTATUS[0]}
  set -e
  printf '   %s s\n' "$((SECONDS - start))"
}
step() { # TEXT COMMAND...
  try "$@"
  [ "$status" -eq 0 ] || fail "$1: exit code $status"
}
expect_said() { # TEXT
  grep -qF -- "$1" "$said" || fail "\"$1\" is not in that output"
}

# A command line of somebody who has just logged in and gone to a folder.
as() { # USER FOLDER COMMAND-LINE
  local folder pass=
  printf -v folder %q "$2"
  if [ -n "${CCACHE_DIR:-}" ]; then
    pass=CCACHE_DIR
    # Nobody else may write into a folder of this machine's root.
    if [ "$1" != root ]; then
      export CCACHE_READONLY=1 CCACHE_TEMPDIR=/tmp/ccache CCACHE_NOSTATS=1
      pass+=,CCACHE_READONLY,CCACHE_TEMPDIR,CCACHE_NOSTATS
    fi
  fi
  runuser --login "$1" ${pass:+"--whitelist-environment=$pass"} --command "cd $folder && $3"
}

install() { # PACKAGE...
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -qq --no-install-recommends "$@" >/dev/null
}

# The root is what it should be: nothing helps that a stranger would lack.
expect_bare() {
  local name
  for name in gcc g++ make cmake ninja python3 povray sudo vim man curl ccache pkgconf; do
    ! command -v "$name" || fail "the root is not bare: it has $name"
  done
  [ -z "${CI:-}${LANG:-}${LC_ALL:-}" ] || fail "the environment is not that of a login"
  ! mount -t tmpfs none /mnt 2>/dev/null || fail "the root may mount"
  ! unshare --user true 2>/dev/null || fail "the root may make user namespaces"
}

clone() { # USER FOLDER
  local folder
  printf -v folder %q "$2"
  # git takes nothing from a repository of somebody else.
  chown -R "$1" /srv/trovik.git
  as "$1" / "mkdir -p $folder && git clone --quiet file:///srv/trovik.git $folder && git -C $folder log -1 --format='%h %s'"
}

# The images of the last job, as trovik sees them, and by their bytes.
expect_images() { # USER FOLDER TROVIK OUT COUNT
  step "the images, as trovik sees them" as "$1" "$2" \
    "$3 images last | wc -l && $3 sheet last -o $4/sheet.png && rm $4/sheet.png"
  [ "$(head -n 1 "$said")" = "$5" ] || fail "trovik images names $(head -n 1 "$said") images, not $5"
  expect_said " $5 frames: $5 good"
  step "the images, byte for byte" as "$1" "$2" "perl $fresh/png.pl 480 270 $5 $4/*"
}
