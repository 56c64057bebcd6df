#!/usr/bin/env bash
# Runs one case of the proof of a type; see lib.sh.
#
#   run.sh TROVIK MODULE-DIRECTORY PROOF CASE
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
trovik=$1
export TROVIK_MODULE_PATH=$2
proof=$3
name=$4

# shellcheck source=lib.sh
source "$here/lib.sh"
# shellcheck disable=SC1090  # one of the proofs beside this file
source "$here/$proof.sh"

# Folders that are full, or read-only even for root, are file systems of the
# case's own; the other cases need none.
if [ -z "${TROVIK_OWN_FILE_SYSTEMS:-}" ] && [[ $(declare -f "case_$name") =~ $'\n'\ *(read_only|full)\  ]]; then
  exec "$here/../own-file-systems.sh" "$0" "$@"
fi

# Not every program takes every folder, and POV-Ray breaks its messages at 80
# columns, also within the names of files: the folder is a plain and short one.
[[ ${TMPDIR:=/tmp} =~ ^[A-Za-z0-9/._-]{1,9}$ ]] || TMPDIR=/tmp
tree=$(mktemp -d "$TMPDIR/trovik-XXXXXX")
pid=
status=0
mounted=()
clean() {
  [ -z "$pid" ] || kill "$pid" 2>/dev/null || true
  cd /
  [ ${#mounted[@]} = 0 ] || umount -l "${mounted[@]}" || true
  rm -rf "$tree"
}
trap clean EXIT
trap 'exit 1' INT TERM HUP

export HOME="$tree/.home" XDG_CONFIG_HOME="$tree/.home/config" XDG_STATE_HOME="$tree/.home/state"
export XDG_DATA_HOME="$tree/.home/data" XDG_CACHE_HOME="$tree/.home/cache"
# What a program leaves behind that is killed goes with the case.
export TMPDIR="$tree/.tmp" POV_TEMP_DIR="$tree/.tmp"
mkdir "$tree/.home" "$tree/.tmp" "$tree/work"
cd "$tree/work"
"case_$name"
