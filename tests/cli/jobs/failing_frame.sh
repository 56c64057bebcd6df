# A frame that fails is named with its reason and its log; the others are good.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
echo broken >shot_0002.txt
run 1 run sketch shot_0001.txt --slots 1 --log-dir "$TMP/logs"
out_is <<'END'
job 1  Sketch: 3 frames (1-3) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/logs
started  1
image  TMP/work/images/shot_0001.drw
finished  1  TIME
started  2
failed  2  Error line: fatal: TMP/work/shot_0002.txt is broken
  | drawing TMP/work/shot_0002.txt
  | reading
  | fatal: TMP/work/shot_0002.txt is broken
  | giving up
  log  TMP/logs/2-2.log
started  3
image  TMP/work/images/shot_0003.drw
finished  3  TIME
2 of 3 frames good, 1 failed, in TIME
failed  2  Error line: fatal: TMP/work/shot_0002.txt is broken
images  2 in TMP/work/images
logs  TMP/logs
To do the rest, give "trovik retry 1 && trovik engine --job 1"
END
