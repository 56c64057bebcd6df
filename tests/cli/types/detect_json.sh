# Detection as JSON.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3
run 0 detect sketch shot_0002.txt --json
"$HELPER" json /version /kind /type /sequence /reason /filled/Range <"$TMP/out" >"$TMP/values"
echo x >scene.txt
run 0 detect sketch scene.txt --json
"$HELPER" json /sequence /reason /hint /filled <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
1 "detect" "Sketch" true null "1-3"
false "\"scene.txt\" has no number in its name" null {}
END
