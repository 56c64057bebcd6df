# shellcheck shell=bash
# The proof of the types Mandelbulber and Mandelbulber animation; see lib.sh.

# The program's default fractal; LINES are settings.
bulb() { # FILE [LINE]...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  printf '%s\n' '# Mandelbulber settings file' '# version 2.20' '# only modified parameters' '[main_parameters]' \
    "$@" >"$file"
}

# The same with five keyframes of five frames each.
keyframes() { # FILE
  bulb "$1" 'frames_per_keyframe 5;' '[keyframes]' 'frame;main_camera_x;main_camera_y;main_camera_z' \
    'interpolation;morphLinear' '0;0;-4;0' '1;0;-3,5;0' '2;0;-3;0' '3;0;-2,5;0' '4;0;-2;0'
}
small=(--set Width=64 --set Height=36)

case_good() {
  bulb s/bulb_0001.fract
  bulb s/bulb_0002.fract 'camera 0 -5 0;'
  render mandelbulber2 s/bulb_0001.fract "${small[@]}"
  good 1-2
  folder_has s/images bulb_0001.png bulb_0002.png
  png_is s/images/bulb_0001.png 64 36
  images_are "$PWD/s/images/bulb_0001.png" "$PWD/s/images/bulb_0002.png"
}

case_parameters_reach_mandelbulber() {
  local format
  bulb s/bulb.fract
  for format in JPG PNG "PNG 16 bits" "PNG 16 bits with alpha"; do
    render mandelbulber2 s/bulb.fract "${small[@]}" --out "out/$format" --set "Format=$format" \
      --set 'Overrides=camera=0 -5 0;nosuch=3' --set ExtraArguments=--stats
    good
    said 'element '
  done
  folder_has out JPG/bulb.jpg PNG/bulb.png "PNG 16 bits/bulb.png" "PNG 16 bits with alpha/bulb.png"
  render mandelbulber2 s/bulb.fract "${small[@]}" --out out/plain
  good
  ! cmp -s out/PNG/bulb.png out/plain/bulb.png || fail "the camera did not move"
}

# Two that start for the first time at once collide; the second attempt is good.
case_first_start_of_several() {
  local i
  for i in 1 2 3 4 5 6; do bulb s/bulb_000$i.fract; done
  render mandelbulber2 s/bulb_0001.fract "${small[@]}" --slots 6
  good 1-6
}

case_format_of_another_build() {
  bulb s/bulb.fract
  render mandelbulber2 s/bulb.fract "${small[@]}" --set Format=EXR
  bad "error line" 'Error line: Critical: fileType *"exr"*not supported!'
}

# It renders its default scene and ends with exit code 0.
case_missing_scene() {
  bulb s/bulb.fract
  render_without mandelbulber2 s/bulb.fract "${small[@]}"
  bad "error line" "Error line: Error: It's not valid Mandelbulber settings file. No header"
  said "Image saved to: $PWD/s/images/bulb.png"
}

case_broken_scene() {
  bulb s/bulb.fract 'camera 0 -5 0;' 'nosuch parameter'
  render mandelbulber2 s/bulb.fract "${small[@]}"
  bad "error line" "Error line: Error: *"
  echo "no scene" >s/bulb.fract
  render mandelbulber2 s/bulb.fract "${small[@]}"
  bad "error line" "Error line: Error: It's not valid Mandelbulber settings file. No header"
}

# A small image is only lost when its file is closed: the empty file tells.
case_full_disk() {
  bulb s/bulb.fract
  full out
  render mandelbulber2 s/bulb.fract "${small[@]}" --out out
  bad files "Empty file: *out/bulb.png"
  said "Image saved to: $PWD/out/bulb.png"
  render mandelbulber2 s/bulb.fract --set Width=320 --set Height=240 --out out
  bad "error line" "Error line: libpng error: Write Error"
}

case_killed_midway() {
  bulb s/bulb.fract
  render_killed mandelbulber2 s/bulb.fract --set Retries=0 --set Width=8000 --set Height=8000
  bad signal "*signal 9*"
}

case_odd_names() {
  bulb "my shot/it's; \$(x) & \"a\".v2.fract"
  render mandelbulber2 "my shot/it's; \$(x) & \"a\".v2.fract" "${small[@]}" --out "my images"
  good
  folder_has "my images" "it's; \$(x) & \"a\".v2.png"
}

case_animation_good() {
  keyframes "s/a flight.fract"
  render mandelbulber-animation "s/a flight.fract" "${small[@]}" --range 3-5,9 --set PacketSize=2
  good 3-5,9
  folder_has "s/a flight_images" frame_000000{3,4,5,9}.png
  png_is "s/a flight_images/frame_0000009.png" 64 36
  ! cmp -s "s/a flight_images"/frame_000000{3,4}.png || fail "the camera does not move"
}

case_animation_past_its_end() {
  keyframes s/a.fract
  render mandelbulber-animation s/a.fract "${small[@]}" --range 23-28
  bad "error line" "Error line: Error: Animation has only * frames"
}

case_animation_without_keyframes() {
  bulb s/a.fract
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-1
  bad "error line" "Error line: Error: There are no keyframes in specified settings file"
}

# The program keeps what is there.
case_animation_again() {
  keyframes s/a.fract
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-2
  good 0-2
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-2
  bad "error line" "Error line: The animation has already been rendered completely."
}

case_animation_missing_frame() {
  keyframes s/a.fract
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-2
  good 0-2
  rm s/a_images/frame_0000001.png
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-2 --missing
  good
  folder_has s/a_images frame_000000{0,1,2}.png
}

case_animation_missing_scene() {
  keyframes s/a.fract
  render_without mandelbulber-animation s/a.fract "${small[@]}" --range 0-1
  bad "error line" "Error line: Error: *"
}

case_animation_full_disk() {
  keyframes s/a.fract
  full out
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-1 --out out
  bad files "*out/frame_0000000.png*"
}

case_animation_killed_midway() {
  keyframes s/a.fract
  render_killed mandelbulber-animation s/a.fract --set Retries=0 --range 0-4 --set Width=8000 --set Height=8000
  bad signal "*signal 9*"
}

case_animation_broken_scene() {
  keyframes s/a.fract
  echo "no scene" >s/a.fract
  render mandelbulber-animation s/a.fract "${small[@]}" --range 0-1
  bad "error line" "Error line: Error: It's not valid Mandelbulber settings file. No header"
}
