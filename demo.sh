#!/usr/bin/env bash
# Renders the demo sequence: installs what is needed, builds, finds the whole
# sequence from one picked scene file and renders it.
#
#   ./demo.sh [ARGUMENTS OF trovik run]...      e.g. ./demo.sh --range 1-6 --slots 4
#   ./demo.sh --shot      the frames and a movie of them, from one file; also
#                         installs ffmpeg
set -euo pipefail
cd "$(dirname "$0")"

say() { printf '== %s\n' "$*"; }

shot=
sets=(build demo)
if [ "${1:-}" = --shot ]; then
  [ $# = 1 ] || {
    echo "demo.sh: --shot takes no further arguments; demo/shot.ini says all" >&2
    exit 2
  }
  shot=yes
  sets+=(shot)
fi

say "Packages"
scripts/install-packages.sh "${sets[@]}"

say "Build"
# The tests are left out of a first build, and stay in one that has them.
options=()
[ -f build/release/CMakeCache.txt ] || options=(-DTROVIK_BUILD_TESTS=OFF)
scripts/build.sh release "${options[@]}" trovik trovik-image Tessivar catalogue

if [ -n "$shot" ]; then
  say "Render: trovik submit demo/shot.ini && trovik engine --until-empty"
  build/release/bin/trovik submit demo/shot.ini
  build/release/bin/trovik engine --until-empty
  [ -s out/shot/movie/scene.mp4 ] || {
    echo "demo.sh: there is no movie; \"trovik jobs\" tells how the jobs stand" >&2
    exit 1
  }
  say "The frames are in out/shot/images, the movie is out/shot/movie/scene.mp4"
  exit
fi

out=out/demo
say "Render: trovik run povray demo/scene_0012.pov --out $out $*"
status=0
build/release/bin/trovik run povray demo/scene_0012.pov --out "$out" "$@" || status=$?

if [ "$status" -ne 0 ]; then
  echo "demo.sh: trovik run ended with exit code $status" >&2
  exit "$status"
fi

# A path as a word for a shell, readable in any locale.
word() {
  case $1 in
  *[!A-Za-z0-9/._-]*) printf "'%s'" "${1//\'/\'\\\'\'}" ;;
  *) printf '%s' "$1" ;;
  esac
}
images=$(word "$PWD/$out")
program=$(word "$PWD/build/release/bin")
say "The images are in $images"
cat <<TEXT
== What next
The program is in $program. Once for this shell, or in your ~/.profile:
  export PATH=$program:"\$PATH"
Then:
  trovik sheet last -o sheet.png    all frames in one picture
  trovik show last                  how the job went
  trovik types                      what else it renders with
  trovik new                        a type for a program of yours; docs/tutorial.md
To install it for everyone: docs/install.md
TEXT
