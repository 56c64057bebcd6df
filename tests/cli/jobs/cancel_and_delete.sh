# Jobs are canceled and deleted, several at once; every problem is told.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
run 0 run sketch shot_0001.txt --slots 1
run 0 submit sketch shot_0001.txt --range 1
run 0 submit sketch shot_0001.txt --range 2

run 1 cancel 1 2 9
out_is <<'END'
job 2  canceled
END
err_is <<'END'
trovik: error: job 1 is good already; there is nothing to cancel
hint: "trovik delete 1" removes it
trovik: error: there is no job 9
hint: "trovik jobs" lists them
END
run 2 cancel 3 x
err_is <<'END'
trovik: error: "x" is not the number of a job
hint: jobs have whole numbers from 1 on, and the newest is "last"; "trovik jobs" lists them
END

[ -e "$XDG_STATE_HOME/trovik/logs/1/1-1.log" ] || fail "the first job has no logs"
run 0 delete 1 last
out_is <<'END'
job 1  deleted
job 3  deleted
END
[ ! -e "$XDG_STATE_HOME/trovik/logs/1" ] || fail "the logs are still there"
[ -e images/shot_0001.drw ] || fail "the image is gone"
run 0 jobs --json
"$HELPER" json /jobs/0/job /jobs/0/state /jobs/1 <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
2 "canceled" -
END

# A job whose works run is refused, canceled, and gone with its engine's work.
cat >draw.sh <<'END'
echo "drawing"
exec sleep 100
END
run 0 submit sketch shot_0001.txt --range 1
"$TROVIK" engine --until-empty --slots 1 >"$TMP/engine" 2>&1 </dev/null &
pid=$!
wait_for "$TMP/engine" "started"
run 2 delete last
err_is <<'END'
trovik: error: works of job 4 are running
hint: "trovik cancel 4" ends them; then delete it
END
run 0 cancel last
out_is <<'END'
job 4  canceled; 1 program is asked to end
END
wait "$pid" || fail "the engine failed"
pid=
run 0 delete last
