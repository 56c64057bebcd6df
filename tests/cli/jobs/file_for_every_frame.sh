# Every frame of a work must have a file, whatever the program says; unless one
# file stands for many frames.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 5
cat >draw.sh <<'END'
for folder; do :; done
while [ $# -gt 1 ]; do
  case $1 in *2.txt | *4.txt) shift; continue ;; esac
  cp "$1" "$folder/$(basename "$1" .txt).drw"
  echo "saved: $folder/$(basename "$1" .txt).drw"
  shift
done
END
run 1 run sketch shot_0001.txt --packet 5 --log-dir "$TMP/logs"
out_has "failed  1-5  No file for frames 2,4"

cat >draw.sh <<'END'
for folder; do :; done
cat "$@" >"$folder/shot.mp4" 2>/dev/null
echo "saved: $folder/shot.mp4"
END
run 1 run sketch shot_0001.txt --new --packet 5 --log-dir "$TMP/logs2"
out_has "failed  1-5  No file for frames 1-5: no file's name tells its frame; where one file holds them all, set FileCheck=Work"
run 0 run sketch shot_0001.txt --packet 5 --log-dir "$TMP/logs3" --set FileCheck=Work
out_has "all 5 frames good"

cat >draw.sh <<'END'
echo "saved: nothing.drw"
END
run 1 run sketch shot_0001.txt --log-dir "$TMP/logs4" --range 1
out_has "failed  1  Missing file: $TMP/work/nothing.drw"
run 0 run sketch shot_0001.txt --log-dir "$TMP/logs5" --range 1 --set FileCheck=None
run 2 run sketch shot_0001.txt --set FileCheck=Some
err_is <<'END'
trovik: error: --set FileCheck: "Some" is none of EveryFrame, Work, None; did you mean "None"?
END
