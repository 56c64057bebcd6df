# The program that jobs of a type run, and where it came from.
. "$(dirname "$0")/../lib.sh"
type_file finder <<END
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Finder
[FindLatestExecutable]
LinuxRoots=$TMP/opt
LinuxBases=paint
LinuxExe=bin/paint
[OverrideDefaults]
Executable=no-such-paint
END

run 1 find finder
err_is <<'END'
trovik: error: there is no program for "Finder"
  the type's search: "TMP/opt" does not exist
  the type's default: "no-such-paint" is not along PATH
hint: install it, or write Executable=FILE in the section [11111111-2222-3333-4444-555555555555] of the options file
END
run 1 find finder --json
"$HELPER" json /version /kind /executable /source <"$TMP/out" >"$TMP/values"

# What cannot be read is named as that, and a folder is no program.
ln -s opt "$TMP/opt"
mkdir -p "$TMP/path/no-such-paint"
PATH=$TMP/path:$PATH run 1 find finder
err_is <<'END'
trovik: error: there is no program for "Finder"
  the type's search: "TMP/opt" cannot be read: Too many levels of symbolic links
  the type's default: "no-such-paint" is not along PATH
hint: make readable what cannot be read, or write Executable=FILE in the section [11111111-2222-3333-4444-555555555555] of the options file
END
rm "$TMP/opt"
rmdir "$TMP/path/no-such-paint"
mkdir "$TMP/opt"
run 1 find finder
err_is <<'END'
trovik: error: there is no program for "Finder"
  the type's search: "TMP/opt" holds no folder named like "paint"
  the type's default: "no-such-paint" is not along PATH
hint: install it, or write Executable=FILE in the section [11111111-2222-3333-4444-555555555555] of the options file
END

cp /bin/true "$TMP/path/no-such-paint"
PATH=$TMP/path:$PATH
run 0 find finder
out_is <<'END'
TMP/path/no-such-paint
  the type's default "no-such-paint", found along PATH
END

for version in 4.9 4.10 4.11-beta 4.12-old; do
  mkdir -p "$TMP/opt/paint-$version/bin"
  cp /bin/true "$TMP/opt/paint-$version/bin/paint"
done
chmod -x "$TMP/opt/paint-4.11-beta/bin/paint"
run 0 find finder
out_is <<'END'
TMP/opt/paint-4.10/bin/paint
  the newest that the type's search found: "paint-4.10" before "paint-4.9"
  "TMP/opt/paint-4.11-beta" cannot serve: its "bin/paint" is not executable
  "TMP/opt/paint-4.12-old" was put aside: its name says "old"
END

printf '[11111111-2222-3333-4444-555555555555]\nExecutable=/bin/sh\n' >"$TMP/options.ini"
run 0 find finder --options "$TMP/options.ini"
out_is <<'END'
/bin/sh
  the engine's option "/bin/sh"
END
TROVIK_OPTIONS=$TMP/options.ini
export TROVIK_OPTIONS
run 0 find finder --json
"$HELPER" json /version /kind /executable /source <"$TMP/out" >>"$TMP/values"
file_is "$TMP/values" <<'END'
1 "find" null null
1 "find" "/bin/sh" "option"
END

# An option that leads nowhere is told as that, and nothing else is tried.
printf '[11111111-2222-3333-4444-555555555555]\nExecutable=%s\n' "$TMP/opt" >"$TMP/options.ini"
run 1 find finder
err_is <<'END'
trovik: error: there is no program for "Finder"
  the engine's option: "TMP/opt" is a folder
hint: install it, or write Executable=FILE in the section [11111111-2222-3333-4444-555555555555] of the options file
END
unset TROVIK_OPTIONS

# A section that names no folder is no search of folders, and says so.
type_file bare <<END
[Module]
ID=21111111-2222-3333-4444-555555555555
Name=Bare
[FindLatestExecutable]
LinuxExe=no-such-paint
[OverrideDefaults]
Executable=sh
END
run 0 find bare
out_is <<'END'
TMP/path/no-such-paint
  the program of the type's search, "no-such-paint" along PATH
END
type_file homeless <<END
[Module]
ID=31111111-2222-3333-4444-555555555555
Name=Homeless
[FindLatestExecutable]
LinuxBases=paint
LinuxExe=bin/paint
END
run 1 find homeless
err_is <<'END'
trovik: error: there is no program for "Homeless"
  the type's search: it names no folder to search in, so nothing was searched
hint: install it, or write Executable=FILE in the section [31111111-2222-3333-4444-555555555555] of the options file
END
type_file nothing <<END
[Module]
ID=41111111-2222-3333-4444-555555555555
Name=Nothing
END
run 1 find nothing
err_is <<'END'
trovik: error: nothing says which program jobs of "Nothing" run
hint: write Executable=FILE in the section [41111111-2222-3333-4444-555555555555] of the options file
END
