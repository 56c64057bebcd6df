# Settings of the installation and options of the engine reach a run.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 2
cat >"$TMP/settings.ini" <<'END'
[11111111-2222-3333-4444-555555555555]
CheckForMultipleFiles=No
END
run 0 detect sketch shot_0001.txt --settings "$TMP/settings.ini"
out_is <<'END'
no scene sequence: the settings of this installation switch it off for the type
END
mkdir -p "$XDG_CONFIG_HOME/trovik"
cp "$TMP/settings.ini" "$XDG_CONFIG_HOME/trovik/settings.ini"
run 0 detect sketch shot_0001.txt
out_has "the settings of this installation switch it off"
printf '[11111111-2222-3333-4444-555555555555]\nSceneNumberLength=5\n' >"$TMP/five.ini"
TROVIK_SETTINGS=$TMP/five.ini
export TROVIK_SETTINGS
run 0 detect sketch shot_0001.txt
out_is <<'END'
no scene sequence: its number 0001 has 4 digits, and the settings of this installation ask for 5
hint: --set SceneNumberLength=4 takes the sequence 1-2
END
