# A job is put into the queue, and an engine works it off; higher priorities
# come first.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
run 0 submit sketch shot_0001.txt
out_is <<'END'
job 1  2 frames (1-2)
No engine is at work; start one with "trovik engine"
END
run 0 submit sketch shot_0001.txt --range 2 --priority 90 --out "$TMP/first" --json
"$HELPER" json /kind /job /frames /works /engine <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"job.submitted" 2 "2" 1 false
END
[ ! -e images ] || fail "something was rendered"

run 0 engine --until-empty --slots 1
out_is <<'END'
engine on 1 slot
queue  TMP/home/state/trovik
job 2  Sketch: 1 frame (2) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/home/state/trovik/logs/2
job 2  started  2
job 2  image  TMP/first/shot_0002.drw
job 2  finished  2  TIME
job 2  1 frame good, in TIME
images  1 in TMP/first
job 1  Sketch: 2 frames (1-2) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/home/state/trovik/logs/1
job 1  started  1
job 1  image  TMP/work/images/shot_0001.drw
job 1  finished  1  TIME
job 1  started  2
job 1  image  TMP/work/images/shot_0002.drw
job 1  finished  2  TIME
job 1  all 2 frames good, in TIME
images  2 in TMP/work/images
END
run 0 engine --until-empty --slots 1
out_is <<'END'
engine on 1 slot
queue  TMP/home/state/trovik
END
