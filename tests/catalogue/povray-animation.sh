# shellcheck shell=bash
# The proof of the type POV-Ray animation; see lib.sh.

# shellcheck source=names.sh
source "$here/names.sh"

ball() { # FILE [LINE]...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  cat >"$file" <<SCENE
#version 3.7;
global_settings { assumed_gamma 1 }
camera { location <0, 1, -4> look_at 0 }
light_source { <4, 6, -6> rgb 1 }
$(printf '%s\n' "$@")
#debug concat("clock ", str(clock, 0, 3), " of frame ", str(frame_number, 0, 0), "\n")
sphere { x * clock, 1 pigment { rgb <1, 0.5, 0.2> } }
SCENE
}
small=(--set Width=64 --set Height=36 --set Antialias=No)

case_good() {
  ball s/roll.pov
  render povray-animation s/roll.pov "${small[@]}" --range 1-3,11 --set FinalFrame=11 --set PacketSize=2
  good 1-3,11
  folder_has s/roll_images frame01.png frame02.png frame03.png frame11.png
  images_are "$PWD"/s/roll_images/frame{01,02,03,11}.png
  png_is s/roll_images/frame11.png 64 36
  said "clock 0.100 of frame 2"
  said "clock 1.000 of frame 11"
}

# Numbers are as long as that of the last frame, however few are rendered.
case_numbers_are_padded() {
  ball s/roll.pov
  render povray-animation s/roll.pov "${small[@]}" --range 7 --set FinalFrame=1000
  good 7
  folder_has s/roll_images frame0007.png
}

case_parameters_reach_povray() {
  ball s/roll.pov
  render povray-animation s/roll.pov "${small[@]}" --range 6-7 --set InitialFrame=5 --set FinalFrame=9 \
    --set InitialClock=2 --set FinalClock=4 --set Cyclic=Yes --set OutputFormat=JPEG
  good 6-7
  # A cyclic animation has one frame more, and that is number 10.
  folder_has s/roll_images frame06.jpg frame07.jpg
  said "clock 2.400 of frame 6"
}

case_whole_animation_without_a_range() {
  ball s/roll.pov
  render povray-animation s/roll.pov "${small[@]}" --set FinalFrame=3
  good
  folder_has s/roll_images frame1.png frame2.png frame3.png
}

case_last_frame_is_asked_for() {
  ball s/roll.pov
  render povray-animation s/roll.pov "${small[@]}" --range 1-3
  [ "$status" -eq 2 ] || fail "exit code $status"
  grep -qF "FinalFrame: a value is required" "$tree/.errors" || fail "it is not asked for"
}

# What came before the broken frame is good.
case_broken_frame() {
  ball s/roll.pov '#if (frame_number = 3)' '#error "artist stop\n"' '#end'
  render povray-animation s/roll.pov "${small[@]}" --range 1-4 --set FinalFrame=4
  bad "error line" "Error line: *roll.pov' line 6: Parse Error:*"
  [ "$(events 'select(.kind == "run.summary") | .frames.good')" = 1-2 ] || fail "frames 1-2 are not good"
}

case_verbose_and_warnings_stay_good() {
  ball s/roll.pov '#warning "beware\n"'
  render povray-animation s/roll.pov "${small[@]}" --range 1-2 --set FinalFrame=2 --set ExtraArguments=+V
  good 1-2
  said "beware"
}

case_missing_scene() {
  ball s/roll.pov
  render_without povray-animation s/roll.pov "${small[@]}" --range 1-2 --set FinalFrame=2
  bad "error line" "*Cannot find file*s/roll.pov*"
}

case_full_disk() {
  ball s/roll.pov
  full out
  render povray-animation s/roll.pov "${small[@]}" --range 1-2 --set FinalFrame=2 --out out
  bad "error line" "*"
}

case_killed_midway() {
  ball s/roll.pov
  render_killed povray-animation s/roll.pov --range 1-2 --set FinalFrame=2 --set Width=4000 --set Height=4000 \
    --set AntialiasThreshold=0.01 --set AntialiasDepth=9
  bad signal "*signal 9*"
}

case_odd_names() {
  ball "my shot/it's; \$(x) & co.pov"
  render povray-animation "my shot/it's; \$(x) & co.pov" "${small[@]}" --range 1-2 --set FinalFrame=2 --out "my images"
  good 1-2
  folder_has "my images" frame1.png frame2.png
}

case_scene_and_folders_of_any_name() {
  local scene
  for scene in "my rënder \"farm\"/日本/roll.pov" "s/Fluß \"1\".pov" $'s/latin-\xe9.pov'; do
    ball "$scene"
    render povray-animation "$scene" "${small[@]}" --range 1-2 --set FinalFrame=2
    good 1-2
    folder_has "${scene%.pov}_images" frame1.png frame2.png
  done
  ball "s/Fluß.pov" "oops"
  render povray-animation "s/Fluß.pov" "${small[@]}" --range 1-2 --set FinalFrame=2
  bad "error line" "Error line: *"
}
