# A second Ctrl-C kills what does not end.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
cat >draw.sh <<'END'
trap '' TERM
echo "deaf"
while :; do sleep 1000; done
END
"$TROVIK" run sketch shot_0001.txt --log-dir "$TMP/logs" >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$TMP/logs/work.log" deaf
kill -TERM $pid
wait_for "$TMP/out" stopping
kill -TERM $pid
code=0
wait $pid || code=$?
[ $code = 143 ] || fail "exit code $code"
out_has "stopping  killing what still runs"
out_has "stopped: 0 of 1 work good, 1 not done"
