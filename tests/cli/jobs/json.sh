# Every verb that prints JSON prints documents or events of its own kind.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
echo broken >shot_0002.txt
says() {
  run "$@" --json
  "$HELPER" json /version /kind <"$TMP/out" >>"$TMP/values"
}
says 0 types
says 0 type sketch
says 0 detect sketch shot_0001.txt
says 0 find sketch
says 0 check "$TMP/modules/sketch.tvx"
says 0 new Paint --program /bin/true -o paint.tvx
: >log
says 1 replay sketch log
says 0 run sketch shot_0001.txt --range 1 --dry-run
[ ! -e "$XDG_STATE_HOME" ] || fail "the dry run made a folder for logs"
says 1 run sketch shot_0001.txt --slots 1
says 0 jobs
says 0 show 1
says 1 watch 1
says 0 stats 1
says 0 log 1
says 0 images 1
says 0 sheet 1 -o sheet.png
says 0 retry 1
says 1 engine --job 1
says 0 submit sketch shot_0001.txt --new
says 0 cancel 2
says 0 delete 2
file_is "$TMP/values" <<'END'
1 "types"
1 "type"
1 "detect"
1 "find"
1 "check"
1 "new"
1 "replay"
1 "work.command"
1 "run.started"
1 "work.started"
1 "work.image"
1 "work.finished"
1 "work.started"
1 "work.failed"
1 "run.summary"
1 "jobs"
1 "job"
1 "run.started"
1 "run.summary"
1 "stats"
1 "log"
1 "images"
1 "sheet"
1 "retry"
1 "run.started"
1 "work.started"
1 "work.failed"
1 "run.summary"
1 "job.submitted"
1 "cancel"
1 "delete"
END

# The description of a type holds everything, flags too.
type_file form <<'END'
[Module]
ID=11111111-2222-3333-4444-666666666666
Name=Form
Command=$(Width)
[PrimaryParameters]
1=Picture
2=Width
[PrimaryCommands]
1=View
[Picture]
Type=Heading
[Width]
Type=Integer
Label=Width in pixels
Default=640
Minimum=1
Flags=OfJob, Visible
[View]
Command=viewer
END
run 0 type form --json
"$HELPER" json /name /parameters/0 /commands <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
"Form" {"name":"Width","label":"Width in pixels","group":"Picture","type":"integer","default":"640","help":"","flags":["OfJob","Visible"],"minimum":1.0} [{"name":"View","label":"View","help":"","command":"viewer"}]
END
out_has '"SceneNameFormat"'

# What is found in type files has its place, its rule and what to do.
cat >bad.tvx <<'END'
[Module]
ID=31111111-2222-3333-4444-555555555555
Name=Bad
Command=--scene $(ActualScene) $(Widht)
ImageStartText=saved:
Author=Ada
[OverrideDefaults]
Executable=/bin/sh
END
run 1 check bad.tvx --json
"$HELPER" json /files /problems/0 /problems/1/severity /counts <"$TMP/out" >"$TMP/values"
err_is_empty
sed -i -e 's/ \$(Widht)//' -e '/Author/d' bad.tvx
run 0 check bad.tvx --json
"$HELPER" json /files /problems /counts <"$TMP/out" >>"$TMP/values"
run 2 check gone.tvx --json
"$HELPER" json /files /problems/0 /counts <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
["bad.tvx"] {"file":"bad.tvx","line":4,"column":34,"endColumn":39,"severity":"error","rule":"unknown-reference","message":"nobody answers $(Widht)","hint":"define the parameter, or write \"$$(\" where \"$(\" is meant as it stands"} "warning" {"errors":1,"warnings":1}
["bad.tvx"] [] {"errors":0,"warnings":0}
["gone.tvx"] {"file":"gone.tvx","line":0,"column":0,"endColumn":0,"severity":"error","rule":"unreadable","message":"cannot be read: No such file or directory","hint":null} {"errors":1,"warnings":0}
END
