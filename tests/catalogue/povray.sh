# shellcheck shell=bash
# The proof of the type POV-Ray; see lib.sh. More of it is in tests/demo.

# shellcheck source=names.sh
source "$here/names.sh"

ball() { # FILE
  mkdir -p "$(dirname "$1")"
  cat >"$1" <<'SCENE'
#version 3.7;
global_settings { assumed_gamma 1 }
camera { location <0, 1, -4> look_at 0 }
light_source { <4, 6, -6> rgb 1 }
sphere { 0, 1 pigment { rgb <1, 0.5, 0.2> } }
SCENE
}
small=(--set Width=64 --set Height=36 --set Antialias=No)

case_good() {
  ball s/a_0001.pov
  ball s/a_0002.pov
  render povray s/a_0002.pov "${small[@]}"
  good 1-2
  folder_has s/images a_0001.png a_0002.png
  png_is s/images/a_0001.png 64 36
  images_are "$PWD/s/images/a_0001.png" "$PWD/s/images/a_0002.png"
}

case_missing_scene() {
  ball s/one.pov
  render_without povray s/one.pov "${small[@]}"
  bad "error line" "*Cannot find file*s/one.pov*"
}

case_broken_scene() {
  ball s/one.pov
  echo 'sphere { oops' >>s/one.pov
  render povray s/one.pov "${small[@]}"
  bad "error line" "Error line: *one.pov' line 6: Parse Error:*"
}

case_unwritable_folder() {
  ball s/one.pov
  read_only out
  render povray s/one.pov "${small[@]}" --out out
  nothing_started '--out: nothing can be written to "*out": Read-only file system'
}

case_full_disk() {
  ball s/one.pov
  full out
  render povray s/one.pov "${small[@]}" --out out
  bad "error line" "*"
}

case_killed_midway() {
  ball s/one.pov
  render_killed povray s/one.pov --set Width=4000 --set Height=4000 --set AntialiasThreshold=0.01 --set AntialiasDepth=9
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  ball "my shot/the ball 0001.pov"
  render povray "my shot/the ball 0001.pov" "${small[@]}" --out "my images"
  good
  folder_has "my images" "the ball 0001.png"
}

case_folders_of_any_name() {
  ball "my rënder \"farm\"/日本/ball_0001.pov"
  ball "my rënder \"farm\"/日本/ball_0002.pov"
  echo '#include "beside.inc"' >>"my rënder \"farm\"/日本/ball_0001.pov"
  echo '#declare Beside = 1;' >"my rënder \"farm\"/日本/beside.inc"
  render povray "my rënder \"farm\"/日本/ball_0002.pov" "${small[@]}"
  good 1-2
  folder_has "my rënder \"farm\"/日本/images" ball_0001.png ball_0002.png
  render povray "my rënder \"farm\"/日本/ball_0002.pov" "${small[@]}" --out $'m\xe4ge "s"'
  good 1-2
  folder_has $'m\xe4ge "s"' ball_0001.png ball_0002.png
  echo 'sphere { oops' >>"my rënder \"farm\"/日本/ball_0002.pov"
  render povray "my rënder \"farm\"/日本/ball_0002.pov" "${small[@]}"
  bad "error line" "Error line: *"
  failures_are 2
}

# Their images could not be called like them.
case_scene_of_a_refused_name() {
  ball "s/Fluß.pov"
  render povray "s/Fluß.pov" "${small[@]}"
  refused '"ß", a letter beyond ASCII'
  ball 's/a"b.pov'
  render povray 's/a"b.pov' "${small[@]}"
  refused 'a quotation mark'
  ball $'s/latin-\xe9.pov'
  render povray $'s/latin-\xe9.pov' "${small[@]}"
  refused 'the byte \xe9, which is no letter of UTF-8'
  [ ! -e s/images ] || fail "something was started"
}

# The line that names it is broken at 80 columns: the expected file stands for it.
case_long_name() {
  local name
  name=$(printf 'long%.0s' {1..30})
  ball "s/$name.pov"
  render povray "s/$name.pov" "${small[@]}" --set OutputFormat=JPEG
  good
  images_are "$PWD/s/images/$name.jpg"
}

case_quiet_and_verbose_runs_stay_good() {
  ball s/one.pov
  render povray s/one.pov "${small[@]}" --set 'ExtraArguments=-V -GA'
  good
  never_said "Output file"
  render povray s/one.pov "${small[@]}" --set 'ExtraArguments=+V'
  good
  images_are "$PWD/s/images/one.png"
}
