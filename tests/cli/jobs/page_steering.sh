# What the page does with jobs is what the verbs do, and it says which.
. "$(dirname "$0")/../lib.sh"
. "$(dirname "$0")/../page-lib.sh"
sketch_type
scenes 3
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1 --set Retries=0
start_page

done_is() { # POINTERS: values of the answer, on one line
  "$HELPER" json "$@" <"$TMP/body" >"$TMP/told"
  file_is "$TMP/told"
}
problem_is() {
  "$HELPER" json /kind /message <"$TMP/body" >"$TMP/told"
  file_is "$TMP/told"
}
steer() { # CODE PATH BODY
  status "$1" -b "$jar" -H 'Content-Type: application/json' -d "$3" "$url/api/jobs/$2"
  "$HELPER" documented "$FORMATS" <"$TMP/body" || fail "docs/formats.md lacks what $2 tells"
}

# A dry run changes nothing.
steer 200 1/retry '{"dryRun": true}'
done_is /kind /dryRun /text /command <<'END'
"page.done" true "job 1  1 frame to do: 2\n" "trovik retry 1"
END
steer 200 1/delete '{"dryRun": true}'
done_is /text /command <<'END'
"job 1  deleted\n" "trovik delete 1"
END
run 0 jobs --json
"$HELPER" json /jobs/0/state <"$TMP/out" >"$TMP/told"
file_is "$TMP/told" <<'END'
"failed"
END
[ -s "$XDG_STATE_HOME/trovik/logs/1/2-2.log" ] || fail "a dry run has removed a log"

# Each of them, with what the verb says.
steer 200 1/retry '{"frames": "1-3x2"}'
done_is /text /command <<'END'
"job 1  2 frames to do: 1,3\nNo engine is at work; start one with \"trovik engine\"\n" "trovik retry 1 --frames 1-3x2"
END
steer 200 1/hold '{}'
done_is /text /command <<'END'
"job 1  held\n" "trovik hold 1"
END
steer 200 1/set '{"changes": {"Priority": 80, "SlotsAtMost": "2"}}'
done_is /text /command <<'END'
"job 1  Priority 50 -> 80, SlotsAtMost 0 -> 2\n" "trovik set 1 \"Priority=80\" \"SlotsAtMost=2\""
END
steer 200 1/release '{}'
done_is /text /command <<'END'
"job 1  released\nNo engine is at work; start one with \"trovik engine\"\n" "trovik release 1"
END
steer 200 1/cancel '{"withFollowers": true}'
done_is /text /command <<'END'
"job 1  canceled\n" "trovik cancel 1 --with-followers"
END

# What is missing is what failed, was canceled, or lost its file since.
echo scene >shot_0002.txt
steer 200 1/retry '{"frames": "2"}'
run 0 engine --until-empty --slots 1
rm images/shot_0002.drw
steer 200 1/missing '{"dryRun": true}'
done_is /text /command <<'END'
"job 1  3 frames to do: 1-3\n" "trovik retry 1 --frames 1-3"
END
steer 200 1/missing '{}'
run 0 engine --until-empty --slots 1
steer 400 1/missing '{}'
problem_is <<'END'
"page.problem" "job 1: nothing is missing"
END

# What cannot be done is told in the verb's words.
steer 400 1/hold '{}'
problem_is <<'END'
"page.problem" "job 1 is good; there is nothing to hold"
END
steer 400 1/retry '{"frames": "7"}'
problem_is <<'END'
"page.problem" "job 1 has no frame 7"
END
steer 400 1/retry '{"frames": "1-"}'
steer 400 1/retry '{"frames": "$(reboot)"}'
steer 400 1/retry 'nothing'
steer 400 1/retry '{"dryRun": 1}'
steer 400 1/set '{"changes": {"Priority": 800}}'
steer 400 1/set '{"changes": {"Executable": "/bin/false"}}'
problem_is <<'END'
"page.problem" "\"Executable\" cannot change once a job is in the queue"
END
steer 404 9/retry '{}'
steer 404 1/reboot '{}'

steer 200 1/delete '{}'
tells /api/jobs /jobs <<'END'
[]
END
stop_page

# A page that only shows does none of it.
run 0 submit sketch shot_0001.txt
start_page --read-only
steer 403 2/cancel '{}'
problem_is <<'END'
"page.problem" "this page only shows"
END
tells /api/about /readOnly <<'END'
true
END
stop_page
run 0 jobs --json
"$HELPER" json /jobs/0/state <"$TMP/out" >"$TMP/told"
file_is "$TMP/told" <<'END'
"waiting"
END

# A page of another queue says so in the command.
mkdir "$TMP/other queue"
run 0 submit sketch shot_0001.txt --state "$TMP/other queue"
start_page --state "$TMP/other queue"
steer 200 1/cancel '{"dryRun": true}'
"$HELPER" json /command <"$TMP/body" | grep -q -F 'trovik cancel 1 --state' || fail "the command is of another queue"
stop_page

# The printed form for programs.
"$HELPER" signals "$TROVIK" page --json >"$TMP/page.out" 2>"$TMP/page.err" &
pid=$!
wait_for "$TMP/page.out" readOnly
"$HELPER" documented "$FORMATS" <"$TMP/page.out" || fail "docs/formats.md lacks what page --json tells"
stop_page
