# The same command again goes on with the job that it began: at the same moment,
# with --missing, and after failures. It says what it keeps.
. "$(dirname "$0")/../lib.sh"
sketch_type
sed -i 's|^OutputFolder=.*|&\nExpectedFiles=$(OutputFolder)/$(ActualScene.Base).drw|' "$TMP/modules/sketch.tvx"
scenes 4
cp draw.sh good.sh

# Given several times at once it makes one job, and no frame is drawn twice. No
# frame ends before all of the commands are at it.
cat >draw.sh <<'END'
echo "$(basename "$1")" >>../journal
until [ -e ../go ]; do sleep 0.01; done
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
for round in 1 2 3 4 5 6; do
  rm -f ../go ../journal
  pids=
  for twin in 1 2 3; do
    missing=
    [ $twin = 1 ] || [ $((round % 2)) = 0 ] || missing=--missing
    "$TROVIK" run sketch shot_0001.txt --out "images$round" --slots 1 $missing \
      >"$TMP/out$twin" 2>"$TMP/err$twin" </dev/null &
    pids="$pids $!"
  done
  for twin in 1 2 3; do
    pid=${pids##* }
    wait_for "$TMP/out$twin" "Sketch: 4 frames (1-4)"
  done
  : >../go
  pid=
  for twin in $pids; do
    wait "$twin" || fail "a twin failed in round $round"
  done
  for twin in 1 2 3; do
    grep -q "^job $round " "$TMP/out$twin" || fail "twin $twin of round $round made a job of its own"
    grep -q "^all 4 frames good" "$TMP/out$twin" || fail "twin $twin of round $round: $(cat "$TMP/out$twin")"
  done
  [ "$(sort ../journal | uniq -d)" = "" ] || fail "frames were drawn twice in round $round"
  [ "$(cat "$TMP"/out[123] | grep -c '^goes on')" = 2 ] || fail "not two of three went on in round $round"
done
run 0 jobs --json
"$HELPER" json /jobs/5/job /jobs/6 <"$TMP/out" >"$TMP/values"
echo "6 -" | diff - "$TMP/values" || fail "there is not one job a round"

# With --missing, killed, and given again.
mkdir rest
cp images1/shot_0001.drw rest
rm -f ../go ../journal
"$TROVIK" run sketch shot_0001.txt --out rest --slots 1 --missing >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for ../journal "shot_0002.txt"
kill -KILL $pid
wait $pid 2>/dev/null || :
pid=
cp images1/shot_0004.drw rest # by somebody else
rm ../journal
# What the dead engine has left is ended before it may go on.
"$TROVIK" run sketch shot_0001.txt --out rest --slots 1 --missing >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$TMP/out" "  it is rendered again"
: >../go
wait $pid || fail "the rest is not good"
pid=
out_has "goes on  job 7 was not finished; 2 good frames are kept, --new renders all anew"
out_has "lost  2  Its engine died"
out_has "  it is rendered again"
out_has "all 4 frames good"
sort ../journal >"$TMP/sorted"
file_is "$TMP/sorted" <<'END'
shot_0002.txt
shot_0003.txt
END
run 0 run sketch shot_0001.txt --out rest --missing
out_is <<'END'
nothing is missing: all 4 frames have good files
END
run 0 show 7
out_has "lost       1 attempt with the engine, at 2"

# After failures, with the scene mended and an image gone.
cp good.sh draw.sh
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --out mended --slots 1
echo scene >shot_0002.txt
rm mended/shot_0004.drw
run 0 run sketch shot_0001.txt --out mended --slots 1
out_is <<'END'
goes on  job 8 had failures; 2 good frames are kept, --new renders all anew
again  4  its file is gone, damaged or changed since
job 8  Sketch: 4 frames (1-4) on 1 slot
scene  TMP/work/shot_%04d.txt
2 frames are good already
logs  TMP/home/state/trovik/logs/8
started  2  attempt 2 of 2
image  TMP/work/mended/shot_0002.drw
finished  2  TIME
started  4  attempt 2 of 2
image  TMP/work/mended/shot_0004.drw
finished  4  TIME
all 4 frames good, in TIME
images  4 in TMP/work/mended
END
# It ended well now, so it is rendered anew; so it is with --new in any case.
run 0 run sketch shot_0001.txt --out mended --slots 1
out_has "job 9  Sketch: 4 frames (1-4) on 1 slot"
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --out mended --slots 1
run 1 run sketch shot_0001.txt --out mended --slots 1 --new
out_has "job 11  Sketch: 4 frames (1-4) on 1 slot"

# submit does the same.
run 0 submit sketch shot_0001.txt --out mended
out_is <<'END'
goes on  job 11 had failures; 3 good frames are kept, --new renders all anew
job 11  1 frame (2), 3 good already
No engine is at work; start one with "trovik engine"
END
run 0 submit sketch shot_0001.txt --out mended --json
"$HELPER" json /job /frames /continued <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
11 "2" {"state":"running","underWay":false,"kept":"1,3-4","again":""}
END
