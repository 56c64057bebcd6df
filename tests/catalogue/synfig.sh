# shellcheck shell=bash
# The proof of the type Synfig; see lib.sh.

# shellcheck source=names.sh
source "$here/names.sh"

# A ball that rolls from left to right in 24 frames; LINES are further layers.
ball() { # FILE [LINE]...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  cat >"$file" <<SCENE
<?xml version="1.0" encoding="UTF-8"?>
<canvas version="1.2" width="64" height="36" view-box="-4 2.25 4 -2.25" antialias="1" fps="24"
        begin-time="0f" end-time="24f" bgcolor="0.5 0.5 0.5 1.0">
  <layer type="SolidColor" active="true" version="0.1">
    <param name="color"><color><r>0.1</r><g>0.2</g><b>0.4</b><a>1.0</a></color></param>
  </layer>
  $*
  <layer type="circle" active="true" version="0.2">
    <param name="color"><color><r>1.0</r><g>0.7</g><b>0.2</b><a>1.0</a></color></param>
    <param name="radius"><real value="1.0"/></param>
    <param name="origin"><animated type="vector">
      <waypoint time="0f" before="linear" after="linear"><vector><x>-2.5</x><y>0</y></vector></waypoint>
      <waypoint time="24f" before="linear" after="linear"><vector><x>2.5</x><y>0</y></vector></waypoint>
    </animated></param>
  </layer>
</canvas>
SCENE
}

case_good() {
  ball s/ball.sif
  render synfig s/ball.sif --range 2-4
  good 2-4
  folder_has s/images ball_0002.png ball_0003.png ball_0004.png
  png_is s/images/ball_0002.png 64 36
  images_are "$PWD"/s/images/ball_000{2,3,4}.png
  cmp -s s/images/ball_0002.png s/images/ball_0004.png && fail "the ball does not roll"
  return 0
}

case_without_a_range() {
  ball s/ball.sif
  render synfig s/ball.sif
  good
  folder_has s/images ball.png
}

case_parameters_reach_synfig() {
  local format
  ball s/ball.sif
  for format in PNG JPEG BMP PPM OpenEXR; do
    render synfig s/ball.sif --range 7 --out out --set Format=$format --set Width=80 --set Height=45 --set Antialias=3 \
      --set CPUs=2 --set 'ExtraArguments=--dpi 72 -x'
    good 7
  done
  png_is out/ball_0007.png 80 45
  said "w: 80, h: 45, a: 3"
  folder_has out ball_0007.png ball_0007-alpha.png ball_0007.jpg ball_0007-alpha.jpg ball_0007.bmp \
    ball_0007-alpha.bmp ball_0007.ppm ball_0007-alpha.ppm ball_0007.exr ball_0007-alpha.exr
}

case_compressed_animation() {
  ball s/ball.sif
  gzip <s/ball.sif >s/ball.sifz
  rm s/ball.sif
  render synfig s/ball.sifz --range 1
  good 1
}

case_quiet_and_verbose_runs_stay_good() {
  ball s/ball.sif
  render synfig s/ball.sif --range 1 --set ExtraArguments=-q
  good 1
  never_said "DONE"
  render synfig s/ball.sif --range 1 --set 'ExtraArguments=-v 9 -b'
  good 1
  said "Rendered in"
}

case_warnings_stay_good() {
  ball s/ball.sif '<layer type="circle" active="true" version="0.2"><param name="radios"><real value="0.1"/></param></layer>'
  render synfig s/ball.sif --range 1
  good 1
  said "warning: "
}

case_missing_scene() {
  ball s/ball.sif
  render_without synfig s/ball.sif --range 1
  bad "error line" "Error line: Unable to load file '*s/ball.sif'."
}

case_broken_scene() {
  ball s/ball.sif
  truncate -s 600 s/ball.sif
  render synfig s/ball.sif --range 1
  bad "error line" "Error line: Unable to load file '*s/ball.sif'."
}

case_missing_image() {
  ball s/ball.sif '<layer type="import" active="true" version="0.1"><param name="filename"><string>gone.png</string></param></layer>'
  render synfig s/ball.sif --range 1
  bad "error line" "*Layer 'import' rejected value for parameter 'filename'"
}

case_unknown_canvas() {
  ball s/ball.sif
  render synfig s/ball.sif --range 1 --set Canvas=:nosuch
  bad "error line" 'Error line: Unable to find canvas with ID ":nosuch"*'
}

# It is exit code 0 for Synfig.
# Nothing is said: the empty file tells.
case_full_disk() {
  ball s/ball.sif
  full out
  render synfig s/ball.sif --range 1 --out out
  bad files "Empty file: *out/ball_0001.png"
  render synfig s/ball.sif --range 1 --out out --set Format=OpenEXR
  bad "error line" "Error line: Failed to write pixel data to image file *No space left on device."
}

case_killed_midway() {
  ball s/ball.sif
  render_killed synfig s/ball.sif --range 1 --set Width=20000 --set Height=20000
  bad signal "*signal 9*"
}

case_odd_names() {
  ball "my shot/it's; \$(x) & \"a\" 12.sif"
  render synfig "my shot/it's; \$(x) & \"a\" 12.sif" --range 1 --out "my images"
  good 1
  folder_has "my images" "it's; \$(x) & \"a\" 12_0001.png"
}

case_names_that_synfig_refuses() {
  ball $'my\\shot/l\xe9/ball.sif'
  render synfig $'my\\shot/l\xe9/ball.sif' --range 1 --out out
  good 1
  folder_has out ball_0001.png
  ball 's/a\b.sif'
  render synfig 's/a\b.sif' --range 1
  refused "\"\\\""
  ball $'s/l\xe9.sif'
  render synfig $'s/l\xe9.sif' --range 1
  refused "the byte \\xe9, which is no letter of UTF-8"
}
