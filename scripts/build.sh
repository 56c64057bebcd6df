#!/usr/bin/env bash
# Configures and builds a preset, with ninja's own line of progress on a
# terminal and silence elsewhere; what went wrong is shown whole.
#
#   scripts/build.sh PRESET [-DNAME=VALUE]... [TARGET]...
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  printf 'build.sh: %s\n' "$*" >&2
  exit 1
}

[ $# -gt 0 ] || fail "name a preset of CMakePresets.json, such as release"
preset=$1
shift
options=()
targets=()
for argument in "$@"; do
  case $argument in
  -D*) options+=("$argument") ;;
  *) targets+=("$argument") ;;
  esac
done

# Objects of another checkout of the same sources are as good as new, and so
# are those of somebody with another language: those have no warning.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=locale

# A folder that was moved or copied with its build takes nothing of it along.
cache=build/$preset/CMakeCache.txt
if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" "$cache"; then
  options+=(--fresh)
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
# Two builds of one folder would write the same files: the second waits.
mkdir -p "build/$preset"
exec {lock}<"build/$preset"
flock "$lock"
cmake --preset "$preset" "${options[@]}" >"$log" 2>&1 || {
  cat "$log" >&2
  fail "configuring $preset failed"
}

build=(cmake --build --preset "$preset")
[ ${#targets[@]} -eq 0 ] || build+=(--target "${targets[@]}")
if [ -t 1 ]; then
  "${build[@]}" || fail "building $preset failed"
else
  "${build[@]}" >"$log" 2>&1 || {
    cat "$log" >&2
    fail "building $preset failed"
  }
fi
