# The events of a run as JSON, one a line, the summary last.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1 --log-dir "$TMP/logs" --json
"$HELPER" json /version /kind /frames <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
1 "run.started" 2
1 "work.started" "1"
1 "work.image" "1"
1 "work.finished" "1"
1 "work.started" "2"
1 "work.failed" "2"
1 "run.summary" {"good":"1","failed":"2","notDone":""}
END
sed -n 6p "$TMP/out" | "$HELPER" json /reason /lines/2 /again /log | sed "s|$TMP|TMP|g" >"$TMP/values"
file_is "$TMP/values" <<'END'
"Error line: fatal: TMP/work/shot_0002.txt is broken" "fatal: TMP/work/shot_0002.txt is broken" false "TMP/logs/2-2.log"
END
err_is_empty
