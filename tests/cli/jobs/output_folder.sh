# --out: counted from where the user is, taken as it is, made where missing.
. "$(dirname "$0")/../lib.sh"
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

# What would fail frame by frame is said once, before anything starts.
run 2 run sketch scenes/shot_0001.txt --out /proc/foo/images
err_is <<'END'
trovik: error: --out: nothing can be written to "/proc/foo/images": No such file or directory
hint: name another folder
END
run 2 submit sketch scenes/shot_0001.txt --out "$TMP/work/draw.sh/images"
err_is <<'END'
trovik: error: --out: nothing can be written to "TMP/work/draw.sh/images": Not a directory
hint: name another folder
END
run 0 run sketch scenes/shot_0001.txt --out never --log-dir neither --dry-run
run 0 jobs --json
"$HELPER" json /jobs/0/job /jobs/1 <"$TMP/out" >"$TMP/values"
[ ! -e never ] && [ ! -e neither ] || fail "a dry run made a folder"
file_is "$TMP/values" <<'END'
1 -
END
