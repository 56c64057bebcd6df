# Two frames never share a file: what templates tell is refused, what only the
# output tells makes the later frame bad.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 4
cat >draw.sh <<'END'
echo "$1" >"$2/all.drw"
echo "saved: $2/all.drw"
END
run 1 run sketch shot_0001.txt --slots 1 --log-dir "$TMP/logs"
out_has "failed  2  Frame 2 has the same file as frame 1: $TMP/work/images/all.drw"
out_has "failed  4  Frame 4 has the same file as frame 1: $TMP/work/images/all.drw"
out_has "1 of 4 frames good"
# The same again, in two slots: at most one of them has it, whoever is first.
run 1 run sketch shot_0001.txt --new --slots 2 --log-dir "$TMP/logs2"
# What was found counts as well: it is one frame's at most.
run 1 run sketch shot_0001.txt --missing --slots 1 --log-dir "$TMP/logs3"
out_has "the same file as frame"

# Types of expected files are told before anything is started.
type_file title <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555557
Name=Title
Shortcut=title
Command=-c "cp \"$1\" \"$2\"" - $(ActualScene.Enquote) $(ActualScene.Base.Enquote).drw
CheckForMultipleFiles=Yes
[OverrideDefaults]
Executable=/bin/sh
ExpectedFiles=$(ActualScene.Base).drw
EnquoteActual=No
END
echo logo >logo.txt
run 0 run title logo.txt
run 2 run title logo.txt --range 1-24
err_is <<'END'
trovik: error: frames 1 and 2 would both write "TMP/work/logo.drw"
hint: its name is that of the scene, which is one file: leave --range out, or pick a file of a numbered sequence
END
run 2 run title logo.txt --range 1-240 --missing
err_is <<'END'
trovik: error: frames 1 and 2 would both write "TMP/work/logo.drw"
hint: its name is that of the scene, which is one file: leave --range out, or pick a file of a numbered sequence
END
run 2 submit title logo.txt --range 5,9 --set 'ExpectedFiles=logo.drw;$(Frame).drw' --packet 2
err_is <<'END'
trovik: error: frames 5 and 9 would both write "TMP/work/logo.drw"
hint: name the frame in ExpectedFiles by $(Frame.Pad(4)), or set FileCheck=Work where one file holds them all
END
run 0 run title logo.txt --range 7
run 0 run title logo.txt --range 1-24 --packet 24 --set FileCheck=Work
run 0 run title shot_0001.txt
out_has "all 4 frames good"
