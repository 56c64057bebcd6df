# What is wrong with the type files of a module path is told with file and line.
. "$(dirname "$0")/../lib.sh"

# A copy whose ID was forgotten: both files, the ID, and which counts.
sketch_type
sed 's/^Name=.*/Name=Sketch 2/' "$TMP/modules/sketch.tvx" >"$TMP/modules/sketch2.tvx"
# What the module keeps of the first file is replaced and never freed: a job may
# still read it. Only that leak is known to the sanitizer, and only in this file.
echo 'leak:ModuleLoader::Library::LoadAs' >"$TMP/leaks.txt"
export LSAN_OPTIONS="suppressions=$TMP/leaks.txt:print_suppressions=0"
run 0 types
err_is <<'END'
trovik: warning: TMP/modules/sketch.tvx:2:4: warning: the type "Sketch" is not used: the type "Sketch 2" of TMP/modules/sketch2.tvx has the same ID 11111111-2222-3333-4444-555555555555, and the last file of a folder counts; give one of them an ID of its own
END
out_has 'Sketch 2'
# The same in another folder.
mkdir "$TMP/mine"
mv "$TMP/modules/sketch2.tvx" "$TMP/mine"
run 0 types --module-path "$TMP/mine:$TMP/modules"
err_is <<'END'
trovik: warning: TMP/modules/sketch.tvx:2:4: warning: the type "Sketch" is not used: the type "Sketch 2" of TMP/mine/sketch2.tvx has the same ID 11111111-2222-3333-4444-555555555555, and its folder comes first; give one of them an ID of its own
END
out_has 'Sketch 2'
# Who keeps the name takes the place of the other on purpose.
sed -i 's/^Name=.*/Name=Sketch/' "$TMP/mine/sketch2.tvx"
run 0 types --module-path "$TMP/mine:$TMP/modules"
err_is_empty

# A file that cannot be read, and an ID that is none.
ln -s /proc/self/mem "$TMP/modules/unreadable.tvx"
type_file malformed <<'END'
; mine
[Module]
Name=Malformed
ID = 1234
END
run 0 types
grep -v 'Failed to load virtual module file' "$TMP/err" >"$TMP/told"
compare "$TMP/told" <<'END'
trovik: warning: TMP/modules/malformed.tvx:4:6: warning: "1234" is no ID; write 36 characters like "0123abcd-4567-89ab-cdef-0123456789ab"
trovik: warning: TMP/modules/unreadable.tvx: warning: cannot read TMP/modules/unreadable.tvx: Input/output error
END
rm "$TMP/modules/malformed.tvx" "$TMP/modules/unreadable.tvx"

# A flag that nobody knows.
cat >>"$TMP/modules/sketch.tvx" <<'END'
[OverrideFlags]
PacketSize=Visible, Edditable
END
run 0 types
line=$(grep -n Edditable "$TMP/modules/sketch.tvx" | cut -d : -f 1)
err_is <<END
trovik: warning: TMP/modules/sketch.tvx:$line:21: warning: unknown flag "Edditable"; did you mean "Editable"?
END

# Of many, some.
for number in 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25 26 27 28 29 30 31; do
  sed -e "s/^Name=.*/Name=Copy $number/" -e '/Edditable/d' "$TMP/modules/sketch.tvx" >"$TMP/modules/copy$number.tvx"
done
rm "$TMP/modules/sketch.tvx"
run 0 types
[ "$(grep -c 'is not used' "$TMP/err")" = 20 ] || fail "not 20 of 21 are told"
grep -q 'further warnings about type files: 1$' "$TMP/err" || fail "the rest is not counted"
