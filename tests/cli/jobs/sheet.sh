# A job's images on one contact sheet, with the holes marked: what is missing,
# what failed, and what is damaged by now.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 5
echo broken >shot_0004.txt
cat >draw.sh <<'END'
grep -q broken "$1" && { echo "fatal: $1 is broken"; exit 3; }
image=$2/$(basename "$1" .txt).ppm
printf 'P3\n4 2\n255\n255 0 0 0 255 0 0 0 255 9 9 9\n255 0 0 0 255 0 0 0 255 9 9 9\n' >"$image"
echo "saved: $image"
END
run 1 run sketch shot_0001.txt --slots 1
rm images/shot_0002.ppm
printf 'P3\n4 2\n255\n255 0 0' >images/shot_0005.ppm

run 0 sheet last -o sheet.png
out_is <<'END'
sheet  TMP/work/sheet.png  5 frames: 2 good, 1 missing, 1 failed, 1 damaged
END
err_is_empty
[ "$(head -c 4 sheet.png | tail -c 3)" = PNG ] || fail "sheet.png is no PNG file"

run 0 sheet 1 -o "$TMP/work/wide.jpg" --frames 1,3-4 --columns 3 --width 320 --json
out_is <<'END'
{
  "version": 1,
  "kind": "sheet",
  "job": 1,
  "file": "TMP/work/wide.jpg",
  "width": 1038,
  "height": 306,
  "counts": {
    "good": 2,
    "missing": 0,
    "failed": 1,
    "damaged": 0,
    "waiting": 0,
    "running": 0,
    "canceled": 0
  },
  "cells": [
    {
      "label": "1",
      "state": "good",
      "file": "TMP/work/images/shot_0001.ppm",
      "note": null
    },
    {
      "label": "3",
      "state": "good",
      "file": "TMP/work/images/shot_0003.ppm",
      "note": null
    },
    {
      "label": "4",
      "state": "failed",
      "file": null,
      "note": "Error line: fatal: TMP/work/shot_0004.txt is broken"
    }
  ]
}
END

run 2 sheet last -o sheet.txt
err_is <<'END'
trovik: error: cannot write "TMP/work/sheet.txt": its name must end with .png, .jpg, .exr or .tif
END
run 2 sheet last -o sheet.png --frames 4-7
err_is <<'END'
trovik: error: job 1 has no frame 6
hint: its frames are 1-5
END
run 2 sheet last -o sheet.png --width 5
err_is <<'END'
trovik: error: --width: a cell has at least 32 pixels
hint: leave it out for a width that suits the number of images
END
run 2 sheet last
err_is <<'END'
trovik: error: "trovik sheet" needs the name of the image to write
hint: such as -o sheet.png; see "trovik sheet --help"
END
run 2 sheet 9 -o sheet.png
err_is <<'END'
trovik: error: there is no job 9
hint: "trovik jobs" lists them
END
TROVIK_IMAGE_HELPER=/nowhere/trovik-image
export TROVIK_IMAGE_HELPER
run 2 sheet last -o sheet.png
err_is <<'END'
trovik: error: cannot start "/nowhere/trovik-image": No such file or directory
hint: it is installed beside trovik
END
