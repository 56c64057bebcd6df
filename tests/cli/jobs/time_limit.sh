# A program that hangs is ended by the run-time limit, and so are its children.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
cat >draw.sh <<'END'
case $1 in *2.txt) echo "hanging"; sleep 1000 & wait ;; esac
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
run 1 run sketch shot_0001.txt --slots 2 --log-dir "$TMP/logs" --set RunTimeLimit=1
grep '^failed  2' "$TMP/out" >"$TMP/failed"
[ "$(wc -l <"$TMP/failed")" = 2 ] || fail "the failure is not told twice, at once and in the summary"
grep -q 'limit' "$TMP/failed" || { cat "$TMP/failed"; fail "the limit is not named"; }
out_has "  | hanging"
out_has "1 of 2 frames good, 1 failed"
