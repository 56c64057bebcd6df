# What the shells ask is answered quietly, whatever the words are, and nothing
# is made by asking.
. "$(dirname "$0")/../lib.sh"
sketch_type
printf '[Module]\nID=11111111-2222-3333-4444-777777777777\nName=Odd\033[31m\nShortcut=odd\nHelp=Red\033[31m\n' |
  type_file odd
ask() {
  run 0 complete "$@"
  err_is_empty
}
quiet() {
  ask "$@"
  out_is_empty
}

ask run ''
printf 'odd\tRed\\x1b[31m\nSketch\tDraws one picture for each numbered scene file.\nsk\tDraws one picture for each numbered scene file.\n' >"$TMP/list"
sort "$TMP/out" >"$TMP/sorted"
sort "$TMP/list" >"$TMP/list.sorted"
cmp "$TMP/sorted" "$TMP/list.sorted" || { cat "$TMP/out"; fail "other types"; }
# Of the module path, settings and queue that the words name.
mkdir "$TMP/other"
ln -s "$MODULE" "$TMP/other/Tessivar.so"
printf '[Module]\nID=11111111-2222-3333-4444-888888888888\nName=Alone\n' >"$TMP/other/alone.tvx"
ask run --module-path "$TMP/other" ''
printf 'Alone\t\n' | cmp - "$TMP/out" || fail "the module path was not heeded"
quiet show ''
quiet show --state "$TMP/elsewhere" ''
[ ! -e "$TMP/elsewhere" ] && [ ! -e "$XDG_STATE_HOME/trovik" ] || fail "a queue was made"

# No more options than the verb has, behind its arguments.
ask find sketch ''
grep -q '^--json	Print JSON$' "$TMP/out" || fail "no options behind the arguments"
! grep -q '^--slots' "$TMP/out" || fail "an option of another verb"
quiet find sketch -- ''

ask run sketch --engine ''
printf 'local\tThis machine\nslurm\tA cluster\n' | cmp - "$TMP/out" || fail "no engines"
ask replay ./
grep -q "^:files" "$TMP/out" || fail "no type files"
ask check ''
grep -q "^:files" "$TMP/out" || fail "no files for the check"

# Wrong or unfinished words.
quiet run nothing --set ''
quiet run --set ''
quiet run sketch --set Nothing=
quiet run sketch --set =
quiet run sketch --nothing=
quiet --nothing ''  extra
quiet run --module-path "$TMP/none" ''
quiet run --settings "$TMP/none" ''
quiet show --state /dev/null ''
mkdir -p "$XDG_STATE_HOME/trovik"
echo "no database" >"$XDG_STATE_HOME/trovik/queue.db"
quiet show ''
run 0 complete
grep -q '^run	' "$TMP/out" || fail "no verbs"
TROVIK_MODULE_PATH=$TMP/none run 0 complete run ''
err_is_empty
