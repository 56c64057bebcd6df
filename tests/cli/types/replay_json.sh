# A replay as JSON: every line, the images, verdict and note.
. "$(dirname "$0")/../lib.sh"
type_file paint <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
ImageStartText=Saved: 
ImageEndText= (
[ErrorText]
1=error:
[ErrorIgnore]
1=harmless
END
printf 'hello\nSaved: /o/a.png (3 s)\nerror: harmless\nerror: \344 "x"\nSaved: /o/a.png (3 s)\nSaved: no' >log
run 1 replay paint log --exit 3 --json
out_is <<'END'
{
  "version": 1,
  "kind": "replay",
  "type": "Paint",
  "typeId": "11111111-2222-3333-4444-555555555555",
  "log": "log",
  "frames": null,
  "exitCode": 3,
  "signal": null,
  "lines": [
    {"number":1,"text":"hello","what":"ordinary","by":null,"list":null},
    {"number":2,"text":"Saved: /o/a.png (3 s)","what":"image","by":"Saved:","list":"ImageStartText","image":"/o/a.png","end":"("},
    {"number":3,"text":"error: harmless","what":"ignored error","by":"harmless","list":"ErrorIgnore","error":"error:"},
    {"number":4,"text":{"hex":"6572726f723a20e420227822"},"what":"error","by":"error:","list":"ErrorText"},
    {"number":5,"text":"Saved: /o/a.png (3 s)","what":"image","by":"Saved:","list":"ImageStartText","image":"/o/a.png","end":"("},
    {"number":6,"text":"Saved: no","what":"dropped","by":"Saved:","list":"ImageStartText"}
  ],
  "images": ["/o/a.png"],
  "files": null,
  "verdict": "bad",
  "note": {"hex":"4572726f72206c696e653a206572726f723a20e420227822"},
  "rule": "error line",
  "deciding": 4
}
END

printf 'Saved: /o/a.png (3 s)\n' >log
run 0 replay paint log --json --range 4
"$HELPER" json /verdict /note /rule /frames /exitCode /images <"$TMP/out" >"$TMP/values"
run 1 replay paint log --json --exit 139
"$HELPER" json /verdict /note /rule /signal /exitCode /images <"$TMP/out" >>"$TMP/values"
: >log
run 1 replay paint log --json
"$HELPER" json /verdict /note /rule /lines /images <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
"good" null "result" "4" 0 ["/o/a.png"]
"bad" "Killed by signal 11 (Segmentation fault)" "signal" 11 139 ["/o/a.png"]
"bad" "No program output named an image" "files" [] []
END

# A line without an end comes in pieces, whatever its length.
head -c 3000000 /dev/zero | tr '\0' x >log
run 1 replay paint log --json
"$HELPER" json /lines/2/number /lines/3 <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
3 -
END
