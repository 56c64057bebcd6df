# --out: counted from where the user is, taken as it is, made where missing.
. "$(dirname "$0")/lib.sh"
sketch_type
mkdir scenes
cd scenes
scenes 1
cp ../draw.sh .
cd ..
run 0 run sketch scenes/shot_0001.txt --out 'my $(Name) images/now' --log-dir "$TMP/logs"
out_has "images  1 in $TMP/work/my \$(Name) images/now"
[ -s 'my $(Name) images/now/shot_0001.drw' ] || fail "no image"

run 2 run sketch scenes/shot_0001.txt --out draw.sh
err_is <<'END'
trovik: error: --out: "TMP/work/draw.sh" is no folder
hint: name a folder; it is made where it is missing
END
