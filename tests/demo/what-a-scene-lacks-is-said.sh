#!/usr/bin/env bash
# Missing include files, pictures and fonts, and a scene's own #error.
source "$(dirname "$0")/harness.sh"

lacks() { # LINE MESSAGE
  ball s/one.pov "$1"
  render s/one.pov
  expect_status 1
  expect_text "failed  work  Error line: "
  expect_said "$2"
  [ ! -e s/images/one.png ] || fail "there is an image although: $1"
}

lacks '#include "nosuch.inc"' "Cannot open include file nosuch.inc"
lacks 'box { 0, 1 pigment { image_map { png "nosuch.png" } } }' "Possible Parse Error: Cannot find image file."
lacks 'text { ttf "nosuch.ttf" "x" 1, 0 }' "Possible Parse Error: Cannot open font file."
lacks '#error "the artist stops here"' "Parse Error: Parse halted by #error directive: the artist stops here"

# An include file beside the scene, or in a library folder with a blank, is found.
mkdir -p "a library" s
echo '#declare Beside = 1;' >s/beside.inc
echo '#declare Apart = 1;' >"a library/apart.inc"
ball s/one.pov '#include "beside.inc"' '#include "apart.inc"'
render s/one.pov --set "LibraryPath=$tree/nowhere;$tree/a library"
expect_status 0
expect_png s/images/one.png
