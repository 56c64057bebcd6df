# Names and lines of programs cannot steer the terminal.
. "$(dirname "$0")/../lib.sh"
sketch_type
name=$(printf 'a\033[2Jb\nc')
echo x >"$name.txt"
cat >draw.sh <<'END'
printf 'fatal: \033]0;title\007 bad\n\302\2332J\n'
END
code=0
SCENE=$name.txt script -qec "'$TROVIK' run sketch \"\$SCENE\" --color never --log-dir '$TMP/logs'" /dev/null \
  >"$TMP/terminal" </dev/null || code=$?
[ $code = 1 ] || fail "exit code $code"
grep -q 'scene  .*/a\\x1b\[2Jb\\nc.txt' "$TMP/terminal" || fail "the name is not shown as it is"
grep -q "$(printf '\033')\\[2J" "$TMP/terminal" && fail "an escape sequence went through"
grep -q "$(printf '\033')\\]" "$TMP/terminal" && fail "a title sequence went through"
grep -q "$(printf '\302\233')" "$TMP/terminal" && fail "a control character beyond ASCII went through"
grep -q '\\u009b2J' "$TMP/terminal" || fail "the control character is not shown"
