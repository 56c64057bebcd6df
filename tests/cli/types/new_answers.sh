# Where a type's file goes, what is refused, and the questions at a terminal.
. "$(dirname "$0")/../lib.sh"
sketch_type
own=$HOME/data/trovik/modules

# Without a terminal nothing is asked.
run 0 new Étude
out_is <<'END'
type   TMP/home/data/trovik/modules/Étude.tvx
files  $(OutputFolder)/$(ActualScene.Base).png
Next: trovik check "TMP/home/data/trovik/modules/Étude.tvx"
      trovik run "Étude" SCENE --dry-run --module-path TMP/home/data/trovik/modules:
END
grep -q -x 'Executable=Étude' "$own/Étude.tvx" || fail "no program"
[ "$(ls -A "$own")" = "Étude.tvx" ] || fail "more than the file was left"

# A file that is there is only replaced on demand, and gets a new ID.
cp "$own/Étude.tvx" "$TMP/before"
run 2 new Étude
err_is <<'END'
trovik: error: "TMP/home/data/trovik/modules/Étude.tvx" is there already
hint: choose another name, or another file with -o; --force replaces it
END
cmp "$own/Étude.tvx" "$TMP/before" || fail "the file was touched"
run 0 new Étude --force --json
"$HELPER" json /version /kind /name /file /found <"$TMP/out" >"$TMP/values"
compare "$TMP/values" <<'END'
1 "new" "Étude" "TMP/home/data/trovik/modules/Étude.tvx" false
END
! cmp -s "$own/Étude.tvx" "$TMP/before" || fail "the ID is not a new one"
grep -q "^ID=$("$HELPER" json /id <"$TMP/out" | tr -d '"')\$" "$own/Étude.tvx" || fail "another ID was told"

# Elsewhere: a folder, a file, standard output.
mkdir types
run 0 new Trace.tvx -o types
[ -f types/trace.tvx ] || fail "no types/trace.tvx"
run 0 new Trace -o types/new/other.TVX --module-path "$TMP/modules"
out_is <<'END'
type   TMP/work/types/new/other.TVX
files  $(OutputFolder)/$(ActualScene.Base).png
Next: trovik check TMP/work/types/new/other.TVX
      trovik run Trace SCENE --dry-run --module-path TMP/work/types/new:
END
run 0 new Trace -o - --program trace
out_has "Executable=trace"
run 2 new Trace -o trace.ini
err_is <<'END'
trovik: error: --out: "trace.ini" does not end with .tvx
hint: files of types do
END
run 2 new Trace -o /proc/none/trace.tvx
err_is <<'END'
trovik: error: cannot make "/proc/none": No such file or directory
hint: name another place with -o FILE
END

# Answers that cannot be.
refused() { # MESSAGE HINT ARGUMENT...
  message=$1 hint=$2
  shift 2
  run 2 new "$@"
  printf 'trovik: error: %s\nhint: %s\n' "$message" "$hint" >"$TMP/message"
  err_is <"$TMP/message"
  out_is_empty
}
refused '"trovik new" needs a name for the type' 'such as trovik new Sketch; see "trovik new --help"'
refused 'the name of the type is empty' 'a name has letters or digits, such as Sketch' ' '
refused 'the name of the type is "-?-"' 'a name has letters or digits, such as Sketch' -- '-?-'
refused '"a/b" is a path, and the name of a type is wanted' 'name the file with -o: trovik new Sketch -o a/b' a/b
refused '"a\nID=x" holds characters that cannot be shown' 'leave them out' "a
ID=x"
refused 'there is a job type "sk" already' 'choose another name; "trovik type sk" shows it' sk
refused '--program: the program'"'"'s name is empty' 'a path, or a name that is looked up along PATH' X --program ''
refused '--scene: "-i" does not say where the scene file comes' \
  'write SCENE in its place, such as -i SCENE, or none' X --scene -i
refused '--scene: FRAME means nothing here' 'write SCENE for the scene file, such as -i SCENE' X --scene '-i SCENE FRAME'
refused '--frames: "-s FIRST" does not say how the program takes its frames' \
  'files, -s FIRST -e LAST, -f FRAME, or none' X --frames '-s FIRST'
refused '--frames: there can be no scene file for each frame, since the program takes none' \
  'files, -s FIRST -e LAST, -f FRAME, or none' X --scene none --frames files
refused '--output: FIRST means nothing here' \
  'write OUTPUT for the file or FOLDER for its folder, such as -o OUTPUT, or none' X --output '-o x_FIRST'
refused '--extension: ".png" is no extension of a file' 'such as png, without a point' X --extension .png
refused '--extension: the program is not told a file' 'write OUTPUT in --output: -o OUTPUT' \
  X --output '--dir=FOLDER' --extension png
refused '--error: an empty text stands in every line' 'leave it out' X --error ' '
run 2 new X --scene "-i 'SCENE"
grep -q 'trovik: error: --scene: .*quote' "$TMP/err" || { cat "$TMP/err" >&2; fail "an open quote is not told"; }
[ ! -e "$own/x.tvx" ] || fail "a refused type was written"

# At a terminal it asks; a wrong answer is told and asked again. What the
# terminal echoes before the program begins is not looked at.
asked() { # CODE
  actual=0
  script -qec "stty -echo; '$TROVIK' new Asked --program ask -o . --color never" /dev/null \
    <"$TMP/answers" >"$TMP/terminal" || actual=$?
  [ "$actual" = "$1" ] || fail "exit code $actual, not $1"
  tr -d '\r' <"$TMP/terminal" | sed -n '/A new job type/,$p' | sed 's/^.*A new/A new/' >"$TMP/out"
}
printf '%s\n' '-i' '-i SCENE' '-f FRAME' '' 'exr' 'saved:' 'fatal:' '' >"$TMP/answers"
asked 0
out_is <<'END'
A new job type, Asked. Enter takes what stands in brackets.


How is it told the scene file? Write SCENE in its place, such as -i SCENE;
none if it reads no scene.
[SCENE] > trovik: error: "-i" does not say where the scene file comes
hint: write SCENE in its place, such as -i SCENE, or none

How is it told the scene file? Write SCENE in its place, such as -i SCENE;
none if it reads no scene.
[SCENE] > 
How is it told the frames?
  files               a scene file for each: shot_0001.txt, shot_0002.txt
  -s FIRST -e LAST    one scene; the first and the last frame
  -f FRAME            one scene; one frame at a time
  none                no frames: one start, one result
[files] > 
How is it told what to write? OUTPUT is the file, FOLDER the folder for it and
NAME the scene's name, such as -o OUTPUT, or --dir=FOLDER; none if it decides.
[-o OUTPUT] > 
Which extension does the file get?
[png] > 
Does it print the name of each file that it has written? What stands before it,
such as saved: (empty if it does not)
> 
How does a line begin that tells an error, such as error: (empty for none)
> 
How does the line begin that it always prints when all went well (empty for none)
> type   TMP/work/asked.tvx
files  those that the program names behind "saved:"
Next: trovik check TMP/work/asked.tvx
      trovik run Asked SCENE --dry-run --module-path TMP/work:
END
grep -v -e '^;' -e '^$' -e '^ID=' asked.tvx >"$TMP/values"
file_is "$TMP/values" <<'END'
[Module]
Name=Asked
Help=Runs ask.
Command=-i $(Scene.Enquote) -f $(Frame) -o $(OutputFolder.Enquote)/$(Scene.Base.Enquote)_$(Frame.Pad(4)).exr
ImageStartText=saved:
[ErrorText]
1=fatal:
[OverrideFlags]
PacketSize=OfJob, ReadOnly, Advanced, Visible
Range=Required, OfJob, Editable, Visible, AffectsCommand
[OverrideDefaults]
Executable=ask
OutputFolder=$(Scene.Branch)/images
END
rm asked.tvx
printf '%s\n' '-i SCENE' >"$TMP/answers"
asked 2
out_has "trovik: error: the answers ended early; nothing was written"
[ ! -e asked.tvx ] || fail "a file was written"
