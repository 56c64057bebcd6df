# A job whose files have other names where it is worked off: the path maps of
# that machine's settings apply to every file and folder of the job.
. "$(dirname "$0")/../lib.sh"
sketch_type
mkdir there
cd there
scenes 2
cd ..
mv draw.sh there
run 0 submit sketch there/shot_0001.txt
mv there here

run 0 engine --until-empty --slots 1
run 1 images last --missing
out_is <<'E'
1-2
E

mkdir -p "$XDG_CONFIG_HOME/trovik"
printf '[PathMaps]\n1=%s;%s\n' "$TMP/work/there" "$TMP/work/here" >"$XDG_CONFIG_HOME/trovik/settings.ini"
run 0 retry last
run 0 engine --until-empty --slots 1
run 0 images last
out_is <<'E'
TMP/work/here/images/shot_0001.drw
TMP/work/here/images/shot_0002.drw
E
