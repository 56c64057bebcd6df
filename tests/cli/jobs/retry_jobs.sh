# What failed is done again, by whichever engine comes.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1
echo scene >shot_0002.txt

run 0 retry last
out_is <<'END'
job 1  1 frame to do: 2
No engine is at work; start one with "trovik engine"
END
run 0 engine --until-empty --slots 1
run 0 images 1 --missing
out_is_empty

run 0 retry 1
out_is <<'END'
job 1  nothing to do
END
run 0 retry 1 --frames 1-3x2
out_is <<'END'
job 1  2 frames to do: 1,3
No engine is at work; start one with "trovik engine"
END
run 2 retry 1 --frames 3-5
err_is <<'END'
trovik: error: job 1 has no frames 4-5
hint: its frames are 1-3
END
run 0 engine --until-empty --slots 1

rm images/shot_0003.drw
run 0 retry 1 --missing
out_is <<'END'
job 1  1 frame to do: 3
No engine is at work; start one with "trovik engine"
END
