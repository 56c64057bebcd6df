# shellcheck shell=bash
# The proof of the type ImageMagick; see lib.sh.

images() { # FOLDER/NAME COUNT [SIZE]
  local number
  mkdir -p "$(dirname "$1")"
  for number in $(seq "$2"); do
    convert -size "${3:-64x48}" gradient:navy-orange "PNG24:${1//%/%%}_000$number.png"
  done
}

case_good() {
  images s/a 3
  render convert s/a_0002.png --out out --set Resize=50%
  good 1-3
  folder_has out a_0001.png a_0002.png a_0003.png
  png_is out/a_0001.png 32 24
}

case_missing_scene() {
  images s/a 1
  render_without imagemagick s/a_0001.png
  bad "error line" "Error line: convert: unable to open image *s/a_0001.png': No such file or directory @ error/*"
}

case_broken_scene() {
  images s/a 1
  echo 'no image' >s/a_0001.png
  render convert s/a_0001.png
  bad "error line" "Error line: convert: improper image header *"
}

# "convert" itself ends with exit code 0.
case_jpeg_cut_short() {
  images s/a 1 640x480
  convert s/a_0001.png a.jpg
  truncate -s -300 a.jpg
  render convert a.jpg
  bad "error line" "Error line: convert: Premature end of JPEG file *"
}

case_full_disk() {
  images s/a 1
  full out
  local kind
  for kind in png jpg tif tga webp; do
    render convert s/a_0001.png --out out --set Format=$kind --set Resize=640x480!
    bad "error line" "Error line: convert: *@ error/*"
  done
}

case_killed_midway() {
  images s/a 1
  render_killed convert s/a_0001.png --set Resize=6000x6000! --set Blur=0x90
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  images "my shot/it's 100% {x}; \$(y) [1]" 2
  render convert "my shot/it's 100% {x}; \$(y) [1]_0001.png" --out "my %d images"
  good 1-2
  folder_has "my %d images" "it's 100% {x}; \$(y) [1]_0001.png" "it's 100% {x}; \$(y) [1]_0002.png"
}

case_name_with_a_dash() {
  images ./-a:b 1
  render convert ./-a:b_0001.png --out out
  good
  folder_has out -a:b_0001.png
}

# "convert" would take the name of the result for a pattern.
case_name_like_a_pattern() {
  images ./p 1
  mv p_0001.png 'p [1]*.png'
  mkdir out
  echo 'another image' >'out/p 1x.png'
  render convert 'p [1]*.png' --out out
  good
  folder_has out 'p [1]*.png' 'p 1x.png'
  [ "$(cat 'out/p 1x.png')" = 'another image' ] || fail "another image was written over"
}

case_quiet_and_verbose() {
  images s/a 2
  render convert s/a_0001.png --set ExtraArguments=-quiet
  good 1-2
  render convert s/a_0001.png --set ExtraArguments=-verbose --set Format=jpg
  good 1-2
  images_are "$PWD"/s/converted/a_000{1,2}.jpg
  render convert s/a_0001.png --set ExtraArguments=-monitor
  good 1-2
  said '100% complete'
  render convert s/a_0001.png --set ExtraArguments="-debug coder"
  good 1-2
}

case_warnings_are_good() {
  images s/a 1
  render convert s/a_0001.png --set Operations='-font nosuch -annotate 0 hello'
  good
  said '@ warning/'
}

case_usual_options() {
  images s/a 1
  render convert s/a_0001.png --set Crop=32x32+4+4 --set Resize=16x16! --set Blur=0x1 --set Sharpen=0x1 \
    --set AutoOrient=Yes --set ColourSpace=Gray --set Depth=8 --set Strip=Yes --set Operations="-flop -modulate 100,130"
  good
  png_is s/converted/a_0001.png 16 16
  render convert s/a_0001.png --set Format=jpg --set Quality=70 --set Background=white
  good
  render convert s/a_0001.png --set Format=tif --set Compression=LZW --set Depth=16
  good
  cat >v.svg <<'SVG'
<svg xmlns="http://www.w3.org/2000/svg" width="72" height="36"><circle cx="18" cy="18" r="9"/></svg>
SVG
  render convert v.svg --set Density=192
  good
}

case_every_format() {
  images s/a 1
  local kind
  for kind in jpg tif webp gif bmp tga jp2 hdr ppm ico miff; do
    render convert s/a_0001.png --set Format=$kind
    good
  done
}

case_wrong_option() {
  images s/a 1
  render convert s/a_0001.png --set Operations=-frobnicate
  bad "error line" "Error line: convert: unrecognized option *"
}
