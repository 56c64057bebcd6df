# A type made from answers on the command line runs its program as they say,
# whatever the names are.
. "$(dirname "$0")/../lib.sh"
export TROVIK_MODULE_PATH="$TMP/modules:$HOME/data/trovik/modules"
mkdir -p "$HOME/data/trovik/modules"

# Notes its arguments, and writes the file behind -o; a broken scene is told.
mkdir "$TMP/my programs"
cat >"$TMP/my programs/draw it" <<'END'
#!/bin/sh
for word; do printf '<%s>' "$word"; done >>"$LIST"
echo >>"$LIST"
while [ $# -gt 0 ]; do
  case $1 in
    -o) echo drawn >"$2" ;;
    -e) last=$2 ;;
    --pattern=*) echo drawn >"$(printf "${1#*=}" "$last")" ;;
    *.txt) ! grep -q broken "$1" || { echo "oh no: $1"; exit 0; } ;;
  esac
  shift
done
END
chmod +x "$TMP/my programs/draw it"
LIST=$TMP/list
export LIST

# A scene file for each frame.
run 0 new "Draw It" --program "../my programs/draw it" --scene '-i SCENE' --output '-o OUTPUT' \
  --extension txt --error 'oh no:'
out_is <<'END'
type   TMP/home/data/trovik/modules/draw-it.tvx
files  $(OutputFolder)/$(ActualScene.Base).txt
Next: trovik check TMP/home/data/trovik/modules/draw-it.tvx
      trovik run draw-it SCENE --dry-run
END
err_is_empty
mkdir 'a $(Name) "b"'
echo good >'a $(Name) "b"/it'"'"'s; $(x)_001.txt'
echo broken >'a $(Name) "b"/it'"'"'s; $(x)_002.txt'
run 1 run draw-it 'a $(Name) "b"/it'"'"'s; $(x)_001.txt' --slots 1 --out 'o p'
out_has "1 of 2 frames good, 1 failed"
out_has "failed  2  Error line: oh no: "
sed "s|$TMP|TMP|g" "$LIST" >"$TMP/arguments"
file_is "$TMP/arguments" <<'END'
<-i><TMP/work/a $(Name) "b"/it's; $(x)_001.txt><-o><TMP/work/o p/it's; $(x)_001.txt>
<-i><TMP/work/a $(Name) "b"/it's; $(x)_002.txt><-o><TMP/work/o p/it's; $(x)_002.txt>
END
run 2 run draw-it 'a $(Name) "b"/it'"'"'s; $(x)_001.txt' --packet 2
err_is <<'END'
trovik: error: --packet: this type does not let users set "PacketSize"
hint: leave it out
END

# One scene with a first and a last frame.
rm "$LIST"
echo scene >'one scene.txt'
run 0 new Range --program "$TMP/my programs/draw it" --scene SCENE --frames '-s FIRST -e LAST' \
  --output '--pattern=FOLDER/NAME_%03d.txt'
run 0 run range 'one scene.txt' --range 3-4 --packet 1 --slots 1
sed "s|$TMP|TMP|g" "$LIST" >"$TMP/arguments"
file_is "$TMP/arguments" <<'END'
<TMP/work/one scene.txt><-s><3><-e><3><--pattern=TMP/work/images/one scene_%03d.txt>
<TMP/work/one scene.txt><-s><4><-e><4><--pattern=TMP/work/images/one scene_%03d.txt>
END
run 2 run range 'one scene.txt'
err_is <<'END'
trovik: error: Range: a value is required
hint: name the frames with --range, such as 1-24
END

# One frame at a time, of one scene, and one file for a whole range.
rm "$LIST"
run 0 new Single --program "$TMP/my programs/draw it" --scene SCENE --frames '-f FRAME' --extension bin
run 0 run single 'one scene.txt' --range 7 --out single
run 0 new Movie --program "$TMP/my programs/draw it" --frames '-s FIRST -e LAST' --output '-o OUTPUT' \
  --extension bin
run 0 run movie 'one scene.txt' --range 1-20 --out movie
# No frames, no scene.
run 0 new Clock --program "$TMP/my programs/draw it" --scene none --frames none --extension bin
run 0 run clock --out clock
sed "s|$TMP|TMP|g" "$LIST" >"$TMP/arguments"
file_is "$TMP/arguments" <<'END'
<TMP/work/one scene.txt><-f><7><-o><TMP/work/single/one scene_0007.bin>
<TMP/work/one scene.txt><-s><1><-e><20><-o><TMP/work/movie/one scene.bin>
<-o><TMP/work/clock/clock.bin>
END
for file in 'single/one scene_0007.bin' 'movie/one scene.bin' clock/clock.bin; do
  [ -s "$file" ] || fail "there is no $file"
done
run 2 run clock
err_is <<'END'
trovik: error: OutputFolder: a value is required
hint: name the folder with --out
END

# The check has no word on any type that the answers make.
count=0
for scene in SCENE '-i SCENE' --scene=SCENE '"SCENE" -x "a  b" ;' none; do
  for frames in files '-s FIRST -e LAST' --frames=FIRST-LAST '-f FRAME' none; do
    [ "$scene $frames" != "none files" ] || continue
    for output in '-o OUTPUT' --dir=FOLDER '-o FOLDER/NAME_%04d.png' '--out=FOLDER/$(x);#' none; do
      for texts in '' '--image-text saved: --error error: --error fatal --success finished'; do
        count=$((count + 1))
        run 0 new "Combined $count" --program sh --scene "$scene" --frames "$frames" --output "$output" $texts -o types/
      done
    done
  done
done
[ "$(ls types | wc -l)" = 240 ] || fail "$(ls types | wc -l) types"
run 0 check --strict types
out_is_empty
err_is_empty

# One file for all frames is told, here and by the check.
run 0 new Shared --program sh --frames '-f FRAME' --output '-o FOLDER/all.png' -o shared.tvx
err_is <<'END'
trovik: warning: "$(OutputFolder)/all.png" is one file for all frames, and no two frames may share one
hint: let the program number its files, or write FileCheck=Work into the type where one file holds them all
END
run 1 check --strict shared.tvx
out_has "all frames of a job have this one file"

# What looks like a reference in the arguments is plain.
run 0 new Plain --program sh --scene "\$(Name)=SCENE '\$(x) \"y\"'" --frames none --output '--to=OUTPUT' --force
run 0 run plain 'one scene.txt' --dry-run --json
"$HELPER" json /arguments <"$TMP/out" >"$TMP/values"
compare "$TMP/values" <<'END'
["sh","$(Name)=TMP/work/one scene.txt","$(x) \"y\"","--to=TMP/work/images/one scene.png"]
END
