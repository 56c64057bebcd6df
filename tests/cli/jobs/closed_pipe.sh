# Whoever stops reading the output does not stop the run.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 5
mkfifo "$TMP/pipe"
"$TROVIK" run sketch shot_0001.txt --slots 1 --log-dir "$TMP/logs" >"$TMP/pipe" 2>"$TMP/err" </dev/null &
pid=$!
head -n 1 <"$TMP/pipe" >"$TMP/first"
code=0
wait $pid || code=$?
[ $code = 0 ] || fail "exit code $code"
grep -q '^job 1  Sketch: 5 frames' "$TMP/first" || fail "no first line"
for number in 1 2 3 4 5; do
  [ -s "images/shot_000$number.drw" ] || fail "frame $number is missing"
done
err_is_empty
