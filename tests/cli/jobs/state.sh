# The queue lies where its option or variable says; a damaged one is told.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
run 0 run sketch shot_0001.txt --state "$TMP/one"
run 0 --state "$TMP/one" jobs
out_has "good"
TROVIK_STATE=$TMP/two
export TROVIK_STATE
run 0 jobs
out_is <<'END'
no jobs
END
run 0 submit sketch shot_0001.txt
run 0 show last
out_has "logs       $TMP/two/logs/1"
run 0 jobs --state "$TMP/one"
out_has "good"
run 2 jobs --state ""
err_is <<'END'
trovik: error: --state: the name of the directory is empty
hint: leave it out for the usual one
END
run 2 jobs --state "$TMP/onne"
err_is <<'END'
trovik: error: --state: there is no queue in "TMP/onne"
hint: the usual one is in "TMP/two"
END
mkdir "$TMP/three"
echo "no database at all, but a text of some length" >"$TMP/three/queue.db"
run 2 jobs --state "$TMP/three"
grep -q "^trovik: error: .*$TMP/three/queue.db" "$TMP/err" || { cat "$TMP/err" >&2; fail "the damage is not told"; }
