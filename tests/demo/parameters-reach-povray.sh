#!/usr/bin/env bash
# Formats, declared values, frames of a single scene, and what is refused.
source "$(dirname "$0")/harness.sh"

# Every format that is offered is one that this POV-Ray can write.
ball s/one.pov
while read -r format extension signature; do
  render s/one.pov --set "OutputFormat=$format" --set BitsPerChannel=16 --set Alpha=Yes
  [ "$status" -eq 0 ] || fail "$format is not rendered"
  found=$(od -An -tx1 -N2 "s/images/one.$extension" | tr -d ' \n')
  [ "$found" = "$signature" ] || fail "one.$extension begins with $found"
done <<'FORMATS'
PNG png 8950
JPEG jpg ffd8
EXR exr 762f
HDR hdr 233f
TGA tga 0000
BMP bmp 424d
PPM ppm 5036
FORMATS
expect_only s/images one.png one.jpg one.exr one.hdr one.tga one.bmp one.ppm

# The scene stops unless it is told what it expects.
ball d/one.pov '#ifndef (A) #error "no A" #end' '#if (A != 3 | B != 0.5) #error "wrong values" #end'
render d/one.pov
expect_status 1
expect_text 'no A'
render d/one.pov --set "Declare=A=3;B=0.5"
expect_status 0

# One scene for several frames: the clock is the frame's number.
ball c/one.pov '#if (clock < 7 | clock > 8) #error "wrong clock" #end'
render c/one.pov --range 7-8
expect_status 0
expect_only c/images one_0007.png one_0008.png
render c/one.pov --range 9
expect_status 1
expect_text "wrong clock"

# POV-Ray takes one scene in a run.
for frame in 1 2 3 4; do ball "p/b_000$frame.pov"; done
render p/b_0001.pov --packet 4
expect_status 2
expect_text PacketSize
[ ! -e p/images ] || fail "something was rendered"

# A mistyped parameter never costs a night.
render p/b_0001.pov --set Antialis=No
expect_status 2
expect_text 'did you mean "Antialias"?'
