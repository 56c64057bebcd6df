# A scene may have any name: it is one argument, and nothing in it is executed.
. "$(dirname "$0")/../lib.sh"
type_file args <<END
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Arguments
Command=args "$TMP/args" $(printf '%s' '$(ActualScene)') $(printf '%s' '$(Scene.Enquote)') last
[OverrideDefaults]
Executable=$HELPER
END

try() {
  : >"$1"
  : >"$TMP/args"
  run 0 run arguments "$1" --log-dir "$TMP/logs"
  printf '<%s>\n<%s>\n<last>\n' "$TMP/work/$1" "$TMP/work/$1" | file_is "$TMP/args"
}

try 'plain'
try 'with blank'
try '  blanks  '
try "single ' quote"
try 'double " quote'
try '$(touch executed)'
try '$(Name)$$(Name)'
try '`touch executed`'
try 'a;touch executed'
try 'a|touch executed&'
try '*?[a-z]{b,c}'
try '\back\\slash'
try 'ünïcödé 日本'
try '%n%s%999999999d'
try '#~!$HOME'
try "$(printf 'line\nfeed')"
try "$(printf 'caf\351')"
try "$(printf 'esc\033[31m')"
[ ! -e executed ] || fail "something was executed"
err_is_empty
