# What is wrong with a scene is told before anything starts.
. "$(dirname "$0")/../lib.sh"
sketch_type
scenes 3

run 2 run sketch
err_is <<'END'
trovik: error: "Sketch" needs a scene file
hint: name it after the type: trovik run TYPE SCENE
END
run 2 run sketch none.txt
err_is <<'END'
trovik: error: there is no scene file "TMP/work/none.txt"
hint: check the name and the directory
END
mkdir folder.txt
mkfifo pipe.txt
ln -s nowhere.txt link.txt
for verb in run submit 'run --dry-run' detect; do
  while read -r name problem; do
    # shellcheck disable=SC2086
    run 2 $verb sketch "$name"
    err_is <<END
trovik: error: the scene "TMP/work/$name" $problem
hint: name the scene file
END
    out_is_empty
  done <<'LIST'
folder.txt is a folder
pipe.txt is no regular file
link.txt is a link to "nowhere.txt", which leads nowhere
LIST
done
rm -r folder.txt pipe.txt link.txt
# A folder is no scene of a sequence either.
mkdir shot_0004.txt
run 2 run sketch shot_0001.txt --range 1-4
err_is <<'END'
trovik: error: 1 frame of the range has no scene file: 4 (the first would be "TMP/work/shot_0004.txt")
hint: choose the frames that exist with --range
END
rmdir shot_0004.txt
run 2 run sketch shot_0001.txt --range -2-2
err_is <<'END'
trovik: error: a sequence of scene files cannot have negative frames such as -2: the range text of a work has no place for their sign
hint: choose frames from 0 on with --range
END
run 2 run sketch shot_0001.txt --range 1-9
err_is <<'END'
trovik: error: 6 frames of the range have no scene file: 4-9 (the first would be "TMP/work/shot_0004.txt")
hint: choose the frames that exist with --range
END
# Letters that the program does not take in the name of a scene file.
echo x >'one "more".txt'
for verb in run submit 'run --dry-run'; do
  # shellcheck disable=SC2086
  run 2 $verb sketch 'one "more".txt' --set 'RefusedInSceneName=NonASCII "'
  err_is <<'END'
trovik: error: "Sketch" does not take the scene file "TMP/work/one "more".txt": its name holds a quotation mark
hint: rename the file without it
END
done
run 2 run sketch shot_0002.txt --set 'RefusedInSceneName=_'
err_is <<'END'
trovik: error: "Sketch" does not take the scene file "TMP/work/shot_0001.txt": its name holds "_"
hint: rename the files of the sequence without it
END
run 2 run sketch shot_0002.txt --set 'RefusedInSceneName=Umlauts'
err_is <<'END'
trovik: error: RefusedInSceneName:1: "Umlauts" names no letters; write NonASCII, NonUTF8, Control, Blank or the signs themselves, with blanks between
    1 | Umlauts
      | ^
END
[ ! -e images ] || fail "something was started"
[ ! -e "$XDG_STATE_HOME" ] || fail "something was started"

# Negative frames are fine where one scene holds them all.
echo x >scene.txt
run 0 run sketch scene.txt --range -2 --log-dir "$TMP/logs"
out_has "Sketch: 1 frame (-2)"
