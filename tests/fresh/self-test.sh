#!/usr/bin/env bash
# Shows that nothing of run.sh outlives it, that its cache heals, that two runs
# get along, and that what cannot be made is a failure that says what to do.
#
#   tests/fresh/self-test.sh
#
#   TROVIK_FRESH_KILLS       how many runs are killed (8)
#   TROVIK_FRESH_KILLS_SEED  repeats the moments of an earlier run
#
# Runs as root, like run.sh. All of it happens in a process namespace of its
# own, where every process that is left would be seen.
set -euo pipefail
export LC_ALL=C.UTF-8

run=$(cd "$(dirname "$0")" && pwd)/run.sh
if [ -z "${FRESH_SELF_TEST:-}" ]; then
  "$run" bare # the real base, once
  FRESH_SELF_TEST=1 exec setpriv --pdeathsig KILL \
    unshare --mount --pid --fork --kill-child --mount-proc --propagation private "$0"
fi

tree=$(mktemp -d)
trap 'rm -rf --one-file-system "$tree"' EXIT
mkdir -p "$tree/runs" "$tree/bin" "$tree/cache/trovik-tests/fresh"
cp -r "${XDG_CACHE_HOME:-$HOME/.cache}"/trovik-tests/fresh/. "$tree/cache/trovik-tests/fresh"
export TMPDIR=$tree/runs XDG_CACHE_HOME=$tree/cache
unset TROVIK_FRESH_CCACHE TROVIK_FRESH_PACKAGES
cache=$tree/cache/trovik-tests/fresh
base=$(echo "$cache"/*.tar.zst)
cp "$base" "$tree/good"

# Stands for debootstrap where what it makes is not the question: it unpacks
# the good base, and counts.
cat >"$tree/bin/debootstrap" <<END
#!/bin/sh
echo made >>"$tree/made"
for directory; do case \$directory in */base) exec tar --directory="\$directory" -x --zstd -f "$tree/good" ;; esac; done
END
chmod 755 "$tree/bin/debootstrap"
quick_path=$tree/bin:$PATH

failures=0
check() { # WHAT COMMAND...
  local what=$1
  shift
  if "$@"; then
    printf 'ok      %s\n' "$what"
  else
    printf 'FAILED  %s\n' "$what"
    sed 's/^/   | /' "$tree/output"
    failures=$((failures + 1))
  fi
}
ended() { # CODE TEXT...: of the last run
  local code=$1 text
  shift
  [ "$status" -eq "$code" ] || return 1
  for text in "$@"; do grep -qF -- "$text" "$tree/output" || return 1; done
}
go() { # COMMAND...
  status=0
  "$@" >"$tree/output" 2>&1 </dev/null || status=$?
}
made() { [ "$(wc -l <"$tree/made")" -eq "$1" ]; }
nothing_left() {
  [ -z "$(ls -A "$TMPDIR")" ] || { find "$TMPDIR" -maxdepth 2 -ls >>"$tree/output"; return 1; }
}

go "$run" nothing
check "an unknown case is named" ended 1 'run.sh: there is no case "nothing"; there are: root user package bare'

go setpriv --bounding-set -sys_admin --inh-caps -sys_admin "$run" bare
check "without the right to mount" ended 1 "run.sh: not allowed to mount: run it where root has CAP_SYS_ADMIN"

go setpriv --reuid=65534 --regid=65534 --clear-groups "$run" bare
check "without root" ended 1 "run.sh: only root can make a root file system: run it with sudo"

mkdir "$tree/links"
find /usr/local/sbin /usr/local/bin /usr/sbin /usr/bin /sbin /bin -maxdepth 1 ! -name debootstrap ! -type d \
  -exec ln -s -t "$tree/links" {} + 2>/dev/null || true
go env PATH="$tree/links" "$run" bare
check "without debootstrap" ended 1 "run.sh: there is no debootstrap: scripts/install-packages.sh fresh"

go env XDG_CACHE_HOME="$tree/empty" unshare --net "$run" bare
check "without a network" ended 1 "run.sh: could not make the base system: is the network there"

mkdir "$tree/small"
mount -t tmpfs -o size=60m small "$tree/small"
go env TMPDIR="$tree/small" "$run" bare
check "with a full disk" ended 1 "No space left on device" "set TMPDIR to a folder with room"
check "a full disk is left empty" test -z "$(ls -A "$tree/small")"
umount "$tree/small"

go env TMPDIR=/proc/none "$run" bare
check "without a folder for the roots" ended 1 'run.sh: cannot write into "/proc/none": set TMPDIR to a folder for the roots'
check "nothing is left by what failed" nothing_left

export PATH=$quick_path
truncate --size=-1000 "$base"
go "$run" bare
check "a base that was cut short is made anew" ended 0 "is broken" "bare: passed"
check "once" made 1
touch --date='8 days ago' "$base"
go "$run" bare
check "an old base is made anew" ended 0 "bare: passed"
check "once more" made 2
go "$run" bare
check "a good one is not" made 2

# The cache may hold several versions of it.
mapfile -t packages < <(find "$cache/debs" -name '*_jq_*.deb')
for package in "${packages[@]}"; do
  printf 'XXXX' | dd of="$package" bs=1 seek=20000 conv=notrunc status=none
done
go "$run" bare
check "a damaged package is not used" ended 0 "Removing $package: it is damaged" "bare: passed"

go env -u HOME -u XDG_CACHE_HOME "$run" bare
check "without a cache" ended 0 "No cache" "bare: passed"
check "the base is made for that run" made 3

rm -r "$cache"
"$run" bare >"$tree/other" 2>&1 </dev/null &
go "$run" bare
check "two runs at once: the one" ended 0 "bare: passed"
status=0
wait $! || status=$?
mv "$tree/other" "$tree/output"
check "two runs at once: the other" ended 0 "bare: passed"
check "two runs make one base" made 4
check "nothing is left by what ended well" nothing_left

# Killed at random moments, by a signal that nobody can catch and by one that
# run.sh can.
kills=${TROVIK_FRESH_KILLS:-8}
seed=${TROVIK_FRESH_KILLS_SEED:-$RANDOM}
RANDOM=$seed
printf 'seed %s\n' "$seed"
# Whether only this script runs, in the end: what just reads or writes a file
# may end by itself. The dead have no command line.
alone() {
  local deadline=$((SECONDS + 60)) process word others
  while [ "$SECONDS" -lt "$deadline" ]; do
    others=()
    for process in /proc/[0-9]*; do
      word=
      [ "${process#/proc/}" = $$ ] || { IFS= read -r -d '' word <"$process/cmdline"; } 2>/dev/null || true
      [ -z "$word" ] || others+=("${process#/proc/}: $word")
    done
    [ ${#others[@]} -gt 0 ] || return 0
  done
  printf '%s\n' "${others[@]}" >>"$tree/output"
  return 1
}
mounts=$(cut -d ' ' -f 5- /proc/self/mountinfo)
for ((kill = 1; kill <= kills; kill++)); do
  [ $((RANDOM % 3)) -ne 0 ] || rm -f "$base" # into debootstrap, too
  signal=KILL
  [ $((RANDOM % 4)) -ne 0 ] || signal=TERM
  moment=$((RANDOM % 9)).$((RANDOM % 100))
  "$run" bare >"$tree/output" 2>&1 </dev/null &
  # The moment is what is random here; nothing is waited for.
  sleep "$moment"
  kill -"$signal" $! 2>/dev/null || true
  wait $! 2>/dev/null || true
  check "kill $kill: $signal after $moment s: no process is left" alone
  [ "$signal" = KILL ] || check "kill $kill: no folder is left" nothing_left
  check "kill $kill: no mount is left" test "$mounts" = "$(cut -d ' ' -f 5- /proc/self/mountinfo)"
done
go "$run" bare
check "the next run works" ended 0 "bare: passed"
check "and removes what the killed ones have left" nothing_left

[ "$failures" -eq 0 ] || exit 1
echo "nothing of a run outlives it, and what cannot be made is said"
