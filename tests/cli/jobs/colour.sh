# Colours go to terminals, unless told otherwise.
. "$(dirname "$0")/../lib.sh"
sketch_type
escape=$(printf '\033')
coloured() { grep -q "$escape\\[1m" "$TMP/out"; }

run 0 types
coloured && fail "colours in a pipe"
run 0 types --color always
coloured || fail "no colours with --color always"

on_terminal() { script -qec "$1" /dev/null >"$TMP/out" </dev/null; }
TERM=xterm
export TERM
on_terminal "'$TROVIK' types"
coloured || fail "no colours on a terminal"
on_terminal "NO_COLOR=1 '$TROVIK' types"
coloured && fail "colours in spite of NO_COLOR"
on_terminal "'$TROVIK' types --color never"
coloured && fail "colours in spite of --color never"
on_terminal "TERM=dumb '$TROVIK' types"
coloured && fail "colours on a dumb terminal"
exit 0
