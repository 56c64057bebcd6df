# What is found in type files, as JSON.
. "$(dirname "$0")/lib.sh"
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
out_is <<'END'
{
  "version": 1,
  "kind": "check",
  "files": [
    "bad.tvx"
  ],
  "problems": [
    {
      "file": "bad.tvx",
      "line": 4,
      "column": 34,
      "endColumn": 39,
      "severity": "error",
      "rule": "unknown-reference",
      "message": "nobody answers $(Widht)",
      "hint": "define the parameter, or write \"$$(\" where \"$(\" is meant as it stands"
    },
    {
      "file": "bad.tvx",
      "line": 6,
      "column": 1,
      "endColumn": 7,
      "severity": "warning",
      "rule": "unknown-key",
      "message": "unknown key \"Author\" in the section [Module]",
      "hint": "it is passed over; take it out"
    }
  ],
  "counts": {
    "errors": 1,
    "warnings": 1
  }
}
END
err_is_empty

sed -i -e 's/ \$(Widht)//' -e '/Author/d' bad.tvx
run 0 check bad.tvx --json
"$HELPER" json /kind /files /problems /counts <"$TMP/out" >"$TMP/values"
run 2 check gone.tvx --json
"$HELPER" json /problems/0/file /problems/0/line /problems/0/rule /problems/0/message /problems/0/hint <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
"check" ["bad.tvx"] [] {"errors":0,"warnings":0}
"gone.tvx" 0 "unreadable" "cannot be read: No such file or directory" null
END
