# On a terminal the list of jobs and the statistics fit 80 columns.
. "$(dirname "$0")/lib.sh"
sketch_type
long=$(printf 'a_rather_long_name_of_a_scene_%.0s' 1 2 3)
echo scene >"${long}0001.txt"
run 0 run sketch "${long}0001.txt"
script -qec "stty cols 80; '$TROVIK' jobs; '$TROVIK' stats" /dev/null >"$TMP/terminal" </dev/null
grep -q "…" "$TMP/terminal" || { cat "$TMP/terminal" >&2; fail "the name is not cut"; }
tr -d '\r' <"$TMP/terminal" | "$HELPER" width 80
