# A type file of one's own takes the place of an installed one with its ID.
. "$(dirname "$0")/../lib.sh"
sketch_type
mkdir "$TMP/mine"
cat >"$TMP/mine/mine.tvx" <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Sketch
Help=Draws better.
END
run 0 types --module-path "$TMP/mine:$TMP/modules"
out_is <<'END'
TYPE    ALIASES  WHAT IT DOES
Sketch           Draws better.
END
err_is_empty
run 0 types --module-path "$TMP/mine:$TMP/modules" -v
grep -q "configuration specifices a type ID that is already in use by 'Sketch" "$TMP/err" ||
  fail "-v does not tell what was left out"
