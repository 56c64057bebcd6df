#!/usr/bin/env bash
# Shows that check-search-paths.sh and check-loaded.sh pass what they should,
# and find every kind of breach.
#
#   self-test.sh C++-COMPILER
# shellcheck disable=SC2016  # $ORIGIN is the loader's word
set -euo pipefail
export LC_ALL=C

compiler=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
work=$(cd "$work" && pwd -P)
tree=$work/a\ trëe
failures=0

link() { # FILE [ARGUMENT OF THE LINKER]...
  mkdir -p "$tree/$(dirname "$1")"
  "$compiler" -o "$tree/$1" "${@:2}"
}
good_tree() {
  rm -rf "$tree"
  link lib/libneeded.so -shared -Wl,-soname,libneeded.so -x c++ - <<<'extern "C" int number() { return 7; }'
  program bin/good -Wl,--enable-new-dtags,-rpath,'$ORIGIN/../lib'
  link lib/plugin.so -shared -Wl,--enable-new-dtags,-rpath,'$ORIGIN' -x c++ - <<<'int other() { return 1; }'
  echo "no program" >"$tree/bin/script"
  chmod +x "$tree/bin/script"
}
program() { # FILE [ARGUMENT OF THE LINKER]...
  link "$1" -x c++ - -x none "$tree/lib/libneeded.so" "${@:2}" <<<'extern "C" int number(); int main() { return number(); }'
}

expect() { # EXIT-CODE OUTPUT COMMAND...
  local output status=0
  output=$("${@:3}" 2>&1) || status=$?
  if [ "$status" -ne "$1" ] || [ "$output" != "$2" ]; then
    printf 'FAILED: %s\n  expected %s: %s\n  got      %s: %s\n' "${*:3}" "$1" "$2" "$status" "$output"
    failures=$((failures + 1))
  fi
}
breach() { # SEARCH-PATH MESSAGE [ARGUMENT OF THE LINKER]...
  program bin/bad -Wl,--enable-new-dtags,-rpath,"$1" "${@:3}"
  expect 1 "bin/bad: $2" "$here/check-search-paths.sh" "$tree"
}

good_tree
expect 0 "3 programs and libraries search where they should" "$here/check-search-paths.sh" "$tree"

breach '$ORIGIN/../lib:' 'an empty search path, which is the current directory'
breach '$ORIGIN/../lib::$ORIGIN' 'an empty search path, which is the current directory'
breach ':$ORIGIN/../lib' 'an empty search path, which is the current directory'
breach ':' $'an empty search path, which is the current directory\nbin/bad: an empty search path, which is the current directory'
breach . 'the search path "." is relative to the current directory'
breach lib 'the search path "lib" is relative to the current directory'
breach '$ORIGINAL/../lib' 'the search path "$ORIGINAL/../lib" is relative to the current directory'
breach "$tree/lib" "the search path \"$tree/lib\" is not relative to the file"
breach /usr/lib 'the search path "/usr/lib" is not relative to the file'
breach '$ORIGIN/../..' 'the search path "$ORIGIN/../.." leads out of the tree'
breach '$ORIGIN/../lib/../../other' 'the search path "$ORIGIN/../lib/../../other" leads out of the tree'
breach '$ORIGIN/../lib64' 'the search path "$ORIGIN/../lib64" leads nowhere'
breach '$ORIGIN/../lib' \
  'the search path "$ORIGIN/../lib" comes before that of the user (RPATH, not RUNPATH)' -Wl,--disable-new-dtags

good_tree
mkdir "$work/outside"
ln -s "$work/outside" "$tree/link"
breach '$ORIGIN/../link' 'the search path "$ORIGIN/../link" leads out of the tree'

good_tree
"$compiler" -shared -o "$tree/lib/nameless.so" -x c++ - <<<'int third() { return 3; }'
(cd "$tree" && "$compiler" -shared -Wl,--no-as-needed -o lib/bad.so -x c++ - -x none lib/nameless.so <<<'int fourth() { return 4; }')
expect 1 'lib/bad.so: needs "lib/nameless.so" by a path, not by a name' "$here/check-search-paths.sh" "$tree"

good_tree
printf '\x7fELF, cut short' >"$tree/lib/cut.so"
expect 1 "lib/cut.so: cannot be read: $(readelf --dynamic "$tree/lib/cut.so" 2>&1 || true)" "$here/check-search-paths.sh" "$tree"

rm -rf "$tree"
mkdir "$tree"
expect 1 "$tree: there is no program and no library" "$here/check-search-paths.sh" "$tree"

# What is loaded, in truth.
good_tree
expect 0 "2 files load nothing that lies about" "$here/check-loaded.sh" "$compiler" "$tree" bin/good lib/libneeded.so
loads() { # SEARCH-PATH WHERE-FROM
  program bin/bad "-Wl,--enable-new-dtags,-rpath,$1"
  local output status=0
  output=$("$here/check-loaded.sh" "$compiler" "$tree" bin/good bin/bad lib/libneeded.so) || status=$?
  if [ "$status" -ne 1 ] || ! grep -qE "^bin/bad: loads $2libneeded\.so$" <<<"$output" || grep -q ^bin/good <<<"$output"; then
    printf 'FAILED: bin/bad with the search path "%s"\n  got %s: %s\n' "$1" "$status" "$output"
    failures=$((failures + 1))
  fi
}
loads : '(\./)?'
loads '/no/such/folder:' '(\./)?'
loads '$ORIGIN/..' '.*/bin/\.\./'
loads '$ORIGIN/../..' '.*/bin/\.\./\.\./'
expect 1 "nothing is needed, so nothing is shown" "$here/check-loaded.sh" "$compiler" "$tree"

[ "$failures" -eq 0 ] || exit 1
echo "the checks pass the good tree and find every breach"
