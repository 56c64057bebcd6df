#!/usr/bin/env bash
# Renders the demo sequence: installs what is needed, builds, finds the whole
# sequence from one picked scene file and renders it.
#
#   ./demo.sh [ARGUMENTS OF trovik run]...      e.g. ./demo.sh --range 1-6 --slots 4
set -euo pipefail
cd "$(dirname "$0")"

say() { printf '== %s\n' "$*"; }

say "Packages"
scripts/install-packages.sh build demo

say "Build"
# The tests are left out of a first build, and stay in one that has them.
options=()
[ -f build/release/CMakeCache.txt ] || options=(-DTROVIK_BUILD_TESTS=OFF)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { cmake --preset release "${options[@]}" && cmake --build --preset release --target trovik trovik-image Tessivar catalogue; } \
  >"$log" 2>&1; then
  cat "$log" >&2
  echo "demo.sh: the build failed" >&2
  exit 1
fi

out=out/demo
say "Render: trovik run povray demo/scene_0012.pov --out $out $*"
status=0
build/release/bin/trovik run povray demo/scene_0012.pov --out "$out" "$@" || status=$?

if [ "$status" -eq 0 ]; then
  say "The images are in $PWD/$out"
else
  echo "demo.sh: trovik run ended with exit code $status" >&2
fi
exit "$status"
