# shellcheck shell=bash
# The proof of the type Tachyon; see lib.sh.

# shellcheck source=names.sh
source "$here/names.sh"

ball() { # FILE [LINE]...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  cat >"$file" <<SCENE
begin_scene
resolution 32 18
camera
  zoom 1.2
  aspectratio 1.0
  antialiasing 0
  raydepth 6
  center 0.0 1.5 -6.0
  viewdir 0 -0.2 1
  updir 0 1 0
end_camera
directional_light direction 1 -1 1 color 1 1 1
background 0.2 0.3 0.5
texdef shiny
  ambient 0.1 diffuse 0.5 specular 0.4 opacity 1.0
  phong plastic 0.8 phong_size 40
  color 1.0 0.6 0.2 texfunc 0
$(printf '%s\n' "$@")
sphere center 0 0 0 rad 1.0 shiny
end_scene
SCENE
}
small=(--set Width=64 --set Height=36)

case_good() {
  ball s/ball_0001.dat
  ball s/ball_0002.dat
  render tachyon s/ball_0002.dat "${small[@]}"
  good 1-2
  folder_has s/images ball_0001.png ball_0002.png
  png_is s/images/ball_0001.png 64 36
  images_are "$PWD/s/images/ball_0001.png" "$PWD/s/images/ball_0002.png"
}

case_every_format() {
  local format
  ball s/ball.dat
  for format in PNG JPEG TGA BMP PPM "PPM 48 bits" "PSD 48 bits" SGI; do
    render tachyon s/ball.dat "${small[@]}" --set "Format=$format" --out "out/${format// /_}"
    good
    never_said Unknown
  done
  folder_has out PNG/ball.png JPEG/ball.jpg TGA/ball.tga BMP/ball.bmp PPM/ball.ppm PPM_48_bits/ball.ppm \
    PSD_48_bits/ball.psd SGI/ball.sgi
}

case_parameters_and_verbose_runs_stay_good() {
  local shading
  ball s/ball.dat
  for shading in Full Medium Low Lowest; do
    render tachyon s/ball.dat "${small[@]}" --set Shading=$shading --set Samples=2 --set RayDepth=9 \
      --set Transparency=Raster3D --set Skylight=0.7 --set SkylightSamples=4 --set Gamma=1.8 --set CPUs=2 \
      --set 'ExtraArguments=+V -normalize'
    good
  done
  said "CPU Information:"
}

# It is exit code 0, as are all that follow.
case_missing_scene() {
  ball s/ball.dat
  render_without tachyon s/ball.dat "${small[@]}"
  bad "error line" "Error line: Parser failed due to nonexistent input file: *s/ball.dat"
}

case_broken_scene() {
  ball s/ball.dat 'sphre center 0 0 0 rad 1.0 shiny'
  render tachyon s/ball.dat "${small[@]}"
  bad "error line" "Error line: *Encountered a syntax error in file *s/ball.dat"
  ball s/ball.dat 'include gone.dat'
  render tachyon s/ball.dat "${small[@]}"
  bad "error line" "Error line: Parser failed trying to open file: *gone.dat"
}

case_missing_texture() {
  ball s/ball.dat 'texdef image' 'ambient 0.1 diffuse 0.9 specular 0 opacity 1.0' \
    'color 1 1 1 texfunc 7 gone.ppm' 'center 0 0 0 rotate 0 0 0 scale 1 1 1' 'uaxis 1 0 0 vaxis 0 1 0' \
    'sphere center 1 0 0 rad 1.0 image'
  render tachyon s/ball.dat "${small[@]}"
  bad "error line" "Error line: *Error loading image gone.ppm*"
}

case_wrong_option() {
  ball s/ball.dat
  render tachyon s/ball.dat "${small[@]}" --set ExtraArguments=-frobnicate
  bad "error line" "Error line: Unrecognized parameter/option flag: -frobnicate"
}

# Nothing is said of most formats: the files tell.
case_full_disk() {
  ball s/ball.dat
  full out
  render tachyon s/ball.dat "${small[@]}" --out out
  bad files "Empty file: *out/ball.png"
  render tachyon s/ball.dat "${small[@]}" --out out --set Format=TGA
  bad "error line" "Error line: *writetgaregion: file ptr out of range!!!"
}

case_killed_midway() {
  ball s/ball.dat
  render_killed tachyon s/ball.dat --set Width=8000 --set Height=8000 --set Samples=64
  bad signal "*signal 9*"
}

case_odd_names() {
  ball "my shot/it's; \$(x) & \"a\".v2.dat"
  render tachyon "my shot/it's; \$(x) & \"a\".v2.dat" "${small[@]}" --out images
  good
  folder_has images "it's;_\$(x)_&_\"a\".v2.png"
}

# Tachyon itself would write a file called "my".
case_folder_with_blanks() {
  ball "my shot/ball.dat"
  render tachyon "my shot/ball.dat" "${small[@]}" --out $'my\nown images'
  good
  folder_has $'my\nown images' ball.png
  images_are "$PWD/"$'my\nown images/ball.png'
  render tachyon "my shot/ball.dat" "${small[@]}"
  good
  folder_has "my shot" ball.dat images/ball.png
}

case_scene_of_a_refused_name() {
  ball $'s/a\nb.dat'
  render tachyon $'s/a\nb.dat' "${small[@]}"
  refused "the control character"
}
