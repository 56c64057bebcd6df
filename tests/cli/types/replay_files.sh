# The files of a saved log, looked at as after a run.
. "$(dirname "$0")/../lib.sh"
type_file paint <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
ImageStartText=saved
CheckForMultipleFiles=Yes
[SuccessText]
1=done
[OverrideDefaults]
ExpectedFiles=$(OutputFolder)/$(ActualScene.Base).txt
END
mkdir out
echo picture >out/a_0001.txt
: >out/a_0002.txt
echo picture >"$TMP/work/out/a_0003.png"
echo scene >a_0001.pnt
cp a_0001.pnt a_0002.pnt
cp a_0001.pnt a_0003.pnt
printf 'done\n' >log

# The scene tells the frame and the expected file.
run 0 replay paint log --files --scene a_0001.pnt --out out
out_is <<'END'
     1  success        done
                       SuccessText "done"

log      log  1 line: 1 success
files    1, 0 not good
ended    with exit code 0; --exit tells another end
verdict  good for Paint, frame 1, by a success text (line 1)
END
run 1 replay paint log --files --scene a_0002.pnt --out out
out_is <<'END'
     1  success        done
                       SuccessText "done"

log      log  1 line: 1 success
files    1, 1 not good
  TMP/work/out/a_0002.txt  Empty file
ended    with exit code 0; --exit tells another end
verdict  bad for Paint, frame 2, by the check of its files
note     Empty file: TMP/work/out/a_0002.txt
END
run 1 replay paint log --files --scene a_0003.pnt --out out
out_has "note     Missing file: $TMP/work/out/a_0003.txt"

# Images are decoded, and a crash behind a success text is outweighed by good
# files, but not by files that nobody saw.
printf "saved $TMP/work/out/a_0003.png\n" >log
run 1 replay paint log --files --scene a_0001.pnt --out out
out_has "a_0003.png"
printf "done\n" >log
run 0 replay paint log --files --scene a_0001.pnt --out out --exit 139 --json
"$HELPER" json /verdict /note /files/0/frame /files/0/problem <"$TMP/out" >"$TMP/values"
run 1 replay paint log --scene a_0001.pnt --out out --exit 139 --json
"$HELPER" json /verdict /note /files <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
"good" "Killed by signal 11 (Segmentation fault) after the success text, and every file is good" 1 null
"bad" "Killed by signal 11 (Segmentation fault)" null
END

# A log of another machine: the path maps tell where its images lie here.
mkdir here
cp out/a_0001.txt here/a_0001.txt
printf "saved /another/images/a_0001.txt\ndone\n" >log
run 1 replay paint log --files --scene a_0001.pnt --out here
out_has "note     Missing file: /another/images/a_0001.txt"
mkdir -p "$XDG_CONFIG_HOME/trovik"
printf '[PathMaps]\n1=/another/images;%s\n2=/another/scenes;%s\n' "$TMP/work/here" "$TMP/work" >"$XDG_CONFIG_HOME/trovik/settings.ini"
run 0 replay paint log --files --scene a_0001.pnt --out here
out_has "verdict  good for Paint, frame 1"
run 0 replay paint log --files --scene /another/scenes/a_0001.pnt --out /another/images
out_has "verdict  good for Paint, frame 1"
