# A job looks the same whoever works on it; leaving does not disturb it.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
cat >draw.sh <<'END'
echo "drawing $1"
while [ ! -e "$(basename "$1" .txt).go" ]; do sleep 0.02; done
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
run 0 submit sketch shot_0001.txt

"$HELPER" signals "$TROVIK" watch last >"$TMP/left" 2>&1 </dev/null &
pid=$!
wait_for "$TMP/left" "waiting"
kill -INT "$pid"
code=0
wait "$pid" || code=$?
pid=
[ "$code" = 130 ] || fail "leaving gives exit code $code"
file_is "$TMP/left" <<END
job 1  Sketch: 2 frames (1-2)
scene  $TMP/work/shot_%04d.txt
logs  $XDG_STATE_HOME/trovik/logs/1
waiting  no engine is at work; start one with "trovik engine"
left  job 1 stays in the queue
END

"$TROVIK" engine --until-empty --slots 1 >"$TMP/engine" 2>&1 </dev/null &
engine=$!
pid=$engine
wait_for "$TMP/engine" "started  1"
"$TROVIK" watch 1 >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$TMP/out" "started  1"
: >shot_0001.go
wait_for "$TMP/out" "started  2"
: >shot_0002.go
wait "$pid" || fail "watch gives exit code $?"
pid=$engine
wait "$engine" || fail "the engine failed"
pid=
out_is <<'END'
job 1  Sketch: 2 frames (1-2) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/home/state/trovik/logs/1
started  1
image  TMP/work/images/shot_0001.drw
finished  1  TIME
started  2
image  TMP/work/images/shot_0002.drw
finished  2  TIME
all 2 frames good, in TIME
images  2 in TMP/work/images
END

# One that has ended is told at once.
run 0 watch last --json
"$HELPER" json /kind <"$TMP/out" >"$TMP/kinds"
file_is "$TMP/kinds" <<'END'
"run.started"
"run.summary"
END
