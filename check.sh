#!/usr/bin/env bash
# Builds everything and runs all tests, optimised and under AddressSanitizer
# and UndefinedBehaviorSanitizer. The last line is ctest's own verdict.
#
#   ./check.sh              all tests but those that need large programs
#   ./check.sh --catalogue  also proves every shipped type with its real program
#                           (installs 1.4 GB of programs)
set -euo pipefail
cd "$(dirname "$0")"

say() { printf '== %s\n' "$*"; }
fail() {
  printf 'check.sh: %s\n' "$*" >&2
  exit 1
}

catalogue=OFF
case "$#,${1:-}" in
0,) ;;
1,--catalogue) catalogue=ON ;;
*) fail "unknown arguments \"$*\"; give none, or --catalogue" ;;
esac

say "Packages"
sets=(build test slurm)
[ "$catalogue" = OFF ] || sets+=(catalogue)
scripts/install-packages.sh "${sets[@]}"

# Objects of another checkout of the same sources are as good as new.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT

for preset in release sanitize; do
  say "Build: $preset"
  # Sanitizers watch our own programs; the large ones prove nothing more there.
  [ "$preset" = release ] && proofs=$catalogue || proofs=OFF
  cmake --preset "$preset" -DTROVIK_BUILD_TESTS=ON -DTROVIK_CATALOGUE_TESTS="$proofs" >"$logs/configure" 2>&1 ||
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
