# The dry run as JSON: one command a line.
. "$(dirname "$0")/lib.sh"
sketch_type
scenes 2
run 0 run sketch shot_0001.txt --dry-run --json
"$HELPER" json /version /kind /frames /arguments/0 /arguments/4 /directory /environment <"$TMP/out" |
  sed "s|$TMP|TMP|g" >"$TMP/values"
file_is "$TMP/values" <<'END'
1 "work.command" "1" "/bin/sh" "TMP/work/shot_0001.txt" "TMP/work" {"set":{"LC_ALL":"C.UTF-8"},"unset":["LANGUAGE"]}
1 "work.command" "2" "/bin/sh" "TMP/work/shot_0002.txt" "TMP/work" {"set":{"LC_ALL":"C.UTF-8"},"unset":["LANGUAGE"]}
END
[ ! -e "$XDG_STATE_HOME" ] || fail "the dry run made a folder for logs"
