#!/usr/bin/env bash
# Checks format and style of the project's own sources.
#
#   scripts/tidy.sh            clang-format, then clang-tidy on all sources
#   scripts/tidy.sh --format   clang-format alone (one of the tests)
#   scripts/tidy.sh --fix      lets clang-format rewrite the sources
#   scripts/tidy.sh FILE...    clang-tidy on these sources
#
# clang-tidy takes its compile commands from build/debug, where each source is
# compiled by itself.
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  printf 'tidy.sh: %s\n' "$*" >&2
  exit 1
}

# The sources under version control, or all of an unpacked archive. The
# checkout may belong to another user, as in containers.
sources() {
  if [ -e .git ]; then
    git -c safe.directory='*' ls-files -z -- '*.h' '*.cpp'
  else
    find . \( -name build -o -name out \) -prune -o \( -name '*.h' -o -name '*.cpp' \) -printf '%P\0'
  fi
}

configure() {
  cmake --preset debug >/dev/null || fail "configuring debug failed"
}

check_format() { # [OPTION OF clang-format]...
  command -v clang-format >/dev/null || fail "clang-format is missing: scripts/install-packages.sh tidy"
  mapfile -d '' files < <(sources)
  [ ${#files[@]} -gt 0 ] || fail "found no sources"
  printf '%s\0' "${files[@]}" | xargs -0 clang-format "$@"
  printf 'tidy.sh: %s sources are formatted\n' "${#files[@]}"
}

check_style() { # FILE...
  command -v clang-tidy >/dev/null || fail "clang-tidy is missing: scripts/install-packages.sh tidy"
  printf '%s\0' "$@" |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/debug --quiet --extra-arg=-Wno-unknown-warning-option 2>/dev/null ||
    fail "clang-tidy has found something"
  printf 'tidy.sh: %s sources are tidy\n' "$#"
}

case "${1:-}" in
--format) check_format --dry-run -Werror ;;
--fix) check_format -i ;;
--*) fail "unknown option $1; the opening comment tells what there is" ;;
"")
  check_format --dry-run -Werror
  configure
  # Only what is compiled; the rest is fixtures.
  compiled=()
  while IFS= read -r -d '' file; do
    if [[ $file == *.cpp ]] && grep -qF "\"file\": \"$PWD/$file\"" build/debug/compile_commands.json; then
      compiled+=("$file")
    fi
  done < <(sources)
  [ ${#compiled[@]} -gt 0 ] || fail "no source is in build/debug/compile_commands.json"
  check_style "${compiled[@]}"
  ;;
*)
  configure
  check_style "$@"
  ;;
esac
