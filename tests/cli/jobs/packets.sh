# --packet: so many frames in one start of the program.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 5
cat >draw.sh <<'END'
for folder; do :; done
while [ $# -gt 1 ]; do
  cp "$1" "$folder/$(basename "$1" .txt).drw"
  echo "saved: $folder/$(basename "$1" .txt).drw"
  shift
done
END
run 0 run sketch shot_0001.txt --packet 2 --slots 1 --log-dir "$TMP/logs"
out_is <<'END'
job 1  Sketch: 5 frames (1-5) in 3 works on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/logs
started  1-2
image  TMP/work/images/shot_0001.drw
image  TMP/work/images/shot_0002.drw
finished  1-2  TIME
started  3-4
image  TMP/work/images/shot_0003.drw
image  TMP/work/images/shot_0004.drw
finished  3-4  TIME
started  5
image  TMP/work/images/shot_0005.drw
finished  5  TIME
all 5 frames good, in TIME
images  5 in TMP/work/images
END
