#!/usr/bin/env bash
# Of a finished sequence some images are deleted, cut short or emptied: exactly
# their frames are rendered again, and the contact sheet shows where they were.
source "$(dirname "$0")/harness.sh"

mkdir set
for frame in $(seq 24); do
  ball "set/ball_$(printf '%03d' "$frame").pov" "sphere { <$frame/10, 0, 0>, 0.2 pigment { rgb x } }"
done
render set/ball_001.pov
expect_status 0
expect_text "all 24 frames good"
images=set/images

rm $images/ball_003.png $images/ball_010.png $images/ball_017.png
truncate -s -40 $images/ball_005.png
truncate -s 300 $images/ball_012.png
: >$images/ball_021.png
before=$(cd $images && md5sum ./*)

sheet() { # WHAT IT SAYS
  "$trovik" sheet last -o "$tree/sheet.png" --width 80 >"$output" 2>&1 </dev/null || fail "no sheet"
  expect_text "$1"
  [ "$(od -An -tx1 -N8 "$tree/sheet.png" | tr -d ' \n')" = 89504e470d0a1a0a ] || fail "the sheet is no PNG"
}
sheet "24 frames: 18 good, 3 missing, 3 damaged"

render set/ball_001.pov --missing
expect_status 0
expect_text "18 frames are good already"
started=$(sed -n 's/^started  //p' "$output" | sort -n | tr '\n' ' ')
[ "$started" = "3 5 10 12 17 21 " ] || fail "these were rendered: $started"
expect_text "all 24 frames good"
expect_png $images/*.png
sheet "24 frames: 24 good"
# What was good is untouched.
untouched=$(printf '%s\n' "$before" | grep -v -e _003 -e _005 -e _010 -e _012 -e _017 -e _021)
(cd $images && printf '%s\n' "$untouched" | md5sum --quiet -c) || fail "a good image was rendered again"

render set/ball_001.pov --missing
expect_status 0
expect_text "nothing is missing: all 24 frames have good files"

# The same for a job of the queue.
rm $images/ball_007.png
truncate -s 100 $images/ball_008.png
"$trovik" retry last --missing >"$output" 2>&1 </dev/null || fail "no retry"
expect_text "2 frames"
"$trovik" engine --until-empty >"$output" 2>&1 </dev/null || fail "the engine failed"
started=$(sed -n 's/.*started  \([0-9-]*\).*/\1/p' "$output" | sort -n | tr '\n' ' ')
[ "$started" = "7 8 " ] || [ "$started" = "7-8 " ] || fail "these were rendered: $started"
sheet "24 frames: 24 good"
