# A command is started when a job has ended; no name can add a word to it, and
# no shell reads it.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 1
run 0 run sketch shot_0001.txt --set 'Name=a b; touch pwned' \
  --on-end "\"$HELPER\" args \"$TMP/end\" \$(Job) \$(State) \"\$(Name)\" \$(Name) \"\$(Summary)\" \$(Good)/\$(Failed)/\$(Left)"
wait_for_lines "$TMP/end" 6
file_is "$TMP/end" <<'END'
<1>
<good>
<a b; touch pwned>
<a b; touch pwned>
<1 work good>
<1/0/0>
END
[ ! -e pwned ] || fail "a shell read the name"
run 2 run sketch shot_0001.txt --on-end "mail 'x"
err_has() { grep -q -F -e "$1" "$TMP/err" || { cat "$TMP/err" >&2; fail "no line holds \"$1\""; }; }
err_has "end command: "
run 2 run sketch shot_0001.txt --on-end ''
