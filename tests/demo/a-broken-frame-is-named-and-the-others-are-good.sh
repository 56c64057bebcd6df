#!/usr/bin/env bash
# One scene file of four is broken: that frame is named with POV-Ray's own
# words, the others are there, and the exit code tells of the failure.
source "$(dirname "$0")/harness.sh"

for frame in 1 2 3 4; do ball "s/b_000$frame.pov"; done
echo 'sphere { oops' >>s/b_0003.pov
render s/b_0001.pov
expect_status 1
expect_text "3 of 4 frames good, 1 failed"
expect_text "failed  3  Error line: "
expect_only s/images b_0001.png b_0002.png b_0004.png
expect_png s/images/*.png

# The log of the frame is kept and holds the whole of what was said.
expect_said "b_0003.pov' line 7: Parse Error: Expected 'numeric expression', undeclared identifier 'oops' found instead"

# Mended, the frame alone is rendered.
ball s/b_0003.pov
render s/b_0001.pov --range 3
expect_status 0
expect_only s/images b_0001.png b_0002.png b_0003.png b_0004.png
