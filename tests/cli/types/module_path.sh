# Where modules and types are looked for.
. "$(dirname "$0")/../lib.sh"
sketch_type
mkdir "$TMP/mine"
cat >"$TMP/mine/mine.tvx" <<'END'
[Module]
ID=aaaaaaaa-2222-3333-4444-555555555555
Name=Mine
END

# The flag takes the place of the variable. A folder of types alone is read by
# the usual module, without the usual types.
run 2 types --module-path "$TMP/work"
err_is <<'END'
trovik: error: no module was found in "TMP/work"
hint: an empty directory in the module path stands for the usual ones: --module-path DIR:
END
run 0 types --module-path "$TMP/mine"
out_is <<'END'
TYPE  ALIASES  WHAT IT DOES
Mine
END
err_is_empty
run 0 check "$TMP/modules/sketch.tvx" --module-path "$TMP/mine"
cp "$TMP/mine/mine.tvx" "$TMP/mine/twin.tvx"
# What the module keeps of the first file is replaced and never freed: a job may
# still read it. Only that leak is known to the sanitizer, and only here.
echo 'leak:ModuleLoader::Library::LoadAs' >"$TMP/leaks.txt"
export LSAN_OPTIONS="suppressions=$TMP/leaks.txt:print_suppressions=0"
run 0 types --module-path "$TMP/mine"
grep -q "twin.tvx" "$TMP/err" || fail "nothing is said of two types with one ID"
rm "$TMP/mine/twin.tvx"
unset LSAN_OPTIONS
run 0 types --module-path "$TMP/mine:$TMP/modules"
out_is <<'END'
TYPE    ALIASES     WHAT IT DOES
Mine
Sketch  sketch, sk  Draws one picture for each numbered scene file.
END

# An empty directory stands for the usual ones: the user's and the program's.
unset TROVIK_MODULE_PATH
mkdir -p "$XDG_DATA_HOME/trovik/modules"
mv "$TMP/modules/sketch.tvx" "$XDG_DATA_HOME/trovik/modules/"
run 0 types --module-path "$TMP/mine:"
out_has "Mine"
out_has "Sketch"
run 0 types
out_has "Sketch"
grep -q Mine "$TMP/out" && fail "a type of no path is listed"

run 2 types --module-path "$TMP/none"
err_is <<'END'
trovik: error: --module-path: there is no directory "TMP/none"
hint: check the name
END
TROVIK_MODULE_PATH=$TMP/none:$TMP/modules
export TROVIK_MODULE_PATH
run 0 types --json
err_is <<'END'
trovik: warning: TROVIK_MODULE_PATH: there is no directory "TMP/none"
END
