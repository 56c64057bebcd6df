# Names and logs come through the page as text, whatever they hold and however
# long they are; and who says half a sentence is not waited for.
. "$(dirname "$0")/../lib.sh"
. "$(dirname "$0")/../page-lib.sh"
sketch_type
markup='<script>alert("1")</script>&amp;'
odd=$(printf 'tab\there\033[31mred\007\377\302')

# A scene with markup in its name, and a job of a name that is no text.
printf 'broken %s\n' "$markup" >"a_$(printf '%s' "$markup" | tr / _)_0001.txt"
run 1 run sketch "a_$(printf '%s' "$markup" | tr / _)_0001.txt" --slots 1 --set Retries=0 --set "Name=$markup"
echo scene >b_0001.txt
echo scene >b_0002.txt
run 0 run sketch b_0001.txt --slots 1 --set "Name=$odd" --out "out $(printf '\377')"
start_page

tells /api/jobs /jobs/0/name /jobs/1/name <<END
"<script>alert(\"1\")</script>&amp;" {"hex":"$(printf '%s' "$odd" | od -An -tx1 | tr -d ' \n')"}
END
grep -q '^Content-Type: application/json' "$TMP/head" || fail "JSON is sent as something else"
tells /api/jobs/1 /name /failures/0/works <<'END'
"<script>alert(\"1\")</script>&amp;" 1
END
tells /api/jobs/2/cells /states <<'END'
"gg"
END
status 200 -b "$jar" "$url/api/jobs/2/frames/1"
grep -q '"file":{"hex":"[0-9a-f]*ff2f625f303030312e647277"}' "$TMP/body" || fail "the name of the file is lost"
file=$(curl -s -b "$jar" "$url/api/jobs/2/cells" | "$HELPER" json /files/0)
status 200 -b "$jar" "$url/api/files/$file/original"
cmp -s "$TMP/body" b_0001.txt || fail "the file is another one"

# A refusal quotes what was asked as text.
status 404 -b "$jar" "$url/%3Cscript%3Ealert(1)%3C/script%3E"
status 403 "$url/%3Cscript%3Ealert(1)%3C/script%3E"
! grep -q '<script>' "$TMP/body" || fail "a refusal runs"
status 405 -b "$jar" -X '<SCRIPT>' "$url/"

# A log of 100 MB costs a piece of it.
log=$XDG_STATE_HOME/trovik/logs/2/1-1.log
head -c 104857600 /dev/zero | tr '\0' x >"$log"
printf '\nthe end\377\n' >>"$log"
attempt=$(curl -s -b "$jar" "$url/api/jobs/2/frames/1" | "$HELPER" json /attempts/0/id)
status 200 -b "$jar" "$url/api/attempts/$attempt/log"
[ "$(wc -c <"$TMP/body")" -lt 200000 ] || fail "a piece of the log is $(wc -c <"$TMP/body") bytes"
tells "/api/attempts/$attempt/log?from=52428800" /from /next /size <<'END'
52428800 52494336 104857610
END
tells "/api/attempts/$attempt/log?from=-10" /text /next <<'END'
{"hex":"0a74686520656e64ff0a"} 104857610
END
tells "/api/attempts/$attempt/log?from=99999999999999" /text /next <<'END'
"" 104857610
END
status 200 -b "$jar" "$url/api/jobs/2/frames/1"
# In place of a log that leads elsewhere there is none.
echo mine >"$TMP/secret"
rm "$log"
ln -s "$TMP/secret" "$log"
status 200 -b "$jar" "$url/api/attempts/$attempt/log"
! grep -q mine "$TMP/body" || fail "a link leads out"
status 200 -b "$jar" "$url/api/jobs/2/frames/1"
! grep -q mine "$TMP/body" || fail "a link leads out"

# Half a request is left after some seconds, and others are answered meanwhile.
for half in 1 2 3 4 5; do
  curl -s --max-time 60 -b "$jar" -H 'Content-Type: application/json' -H 'Content-Length: 100' -d '{' \
    "$url/api/jobs/1/retry" >"$TMP/half$half" 2>&1 && echo answered >"$TMP/half$half.end" || echo left >"$TMP/half$half.end" &
done
status 200 -b "$jar" "$url/api/jobs"
for half in 1 2 3 4 5; do
  wait_for "$TMP/half$half.end" left
done
status 200 -b "$jar" "$url/api/jobs"

# 230 listen at the same time, which is nearly all that one address may, and the
# page goes on; when they leave others are let in.
listeners=
trap 'rm -rf "$TMP"; for one in $pid $listeners; do kill "$one" 2>/dev/null || :; done' EXIT
for part in 1 2 3 4 5; do
  urls=
  for number in $(seq 46); do urls="$urls -o $TMP/heard.$part.$number $url/api/events"; done
  # shellcheck disable=SC2086  # a word each
  curl -s -N -b "$jar" --parallel --parallel-immediate --parallel-max 60 $urls &
  listeners="$listeners $!"
done
for part in 1 2 3 4 5; do
  for number in $(seq 46); do
    wait_for "$TMP/heard.$part.$number" 'event: hello'
  done
done
status 200 -b "$jar" "$url/api/jobs"
run 0 retry 2 --frames 1
for part in 1 3 5; do
  wait_for "$TMP/heard.$part.46" '"jobs":[2]'
done
stop_page
