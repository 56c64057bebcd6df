# What a program said, and what it left.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1

run 0 log last
sed -e 's/started [0-9-]* [0-9:]*, took [0-9.]* s/started DATE, took TIME/' -e 's/  [0-9]* bytes$/  SIZE/' \
  -e 's/^\(used     \)[0-9.]* s of processors, [0-9.]* MB of memory.*/\1LITTLE/' "$TMP/out" >"$TMP/log"
mv "$TMP/log" "$TMP/out"
out_is <<'END'
failed  2  job 1, attempt 1, started DATE, took TIME
reason   Error line: fatal: TMP/work/shot_0002.txt is broken
rule     an error line
command  /bin/sh -c ". ./\$0" draw.sh TMP/work/shot_0002.txt TMP/work/images
ended    with exit code 3
used     LITTLE
  | drawing TMP/work/shot_0002.txt
  | reading
  > fatal: TMP/work/shot_0002.txt is broken
  | giving up
log      TMP/home/state/trovik/logs/1/2-2.log  SIZE
END

# The whole log stands behind the verdict, byte for byte.
log=$XDG_STATE_HOME/trovik/logs/1/2-2.log
run 0 log 1 2 --all
tail -c "$(wc -c <"$log")" "$TMP/out" >"$TMP/end"
cmp "$TMP/end" "$log" || fail "--all does not print the log"

run 2 log 1 9
err_is <<'END'
trovik: error: job 1 has no frame 9
hint: its frames are 1-3
END

run 0 images 1
out_is <<'END'
TMP/work/images/shot_0001.drw
TMP/work/images/shot_0003.drw
END
run 1 images last --missing
out_is <<'END'
2
END
rm images/shot_0003.drw
run 1 images last --missing
out_is <<'END'
2-3
END
run 0 images 1
out_is <<'END'
TMP/work/images/shot_0001.drw
END
run 0 show 1
out_has "images     1 in $TMP/work/images"
out_has "good       1,3"
out_has "no longer  3  its file is gone, damaged or changed since"
out_has "trovik retry 1 --missing && trovik engine --job 1  render again what is gone"
run 0 show 1 --json
"$HELPER" json /frames/good /gone <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"1,3" "3"
END
run 0 images 1 --json
"$HELPER" json /kind /job /files/0/frame /files/0/problem <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"images" 1 1 null
END
