# A type is named by name, alias or ID in any case; others are refused.
. "$(dirname "$0")/../lib.sh"
sketch_type
for name in Sketch SKETCH sk 11111111-2222-3333-4444-555555555555; do
  run 0 type "$name"
  out_has "ID 11111111-2222-3333-4444-555555555555"
done

run 2 type skecth
err_is <<'END'
trovik: error: there is no job type "skecth"
hint: did you mean "Sketch"? "trovik types" lists them all
END

type_file second <<'END'
[Module]
ID=aaaaaaaa-2222-3333-4444-555555555555
Name=sketch
END
run 2 type Sketch
err_is <<'END'
trovik: error: 2 job types answer to "Sketch":
  11111111-2222-3333-4444-555555555555  Sketch
  aaaaaaaa-2222-3333-4444-555555555555  sketch
hint: name one of them by its ID
END
run 0 type AAAAAAAA-2222-3333-4444-555555555555
