# Jobs that wait for others: rendered, worked on frame by frame, put together.
. "$(dirname "$0")/../lib.sh"
sketch_type
type_file copy <<'END'
[Module]
ID=21111111-2222-3333-4444-555555555555
Name=Copy
Shortcut=copy
Help=Copies what another job has made.
Command=-c "cp $(After.Images) '$(OutputFolder)' && echo from '$(After.OutputFolder.Leaf)'"
[OverrideDefaults]
Executable=/bin/sh
FileCheck=None
END
join_type
scenes 3
run 0 check "$TMP/modules/copy.tvx" --no-programs
run 0 submit sketch shot_0001.txt --out images
run 0 submit copy --range 1-3 --after-frames last --out clean
out_is <<'END'
job 2  3 frames (1-3)
waits  job 1 is waiting, frame by frame
No engine is at work; start one with "trovik engine"
END
# The same command again is the same job, though "last" is that by now.
run 0 submit copy --range 1-3 --after-frames last --out clean --json
"$HELPER" json /job /continued/state /after/0/job /after/0/byFrame /after/0/awaited <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
2 "waiting" 1 true true
END
# The frames of a folder that another job is going to fill.
run 0 submit join images/shot_0002.drw --after 1,2 --out all
out_is <<'END'
job 3  3 frames (1-3)
waits  job 1 is waiting; job 2 is waiting
No engine is at work; start one with "trovik engine"
END
run 0 jobs
sed -e 's/  *[0-9]* s  */ AGE /' "$TMP/out" >"$TMP/table"
file_is "$TMP/table" <<'END'
JOB  STATE       GOOD  FAILED  TIME  AGE  TYPE    NAME
  1  waiting      0/3       -     - AGE Sketch  shot
  2  after 1      0/3       -     - AGE Copy    job 2
  3  after 1 +1   0/3       -     - AGE Join    shot
END

# A job that waits is nothing that an engine could wait for itself.
run 0 hold 1
out_is <<'END'
job 1  held
END
run 0 engine --until-empty --slots 2
run 0 show 2
out_has 'frames     0 of 3 frames good, 3 waiting (for other jobs)'
out_has 'after      job 1 was stopped, frame by frame: "trovik release 1" or "trovik release 2" lets this one go'
out_has 'followers  job 3'
out_has 'next       trovik engine  do what it waits for, then this'
run 0 release 1
run 2 release 1
err_is <<'END'
trovik: error: job 1 is waiting; it is neither held nor waits for a job
hint: "trovik show 1" tells how it stands
END

# What failed keeps its followers waiting, until it is done or they are let go.
echo broken >shot_0002.txt
run 0 engine --until-empty --slots 2
run 0 show 2
out_has 'frames     2 of 3 frames good, 1 waiting (for other jobs)'
out_has 'after      job 1 failed, frame by frame: "trovik retry 1" or "trovik release 2" lets this one go'
[ "$(cd clean && echo ./*)" = "./shot_0001.drw ./shot_0003.drw" ] || fail "other frames were copied"
run 0 show 3 --json
"$HELPER" json /state /counts/blocked /frames/blocked /after/0/state /followers <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"waiting" 3 "1-3" "failed" []
END
echo "scene 2" >shot_0002.txt
run 0 retry 1
run 0 engine --until-empty --slots 2
run 0 jobs --json
"$HELPER" json /jobs/0/state /jobs/1/state /jobs/2/state <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"good" "good" "good"
END
file_is all/all.all <<'END'
scene 1
scene 2
scene 3
END
run 0 log 2 2
out_has "from images"

# Who works off one that waits is told what it waits for.
run 0 submit sketch shot_0001.txt --new --out waited
"$TROVIK" run copy --range 1-3 --after last --out behind >"$TMP/out" 2>&1 </dev/null &
pid=$!
wait_for "$TMP/out" 'waits  job 4 is waiting; no engine is at work that could take it: start one with "trovik engine"'
"$TROVIK" engine --until-empty >/dev/null 2>&1
wait "$pid" || fail "the job that waited is not good"
pid=
out_has "all 3 frames good"

# Cancelled with all that waits for it, or without.
run 0 submit sketch shot_0001.txt --new --out again
run 0 submit copy --range 1-3 --after-frames 6:-1..1 --out copies
run 0 submit copy --range 1-3 --after 7 --out others
run 0 cancel 6
out_is <<'END'
job 6  canceled
jobs 7 and 8 wait for it; "trovik cancel 7 8" ends them, "trovik release 7" goes on without
END
run 0 jobs
out_has 'after 6'
run 0 cancel 7 --with-followers --json
"$HELPER" json /jobs/0/job /jobs/0/followers /jobs/0/waiting <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
7 [8] []
END
run 0 retry 6
run 0 hold 6 --json
run 0 release 6 --json
run 0 delete 6

# Of a job without frames any one file may be to come, and is taken alone: its
# neighbours could be looked for without an end.
run 0 submit copy --after 1 --out whole
run 0 submit join whole/part_0001.drw --after last --out alone
out_has "1 work"

# What cannot be waited for.
run 2 submit copy --after 77
err_is <<'END'
trovik: error: --after: there is no job 77
hint: "trovik jobs" lists them
END
run 2 submit copy --range 1-4 --after-frames 1
err_is <<'END'
trovik: error: --after-frames: for frame 4 job 1 has none to wait for
hint: its frames are 1-3; choose others with --range or the offset
END
run 2 submit copy --range 1-3 --after-frames 1:2..1
err_is <<'END'
trovik: error: --after-frames: "1:2..1" is not a job and how far from its frame to look
hint: write a job such as 4, with an offset 4:-1, or with its neighbours 4:-1..1
END
run 2 submit copy --range 1-3 --after 1 --after-frames 1
err_is <<'END'
trovik: error: --after-frames: job 1 is named twice
hint: leave one of them out
END
run 2 submit join images/other.drw --after 1
err_is <<'END'
trovik: error: there is no scene file "TMP/work/images/other.drw"
hint: check the name and the directory
END
run 2 submit copy --range 1-3
err_is <<'END'
trovik: error: command line:8: nobody answers $(After.Images), since the job waits for no other one
    1 | -c "cp $(After.Images) '$(OutputFolder)' && ech...
      |        ^
END
