# Every byte that a program prints is in its log, as it comes.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
cat >draw.sh <<'END'
printf 'a\033[31mred\033[0m\r\n10%%\r20%%\r\000\377half line'
cp "$1" "$2/x.drw"
printf '\nsaved: x.drw' >&2
cp "$1" x.drw
END
run 0 run sketch shot_0001.txt
printf 'a\033[31mred\033[0m\r\n10%%\r20%%\r\000\377half line\nsaved: x.drw' >"$TMP/expected"
logs=$(sed -n 's/^logs  //p' "$TMP/out")
[ "$logs" = "$XDG_STATE_HOME/trovik/logs/1" ] || fail "the logs are in $logs"
cmp "$TMP/expected" "$logs/work.log" || fail "the log differs"

: >"$TMP/file"
run 2 run sketch shot_0001.txt --log-dir "$TMP/file/logs"
err_is <<'END'
trovik: error: cannot make the folder for the logs "TMP/file/logs": Not a directory
hint: choose another with --log-dir
END
