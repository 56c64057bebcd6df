# shellcheck shell=bash
# The proof of the type darktable; see lib.sh.

photo() { # FILE [SIZE]
  mkdir -p "$(dirname "$1")"
  convert -size "${2:-64x48}" gradient:navy-orange "${1//%/%%}"
}

case_good() {
  photo s/img_0001.png
  photo s/img_0002.png
  render darktable-cli s/img_0002.png --out out
  good 1-2
  images_are "$PWD/out/img_0001.jpg" "$PWD/out/img_0002.jpg"
}

case_several_at_once() {
  local number
  for number in 1 2 3 4; do photo "s/img_000$number.png"; done
  render darktable s/img_0001.png --slots 4
  good 1-4
}

case_an_image_that_exists_is_overwritten() {
  photo img.png
  render darktable-cli img.png --out out
  good
  render darktable-cli img.png --out out
  good
  [ "$(ls out)" = img.jpg ] || fail "out holds $(ls out)"
}

case_missing_scene() {
  photo img.png
  render_without darktable-cli img.png
  bad "error line" "Error line: error: can't open file $PWD/img.png"
}

case_broken_scene() {
  photo img.png
  truncate -s 60 img.png
  render darktable-cli img.png
  bad "error line" "Error line: *img.*"
}

# darktable itself ends with exit code 0.
case_jpeg_cut_short() {
  photo img.jpg
  truncate -s -200 img.jpg
  render darktable-cli img.jpg
  bad "error line" "Error line: Premature end of JPEG file"
}

case_full_disk() {
  photo img.png 640x480
  full out
  local kind
  for kind in jpg png tif webp; do
    render darktable-cli img.png --out out --set ConfigFolder="$PWD/config" --set Format=$kind
    bad "error line" "Error line: *"
  done
  render darktable-cli img.png --out out --set ConfigFolder="$PWD/config" --set Format=ppm
  bad files "*$PWD/out/img.ppm"
}

case_killed_midway() {
  photo img.png 4000x4000
  render_killed darktable-cli img.png --out out
  bad signal "*signal 9*"
  render darktable-cli img.png --out out --set Width=64
  good
}

case_name_with_blanks() {
  photo "my shot/it's 100% \$(x); {a} \$(FILE_NAME).png"
  render darktable-cli "my shot/it's 100% \$(x); {a} \$(FILE_NAME).png" --out "my images"
  good
  images_are "$PWD/my images/it's 100% \$(x); {a} \$(FILE_NAME).jpg"
}

case_no_home() {
  photo img.png
  render darktable-cli img.png --set Environment=HOME=/nonexistent
  good
}

case_verbose_and_warnings() {
  photo img.png
  render darktable-cli img.png --set Verbose=Yes --set CoreArguments="-d imageio -d perf"
  good
  said pixelpipe
  render darktable-cli img.png --set Format=exr
  good
  said "[exr export] warning"
  render darktable-cli img.png --set ExtraArguments=--frobnicate
  good
  said "warning: unknown option '--frobnicate'"
}

case_usual_options() {
  photo img.png
  render darktable-cli img.png --set Format=png --set Width=32 --set Height=32 --set HighQuality=No --set CustomPresets=Yes --set IccType=SRGB
  good
  png_is developed/img.png 32 24
  render darktable-cli img.png --set Format=png --set Width=128 --set Height=128 --set Upscale=Yes \
    --set CoreArguments="--disable-opencl --conf plugins/imageio/format/jpeg/quality=90"
  good
  png_is developed/img.png 128 96
  cp developed/img.png.xmp side.xmp 2>/dev/null || echo '<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#"><rdf:Description rdf:about="" xmlns:darktable="http://darktable.sf.net/" darktable:xmp_version="5"/></rdf:RDF></x:xmpmeta>' >side.xmp
  render darktable-cli img.png --set Sidecar=side.xmp
  good
  local kind
  for kind in tif webp ppm pfm; do
    render darktable-cli img.png --set Format=$kind
    good
  done
}

# A configuration folder as darktable itself leaves it, with a style that turns.
case_style() {
  photo img.png
  darktable-cli img.png first.jpg --core --configdir config --library config/library.db >/dev/null 2>&1
  python3 - <<'PYTHON'
import sqlite3
data = sqlite3.connect("config/data.db")
data.execute("insert into styles (id, name, description) values (1, 'quarter turn', '')")
data.execute("insert into style_items values (1, 1, 2, 'flip', x'06000000', 1, x'', 11, 0, '')")
data.commit()
PYTHON
  render darktable-cli img.png --set ConfigFolder="$PWD/config" --set CustomPresets=Yes \
    --set Style="quarter turn" --set Format=png
  good
  png_is developed/img.png 48 64
}

case_a_style_that_is_not_there() {
  photo img.png
  render darktable-cli img.png --set Style=nothing
  bad "error line" "Error line: *could not export to file: \`$PWD/developed/img.jpg'!"
}
