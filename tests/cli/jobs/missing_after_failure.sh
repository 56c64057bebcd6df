#!/bin/sh
# Files that a failed run did not write are as good as they were; those that
# it wrote are not trusted.
. "$(dirname "$0")/../lib.sh"

sketch_type
sed -i 's|^OutputFolder=.*|&\nExpectedFiles=$(OutputFolder)/$(ActualScene.Base).drw|' "$TMP/modules/sketch.tvx"
scenes 3
run 0 run sketch shot_0001.txt --slots 1

# A second run fails before it writes anything.
touch -d '1 hour ago' images/shot_000?.drw
cp draw.sh good.sh
echo 'echo "fatal: no licence"; exit 1' >draw.sh
run 1 run sketch shot_0001.txt --new --slots 1
cp good.sh draw.sh
run 0 run sketch shot_0001.txt --new --missing
out_is <<'END_OF_TEXT'
nothing is missing: all 3 frames have good files
END_OF_TEXT

# A third writes its files, and then fails.
sed 's|^echo "saved:.*|&; echo "fatal: colours are wrong"; exit 1|' good.sh >draw.sh
run 1 run sketch shot_0001.txt --new --slots 1
cp good.sh draw.sh
run 0 run sketch shot_0001.txt --new --missing --dry-run
[ "$(wc -l <"$TMP/out")" -eq 3 ] || { cat "$TMP/out" >&2; fail "not all three frames are to be rendered"; }
