# Every verb explains itself, with worked examples, in 80 columns.
. "$(dirname "$0")/../lib.sh"

run 0
cp "$TMP/out" "$TMP/short"
run 0 --help
cmp "$TMP/out" "$TMP/short" || fail "no arguments and --help differ"
out_has "usage: trovik VERB [options]"

for verb in types type check detect find new replay run submit engine jobs show log images watch stats sheet page \
  retry cancel delete; do
  run 0 help $verb
  cp "$TMP/out" "$TMP/help"
  run 0 $verb --help
  cmp "$TMP/out" "$TMP/help" || fail "help $verb and $verb --help differ"
  out_has "usage: trovik $verb"
  out_has "Examples:"
  out_has "  trovik $verb"
  out_has "--json"
  "$HELPER" width 80 <"$TMP/out"
done

run 0 --version
grep -q -x 'trovik [0-9]*\.[0-9]*\.[0-9]*' "$TMP/out" || fail "no version"
err_is_empty
