# The list of types; those that are switched off only when asked for.
. "$(dirname "$0")/../lib.sh"
sketch_type
type_file hidden <<'END'
[Module]
ID=11111111-2222-3333-4444-666666666666
Name=Aged
Help=Is not for everyone.
DefaultEnabled=No
END

run 0 types
out_is <<'END'
TYPE    ALIASES     WHAT IT DOES
Sketch  sketch, sk  Draws one picture for each numbered scene file.
END

run 0 types --all
out_is <<'END'
TYPE        ALIASES     WHAT IT DOES
Aged (off)              Is not for everyone.
Sketch      sketch, sk  Draws one picture for each numbered scene file.
END

run 0 types --all --json
"$HELPER" json /version /kind /types/0/name /types/0/enabled /types/1/id /types/1/aliases <"$TMP/out" >"$TMP/values"
file_is "$TMP/values" <<'END'
1 "types" "Aged" false "11111111-2222-3333-4444-555555555555" ["sketch","sk"]
END

rm "$TMP/modules/sketch.tvx"
run 0 types
out_is <<'END'
the only type is switched off; "trovik types --all" lists it
END

rm "$TMP"/modules/*.tvx
run 2 types
err_is <<'END'
trovik: error: no job types are installed
hint: put .tvx files into a directory of the module path; "trovik types -v" shows it
END
run 0 types --json
err_is_empty
