#!/usr/bin/env bash
# Whatever the folders are called, scenes are rendered. A scene file itself is
# rendered, or refused before anything starts. Nothing in a name runs.
# shellcheck disable=SC2016  # the names are meant as they stand
source "$(dirname "$0")/harness.sh"

renders() { # BASE-NAME: a sequence of two frames in a directory of that name
  rm -rf scenes
  ball "scenes/$1/${1}_0001.pov"
  ball "scenes/$1/${1}_0002.pov"
  render "scenes/$1/${1}_0002.pov"
  [ "$status" -eq 0 ] || fail "\"$1\" is not rendered"
  expect_only "scenes/$1/images" "${1}_0001.png" "${1}_0002.png"
  expect_png "scenes/$1/images"/*.png
  expect_only scenes "$1"
  expect_only . .home scenes
}

renders_below() { # FOLDER-NAME
  rm -rf scenes
  ball "scenes/$1/shot/ball_0001.pov" '#include "beside.inc"'
  ball "scenes/$1/shot/ball_0002.pov"
  echo '#declare A = 1;' >"scenes/$1/shot/beside.inc"
  render "scenes/$1/shot/ball_0002.pov"
  [ "$status" -eq 0 ] || fail "a scene below \"$1\" is not rendered"
  expect_only "scenes/$1/shot/images" ball_0001.png ball_0002.png
  expect_png "scenes/$1/shot/images"/*.png
  # Another tree for the images, of such a name, too.
  render "scenes/$1/shot/ball_0002.pov" --range 2 --out "scenes/out/$1"
  [ "$status" -eq 0 ] || fail "a scene below \"$1\" is not rendered into \"out/$1\""
  expect_only "scenes/out/$1" ball_0002.png
  expect_png "scenes/out/$1/ball_0002.png"
  expect_only scenes "$1" out
  expect_only "scenes/$1" shot
  expect_only . .home scenes
}

refused() { # BASE-NAME WHAT-IT-HOLDS
  local command
  rm -rf scenes
  ball "scenes/${1}_0001.pov"
  ball "scenes/${1}_0002.pov"
  ball "scenes/one $1.pov"
  for command in run submit "run --dry-run"; do
    # shellcheck disable=SC2086  # the words of a command
    refused_by "scenes/${1}_0001.pov" "$2" "rename the files of the sequence without it" $command
    # shellcheck disable=SC2086
    refused_by "scenes/one $1.pov" "$2" "rename the file without it" $command
  done
  expect_only scenes "${1}_0001.pov" "${1}_0002.pov" "one $1.pov"
  expect_only . .home scenes
}

refused_by() { # SCENE WHAT-IT-HOLDS HINT COMMAND...
  status=0
  "$trovik" "${@:4}" povray "$1" >"$output" 2>&1 </dev/null || status=$?
  expect_status 2
  expect_text 'trovik: error: "POV-Ray" does not take the scene file '
  expect_text ".pov\": its name holds $2"
  expect_text "hint: $3"
}

renders "two blanks  in it"
renders " a blank in front"
renders "it's"
renders 'a$(touch x)b'
renders 'a$(Scene)b'
renders 'a$$(Scene)b'
renders 'a`touch x`b'
renders 'a;touch x;b'
renders 'a|touch x'
renders 'a & touch x'
renders 'a>x'
renders 'a*?[1]b'
renders 'a\b'
renders 'a,b'
renders 'a=b'
renders 'a.b.c'
renders '-V'
renders '+I'
renders '~'
renders '#1'
renders '(a'
renders 'a)'
renders '<quotation mark>'

renders_below "my rënder farm"
renders_below '日本'
renders_below $'latin-\xe9'
renders_below $'a\nb'
renders_below 'a"b'
renders_below 'a" Pre_Scene_Command="touch x'
renders_below "ö '\$(touch x)\\"
# An ill-formed quotation mark of two bytes.
renders_below $'a\xc0\xa2 +O\xc0\xa2x'

# Library folders, one of which is called so.
rm -rf scenes
ball scenes/ball.pov '#include "a.inc"' '#include "b.inc"'
mkdir -p 'library a' 'bibliothèque " b'
echo '#declare A = 1;' >'library a/a.inc'
echo '#declare B = 1;' >'bibliothèque " b/b.inc'
render scenes/ball.pov --set "LibraryPath=$PWD/library a;$PWD/bibliothèque \\\" b"
expect_status 0
rm -r 'library a' 'bibliothèque " b'

# POV-Ray takes neither quotation marks nor letters beyond ASCII, and must not
# take what follows a mark for options of its own.
refused 'a"b' 'a quotation mark'
refused 'a" Pre_Scene_Command="touch x' 'a quotation mark'
refused 'a" +O"x.png' 'a quotation mark'
refused 'Fluß' '"ß", a letter beyond ASCII'
refused '日本' '"日", a letter beyond ASCII'
refused $'latin-\xe9' 'the byte \xe9, which is no letter of UTF-8'
refused $'a\xc0\xa2 +O\xc0\xa2x' 'the byte \xc0, which is no letter of UTF-8'

# A "%" in a name is nothing that counts.
ball 'scenes/100%d%n%s_0001.pov'
rm -rf scenes/images
render 'scenes/100%d%n%s_0001.pov'
expect_status 0
expect_png 'scenes/images/100%d%n%s_0001.png'

# The demo in a copy below such a folder, called as its page says.
mkdir -p "my rënder farm/trovik"
cp -r "$demo" "my rënder farm/trovik/demo"
cd "my rënder farm/trovik"
render demo/scene_0012.pov --out out/demo --range 1-2
expect_status 0
expect_only out/demo scene_0001.png scene_0002.png
expect_png out/demo/*.png
expect_text "/my rënder farm/trovik/out/demo/scene_0001.png"
expect_text "2 frames good"
