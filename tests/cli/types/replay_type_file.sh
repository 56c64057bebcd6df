# A type that is still being written: its file takes the place of the name.
. "$(dirname "$0")/../lib.sh"
type_file paint <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
END
# The same type with an error text more, outside the module path.
cat >paint.tvx <<'END'
[Module]
ID=11111111-2222-3333-4444-555555555555
Name=Paint
Shortcut=paint
[ErrorText]
1=no paint
END
echo 'no paint left' >log
run 0 replay paint log
for name in paint.tvx ./paint.tvx "$TMP/work/paint.tvx"; do
  run 1 replay "$name" log --exit 0
  out_is <<'END'
     1  error          no paint left
                       ErrorText "no paint"

log      log  1 line: 1 error
ended    with exit code 0
verdict  bad for Paint, by an error line (line 1)
note     Error line: no paint left
END
done

run 2 replay nosuch.tvx log
err_is <<'END'
trovik: error: there is no type file "TMP/work/nosuch.tvx"
hint: "trovik types" lists the types that are known by name
END
printf '[Module]\nName=Paint\n' >paint.tvx
run 2 replay paint.tvx log
err_is <<'END'
trovik: warning: No ID found in configuration file for Module TMP/work/paint.tvx
trovik: error: "TMP/work/paint.tvx" is no job type
hint: it needs a section [Module] with an ID, see "trovik check"
END
out_is_empty
