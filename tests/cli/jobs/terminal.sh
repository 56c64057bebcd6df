# On a terminal a live line stands below the images and never gets wider than
# the terminal.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 5
script -qec "stty cols 40; '$TROVIK' run sketch shot_0001.txt --slots 5 --color never --log-dir '$TMP/logs'" /dev/null \
  >"$TMP/terminal" </dev/null
tr '\r' '\n' <"$TMP/terminal" | grep -q "0/5 frames  running 1 2 3 4 5" || fail "no live line"
tr '\r' '\n' <"$TMP/terminal" | grep 'frames  ' | "$HELPER" width 40
tr '\r' '\n' <"$TMP/terminal" | grep -q "started" && fail "each start is told on a terminal"
tr '\r' '\n' <"$TMP/terminal" | grep "all 5 frames good" >/dev/null || fail "no summary"
[ "$(tr '\r' '\n' <"$TMP/terminal" | grep -c 'image  ')" = 5 ] || fail "not every image is told"
