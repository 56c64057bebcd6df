# --set: unknown names, wrong values and what is not for users are refused.
. "$(dirname "$0")/../lib.sh"
type_file form <<END
[Module]
ID=11111111-2222-3333-4444-555555555556
Name=Form
Command=args "$TMP/args" $(printf '%s' '$(Width) $(Title.Enquote) $(Texture.Enquote)')
[PrimaryParameters]
1=Picture
2=Width
3=Title
4=Fixed
5=Texture
[Picture]
Type=Heading
[Width]
Type=Integer
Default=640
Minimum=1
[Title]
Type=Text
[Fixed]
Type=Text
Flags=Visible, ReadOnly
[Texture]
Type=File
[AutoDetect]
Width=Title=$(printf '%s' '$(Width)') wide
[OverrideDefaults]
Executable=$HELPER
END

run 2 run form --set Widht=3
err_is <<'END'
trovik: error: "Form" has no parameter "Widht"
hint: did you mean "Width"? "trovik type Form" lists them all
END
run 2 run form --set Width=wide
err_is <<'END'
trovik: error: --set Width: "wide" is no whole number
END
run 2 run form --set Width=0
grep -q '^trovik: error: --set Width: ' "$TMP/err" || fail "a value beyond its limit is taken"
run 2 run form --set Picture=1
err_is <<'END'
trovik: error: --set Picture: "Picture" is a heading and has no value
hint: "trovik type" lists the parameters below it
END
run 2 run form --set Fixed=1
err_is <<'END'
trovik: error: --set Fixed: this type does not let users set "Fixed"
hint: leave it out
END
run 2 run form --set Width
err_is <<'END'
trovik: error: --set takes NAME=VALUE, not "Width"
hint: write, for example, --set PacketSize=4
END
run 2 run form --set 'Title=$(Nobody)'
err_is <<'END'
trovik: error: parameter Title:1: nobody answers $(Nobody)
    1 | $(Nobody)
      | ^
END

# A change fills others by the type's rules, but never what the user set.
run 0 run form --set width=3 --set texture=t.drw --log-dir "$TMP/logs"
run 0 run form --set 'Title=by me' --set Width=4 --log-dir "$TMP/logs"
run 0 run form --set Width=5 --set Title= --log-dir "$TMP/logs"
file_is "$TMP/args" <<END
<3>
<3 wide>
<$TMP/work/t.drw>
<4>
<by me>
<>
<5>
<>
<>
END

# A value that cannot be read is refused before anything starts, and nobody
# else is blamed for it.
sketch_type
cat >>"$TMP/modules/sketch.tvx" <<'END'
[AutoDetect]
Scene=Note=$(StartDirectory)
END
scenes 1
run 2 run sketch shot_0001.txt --set 'StartDirectory=$(abc'
err_is <<'END'
trovik: error: StartDirectory: text:1: this reference is never closed; add ")", or write "$$(" where "$(" is meant as it stands
    1 | $(abc
      | ^
END
run 2 run sketch shot_0001.txt --set 'ExpectedFiles=$(abc'
err_is <<'END'
trovik: error: ExpectedFiles:1: this reference is never closed; add ")", or write "$$(" where "$(" is meant as it stands
    1 | $(abc
      | ^
END
