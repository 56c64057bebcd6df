#!/usr/bin/env bash
# Installs the Debian packages that a task needs, and only those that are missing.
#
#   scripts/install-packages.sh SET...
#   scripts/install-packages.sh --list [SET]   prints the sets, or the packages of one
#
# Sets: build  to build program and module
#       demo   to render the demo sequence
#       shot   to make a movie of it, too
#       test   to build and run all tests
#       slurm  to run private clusters, as the tests do; installs daemons, but
#              starts none, now or with the machine
#       page   to drive the page in a browser
#       catalogue  the programs of all shipped types (1.4 GB)
#       tidy   to run clang-format and clang-tidy
#       bench  to build the benchmarks, draw curves and measure peers; that of the
#              page needs the set page, too
#       package  to make the Debian packages
#       fresh  to make bare Debian systems, as tests/fresh does
set -euo pipefail

fail() {
  printf 'install-packages.sh: %s\n' "$*" >&2
  exit 1
}

# What is called must be named, and what is named must be called (a test
# compares them), or have its reason here:
#   clang-format [test]: scripts/tidy.sh --format is one of the tests
#   ffmpeg [shot]: the movie of demo/shot.ini is made by it
#   fonts-dejavu-core [build]: the words on a sheet are drawn with it
#   npm [page]: tests/page/modules.sh names it by a variable, since some packages of nodejs bring it
#   povray-includes [demo test catalogue]: the scenes include its colours and textures
#   xauth [catalogue]: xvfb-run calls it
#   zsh [test]: started by script, for its completion
declare -A packages=(
  [build]="build-essential ccache cmake ninja-build fonts-dejavu-core libboost-dev libcli11-dev libdeflate-dev libfreetype-dev libmicrohttpd-dev libopenimageio-dev libsqlite3-dev nlohmann-json3-dev pkgconf"
  [demo]="povray povray-includes"
  [shot]="ffmpeg"
  [test]="bsdextrautils clang-format curl fish git jq libgtest-dev libonig-dev librapidcheck-dev mandoc povray povray-includes procps shfmt vim zsh"
  [slurm]="munge slurm-client slurmctld slurmd"
  [page]="chromium nodejs npm"
  [catalogue]="blender darktable ffmpeg ghostscript gnuplot-nox imagemagick inkscape librsvg2-bin mandelbulber2 openimageio-tools openscad poppler-utils povray povray-includes python3 synfig tachyon xauth xvfb"
  [tidy]="clang-format clang-tidy git"
  [bench]="gnuplot-nox imagemagick libbenchmark-dev libinih-dev libopenexr-dev libsimpleini-dev openimageio-tools parallel sqlite3"
  [package]="debhelper dpkg-dev git lintian"
  [fresh]="debootstrap git zstd"
)

if [ "${1:-}" = --list ]; then
  if [ $# -eq 1 ]; then
    printf '%s\n' "${!packages[@]}" | sort
    exit
  fi
  [ -n "${packages[$2]:-}" ] || fail "no set of packages is named \"$2\"; there are: ${!packages[*]}"
  tr ' ' '\n' <<<"${packages[$2]}"
  exit
fi

wanted=()
for set in "$@"; do
  [ -n "${packages[$set]:-}" ] || fail "no set of packages is named \"$set\"; there are: ${!packages[*]}"
  read -ra names <<<"${packages[$set]}"
  wanted+=("${names[@]}")
done
[ ${#wanted[@]} -gt 0 ] || fail "name at least one set of packages: ${!packages[*]}"

command -v dpkg-query >/dev/null ||
  fail "this is no Debian system (there is no dpkg-query); install by hand what stands for: ${wanted[*]}"

# What a package provides that is there already mostly cannot stand beside it.
provided=$(dpkg-query --show --showformat='${db:Status-Status}, ${Provides}\n' | sed -n 's/^installed, //p' |
  tr ',' '\n' | sed -E 's/ *\(.*//; s/^ +//')
missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query --show --showformat='${db:Status-Status}\n' "$package" 2>/dev/null || true)
  grep -qx installed <<<"$status" || grep -qxF -- "$package" <<<"$provided" || missing+=("$package")
done

if [ ${#missing[@]} -gt 0 ]; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || fail "packages are missing, and there is neither root nor sudo to install them.
As root: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi

  log=$(mktemp)
  trap 'rm -f "$log"' EXIT
  apt_get() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y "$@" >>"$log" 2>&1 </dev/null
  }

  # The system's own daemons of these packages are of no use here: none is
  # started. Packages ask this file first, wherever services are managed.
  quiet=()
  for package in "${missing[@]}"; do
    [[ " ${packages[slurm]} " != *" $package "* ]] || quiet+=("$package")
  done
  policy=/usr/sbin/policy-rc.d
  if [ ${#quiet[@]} -gt 0 ] && [ ! -e "$policy" ]; then
    trap 'rm -f "$log"; "${as_root[@]}" rm -f "$policy"' EXIT
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
    "${as_root[@]}" chmod 755 "$policy"
  fi

  printf 'Installing %s\n' "${missing[*]}"
  # The package lists of a fresh machine are empty, those of an old one name
  # versions that are gone: they are fetched when the first try shows it.
  if ! apt-get -s install --no-install-recommends "${missing[@]}" >/dev/null 2>&1 ||
    ! apt_get install --no-install-recommends "${missing[@]}"; then
    if ! { apt_get update && apt_get install --no-install-recommends "${missing[@]}"; }; then
      cat "$log" >&2
      fail "could not install: ${missing[*]}"
    fi
  fi

  for package in "${quiet[@]}"; do
    [ ! -e "/etc/init.d/$package" ] || "${as_root[@]}" update-rc.d "$package" disable >>"$log" 2>&1 ||
      printf 'install-packages.sh: could not switch off the service %s\n' "$package" >&2
  done
fi

# What the packages of an older release are too old for.
at_least() { # PROGRAM VERSION MINIMUM
  [ "$(printf '%s\n%s\n' "$2" "$3" | sort -V | head -n 1)" = "$3" ] ||
    fail "$1 $2 is too old: version $3 or later is needed, as in Debian 12"
}
if [[ " ${wanted[*]} " == *" build-essential "* ]]; then
  at_least g++ "$(g++ -dumpfullversion)" 12
  at_least cmake "$(cmake --version | sed -n '1s/[^0-9]*\([0-9.]*\).*/\1/p')" 3.25
fi
