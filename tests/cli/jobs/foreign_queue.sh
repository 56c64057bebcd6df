# A queue that came from elsewhere is looked at, and neither started nor
# obeyed: no program, no end command, and no folder that it names is removed.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
run 0 submit sketch shot_0001.txt --on-end "\"$HELPER\" args \"$TMP/pwned\" x"
mkdir "$TMP/copy"
cp "$XDG_STATE_HOME/trovik/queue.db" "$TMP/copy/queue.db"
run 0 jobs --state "$TMP/copy"
out_has Sketch
run 2 engine --state "$TMP/copy" --job 1
grep -q 'it came with a copy of another queue, or of an older trovik; if you know what it starts, "trovik retry 1" makes it your own' \
  "$TMP/err" || fail "the engine does not say why"
[ ! -e images ] || fail "the program was started"
mkdir -p "$TMP/copy/logs/1"
echo kept >"$TMP/copy/logs/1/1-1.log"
run 0 cancel 1 --state "$TMP/copy"
run 0 engine --until-empty --state "$TMP/copy"
grep -q 'job 1: its end command is not started, since the job came with a copy of another queue' "$TMP/err" ||
  fail "the end command is not told"
run 0 delete 1 --state "$TMP/copy"
[ -e "$TMP/copy/logs/1/1-1.log" ] || fail "the logs were removed"
[ ! -e "$TMP/pwned" ] || fail "the end command was started"
# The queue that it was copied from goes on as ever.
run 0 engine --until-empty
[ -s images/shot_0002.drw ] || fail "the own job was not worked off"
# It also starts the job's end command, and does not wait for it.
wait_for_lines "$TMP/pwned" 1
