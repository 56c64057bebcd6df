#!/usr/bin/env bash
# Builds everything and runs all tests, optimised and under AddressSanitizer
# and UndefinedBehaviorSanitizer. The last line is ctest's own verdict.
set -euo pipefail
cd "$(dirname "$0")"

say() { printf '== %s\n' "$*"; }
fail() {
  printf 'check.sh: %s\n' "$*" >&2
  exit 1
}

say "Packages"
scripts/install-packages.sh build test

# Objects of another checkout of the same sources are as good as new.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

for preset in release sanitize; do
  say "Build: $preset"
  cmake --preset "$preset" -DTROVIK_BUILD_TESTS=ON >"$logs/configure" 2>&1 ||
    { cat "$logs/configure" >&2; fail "configuring $preset failed"; }
  cmake --build --preset "$preset" >"$logs/build" 2>&1 ||
    { cat "$logs/build" >&2; fail "building $preset failed"; }
done

verdicts=()
failed=0
for preset in release sanitize; do
  say "Tests: $preset"
  log=$logs/test-$preset
  if ! ctest --preset "$preset" --parallel "$(nproc)" --no-tests=error >"$log" 2>&1; then
    failed=1
    # What passed is of no interest; what failed is there in full.
    grep -vE '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test .* Passed +[0-9.]+ sec$' "$log" || true
  fi
  verdicts+=("$(grep -E '^[0-9]+% tests passed, ' "$log" || echo "no test ran")")
done

say "release"
printf '%s\n' "${verdicts[0]}"
say "sanitize"
printf '%s\n' "${verdicts[1]}"
exit "$failed"
