# The program that jobs of a type run, and where it came from.
. "$(dirname "$0")/lib.sh"
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
trovik: error: there is no program for "Finder"; looked for
  the type's search "TMP/opt/paint*/bin/paint"
  the type's default "no-such-paint" along PATH
hint: install it, or name it as Executable in the section [11111111-2222-3333-4444-555555555555] of the options file
END
run 1 find finder --json
"$HELPER" json /version /kind /executable /source <"$TMP/out" >"$TMP/values"

mkdir -p "$TMP/path"
cp /bin/true "$TMP/path/no-such-paint"
PATH=$TMP/path:$PATH
run 0 find finder
out_is <<'END'
TMP/path/no-such-paint
  the type's default "no-such-paint", found along PATH
END

for version in 4.9 4.10 4.11-beta; do
  mkdir -p "$TMP/opt/paint-$version/bin"
  cp /bin/true "$TMP/opt/paint-$version/bin/paint"
done
chmod -x "$TMP/opt/paint-4.11-beta/bin/paint"
run 0 find finder
out_is <<'END'
TMP/opt/paint-4.10/bin/paint
  the newest that the type's search found
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
