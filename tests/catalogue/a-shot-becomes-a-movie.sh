#!/usr/bin/env bash
# The demo's shot: its frames, then a movie of them; killed in between, the same
# file goes on with both.
source "$(dirname "$0")/../demo/harness.sh"

mkdir set
cp "$demo"/scene_*.pov "$demo"/orrery.inc set
sed 's/^Scene=scene_0001.pov/&\nRange=1-12\nWidth=64\nHeight=36/' "$demo/shot.ini" >set/shot.ini
grep -q '^Width=64' set/shot.ini || fail "the demo's shot has changed"

submit() {
  "$trovik" submit set/shot.ini >"$output" 2>&1 </dev/null || fail "submit fails"
}
submit
expect_text "render  job 1  12 frames (1-12)"
expect_text "waits  job 1 is waiting"
"$trovik" engine --until-empty >"$output" 2>&1 </dev/null &
engine=$!
until [ -e out/shot/images/scene_0003.png ]; do
  kill -0 "$engine" 2>/dev/null || fail "the engine has ended"
  sleep 0.05
done
kill -KILL "$engine"
wait "$engine" || true
submit
expect_text "goes on  job 1"
expect_text "goes on  job 2"
"$trovik" engine --until-empty >"$output" 2>&1 </dev/null || fail "the engine fails"
expect_text "job 1  all 12 frames good"
expect_text "job 2  all 12 frames good"
expect_png out/shot/images/*.png
[ "$(ls out/shot/images | wc -l)" = 12 ] || fail "there are not 12 frames"
expect_only out/shot/movie scene.mp4
[ "$(ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames -of csv=p=0 out/shot/movie/scene.mp4)" = 12 ] ||
  fail "the movie has not 12 frames"
