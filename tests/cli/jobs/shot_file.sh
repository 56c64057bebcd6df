# A whole shot from one file: all of its jobs or none, in the order in which
# they wait for each other, and the same file again goes on with it.
. "$(dirname "$0")/../lib.sh"
sketch_type
join_type
scenes 3
mkdir shot
cat >shot/shot.ini <<'END'
; What waits may stand before what it waits for.
[movie]
Type=join
Scene=../images/shot_0001.drw
After=drawing
Out=movie
Title=the film
StartDirectory=.

[drawing]
type=sketch
scene=../shot_0001.txt
range=1-2
OUT=../images
END
run 0 submit shot/shot.ini --dry-run
[ "$(grep -c '^# \[' "$TMP/out")" = 2 ] || fail "the dry run does not tell both jobs"
sed -n '1p' "$TMP/out" >"$TMP/first"
file_is "$TMP/first" <<'END'
# [drawing]
END
run 0 jobs
out_is <<'END'
no jobs
END
run 0 submit shot/shot.ini
out_is <<'END'
drawing  job 1  2 frames (1-2)
movie  job 2  2 frames (1-2)
waits  job 1 is waiting
No engine is at work; start one with "trovik engine"
END

# The first job is good and the second is not: only that is done again.
touch broken
run 0 engine --until-empty --slots 1
rm broken
run 0 jobs --json
"$HELPER" json /jobs/0/state /jobs/1/state <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"good" "failed"
END
run 0 submit shot/shot.ini
out_is <<'END'
goes on  job 1 is good; 2 good frames are kept, --new renders all anew
drawing  job 1  0 frames, 2 good already
goes on  job 2 had failures; --new begins another
movie  job 2  2 frames (1-2)
No engine is at work; start one with "trovik engine"
END
run 0 engine --until-empty --slots 1
cat "shot/movie/the film.all" >"$TMP/film"
file_is "$TMP/film" <<'END'
scene 1
scene 2
END

# A shot that is done is rendered anew, and its movie made of the new frames.
run 0 submit shot/shot.ini --json
"$HELPER" json /section /job /continued <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"drawing" 3 null
"movie" 4 null
END

# All or none: the second job cannot be made.
refused() { # LINE...
  printf '%s\n' "$@" >bad.ini
  run 2 submit bad.ini
}
refused '[one]' 'Type=sketch' 'Scene=shot_0001.txt' '[two]' 'Type=sketch' 'Scene=shot_0001.txt' 'After=one' 'Colour=red'
err_is <<'END'
trovik: error: bad.ini: [two]: "Sketch" has no parameter "Colour"
hint: "trovik type Sketch" lists them all
END
run 0 jobs --json
"$HELPER" json /jobs/4 <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
-
END
refused '[one]' 'Type=sketch' 'After=two' '[two]' 'Type=sketch' 'AfterFrames=one:-1..1'
err_is <<'END'
trovik: error: bad.ini:1: jobs wait for each other in a circle: one, two
hint: take one After= out
END
refused '[one]' 'Scene=shot_0001.txt'
err_is <<'END'
trovik: error: bad.ini:1: the job [one] has no type
hint: add Type=NAME
END
refused '[one]' 'Type=sketch' 'After=zero'
err_is <<'END'
trovik: error: bad.ini:1: the job [one] waits for "zero", which is no section
hint: write the name of a section, or the number of a job
END
refused '[one]' 'Type=sketch' 'Scene=shot_0001.txt' 'After=99'
err_is <<'END'
trovik: error: bad.ini: [one]: --after: there is no job 99
hint: "trovik jobs" lists them
END
refused '[one]' 'Type=sketch' 'what is this'
err_is <<'END'
trovik: error: bad.ini:3: this line is no section, no entry and no comment: "what is this"
hint: write KEY=VALUE below a [SECTION], or a semicolon before a comment
END
refused '; nothing'
err_is <<'END'
trovik: error: the shot "bad.ini" has no jobs
hint: write a [SECTION] for each, with Type=NAME
END
run 2 submit nothere.ini
err_is <<'END'
trovik: error: there is no shot "nothere.ini"
hint: check the name and the directory
END
run 2 submit shot/shot.ini --range 1
err_is <<'END'
trovik: error: --range is for one job, and a shot has several
hint: write it into the file, in the section of the job
END
run 2 run shot/shot.ini
err_is <<'END'
trovik: error: "shot/shot.ini" is a shot, which has several jobs
hint: put them into the queue with "trovik submit", and start "trovik engine --until-empty"
END
