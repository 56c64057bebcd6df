# Every verb does for a job on a cluster what it does for one on this machine.
. "$(dirname "$0")/lib.sh"
sketch_type
scenes 8
# Draws a picture when it is allowed to, and says what it waits for.
cat >draw.sh <<'END'
name=$(basename "$1" .txt)
echo "drawing $name"
while [ ! -e "$name.go" ]; do
  [ ! -e "$name.say" ] || { rm "$name.say"; echo "still at it"; }
  sleep 0.1
done
grep -q broken "$1" && { echo "fatal: $1 is broken"; exit 3; }
printf 'P3\n4 2\n255\n255 0 0 0 255 0 0 0 255 9 9 9\n255 0 0 0 255 0 0 0 255 9 9 9\n' >"$2/$name.ppm"
echo "saved: $2/$name.ppm"
END
go() { # NUMBER...
  for number in "$@"; do
    : >"shot_000$number.go"
  done
}
start_cluster

# Submitted; six works run at a time, as there are six CPUs.
run 0 submit sketch shot_0001.txt --engine slurm
out_has "job 1  8 frames (1-8)"
eventually field_is 6 '.counts.running' show 1
eventually field_is 2 '.counts.ready' show 1

# The log of a running work grows.
log_has() { "$TROVIK" log 1 "$1" 2>/dev/null </dev/null | grep -q -F "$2"; }
eventually log_has 2 "drawing shot_0002"
! log_has 2 "still at it" || fail "the program has said too much"
: >shot_0002.say
eventually log_has 2 "still at it"

# Watched, left, and watched again.
"$HELPER" signals "$TROVIK" watch 1 >"$TMP/left" 2>&1 </dev/null &
pid=$!
wait_for "$TMP/left" "started"
kill -INT "$pid"
code=0
wait "$pid" || code=$?
pid=
[ "$code" = 130 ] || fail "leaving gives exit code $code"
grep -q "^left  job 1" "$TMP/left" || fail "it does not say that it is left"

echo broken >shot_0005.txt
go 1 2 3 4 5 6
eventually field_is 5 '.counts.good' show 1
eventually field_is 5 '.frames.failed' show 1
# Nobody has to look for the rest to go on.
eventually field_is 7-8 '.frames.running' show 1
run 1 images 1 --missing
out_is <<'END'
5,7-8
END
go 7 8
run 1 watch 1
out_has "7 of 8 frames good, 1 failed"
run 0 images 1
out_is <<'END'
TMP/work/images/shot_0001.ppm
TMP/work/images/shot_0002.ppm
TMP/work/images/shot_0003.ppm
TMP/work/images/shot_0004.ppm
TMP/work/images/shot_0006.ppm
TMP/work/images/shot_0007.ppm
TMP/work/images/shot_0008.ppm
END
run 0 log 1 5
out_has "Error line: fatal: $TMP/work/shot_0005.txt is broken"
run 0 sheet 1 -o sheet.png
out_is <<'END'
sheet  TMP/work/sheet.png  8 frames: 7 good, 1 failed
END
run 0 stats 1
out_has "7 good, from 8 attempts"
run 0 jobs
out_has "Sketch"

# What failed is done again.
echo whole >shot_0005.txt
run 0 retry 1
run 0 watch 1
out_has "all 8 frames good"
rm images/shot_0003.ppm
: >images/shot_0006.ppm
run 0 retry 1 --missing
out_has "2 frames to do: 3,6"
run 0 watch 1
run 0 images 1 --missing
out_is_empty

# Canceled while one work runs and others wait.
rm -f ./*.go
run 0 submit sketch shot_0001.txt --engine slurm --new --set ClusterThrottle=1 --out "$TMP/other"
eventually field_is 1 '.counts.running' show 2
run 0 cancel 2
eventually field_is canceled '.state' show 2
eventually field_is 8 '.counts.canceled' show 2
eventually nothing_runs
[ -z "$(find "$TMP/other" -type f)" ] || fail "a canceled job has left files"
run 0 retry 2
go 1 2 3 4 5 6 7 8
run 0 watch 2
out_has "all 8 frames good"

# Canceled before anything started.
scontrol update NodeName=ALL State=DRAIN Reason=test
run 0 submit sketch shot_0001.txt --engine slurm --new --out "$TMP/third"
eventually sh -c '[ "$(squeue -h -r -t PD | wc -l)" -gt 0 ]'
run 0 cancel last
eventually field_is canceled '.state' show last
eventually nothing_runs
scontrol update NodeName=ALL State=RESUME
[ ! -e "$TMP/third/shot_0001.ppm" ] || fail "a canceled job was rendered"

# Run from here, only what is missing.
rm images/shot_0004.ppm images/shot_0008.ppm
run 0 run sketch shot_0001.txt --engine slurm --missing
out_has "6 frames are good already"
out_has "all 8 frames good"

# A deleted job leaves nothing in the shared folder.
for job in 1 2 3 4; do
  run 0 delete "$job"
done
eventually nothing_runs
[ -z "$(find "$TROVIK_SHARED" -type f)" ] || fail "deleted jobs are still in the shared folder: $(find "$TROVIK_SHARED" -type f | head)"
