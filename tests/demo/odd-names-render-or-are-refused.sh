#!/usr/bin/env bash
# Whatever a scene and its directory are called, the scene is rendered or
# refused by POV-Ray with a word that is shown, and nothing in a name runs.
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

refused() { # BASE-NAME
  rm -rf scenes
  ball "scenes/${1}_0001.pov"
  ball "scenes/${1}_0002.pov"
  render "scenes/${1}_0001.pov"
  [ "$status" -eq 1 ] || fail "\"$1\" ends with exit code $status"
  expect_text "2 failed"
  expect_text "  Error line: "
  expect_said "Parse Error: Cannot open input file."
  expect_only scenes images "${1}_0001.pov" "${1}_0002.pov"
  [ -z "$(ls scenes/images)" ] || fail "there is an image for \"$1\""
  expect_only . .home scenes
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

# POV-Ray takes neither quotation marks nor letters beyond ASCII, and must not
# take what follows a mark for options of its own.
refused 'a"b'
refused 'a" Pre_Scene_Command="touch x'
refused 'a" +O"x.png'
refused 'Fluß'
refused '日本'
refused $'latin-\xe9'
# An ill-formed quotation mark of two bytes.
refused $'a\xc0\xa2 +O\xc0\xa2x'

# A "%" in a name is nothing that counts.
ball 'scenes/100%d%n%s_0001.pov'
rm -rf scenes/images
render 'scenes/100%d%n%s_0001.pov'
expect_status 0
expect_png 'scenes/images/100%d%n%s_0001.png'
