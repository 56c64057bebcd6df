# Ctrl-C ends the programs politely and says what is done and what is not.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 4
cat >draw.sh <<'END'
case $1 in
*1.txt) ;;
*) trap 'echo "asked to end"; exit 0' TERM
   echo "waiting"
   sleep 1000 & wait ;;
esac
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
"$HELPER" signals "$TROVIK" run sketch shot_0001.txt --slots 1 --log-dir "$TMP/logs" >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$TMP/logs/2-2.log" waiting
kill -INT $pid
code=0
wait $pid || code=$?
[ $code = 130 ] || fail "exit code $code"
out_is <<'END'
job 1  Sketch: 4 frames (1-4) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/logs
started  1
image  TMP/work/images/shot_0001.drw
finished  1  TIME
started  2
stopping  asked 1 program to end; once more kills at once
ended  2  not done
stopped: 1 of 4 frames good, 3 not done, in TIME
not done  2-4
images  1 in TMP/work/images
logs  TMP/logs
To do the rest, give "trovik engine --job 1"
END
file_is "$TMP/logs/2-2.log" <<'END'
waiting
asked to end
END

# What is advised does what it says, and both verbs advise the same.
printf '%s\n' 'cp "$1" "$2/$(basename "$1" .txt).drw"; echo "saved: $2/$(basename "$1" .txt).drw"' >draw.sh
run 0 show 1
out_has 'next       trovik engine --job 1  do the rest'
run 0 engine --job 1
out_has "all 4 frames good"

# A loop of the shell ends with the program.
cat >draw.sh <<'END'
echo "waiting"
sleep 1000 & wait
END
cat >loop.sh <<'END'
for scene in 1 2 3; do
  "$TROVIK" run sketch shot_0001.txt --range $scene --log-dir "$TMP/loop" || :
  echo "round $scene" >>"$TMP/rounds"
done
END
export TROVIK TMP
: >"$TMP/rounds"
"$HELPER" signals /usr/bin/setsid /bin/bash loop.sh >"$TMP/out" 2>"$TMP/err" </dev/null &
pid=$!
wait_for "$TMP/loop/1-1.log" waiting
kill -INT -$pid
code=0
wait $pid || code=$?
pid=
[ $code = 130 ] || fail "exit code $code of the loop"
file_is "$TMP/rounds" </dev/null
