# Everything that is wrong or doubtful in type files, with place and hint.
. "$(dirname "$0")/../lib.sh"

# A valid type gives no word.
sketch_type
cat >good.tvx <<'END'
[Module]
ID=21111111-2222-3333-4444-555555555555
Name=Good
Command=--scene $(ActualScene)
ImageStartText=saved:
[OverrideDefaults]
Executable=/bin/sh
END
run 0 check good.tvx
out_is_empty
err_is_empty
run 0 check good.tvx --strict
out_is_empty

# All problems of a file in the order of their places.
cat >bad.tvx <<'END'
[Module]
Name=Bad
ID=31111111-2222-3333-4444-55555555555
Command=--scene $(Scene) --size $(Widht)
ImageStartText=saved:
[PrimaryParameters]
1=Width
[Width]
Type=Interger
Flags=OfJob
[OverrideDefaults]
Executable=/bin/sh
END
run 1 check bad.tvx
sed -i 's/such as ID=.*/such as ID=FRESH/' "$TMP/out"
out_is <<'END'
bad.tvx:3:4: error: "31111111-2222-3333-4444-55555555555" is no ID, so the type is not loaded
    3 | ID=31111111-2222-3333-4444-55555555555
      |    ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write 36 characters, such as ID=FRESH
bad.tvx:4:17: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=--scene $(Scene) --size $(Widht)
      |                 ^^^^^^^^
hint: write $(Scene.Enquote)
bad.tvx:4:35: error: nobody answers $(Widht)
    4 | Command=--scene $(Scene) --size $(Widht)
      |                                   ^^^^^
hint: did you mean "Width"?
bad.tvx:9:6: error: unknown parameter type "Interger"
    9 | Type=Interger
      |      ^^^^^^^^
hint: did you mean "Integer"?
3 errors, 1 warning
END
err_is_empty

# Warnings alone are no error, unless they are said to be.
cat >doubtful.tvx <<'END'
[Module]
ID=41111111-2222-3333-4444-555555555555
Name=Doubtful
Command=--scene $(Scene)
ImageStartText=saved:
[OverrideDefaults]
Executable=/bin/sh
END
run 0 check doubtful.tvx
cat >"$TMP/doubtful" <<'END'
doubtful.tvx:4:17: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=--scene $(Scene)
      |                 ^^^^^^^^
hint: write $(Scene.Enquote)
0 errors, 1 warning
END
out_is <"$TMP/doubtful"
run 1 check --strict doubtful.tvx good.tvx
out_is <"$TMP/doubtful"

# Place, kind and marks are coloured.
run 0 check doubtful.tvx --color always
sed 's/'"$(printf '\033')"'\[/</g' "$TMP/out" >"$TMP/coloured"
file_is "$TMP/coloured" <<'END'
<1mdoubtful.tvx:4:17:<0m <33mwarning:<0m a name with a blank or a quote in it becomes several arguments here
    4 | Command=--scene $(Scene)
      |                 <33m^^^^^^^^<0m
hint: write $(Scene.Enquote)
0 errors, 1 warning
END

# A directory stands for its type files, no file for those of the module path.
mkdir types
mv doubtful.tvx good.tvx types
echo "no type" >types/notes.txt
run 0 check types
out_has "types/doubtful.tvx:4:17: warning:"
out_has "0 errors, 1 warning"
run 0 check
out_is_empty
echo "stray" >>"$TMP/modules/sketch.tvx"
run 1 check
out_is <<'END'
TMP/modules/sketch.tvx:14:1: error: this line is no section, no entry and no comment
   14 | stray
      | ^^^^^
hint: write KEY=VALUE, or a semicolon before a comment
1 error, 0 warnings
END

# What cannot be read is told, and the others are checked all the same.
run 2 check missing.tvx types/doubtful.tvx
out_is <<'END'
missing.tvx: error: cannot be read: No such file or directory
types/doubtful.tvx:4:17: warning: a name with a blank or a quote in it becomes several arguments here
    4 | Command=--scene $(Scene)
      |                 ^^^^^^^^
hint: write $(Scene.Enquote)
1 error, 1 warning
END
mkfifo pipe.tvx
run 2 check pipe.tvx
out_has "pipe.tvx: error: cannot be read: it is no regular file"
mkdir none
run 2 check none
err_is <<'END'
trovik: error: there is no type file in "none"
hint: type files end with .tvx
END

# A name under which no directory loads it.
cp types/good.tvx good.tvx.txt
run 0 check good.tvx.txt
out_is <<'END'
good.tvx.txt: warning: is never loaded from a directory: its name does not end with .tvx
hint: give it such a name
0 errors, 1 warning
END

# Of a hostile file only the first problems are shown.
{ cat types/good.tvx; yes '=' | head -n 500; } >many.tvx
run 1 check many.tvx
[ "$(grep -c '^many.tvx:[0-9]*:1: error: the key before "=" is missing$' "$TMP/out")" = 100 ] || fail "not 100"
out_has "many.tvx: 400 more problems"
out_has "500 errors, "
printf '[Module]\nID=51111111-2222-3333-4444-555555555555\nName=\033[31mred\nImageStartText=x\nCommand=a\nx\033[2J\n' >red.tvx
run 1 check red.tvx --no-programs
out_has '    6 | x\x1b[2J'
grep -q "$(printf '\033')" "$TMP/out" && fail "the file steers the terminal"
:
