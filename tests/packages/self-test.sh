#!/usr/bin/env bash
# Shows that check-packages.sh finds every package that is taken out of a set,
# and every one that is in it without need, whatever this machine has.
#
#   self-test.sh ROOT BUILD-DIRECTORY C++-COMPILER
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
failures=0

cp "$1/scripts/install-packages.sh" "$tree/"
take_out() { # SET PACKAGE
  sed -i -E "/^ *\[$1\]=/s/([\" ])$2([\" ])/\1\2/" "$tree/install-packages.sh"
}
take_out build pkgconf      # a CMake package
take_out build libsqlite3-dev # a header
take_out build ninja-build  # the generator
take_out demo povray        # what a type runs
take_out demo povray-includes # data
take_out test jq            # a program of scripts
take_out test procps
take_out page chromium      # what CMake looks for
sed -i -E '/^ *\[test\]=/s/"$/ hello"/; s/^#   xauth.*/&\n#   git [tidy]: some reason/' "$tree/install-packages.sh"

status=0
"$here/check-packages.sh" "$@" "$tree/install-packages.sh" >"$tree/output" || status=$?
[ "$status" -eq 1 ] || { echo "FAILED: exit code $status"; failures=1; }

expect() { # REGULAR EXPRESSION
  grep -qxE -- "$1" "$tree/output" || { printf 'FAILED: no line is %s\n' "$1"; failures=1; }
}
unnamed() { # FILE WHAT PACKAGE SETS
  expect "$1:[0-9]+: the $2 comes from the package $3, which scripts/install-packages.sh does not name in: $4"
}
unnamed trovik/CMakeLists.txt 'cmake "PkgConfig"' pkgconf build
unnamed 'trovik/queue/.*' 'header "sqlite3.h"' libsqlite3-dev build
unnamed CMakePresets.json 'program "ninja"' ninja-build build
unnamed demo.sh 'program "povray"' povray 'build demo'
unnamed 'tests/.*' 'program "jq"' jq 'build test'
unnamed tests/page/CMakeLists.txt 'program "chromium"' chromium 'build test page'
unnamed 'tests/catalogue/.*' 'program "pgrep"' procps 'build test catalogue'
expect 'scripts/install-packages.sh: there is a reason for povray-includes in the set demo, which does not name it'
expect 'scripts/install-packages.sh: the reason for git in the set tidy is not needed, since it is called'
expect 'scripts/install-packages.sh: nothing calls hello of the set test; take it out, or give a reason: #   hello \[test\]: ...'

if [ "$failures" -ne 0 ]; then
  sed 's/^/  | /' "$tree/output"
  exit 1
fi
echo "every package that was taken out, and every one that is not needed, was found"
