# On a terminal the table fits, whatever the texts of a type; in a pipe it is
# whole.
. "$(dirname "$0")/../lib.sh"
sketch_type
type_file long <<'END'
[Module]
ID=11111111-2222-3333-4444-777777777777
Name=A type with a name that nobody would want to write more than once
Shortcut=one-of-many-aliases, another-of-many-aliases, the-last-of-many-aliases
Help=Does something that takes a good many words to tell, more than fit on a line.
END

script -qec "stty cols 80; '$TROVIK' types" /dev/null >"$TMP/terminal" </dev/null
"$HELPER" width 80 <"$TMP/terminal"
grep -q 'Sketch' "$TMP/terminal" || fail "no Sketch"
script -qec "stty cols 40; '$TROVIK' types" /dev/null >"$TMP/terminal" </dev/null
"$HELPER" width 40 <"$TMP/terminal"

run 0 types
out_has "A type with a name that nobody would want to write more than once"
out_has "more than fit on a line."
