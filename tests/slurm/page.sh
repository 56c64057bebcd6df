# A page that somebody watches sees what becomes of jobs on a cluster though no
# other verb asks for it, shows the cluster's groups of tasks, and steers them.
. "$(dirname "$0")/lib.sh"
. "$tests/../cli/page-lib.sh"
sketch_type
scenes 4
# Draws a picture when it is allowed to.
cat >draw.sh <<'END'
name=$(basename "$1" .txt)
while [ ! -e "$name.go" ]; do sleep 0.1; done
grep -q broken "$1" && { echo "fatal: $1 is broken"; exit 3; }
printf 'P3\n4 2\n255\n255 0 0 0 255 0 0 0 255 9 9 9\n255 0 0 0 255 0 0 0 255 9 9 9\n' >"$2/$name.ppm"
echo "saved: $2/$name.ppm"
END
echo broken >shot_0002.txt
start_cluster

run 0 submit sketch shot_0001.txt --engine slurm --set Retries=0
start_page
curl -s -N -b "$jar" "$url/api/events" >"$TMP/events" &
background=$!

told_is() { # VALUE QUERY PATH
  [ "$(curl -s --max-time 60 -b "$jar" "$url/api/$3" | jq -c "$2")" = "$1" ]
}
eventually told_is '"rrrr"' .states jobs/1/cells
eventually told_is '[4,"RUNNING"]' '[(.cluster.arrays | map(.works) | add), .cluster.arrays[0].state]' machine
told_is '[true,null]' '[.engines[0].cluster, .engines[0].slots]' machine || fail "the cluster is no engine"
told_is '[4,4]' '[(.running | length), (.running | map(select(.node)) | length)]' jobs/1 || fail "no nodes are told"

: >shot_0001.go
eventually told_is '"grrr"' .states jobs/1/cells
for number in 2 3 4; do : >shot_000$number.go; done
eventually told_is '"gfgg"' .states jobs/1/cells
eventually told_is '["2",true]' '[.failures[0].frames, (.failures[0].line | endswith("shot_0002.txt is broken"))]' jobs/1
eventually told_is '"failed"' '.jobs[0].state' jobs
grep -q '^data: {"revision":[0-9]*,"jobs":\[1\]' "$TMP/events" || fail "nobody was told of a change"

# Done again on the cluster, and canceled there.
echo whole >shot_0002.txt
post /api/jobs/1/retry '{}'
eventually told_is '"gggg"' .states jobs/1/cells
rm shot_0003.go
post /api/jobs/1/retry '{"frames": "3"}'
eventually told_is '"ggrg"' .states jobs/1/cells
post /api/jobs/1/cancel '{}'
eventually told_is '"ggcg"' .states jobs/1/cells
eventually nothing_runs
stop_page
