#!/usr/bin/env bash
# One scene file is picked; its neighbours are found, and every one is rendered
# to an image of its name beside the scenes.
source "$(dirname "$0")/harness.sh"

mkdir set
cp "$demo"/scene_000[1-4].pov "$demo/orrery.inc" set
render set/scene_0002.pov
expect_status 0
expect_text "all 4 frames good"
expect_only set/images scene_0001.png scene_0002.png scene_0003.png scene_0004.png
expect_png set/images/*.png
for frame in 2 3 4; do
  cmp -s set/images/scene_0001.png "set/images/scene_000$frame.png" && fail "frames 1 and $frame are the same picture"
done

# Elsewhere, and only a part.
render set/scene_0002.pov --out "else/where" --range 3-4
expect_status 0
expect_only else/where scene_0003.png scene_0004.png
