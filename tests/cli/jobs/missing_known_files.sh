# A file that is what it was when it was found good is not decoded again, unless
# --verify asks for it.
. "$(dirname "$0")/../lib.sh"
sketch_type
sed -i 's|^OutputFolder=.*|&\nExpectedFiles=$(OutputFolder)/$(ActualScene.Base).ppm|' "$TMP/modules/sketch.tvx"
scenes 3
cat >draw.sh <<'END'
image=$2/$(basename "$1" .txt).ppm
printf 'P3\n1 1\n255\n255 0 0\n' >"$image"
touch -d "2020-02-02 02:02:02.${STAMP:-123456789}" "$image"
echo "saved: $image"
END
run 0 run sketch shot_0001.txt --slots 1

# The second is damaged, but has its size and its time.
damage() {
  cp -p "$1" before
  printf 'P3\n1 1\n255\nbroken \n' >"$1"
  touch -r before "$1"
  [ "$(wc -c <before)" = "$(wc -c <"$1")" ] || fail "the size is another one"
}
damage images/shot_0002.ppm
run 0 images last --missing
out_is_empty
run 0 run sketch shot_0001.txt --new --missing
out_has "nothing is missing: all 3 frames have good files"
run 1 images last --missing --verify
out_is <<'END'
2
END
run 0 images last --verify
out_is <<'END'
TMP/work/images/shot_0001.ppm
TMP/work/images/shot_0003.ppm
END
run 0 sheet last -o sheet.png --verify
out_has "3 frames: 2 good, 1 damaged"
run 0 retry last --missing --verify
out_has "1 frame to do: 2"
run 0 run sketch shot_0001.txt --new --missing --verify --slots 1
out_has "shot_0002"

# It is seen where its time is another one, or one in whole seconds.
damage images/shot_0003.ppm
touch images/shot_0003.ppm
run 1 images 1 --missing
out_has 3
rm -r images
STAMP=0
export STAMP
run 0 run sketch shot_0001.txt --new --slots 1
damage images/shot_0001.ppm
run 1 images last --missing
out_is <<'END'
1
END

for words in "run sketch shot_0001.txt" "submit sketch shot_0001.txt" "retry 1"; do
  run 2 $words --verify
  err_is <<'END'
trovik: error: --verify is for --missing
hint: add --missing, or leave --verify out
END
done
