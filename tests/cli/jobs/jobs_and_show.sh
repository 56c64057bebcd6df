# Jobs are listed and explained, with the reason of what failed and what to do.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 4
echo broken >shot_0003.txt

run 0 jobs
out_is <<'END'
no jobs
END
[ ! -e "$XDG_STATE_HOME" ] || fail "looking at the queue has made one"

run 1 run sketch shot_0001.txt --slots 1
run 0 submit sketch shot_0001.txt --range 1-2

# Dates, ages and durations differ from run to run.
hide_times() {
  sed -e 's/^used  .*/used       USAGE/' -e 's/[0-9-]* [0-9:]* ([0-9]* [a-z]* ago)/DATE/' -e 's/took [0-9].*s$/took TIME/' "$TMP/out" \
    >"$TMP/timeless"
  mv "$TMP/timeless" "$TMP/out"
}
run 0 jobs
sed -E -e 's/^(JOB.*FAILED).*  TYPE/\1  ...  TYPE/' \
  -e 's/^( *[0-9]+  [a-z]+ +[0-9]+\/[0-9]+ +[-0-9]+) .*  Sketch/\1  ...  Sketch/' "$TMP/out" >"$TMP/table"
file_is "$TMP/table" <<'END'
JOB  STATE    GOOD  FAILED  ...  TYPE    NAME
  1  failed    3/4       1  ...  Sketch  shot
  2  waiting   0/2       -  ...  Sketch  shot
END

run 0 show 1
hide_times
out_is <<'END'
job 1  failed  shot
type       Sketch
scene      TMP/work/shot_%04d.txt
range      1-4
submitted  DATE, took TIME
frames     3 of 4 frames good, 1 failed
good       1-2,4
failed     3
used       USAGE
images     3 in TMP/work/images
logs       TMP/home/state/trovik/logs/1
failed  3  Error line: fatal: TMP/work/shot_0003.txt is broken
next       trovik log 1 3                           what the program said
           trovik retry 1 && trovik engine --job 1  do the rest
END

run 0 show last
hide_times
out_is <<'END'
job 2  waiting  shot
type       Sketch
scene      TMP/work/shot_%04d.txt
range      1-2
submitted  DATE
frames     0 of 2 frames good, 2 waiting
waiting    1-2
logs       TMP/home/state/trovik/logs/2
next       trovik engine --job 2  do the rest
END

run 2 show 7
err_is <<'END'
trovik: error: there is no job 7
hint: "trovik jobs" lists them
END
run 2 show seven
err_is <<'END'
trovik: error: "seven" is not the number of a job
hint: jobs have whole numbers from 1 on, and the newest is "last"; "trovik jobs" lists them
END
