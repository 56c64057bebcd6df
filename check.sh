#!/usr/bin/env bash
# Builds everything and runs all tests, optimised and under AddressSanitizer
# and UndefinedBehaviorSanitizer. The last line is ctest's own verdict.
#
#   ./check.sh              all tests but those that need large programs
#   ./check.sh --catalogue  also proves every shipped type with its real program
#                           (installs 1.4 GB of programs)
#   ./check.sh --quick      optimised only, and without clusters
#
# A test that needs a file system of its own cannot run where nobody may mount
# one, as in most containers. It is named at the end; with CI=true in the
# environment it counts as failed.
set -euo pipefail
cd "$(dirname "$0")"

say() { printf '== %s\n' "$*"; }
fail() {
  printf 'check.sh: %s\n' "$*" >&2
  exit 1
}

catalogue=OFF
slurm=ON
presets=(release sanitize)
sets=(build test slurm)
case "$#,${1:-}" in
0,) ;;
1,--catalogue)
  catalogue=ON
  sets+=(catalogue)
  ;;
1,--quick)
  slurm=OFF
  presets=(release)
  sets=(build test)
  ;;
*) fail "unknown arguments \"$*\"; give none, --catalogue or --quick" ;;
esac

say "Packages"
scripts/install-packages.sh "${sets[@]}"

for preset in "${presets[@]}"; do
  say "Build: $preset"
  options=(-DTROVIK_BUILD_TESTS=ON)
  # Sanitizers watch our own programs: renderers and clusters prove nothing more there.
  [ "$preset" != release ] || options+=("-DTROVIK_CATALOGUE_TESTS=$catalogue" "-DTROVIK_SLURM_TESTS=$slurm")
  scripts/build.sh "$preset" "${options[@]}"
  printf '%s s\n' "$SECONDS"
done

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
failed=0
for preset in "${presets[@]}"; do
  say "Tests: $preset"
  log=$logs/$preset
  # Many tests wait more than they compute.
  if ! ctest --preset "$preset" --parallel "$(($(nproc) * 2))" --no-tests=error >"$log" 2>&1; then
    failed=1
    # What passed is of no interest; what failed is there in full.
    grep -vE '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test .* Passed +[0-9.]+ sec$' "$log" || true
  fi
  printf '%s s\n' "$SECONDS"
done

# ctest lists what did not run behind its verdict.
not_run=$(sed -nE 's/^\t *[0-9]+ - (.*) \(Skipped\)$/\1/p' "${presets[@]/#/$logs/}" | sort -u)
if [ -n "$not_run" ]; then
  say "$(wc -l <<<"$not_run") tests cannot run here: they need a file system of their own (be root, or allow user namespaces)"
  printf '%s\n' "$not_run"
  [ "${CI:-}" != true ] || failed=1
fi
for preset in "${presets[@]}"; do
  say "$preset"
  grep -E '^[0-9]+% tests passed, ' "$logs/$preset" || echo "no test ran"
done
exit "$failed"
