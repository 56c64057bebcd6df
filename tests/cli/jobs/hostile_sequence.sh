# The same for the scenes of a sequence.
. "$(dirname "$0")/../lib.sh"
type_file args <<END
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Arguments
Command=args "$TMP/args" $(printf '%s' '$(ActualScene)') last
CheckForMultipleFiles=Yes
[OverrideDefaults]
Executable=$HELPER
PacketSize=2
END

try() {
  : >"$1_0001.x"
  : >"$1_0002.x"
  : >"$TMP/args"
  run 0 run arguments "$1_0002.x" --log-dir "$TMP/logs"
  printf '<%s>\n<%s>\n<last>\n' "$TMP/work/$1_0001.x" "$TMP/work/$1_0002.x" | file_is "$TMP/args"
}

try 'plain'
try 'with blank'
try "single ' quote"
try 'double " quote'
try '$(touch executed)'
try '$$(Name)'
try '`touch executed`'
try 'a;touch executed'
try 'a|touch executed&'
try '*?[a-z]'
try '\back\\slash'
try 'ünïcödé 日本'
try '#~!$HOME'
try "$(printf 'line\nfeed')"
try "$(printf 'caf\351')"
[ ! -e executed ] || fail "something was executed"
err_is_empty
