#!/usr/bin/env bash
# Installs into a temporary prefix, moves that elsewhere, builds a small module
# against it by find_package(Trovik) and lets the installed program list and
# run the module's type.
#
#   test-install.sh CMAKE BUILD-DIRECTORY LIBRARY-DIRECTORY C++-COMPILER
set -euo pipefail

cmake=$1 build=$2 libraries=$3 compiler=$4
here=$(cd "$(dirname "$0")" && pwd)
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}
quietly() { # COMMAND...
  "$@" >"$tree/output" 2>&1 || { cat "$tree/output" >&2; fail "$*"; }
}
expect_file() { [ -e "$1" ] || fail "there is no $1"; }
expect_text() { # FILE TEXT
  grep -qF -- "$2" "$1" || { cat "$1" >&2; fail "\"$2\" is not in the output"; }
}

quietly "$cmake" --install "$build" --prefix "$tree/first"
mkdir "$tree/some place"
prefix="$tree/some place/else"
mv "$tree/first" "$prefix"

expect_file "$prefix/bin/trovik"
expect_file "$prefix/bin/trovik-image"
expect_file "$prefix/$libraries/trovik/libTrovikFoundation.so"
expect_file "$prefix/$libraries/trovik/libTrovikApplication.so"
expect_file "$prefix/$libraries/trovik/libTrovikImages.so"
expect_file "$prefix/$libraries/trovik/modules/Tessivar.so"
expect_file "$prefix/$libraries/trovik/modules/povray.tvx"
expect_file "$prefix/include/trovik/host/Application.h"
expect_file "$prefix/include/trovik/host/foundation/String.h"
expect_file "$prefix/share/bash-completion/completions/trovik"
expect_file "$prefix/share/zsh/site-functions/_trovik"
expect_file "$prefix/share/fish/vendor_completions.d/trovik.fish"
expect_file "$prefix/share/man/man1/trovik.1"
expect_file "$prefix/share/man/man1/trovik-image.1"
expect_file "$prefix/share/man/man5/tvx.5"
expect_file "$prefix/share/trovik/editors/vim/syntax/tvx.vim"
expect_file "$prefix/share/trovik/demo/scene_0012.pov"
# Every file of the page that a browser shows.
site=$here/../../trovik/page/site
[ ! -d "$site" ] || while IFS= read -r file; do
  expect_file "$prefix/share/trovik/page/$file"
done < <(find "$site" -type f -printf '%P\n')
expect_file "$prefix/share/doc/trovik/docs/tutorial.md"
expect_file "$prefix/$libraries/cmake/Trovik/TrovikConfig.cmake"
# Nothing installed may know where it was built or first installed.
if grep -rlF -e "$tree/first" "$prefix" >"$tree/output"; then
  cat "$tree/output" >&2
  fail "the first prefix is named in the installed tree"
fi

# Neither may a search path, or what is loaded in the end.
quietly "$here/check-search-paths.sh" "$prefix"
quietly "$here/check-loaded.sh" "$compiler" "$prefix" bin/trovik bin/trovik-image \
  "$libraries/trovik/libTrovikApplication.so.0" "$libraries/trovik/libTrovikFoundation.so.0" \
  "$libraries/trovik/libTrovikImages.so" \
  "$libraries/trovik/modules/Tessivar.so"

# The links of the installed documents lead somewhere.
links=0
while IFS=: read -r page link; do
  case "$link" in http*) continue ;; esac
  link=${link%%#*}
  expect_file "${page%/*}/$link"
  links=$((links + 1))
done < <(grep -roP --include="*.md" "\]\(\K[^)\s]+" "$prefix/share/doc/trovik" "$prefix/share/trovik/demo")
[ "$links" -gt 50 ] || fail "only $links links were found in the documents"

# Every installed header stands for itself.
for umbrella in host/Foundation.h host/Application.h module/Tessivar.h job/TessivarJob.h; do
  printf '#include "%s"\n' "$umbrella" >"$tree/one.cpp"
  quietly "$compiler" -std=c++20 -fsyntax-only "-I$prefix/include/trovik" "$tree/one.cpp"
done

quietly "$cmake" -G Ninja -S "$here/consumer" -B "$tree/consumer" "-DCMAKE_PREFIX_PATH=$prefix" \
  "-DCMAKE_CXX_COMPILER=$compiler"
expect_text "$tree/consumer/package.txt" "$prefix/bin/trovik"
expect_text "$tree/consumer/package.txt" "$prefix/$libraries/trovik/modules"
quietly "$cmake" --build "$tree/consumer"

export HOME="$tree/home" XDG_CONFIG_HOME="$tree/home/config" XDG_STATE_HOME="$tree/home/state"
export XDG_DATA_HOME="$tree/home/data" XDG_CACHE_HOME="$tree/home/cache"
unset TROVIK_IMAGE_HELPER TROVIK_MODULE_PATH TROVIK_SETTINGS TROVIK_OPTIONS LD_LIBRARY_PATH
cd "$tree"

# By itself the program finds the shipped types beside it.
quietly "$prefix/bin/trovik" types
expect_text "$tree/output" "POV-Ray"

# And the helper that decodes images, which works where it lies now.
printf '%s\n' '{"file":"gone.png","flat":false}' | "$prefix/bin/trovik-image" check >"$tree/output"
expect_text "$tree/output" "Cannot be read (No such file or directory)"

# A module of one's own, beside the shipped ones.
export TROVIK_MODULE_PATH="$tree/consumer:$prefix/$libraries/trovik/modules"
quietly "$prefix/bin/trovik" types
expect_text "$tree/output" "POV-Ray"
expect_text "$tree/output" "Echo"
quietly "$prefix/bin/trovik" run Echo --range 1-3
expect_text "$tree/output" "all 3 frames good"

echo "a module builds against the moved installation and runs in it"
