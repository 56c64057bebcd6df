#!/usr/bin/env bash
# A stranger's first minutes, on a machine that has nothing: makes bare Debian
# 12 roots, clones the commit that is checked out into each, and does there
# what README.md promises, as its readers would.
#
#   tests/fresh/run.sh [CASE]...     all of them without one
#
# Cases: root     as root: demo.sh, again for what is missing, then check.sh --quick
#        user     as a user with sudo, below a folder with a blank and a letter
#                 beyond ASCII: demo.sh, then scripts/package.sh
#        package  installs, uses, upgrades and purges the packages that "user" made
#        bare     only that the root is bare; needs a few seconds
#
#   TROVIK_FRESH_CCACHE    a folder of ccache, to build with; each root has its own without it
#   TROVIK_FRESH_PACKAGES  a folder with packages for "package", instead of those of "user"
#   TMPDIR                 where the roots are; each takes some GB for as long as it runs
#
# Each root has namespaces of its own (enter.sh), so nothing that is mounted or
# started there outlives this script, however it ends. What is left of a killed
# run is a folder, which the next run removes. Base system and downloaded
# packages are kept below ~/.cache/trovik-tests.
#
# Runs as root, and needs the right to mount. What cannot be made is a failure.
set -euo pipefail
export LC_ALL=C.UTF-8

here=$(cd "$(dirname "$0")" && pwd)
repository=$(cd "$here/../.." && pwd)
suite=bookworm
include=git,ca-certificates
architecture=amd64

say() { printf '== %s\n' "$*"; }
fail() {
  printf 'run.sh: %s\n' "$*" >&2
  exit 1
}
# Runs a command that ends with this script, even when that is killed.
tied() { setpriv --pdeathsig KILL "$@"; }

cases=("$@")
[ ${#cases[@]} -gt 0 ] || cases=(root user package)
for case in "${cases[@]}"; do
  [ -f "$here/cases/$case.sh" ] || fail "there is no case \"$case\"; there are: root user package bare"
done

[ "$(id -u)" -eq 0 ] || fail "only root can make a root file system: run it with sudo"
"$repository/scripts/install-packages.sh" fresh || fail "the tools for a bare root are missing: see above"
for program in debootstrap setpriv unshare zstd; do
  command -v "$program" >/dev/null || fail "there is no $program: scripts/install-packages.sh fresh"
done
unshare --mount --pid --fork --propagation private mount -t proc proc /proc 2>/dev/null ||
  fail "not allowed to mount: run it where root has CAP_SYS_ADMIN (a virtual machine, or a privileged container)"

source "$here/base.sh"

# A folder of this run. Its lock is held for as long as anything of it lives.
runs=${TMPDIR:-/tmp}
mkdir -p "$runs" 2>/dev/null || fail "cannot write into \"$runs\": set TMPDIR to a folder for the roots"
open_folder() {
  while true; do
    work=$(mktemp -d "$runs/trovik-fresh.XXXXXX")
    exec {lock}<"$work" || continue
    # Another run may have taken the new folder for one that was left behind.
    flock "$lock"
    [ ! -d "$work" ] || break
    exec {lock}<&-
  done
}
remove_left_folders() {
  local folder left
  for folder in "$runs"/trovik-fresh.??????; do
    [ -d "$folder" ] || continue
    exec {left}<"$folder" || continue
    if flock --nonblock "$left"; then
      say "Removing $folder, which a killed run has left"
      remove "$folder"
    fi
    exec {left}<&-
  done
}
# Never beyond a mount, though there is none here.
remove() { rm -rf --one-file-system "$1" || printf 'run.sh: could not remove %s\n' "$1" >&2; }

declare -A pid status log
removing=()
reader=
end() {
  local running=("${pid[@]}")
  [ -z "$reader" ] || running+=("$reader")
  [ -z "${making:-}" ] || running+=("$making")
  if [ ${#running[@]} -gt 0 ]; then
    kill -KILL "${running[@]}" 2>/dev/null || true
    wait "${running[@]}" 2>/dev/null || true
  fi
  [ ${#removing[@]} -eq 0 ] || wait "${removing[@]}" 2>/dev/null || true
  [ -z "${work:-}" ] || remove "$work"
}
trap end EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

remove_left_folders
open_folder
mkdir "$work/source.git" "$work/handed" "$work/tmp"
export TMPDIR=$work/tmp # of the programs that are called here

# The commit as others get it, not the work tree, whoever owns the checkout.
commit=$(git -c safe.directory='*' -C "$repository" rev-parse HEAD 2>/dev/null) ||
  fail "\"$repository\" is no git checkout with a commit: clone the repository"
git init --quiet --bare --initial-branch main "$work/source.git"
git -c safe.directory='*' -C "$work/source.git" fetch --quiet --depth 1 "file://$repository" HEAD:main
[ "$(git -C "$work/source.git" rev-parse main)" = "$commit" ] || fail "could not clone commit $commit"
say "Commit $(git -C "$work/source.git" log -1 --format='%h %s' main)"
changed=$(git -c safe.directory='*' -C "$repository" status --porcelain | wc -l)
[ "$changed" -eq 0 ] || say "WARNING: $changed files differ from that commit in the work tree; they are not tried"

if [ -n "${TROVIK_FRESH_PACKAGES:-}" ]; then
  cp "$TROVIK_FRESH_PACKAGES"/*.deb "$work/handed/" || fail "there are no packages in \"$TROVIK_FRESH_PACKAGES\""
elif [[ " ${cases[*]} " == *" package "* && " ${cases[*]} " != *" user "* ]]; then
  say "The case package needs the packages that user makes: user comes first"
  cases=(user "${cases[@]}")
fi

find_cache
write_apt_configuration
if [ -n "${TROVIK_FRESH_CCACHE:-}" ]; then
  mkdir -p "$TROVIK_FRESH_CCACHE" || fail "TROVIK_FRESH_CCACHE=$TROVIK_FRESH_CCACHE is no folder"
  TROVIK_FRESH_CCACHE=$(cd "$TROVIK_FRESH_CCACHE" && pwd)
fi
get_base

start() { # CASE
  log[$1]=$work/$1.log
  : >"${log[$1]}"
  FRESH_RUN=$$ FRESH_WORK=$work FRESH_HERE=$here FRESH_BASE=$base FRESH_DEBS=$debs \
    FRESH_CCACHE=${TROVIK_FRESH_CCACHE:-} FRESH_CASE=$1 \
    setpriv --pdeathsig KILL unshare --mount --pid --ipc --uts --fork --kill-child --propagation private \
    "$here/enter.sh" >"${log[$1]}" 2>&1 </dev/null &
  pid[$1]=$!
}

# Whether everything is there that a case builds on.
ready() { # CASE
  [ "$1" != package ] || [ -n "${TROVIK_FRESH_PACKAGES:-}" ] || [ -n "${status[user]:-}" ]
}

# Cases run side by side, since much of a case is waiting for a download or for
# one processor; they are shown one after the other, as they go on.
waiting=("${cases[@]}")
unread=("${cases[@]}")
while [ ${#unread[@]} -gt 0 ] || [ ${#pid[@]} -gt 0 ]; do
  later=()
  for case in "${waiting[@]}"; do
    if ! ready "$case"; then
      later+=("$case")
    elif [ "$case" = package ] && [ "${status[user]:-0}" -ne 0 ]; then
      log[$case]=$work/$case.log
      status[$case]=1
      printf '== package: not begun, since the case user failed\n' >"${log[$case]}"
    else
      start "$case"
    fi
  done
  waiting=("${later[@]}")

  head=${unread[0]:-}
  if [ -n "$head" ] && [ -z "$reader" ] && [ -n "${log[$head]:-}" ]; then
    follow=()
    [ -z "${pid[$head]:-}" ] || follow=(--follow "--pid=${pid[$head]}")
    # Not by "tied": a function in the background has a shell of its own between.
    setpriv --pdeathsig KILL tail --lines=+1 "${follow[@]}" "${log[$head]}" &
    reader=$!
  fi

  ended=
  code=0
  wait -n -p ended "${pid[@]}" ${reader:+"$reader"} || code=$?
  if [ -n "$reader" ] && [ "$ended" = "$reader" ]; then
    reader=
    unread=("${unread[@]:1}")
    continue
  fi
  for case in "${!pid[@]}"; do
    if [ "${pid[$case]}" = "$ended" ]; then
      status[$case]=$code
      [ "$code" -eq 0 ] || [ "$(df --output=avail "$work" | tail -n 1)" -gt 100000 ] ||
        say "$case: no room is left in $runs: set TMPDIR to a folder with some GB"
      unset "pid[$case]"
      remove "$work/$case" & # the next case need not wait for it
      removing+=("$!")
    fi
  done
done

failed=0
for case in "${cases[@]}"; do
  if [ "${status[$case]}" -eq 0 ]; then
    say "$case: passed"
  else
    say "$case: FAILED"
    failed=1
  fi
done
say "$SECONDS s"
exit "$failed"
