# Types that get into each other's way, and a program that is not there.
. "$(dirname "$0")/../lib.sh"
sketch_type
sed -e 's/^Name=.*/Name=Copy/' -e 's/^Shortcut=.*/Shortcut=cp, SK/' "$TMP/modules/sketch.tvx" >copy.tvx
run 1 check copy.tvx
sed -i 's/such as ID=.*/such as ID=FRESH/' "$TMP/out"
out_is <<'END'
copy.tvx:2:4: error: the type "Sketch" of TMP/modules/sketch.tvx:2 has this ID already
    2 | ID=11111111-2222-3333-4444-555555555555
      |    ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: write one of its own, such as ID=FRESH
1 error, 0 warnings
END
sed -i 's/^ID=1/ID=2/' copy.tvx
run 0 check copy.tvx
out_is <<'END'
copy.tvx:4:14: warning: the type "Sketch" of TMP/modules/sketch.tvx answers to "SK" too
    4 | Shortcut=cp, SK
      |              ^^
hint: choose another name, or else users must give the ID
0 errors, 1 warning
END

# Two of the files that are given.
sed -e 's/^Name=.*/Name=Third/' -e '/^Shortcut/d' copy.tvx >third.tvx
run 1 check copy.tvx third.tvx
out_has 'copy.tvx:2:4: error: the type "Third" of third.tvx:2 has this ID already'
out_has 'third.tvx:2:4: error: the type "Copy" of copy.tvx:2 has this ID already'

# A file of one's own that takes the place of an installed one, which has the same name.
mkdir own
sed 's/^Help=.*/Help=Better./' "$TMP/modules/sketch.tvx" >own/sketch.tvx
run 0 check own/sketch.tvx
out_is_empty
run 0 check --module-path "$TMP/work/own:$TMP/modules"
out_is_empty

cat >finder.tvx <<'END'
[Module]
ID=61111111-2222-3333-4444-555555555555
Name=Finder
Command=$(ActualScene)
ImageStartText=saved:
[FindLatestExecutable]
LinuxRoots=/no-such-root
LinuxBases=paint
LinuxExe=bin/paint
[OverrideDefaults]
Executable=no-such-paint
END
run 0 check finder.tvx
out_is <<'END'
finder.tvx:11:12: warning: this machine has no program for the type
   11 | Executable=no-such-paint
      |            ^^^^^^^^^^^^^
hint: the type's search: "/no-such-root" does not exist; the type's default: "no-such-paint" is not along PATH
0 errors, 1 warning
END
sed -i -e '/^Executable=/d' finder.tvx
cat >>finder.tvx <<'END'
Executable=/bin/sh
[PrimaryCommands]
1=Open
2=Show
[Open]
Command=no-such-viewer $(Scene.Enquote)
[Show]
Command=/bin/sh -c true
END
run 0 check finder.tvx
out_is <<'END'
finder.tvx:16:9: warning: this machine has no program "no-such-viewer"
   16 | Command=no-such-viewer $(Scene.Enquote)
      |         ^^^^^^^^^^^^^^
hint: looked for it along PATH
0 errors, 1 warning
END
run 0 check finder.tvx --strict --no-programs
out_is_empty

# The types that come with the program are silent where their programs are not
# installed; one of one's own with another ID is not.
cp "$(dirname "$TROVIK")/../modules/blender.tvx" shipped.tvx
sed -i 's/^Executable=blender$/Executable=no-such-blender/' shipped.tvx
mkdir copy
mv shipped.tvx copy/blender.tvx
run 0 check copy/blender.tvx
out_is_empty
sed -i -e 's/^ID=4/ID=5/' -e 's/^Name=.*/Name=Other/' -e 's/^Shortcut=.*/Shortcut=other/' \
  -e 's,^LinuxRoots=.*,LinuxRoots=/no-such-root,' copy/blender.tvx
run 0 check copy/blender.tvx
out_has 'warning: this machine has no program for the type'
