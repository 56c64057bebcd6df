# What of a numbered sequence was taken, and why not more.
. "$(dirname "$0")/../lib.sh"
sketch_type

# files FOLDER NAME...: scenes in a folder of their own.
files() {
  mkdir -p "$1"
  cp draw.sh "$1"
  folder=$1
  shift
  for name in "$@"; do
    echo "scene $name" >"$folder/$name"
  done
}

# A hole: the job goes on, and says what it left out. Output for pipes stays as it is.
files hole s_001.txt s_002.txt s_003.txt s_005.txt s_006.txt s_007.txt
run 0 run sketch hole/s_006.txt --slots 1 --log-dir "$TMP/logs"
err_is <<'END'
trovik: warning: only 5-7 of 1-3,5-7: "s_004.txt" is missing
hint: --range 1-3,5-7 takes all that are there
END
out_has "job 1  Sketch: 3 frames (5-7) on 1 slot"
run 0 submit sketch hole/s_006.txt --json
err_is <<'END'
trovik: warning: only 5-7 of 1-3,5-7: "s_004.txt" is missing
hint: --range 1-3,5-7 takes all that are there
END
[ "$(wc -l <"$TMP/out")" = 1 ] || fail "the warning is among the JSON"
run 0 run sketch hole/s_006.txt --dry-run
err_is <<'END'
trovik: warning: only 5-7 of 1-3,5-7: "s_004.txt" is missing
hint: --range 1-3,5-7 takes all that are there
END
[ "$(wc -l <"$TMP/out")" = 3 ] || fail "not one line a work"
run 0 run sketch hole/s_006.txt --range 1-3,5-7 --slots 1 --log-dir "$TMP/logs"
err_is_empty
out_has "all 6 frames good"
run 2 run sketch hole/s_006.txt --range 1-7
err_is <<'END'
trovik: error: 1 frame of the range has no scene file: 4 (the first would be "TMP/work/hole/s_004.txt")
hint: choose the frames that exist with --range
END
run 0 detect sketch hole/s_006.txt
out_is <<'END'
Name             s
Range            5-7
SceneNameFormat  TMP/work/hole/s_%03d.txt
only 5-7 of 1-3,5-7: "s_004.txt" is missing
hint: --range 1-3,5-7 takes all that are there
END
run 0 detect sketch hole/s_006.txt --set Range=5-6
out_is <<'END'
Name             s
SceneNameFormat  TMP/work/hole/s_%03d.txt
END

# Fewer digits than the type asks for: never is one scene rendered for all.
files few s01.txt s02.txt s03.txt
run 2 run sketch few/s01.txt --range 1-3
err_is <<'END'
trovik: error: no sequence was found for "s01.txt", though such files lie beside it: its number 01 has 2 digits, and the type asks for more
hint: --set SceneNumberLength=2 takes the sequence 1-3; --set CheckForMultipleFiles=No renders "s01.txt" alone for all frames
END
run 0 run sketch few/s01.txt --slots 1 --log-dir "$TMP/logs"
err_is <<'END'
trovik: warning: "s01.txt" alone: its number 01 has 2 digits, and the type asks for more
hint: --set SceneNumberLength=2 takes the sequence 1-3
END
out_has "1 work good"
run 0 run sketch few/s01.txt --slots 1 --log-dir "$TMP/logs" --set SceneNumberLength=2
err_is_empty
out_has "all 3 frames good"
run 0 run sketch few/s02.txt --dry-run --set SceneNumberLength=2 --set CheckForMultipleFiles=No
err_is_empty
[ "$(wc -l <"$TMP/out")" = 1 ] || fail "more than the picked scene"
run 2 run sketch few/s01.txt --range 1-3 --set SceneNumberLength=4
err_is <<'END'
trovik: error: no sequence was found for "s01.txt", though such files lie beside it: its number 01 has 2 digits, and SceneNumberLength asks for 4
hint: --set SceneNumberLength=2 takes the sequence 1-3; --set CheckForMultipleFiles=No renders "s01.txt" alone for all frames
END

# Numbers without zeros in front.
files growing a8.txt a9.txt a10.txt a11.txt
run 0 detect sketch growing/a11.txt --set SceneNumberLength=2
out_is <<'END'
Range            10-11
SceneNameFormat  TMP/work/growing/a%02d.txt
only 10-11: "a8.txt" and 1 other have fewer digits
hint: pick "a8.txt" with --set SceneNumberLength=1 to take them all
END
run 0 run sketch growing/a8.txt --set SceneNumberLength=1 --slots 1 --log-dir "$TMP/logs"
err_is_empty
out_has "all 4 frames good"

# A pattern that nobody can find.
files even s_0002.txt s_0004.txt s_0006.txt
run 2 run sketch even/s_0004.txt --range 2-6x2
err_is <<'END'
trovik: error: no sequence was found for "s_0004.txt", though such files lie beside it: it has no neighbour: there is neither "s_0003.txt" nor "s_0005.txt"
hint: --set "SceneNameFormat=TMP/work/even/s_%04d.txt" --range 2,4,6 takes all that are there; --set CheckForMultipleFiles=No renders "s_0004.txt" alone for all frames
END
run 0 run sketch even/s_0004.txt --set "SceneNameFormat=$TMP/work/even/s_%04d.txt" --range 2-6x2 --slots 1 --log-dir "$TMP/logs"
err_is_empty
out_has "all 3 frames good"

# True reasons, each.
files '100% done' s_0001.txt s_0002.txt
run 0 detect sketch '100% done/s_0001.txt'
out_is <<'END'
no scene sequence: the "%" in "100% done" stands for a number in the sequence's pattern
hint: rename it without the "%"
END
files folder s_0001.txt
mkdir folder/s_0002.txt
run 0 detect sketch folder/s_0001.txt
out_is <<'END'
no scene sequence: "s_0000.txt" is missing and "s_0002.txt" is a folder
END
files 'a%%' s_0001.txt s_0002.txt
files 'a%' s_0001.txt s_0002.txt
run 2 run sketch 'a%%/s_0001.txt'
err_is <<'END'
trovik: error: the sequence that was found, "TMP/work/a%%/s_%04d.txt", does not hold the scene "s_0001.txt"
hint: --set CheckForMultipleFiles=No takes the scene alone
END
mkdir -p "$XDG_CONFIG_HOME/trovik"
printf '[11111111-2222-3333-4444-555555555555]\nCheckForMultipleFiles=No\n' >"$XDG_CONFIG_HOME/trovik/settings.ini"
run 0 detect sketch hole/s_006.txt
out_is <<'END'
no scene sequence: the settings of this installation switch it off for the type
END
run 0 detect sketch hole/s_006.txt --json --set CheckForMultipleFiles=Yes
"$HELPER" json /sequence /reason /hint /filled/Range <"$TMP/out" >"$TMP/values"
printf '[11111111-2222-3333-4444-555555555555]\nSceneNumberLength=4\n' >"$XDG_CONFIG_HOME/trovik/settings.ini"
run 0 detect sketch hole/s_006.txt --json
"$HELPER" json /sequence /reason /hint /filled/Range <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
true "only 5-7 of 1-3,5-7: \"s_004.txt\" is missing" "--range 1-3,5-7 takes all that are there" "5-7"
false "its number 006 has 3 digits, and the settings of this installation ask for 4" "--set SceneNumberLength=3 takes the sequence 5-7" -
END
