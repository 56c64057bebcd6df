#!/usr/bin/env bash
# Runs one case of the proof of a type; see lib.sh.
#
#   run.sh TROVIK MODULE-DIRECTORY PROOF CASE
set -euo pipefail

# Folders that are full or read-only even for root are mounts of the case's own.
if [ -z "${TROVIK_CASE_MOUNTS:-}" ]; then
  user=()
  [ "$(id -u)" -eq 0 ] || user=(--user --map-root-user)
  unshare "${user[@]}" --mount --propagation private true ||
    { echo "this test needs mount namespaces: run it as root, or allow user namespaces" >&2; exit 1; }
  TROVIK_CASE_MOUNTS=1 exec unshare "${user[@]}" --mount --propagation private "$0" "$@"
fi
unset TROVIK_CASE_MOUNTS

here=$(cd "$(dirname "$0")" && pwd)
trovik=$1
export TROVIK_MODULE_PATH=$2
proof=$3
name=$4

tree=$(mktemp -d "${TMPDIR:-/tmp}/trovik-type-XXXXXX")
pid=
status=0
clean() {
  [ -z "$pid" ] || kill "$pid" 2>/dev/null || true
  cd /
  # What was mounted below goes first.
  grep -oF " $tree/" /proc/self/mounts >/dev/null &&
    cut -d ' ' -f 2 /proc/self/mounts | grep -F "$tree/" | sort -r | while read -r mounted; do
      umount -l "$(printf '%b' "${mounted//\\/\\0}")" || true
    done
  rm -rf "$tree"
}
trap clean EXIT
trap 'exit 1' INT TERM HUP

export HOME="$tree/.home" XDG_CONFIG_HOME="$tree/.home/config" XDG_STATE_HOME="$tree/.home/state"
export XDG_DATA_HOME="$tree/.home/data" XDG_CACHE_HOME="$tree/.home/cache"
mkdir "$tree/.home" "$tree/work"
cd "$tree/work"

# shellcheck source=lib.sh
source "$here/lib.sh"
# shellcheck disable=SC1090  # one of the proofs beside this file
source "$here/$proof.sh"
"case_$name"
