#!/usr/bin/env bash
# Builds everything and runs all tests, optimised and under AddressSanitizer
# and UndefinedBehaviorSanitizer. The last line is ctest's own verdict.
#
#   ./check.sh              all tests but those that need large programs
#   ./check.sh --catalogue  also proves every shipped type with its real program
#                           (installs 1.4 GB of programs)
#   ./check.sh --quick      optimised only, and without clusters and browsers
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
page=ON
presets=(release sanitize)
sets=(build test slurm page bench)
case "$#,${1:-}" in
0,) ;;
1,--catalogue)
  catalogue=ON
  sets+=(catalogue)
  ;;
1,--quick)
  slurm=OFF
  page=OFF
  presets=(release)
  sets=(build test bench)
  ;;
*) fail "unknown arguments \"$*\"; give none, --catalogue or --quick" ;;
esac

say "Packages"
scripts/install-packages.sh "${sets[@]}"

logs=$(mktemp -d)
build=
end() {
  # The group, since a build is many processes.
  [ -z "$build" ] || kill -- "-$build" 2>/dev/null || true
  rm -rf "$logs"
}
trap end EXIT
trap 'exit 130' INT
trap 'exit 143' TERM HUP

say "Build: release"
# Sanitizers watch our own programs: renderers and clusters prove nothing more there.
# Benchmarks that nobody builds rot.
scripts/build.sh release -DTROVIK_BUILD_TESTS=ON -DTROVIK_BUILD_BENCH=ON "-DTROVIK_CATALOGUE_TESTS=$catalogue" "-DTROVIK_SLURM_TESTS=$slurm" "-DTROVIK_PAGE_TESTS=$page"
printf '%s s\n' "$SECONDS"

# Tests wait more than they compute: meanwhile the next are built.
if [[ " ${presets[*]} " == *" sanitize "* ]]; then
  setsid nice scripts/build.sh sanitize -DTROVIK_BUILD_TESTS=ON >"$logs/build" 2>&1 &
  build=$!
fi

failed=0
for preset in "${presets[@]}"; do
  if [ "$preset" = sanitize ]; then
    say "Build: sanitize"
    if [ -t 1 ]; then
      # Goes on where that one was, and shows how far it is.
      kill -- "-$build" 2>/dev/null || true
      wait "$build" || true
      scripts/build.sh sanitize -DTROVIK_BUILD_TESTS=ON
    elif ! wait "$build"; then
      cat "$logs/build"
      exit 1
    fi
    build=
    printf '%s s\n' "$SECONDS"
  fi
  say "Tests: $preset"
  log=$logs/$preset
  # Many tests wait more than they compute; two all the time, the clusters' one
  # after the other and the one of ten thousand works.
  parallel=$(($(nproc) * 2))
  [ "$preset,$slurm" != release,ON ] || parallel=$((parallel + 2))
  if ! ctest --preset "$preset" --parallel "$parallel" --no-tests=error >"$log" 2>&1; then
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
