# A type whose ID a module written in code has is refused when it is loaded, and
# the check says so.
. "$(dirname "$0")/../lib.sh"
ln -s "$(dirname "$HELPER")/../application/core/modules/code/code.so" "$TMP/modules/code.so"
cat >mine.tvx <<'END'
[Module]
ID=c0de0000-0000-4000-8000-000000000001
Name=Mine
Command=$(ActualScene)
ImageStartText=saved:
[OverrideDefaults]
Executable=/bin/sh
END
run 1 check mine.tvx
out_is <<'END'
mine.tvx:2:4: error: the module does not load this type
    2 | ID=c0de0000-0000-4000-8000-000000000001
      |    ^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^
hint: a module's own type may have its ID already; give it another one
1 error, 0 warnings
END
