#!/usr/bin/env bash
# Makes the Debian packages of what the preset "release" builds, in
# build/packages: trovik, trovik-dev and trovik-dbgsym, the debug symbols.
#
#   scripts/package.sh
set -euo pipefail
cd "$(dirname "$0")/.."

say() { printf '== %s\n' "$*"; }
fail() {
  printf 'package.sh: %s\n' "$*" >&2
  exit 1
}
[ $# -eq 0 ] || fail "unknown arguments \"$*\"; there are none"

say "Packages"
scripts/install-packages.sh build package

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
quietly() { # WHAT COMMAND...
  "${@:2}" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "$1 failed"; }
}

say "Build"
# The tests are left out of a first build, and stay in one that has them.
options=()
[ -f build/release/CMakeCache.txt ] || options=(-DTROVIK_BUILD_TESTS=OFF)
scripts/build.sh release "${options[@]}" trovik trovik-image Tessivar catalogue

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/release/CMakeCache.txt)
packed=$(dpkg-parsechangelog -l packaging/debian/changelog -S Version)
[ "$version" = "$packed" ] ||
  fail "packaging/debian/changelog: its newest entry is of version $packed, CMakeLists.txt says $version; add an entry"

say "Package"
rm -f build/packages/*.deb
# The same commit gives the same packages. The checkout may belong to another
# user, as in containers.
if [ -z "${SOURCE_DATE_EPOCH:-}" ] && [ -e .git ]; then
  SOURCE_DATE_EPOCH=$(git -c safe.directory='*' log -1 --format=%ct)
  export SOURCE_DATE_EPOCH
fi
export TROVIK_BUILD=$PWD/build/release
mkdir "$work/trovik"
cp -R packaging/debian "$work/trovik/"
chmod -R u=rwX,go=rX "$work/trovik"
(
  umask 022
  cd "$work/trovik"
  quietly "making the packages" dpkg-buildpackage --build=binary --no-sign
)
debs=("$work"/*.deb)

say "Check"
lintian --allow-root --fail-on error "${debs[@]}" || fail "lintian has found an error"
for deb in "$work"/trovik_*.deb "$work"/trovik-dev_*.deb; do
  dpkg-deb --extract "$deb" "$work/tree"
done
tests/install/check-search-paths.sh "$work/tree/usr" || fail "a file of the packages searches libraries elsewhere"

suffix=${version}_$(dpkg --print-architecture).deb
mkdir -p build/packages
mv "${debs[@]}" build/packages/
say "The packages are in $PWD/build/packages"
ls build/packages
cat <<END
To install them, as root, here or on another machine with Debian 12:
  cd "$PWD/build/packages"
  apt install ./trovik_$suffix                                # the program
  apt install ./trovik_$suffix ./trovik-dev_$suffix       # and to build modules in C++
  apt install ./trovik_$suffix ./trovik-dbgsym_$suffix    # and for the debugger
END
