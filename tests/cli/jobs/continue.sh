# A run that was killed is gone on with by the same command: what was good is
# not rendered again. Ctrl-C puts the job aside until then.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
cat >draw.sh <<'END'
echo "$(basename "$1")" >>../journal
case $1 in
*2.txt) [ -e ../go ] || { echo "waiting"; sleep 1000 & wait; } ;;
esac
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
"$HELPER" signals "$TROVIK" run sketch shot_0001.txt --slots 1 >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$XDG_STATE_HOME/trovik/logs/1/2-2.log" waiting
kill -KILL $pid
wait $pid 2>/dev/null || :

"$HELPER" signals "$TROVIK" run sketch shot_0001.txt --slots 1 >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$XDG_STATE_HOME/trovik/logs/1/2-2.attempt2.log" waiting
kill -INT $pid
wait $pid || :
out_has "1 frame is good already"
out_has 'To do the rest, give "trovik engine --job 1"'
run 0 engine --until-empty
grep -q '^job 1' "$TMP/out" && fail "an engine took the job that was put aside"
: >../go
run 0 run sketch shot_0001.txt --slots 1
out_has "all 3 frames good"
sort ../journal >"$TMP/sorted"
file_is "$TMP/sorted" <<'END'
shot_0001.txt
shot_0002.txt
shot_0002.txt
shot_0002.txt
shot_0003.txt
END
# Another job, since this one is finished now.
run 0 run sketch shot_0001.txt --slots 1 --range 3
out_has "job 2  Sketch: 1 frame (3)"
run 0 run sketch shot_0001.txt --slots 1
out_has "job 3  Sketch: 3 frames (1-3)"

# Where no engine is at work, the verbs that change jobs take up what a dead one
# left: its job can be canceled and deleted at once.
rm ../go
"$TROVIK" run sketch shot_0001.txt --slots 1 --range 2 >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$XDG_STATE_HOME/trovik/logs/4/2-2.log" waiting
kill -KILL $pid
wait $pid 2>/dev/null || :
pid=
run 0 cancel 4
run 0 show 4 --json
"$HELPER" json /state <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"canceled"
END
run 0 delete 4
