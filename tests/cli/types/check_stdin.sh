# Editors check what is not saved yet: standard input under the file's name.
. "$(dirname "$0")/../lib.sh"
sketch_type
check_text() { # CODE FILE WORD...
  expected=$1
  text=$2
  shift 2
  actual=0
  "$TROVIK" check "$@" >"$TMP/out" 2>"$TMP/err" <"$text" || actual=$?
  [ "$actual" = "$expected" ] || { cat "$TMP/out" "$TMP/err" >&2; fail "exit code $actual, not $expected"; }
}
sed 's/^Help=/Hlep=/' "$TMP/modules/sketch.tvx" >unsaved

check_text 1 unsaved - --name "$TMP/modules/sketch.tvx"
out_is <<'END'
TMP/modules/sketch.tvx:5:1: error: unknown key "Hlep" in the section [Module]
    5 | Hlep=Draws one picture for each numbered scene file.
      | ^^^^
hint: did you mean "Help"?
1 error, 0 warnings
END

# Without a name it is another file than the one with the same ID.
check_text 1 "$TMP/modules/sketch.tvx" -
out_has "-:2:4: error: the type \"Sketch\" of $TMP/modules/sketch.tvx:2 has this ID already"
check_text 0 "$TMP/modules/sketch.tvx" - --name "$TMP/modules/sketch.tvx"
out_is_empty

check_text 2 unsaved --name sketch.tvx
err_is <<'END'
trovik: error: --name is for a text from standard input
hint: write - as the file
END
