# The manual page is sound, and tells every verb and every option with its
# value as the help does, and none that there is not.
. "$(dirname "$0")/../lib.sh"
page=$(dirname "$0")/../../../docs/man/trovik.1
mandoc -T lint -W warning "$page" >"$TMP/lint" || { cat "$TMP/lint" >&2; fail "mandoc complains"; }

# "VERB OPTION" for each entry of the help's groups of options.
run 0 --help
sed -n '/^Job types:/,/^Common options:/s/^  \([a-z][a-z]*\)  *.*/\1/p' "$TMP/out" >"$TMP/verbs"
options_of() { # GROUP NAME
  sed -n "/^$1:/,/^\$/s/^  \\(-.*\\)/\\1/p" "$TMP/out" | sed -e 's/   *.*//' -e "s/^/$2 /"
}
options_of "Common options" common >"$TMP/help"
while read -r verb; do
  run 0 help "$verb"
  echo "$verb" >>"$TMP/help"
  options_of Options "$verb" >>"$TMP/help"
done <"$TMP/verbs"

awk '
  /^\.Ss Common options/ { verb = "common" }
  /^\.(Ss|Sh) / && !/Common options/ { verb = "" }
  /^\.It Cm / { verb = $3; print verb; next }
  /^\.It Fl / && verb != "" {
    line = substr($0, 5)
    gsub(/Fl Fl /, "--", line); gsub(/Fl /, "-", line); gsub(/ Ar /, " ", line); gsub(/ , /, ", ", line)
    print verb " " line
  }' "$page" >"$TMP/page"

[ "$(wc -l <"$TMP/verbs")" -ge 18 ] || fail "the help has lost verbs"
sort "$TMP/help" >"$TMP/help.sorted"
sort "$TMP/page" >"$TMP/page.sorted"
diff -u "$TMP/help.sorted" "$TMP/page.sorted" >&2 || fail "help (-) and manual page (+) differ"
for variable in TROVIK_STATE TROVIK_MODULE_PATH TROVIK_SETTINGS TROVIK_OPTIONS NO_COLOR; do
  grep -q "^\.It Ev $variable" "$page" || fail "the manual page does not tell $variable"
done
