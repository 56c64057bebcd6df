# shellcheck shell=bash
# The proof of the type oiiotool; see lib.sh.

# shellcheck source=names.sh
source "$here/names.sh"

images() { # FOLDER/NAME COUNT [SIZE] [EXTENSION]
  local number
  mkdir -p "$(dirname "$1")"
  for number in $(seq "$2"); do
    oiiotool --pattern fill:top=0.1,0.2,0.9:bottom=0.9,0.2,0.1 "${3:-64x48}" 3 -d half \
      --evaloff -o "$1_000$number.${4:-exr}"
  done
}

case_good() {
  images s/a 3
  render oiiotool s/a_0002.exr --packet 2 --out out
  good 1-3
  folder_has out a_0001.png a_0002.png a_0003.png
  png_is out/a_0001.png 64 48
  images_are "$PWD"/out/a_000{1,2,3}.png
}

case_many_digits() {
  images s/a 2
  mv s/a_0001.exr s/50%_000000000001.exr
  mv s/a_0002.exr s/50%_000000000002.exr
  render oiiotool s/50%_000000000001.exr --out out
  good 1-2
  folder_has out 50%_000000000001.png 50%_000000000002.png
}

case_single_image() {
  images s/a 1
  render oiiotool s/a_0001.exr
  good
  folder_has s/converted a_0001.png
}

case_missing_scene() {
  images s/a 1
  render_without oiiotool s/a_0001.exr
  bad "error line" "Error line: oiiotool ERROR: read : File does not exist: *s/a_0001.exr*"
}

case_missing_scene_of_a_packet() {
  images s/a 3
  call_trovik submit --json oiiotool s/a_0001.exr
  rm s/a_0002.exr
  call_trovik engine --job last --until-empty --json
  bad start "No scene file for frame 2: $PWD/s/a_0002.exr"
}

case_broken_scene() {
  images s/a 3
  truncate -s -500 s/a_0002.exr
  render oiiotool s/a_0001.exr
  bad "error line" "Error line: oiiotool ERROR: read : *"
  said "Reading $PWD/s/a_0001.exr"
}

# Some formats do not tell: exit code 0 and not a word.
case_full_disk() {
  images s/a 1 640x480
  full out
  local kind
  for kind in exr tif dpx; do
    render oiiotool s/a_0001.exr --out out --set Format=$kind
    bad "error line" "Error line: oiiotool ERROR: -o : *"
  done
  for kind in png tga; do
    render oiiotool s/a_0001.exr --out out --set Format=$kind
    bad files "*: $PWD/out/a_0001.$kind"
  done
}

case_killed_midway() {
  images s/a 1
  render_killed oiiotool s/a_0001.exr --set Size=6000x6000 --set Operations="--blur 99x99"
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  images "my shot/it's {2*3} 100% \$(x); a" 2
  render oiiotool "my shot/it's {2*3} 100% \$(x); a_0001.exr" --out "my #images %04d"
  good 1-2
  folder_has "my #images %04d" "it's {2*3} 100% \$(x); a_0001.png" "it's {2*3} 100% \$(x); a_0002.png"
}

case_name_with_a_dash() {
  images ./-a 1
  render oiiotool ./-a_0001.exr --out out
  good
  folder_has out -a_0001.png
}

case_quiet_and_verbose() {
  images s/a 2
  render oiiotool s/a_0001.exr --set Verbose=No
  good 1-2
  never_said Writing
  render oiiotool s/a_0001.exr --set ExtraArguments="--debug --runstats"
  good 1-2
  images_are "$PWD"/s/converted/a_000{1,2}.png
}

case_usual_options() {
  images s/a 1
  render oiiotool s/a_0001.exr --set Size=32x0 --set DataType=uint8 --set Dither=Yes --set ToSpace=sRGB
  good
  png_is s/converted/a_0001.png 32 24
  render oiiotool s/a_0001.exr --set Fit=20x20 --set FromSpace=sRGB --set ToSpace=linear --set Channels=B,G,R
  good
  png_is s/converted/a_0001.png 20 20
  render oiiotool s/a_0001.exr --set Operations='--mulc {1+1} --echo "oiiotool said: error"' --set ExtraArguments="--attrib Artist x"
  good
  said "oiiotool said: error"
  render oiiotool s/a_0001.exr --set Format=exr --set Compression=dwaa:45 --set DataType=half
  good
}

case_every_format() {
  images s/a 1
  local kind
  for kind in jpg tif dpx tga bmp hdr webp jp2 sgi ppm; do
    render oiiotool s/a_0001.exr --set Format=$kind
    good
  done
}

case_wrong_option() {
  images s/a 1
  render oiiotool s/a_0001.exr --set Operations=--frobnicate
  bad result "Exit code 1; it said: *"
  said 'Invalid option "--frobnicate"'
}

# They are wildcards for oiiotool.
case_names_that_oiiotool_refuses() {
  images "s/a" 2
  mv s 'my#shot@'
  render oiiotool 'my#shot@/a_0002.exr'
  good 1-2
  folder_has 'my#shot@/converted' a_0001.png a_0002.png
  cp 'my#shot@/a_0001.exr' '#1.exr'
  render oiiotool '#1.exr'
  refused "\"#\""
}
