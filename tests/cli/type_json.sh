# The description as JSON holds everything, flags too.
. "$(dirname "$0")/lib.sh"
type_file form <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
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
"$HELPER" json /version /kind /name /parameters/0 /commands <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
1 "type" "Form" {"name":"Width","label":"Width in pixels","group":"Picture","type":"integer","default":"640","help":"","flags":["OfJob","Visible"],"minimum":1.0} [{"name":"View","label":"View","help":"","command":"viewer"}]
END
out_has '"SceneNameFormat"'
