# A scene sequence is found from one of its files and worked off.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
run 0 run sketch shot_0002.txt --slots 1 --log-dir "$TMP/logs"
out_is <<'END'
job 1  Sketch: 3 frames (1-3) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/logs
started  1
image  TMP/work/images/shot_0001.drw
finished  1  TIME
started  2
image  TMP/work/images/shot_0002.drw
finished  2  TIME
started  3
image  TMP/work/images/shot_0003.drw
finished  3  TIME
all 3 frames good, in TIME
images  3 in TMP/work/images
END
err_is_empty
file_is images/shot_0003.drw <<'END'
scene 3
END

rm -r images
run 0 run sketch shot_0001.txt --range 2-3 --slots 1 --log-dir "$TMP/logs2"
[ ! -e images/shot_0001.drw ] || fail "frame 1 was worked"
[ -e images/shot_0003.drw ] || fail "frame 3 was not worked"
