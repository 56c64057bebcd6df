# A file server that is gone holds up what is asked about its folder, and
# nothing else; when it is back, all is told again.
. "$(dirname "$0")/../lib.sh"
. "$(dirname "$0")/../page-lib.sh"
sketch_type
scenes 2
mkdir away
cp shot_000*.txt draw.sh away
run 0 run sketch away/shot_0001.txt
run 0 run sketch shot_0001.txt
run 0 submit sketch away/shot_0001.txt --set Priority=10
LD_PRELOAD=$HANGING_FOLDER_LIBRARY HANGING_FOLDER=$PWD/away HANGING_WHILE=$TMP/server-is-gone
export LD_PRELOAD HANGING_FOLDER HANGING_WHILE
start_page
unset LD_PRELOAD

for job in 1 2; do
  tells /api/jobs/$job/cells /states <<'END'
"gg"
END
done
status 200 -b "$jar" "$url/api/jobs/1/cells"
away=$("$HELPER" json /files/0 <"$TMP/body")

: >"$HANGING_WHILE"
for path in jobs/1 jobs/1/cells jobs/1/frames/1 "files/$away/original" "files/$away/picture?w=160"; do
  # No answer within a second: but all others have theirs.
  code=0
  curl -s -o /dev/null --max-time 1 -b "$jar" "$url/api/$path" || code=$?
  [ "$code" = 28 ] || fail "$path is answered with the code $code"
  tells /api/jobs/2/cells /states <<'END'
"gg"
END
  tells /api/jobs /jobs/0/state <<'END'
"good"
END
done
status 200 -b "$jar" "$url/api/machine"
"$HELPER" json /disks/1/directory /disks/1/free <"$TMP/body" >"$TMP/told"
file_is "$TMP/told" <<END
"$PWD/away/images" null
END
post /api/jobs/2/retry '{"frames": "1"}'

rm "$HANGING_WHILE"
tells /api/jobs/1/cells /states <<'END'
"gg"
END
status 200 -b "$jar" "$url/api/files/$away/original"
stop_page
