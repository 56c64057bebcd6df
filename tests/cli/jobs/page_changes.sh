# Who listens to the page hears of each change of the queue, whoever made it.
. "$(dirname "$0")/../lib.sh"
. "$(dirname "$0")/../page-lib.sh"
sketch_type
scenes 3
start_page
tells /api/jobs /jobs <<'END'
[]
END

listener=
trap 'rm -rf "$TMP"; for one in $pid $listener; do kill "$one" 2>/dev/null || :; done' EXIT
curl -s -N -b "$jar" "$url/api/events" >"$TMP/events" &
listener=$!
wait_for "$TMP/events" 'event: hello'
grep -q '^retry: 2000' "$TMP/events" || fail "nobody is told when to come again"
grep -q '^data: {"revision":[0-9]*,"readOnly":false,"program":"[0-9.]*"}' "$TMP/events" || fail "hello tells nothing"

# The last event tells of a job; it is awaited.
changed() { # JOB COUNT: so many events of the job are there
  while [ "$(grep -c "^data: {\"revision\":[0-9]*,\"jobs\":\[$1\]" "$TMP/events")" -lt "$2" ]; do
    kill -0 "$listener" 2>/dev/null || fail "the events ended"
    sleep 0.02
  done
}
run 0 submit sketch shot_0001.txt
changed 1 1
tells /api/jobs /jobs/0/state /jobs/0/strip <<'END'
"waiting" "www"
END
run 0 set 1 Priority=70
changed 1 2
run 0 hold 1
changed 1 3
run 0 release 1
changed 1 4
run 0 engine --until-empty --slots 1
changed 1 5
# Of what came one after the other some may have been told together, but the
# last of it is told.
until curl -s -b "$jar" "$url/api/jobs" | grep -q '"strip":"ggg"'; do sleep 0.02; done
last=$(curl -s -b "$jar" "$url/api/jobs" | "$HELPER" json /jobs/0/revision)
wait_for "$TMP/events" "{\"revision\":$last,\"jobs\":[1]"
# Who asks for the jobs takes no change from those who listen.
run 0 retry 1 --frames 1
for priority in 1 2 3 4 5 6 7 8 9 10; do
  run 0 set 1 "Priority=$priority"
  last=$(curl -s -b "$jar" "$url/api/jobs" | "$HELPER" json /jobs/0/revision)
  wait_for "$TMP/events" "{\"revision\":$last,\"jobs\":[1]"
done
run 0 cancel 1
run 0 delete 1
until tail -n 3 "$TMP/events" | grep -q '"jobs":\[1\]'; do sleep 0.02; done
tells /api/jobs /jobs <<'END'
[]
END

# A page that is started anew is a later one.
curl -s -b "$jar" "$url/api/jobs" | "$HELPER" json /revision >"$TMP/before"
stop_page
wait "$listener" || :
listener=
start_page
curl -s -b "$jar" "$url/api/jobs" | "$HELPER" json /revision >"$TMP/after"
[ "$(cat "$TMP/before")" -lt "$(cat "$TMP/after")" ] || fail "the revision went back"
stop_page
