# A job of which every frame fails alike stops before it has burnt the night.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 9
cat >draw.sh <<'END'
[ ! -e ../fixed ] || { cp "$1" "$2/$(basename "$1" .txt).drw"; echo "saved: $2/$(basename "$1" .txt).drw"; exit; }
echo "fatal: no licence for $1"
END
run 1 run sketch shot_0001.txt --slots 1 --set StopAfter=3 --set Retries=1 --log-dir "$TMP/logs"
out_has "stopped  Stopped: the first 3 works all failed alike: Error line: fatal: no licence for $TMP/work/shot_0003.txt"
[ "$(grep -c '^started' "$TMP/out")" = 3 ] || fail "not three were started"
: >../fixed
run 0 retry 1
run 0 engine --job 1
out_has "all 9 frames good"
