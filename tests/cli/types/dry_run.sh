# The dry run starts and makes nothing; its lines, pasted into a shell, give the
# program the same arguments.
. "$(dirname "$0")/../lib.sh"
type_file args <<END
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Arguments
Command=args "$TMP/args" $(printf '%s' '$(ActualScene) $(OutputFolder.Enquote)') "a  b" 'c"d' last
CheckForMultipleFiles=Yes
[OverrideDefaults]
Executable=$HELPER
Environment=EXTRA=a b;GONE
END
mkdir 'a $(touch executed) "dir" it'"'"'s'
cd 'a $(touch executed) "dir" it'"'"'s'
: >'s`touch executed`!_0001.x'
: >'s`touch executed`!_0002.x'

find "$TMP" >"$TMP/../$(basename "$TMP").before"
"$TROVIK" run arguments 's`touch executed`!_0001.x' --out 'out;put' --dry-run >"$TMP/../$(basename "$TMP").out"
find "$TMP" >"$TMP/../$(basename "$TMP").after"
mv "$TMP/../$(basename "$TMP").before" "$TMP/before"
mv "$TMP/../$(basename "$TMP").after" "$TMP/after"
mv "$TMP/../$(basename "$TMP").out" "$TMP/commands"
cmp "$TMP/before" "$TMP/after" || fail "the dry run made something"
[ "$(wc -l <"$TMP/commands")" = 2 ] || fail "not one line a work"
grep -q -F 'env -u GONE -u LANGUAGE EXTRA="a b" LC_ALL=C.UTF-8' "$TMP/commands" || fail "no environment"

/bin/sh <"$TMP/commands"
mv "$TMP/args" "$TMP/pasted"
run 0 run arguments 's`touch executed`!_0001.x' --out 'out;put' --slots 1 --log-dir "$TMP/logs"
cmp "$TMP/args" "$TMP/pasted" || fail "the pasted commands gave other arguments"
[ -z "$(find "$TMP" -name 'executed')" ] || fail "something was executed"
