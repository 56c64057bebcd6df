# A failed work is tried again after the others; attempts are counted.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
cat >draw.sh <<'END'
case $1 in *2.txt) [ -e "$2/once" ] || { : >"$2/once"; echo "no licence"; exit 4; } ;; esac
cp "$1" "$2/$(basename "$1" .txt).drw"
echo "saved: $2/$(basename "$1" .txt).drw"
END
run 0 run sketch shot_0002.txt --slots 1 --log-dir "$TMP/logs" --set Retries=2 --range 2,1
out_is <<'END'
job 1  Sketch: 2 frames (1-2) on 1 slot
scene  TMP/work/shot_%04d.txt
logs  TMP/logs
started  2
failed  2  attempt 1 of 3: Exit code 4; last line: no licence
  | no licence
  log  TMP/logs/2-2.log
  it will be tried again
started  1
image  TMP/work/images/shot_0001.drw
finished  1  TIME
started  2  attempt 2 of 3
image  TMP/work/images/shot_0002.drw
finished  2  TIME
all 2 frames good, in TIME
images  2 in TMP/work/images
END
file_is "$TMP/logs/2-2.log" <<'END'
no licence
END
[ -e "$TMP/logs/2-2.attempt2.log" ] || fail "the second attempt has no log"
