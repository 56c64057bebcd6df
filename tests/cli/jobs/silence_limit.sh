# A program that says nothing for too long is ended.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
cat >draw.sh <<'END'
echo "still here"
sleep 1000 & wait
END
run 1 run sketch shot_0001.txt --log-dir "$TMP/logs" --set SilenceLimit=1s
grep '^failed  work' "$TMP/out" >"$TMP/failed"
grep -q -i 'output' "$TMP/failed" || { cat "$TMP/failed"; fail "silence is not named"; }
out_has "  | still here"
