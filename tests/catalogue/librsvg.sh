# shellcheck shell=bash
# The proof of the type librsvg; see lib.sh.

drawing() { # FILE...
  local file
  for file in "$@"; do
    mkdir -p "$(dirname "$file")"
    cat >"$file" <<'SVG'
<svg xmlns="http://www.w3.org/2000/svg" width="120" height="80">
<rect width="120" height="80" fill="#123456"/>
<circle id="ball" cx="40" cy="40" r="20" fill="orange"/>
</svg>
SVG
  done
}

case_good() {
  drawing s/a_0001.svg s/a_0002.svg
  render rsvg-convert s/a_0002.svg --out out
  good 1-2
  folder_has out a_0001.png a_0002.png
  png_is out/a_0001.png 120 80
}

case_missing_scene() {
  drawing a.svg
  render_without librsvg a.svg
  bad "error line" "Error line: Error reading file \"$PWD/a.svg\": *No such file or directory"
}

case_broken_scene() {
  drawing a.svg
  truncate -s -10 a.svg
  render rsvg-convert a.svg
  bad "error line" "Error line: Error reading SVG $PWD/a.svg: XML parse error: *"
}

case_full_disk() {
  drawing a.svg
  full out
  render rsvg-convert a.svg --out out
  bad "error line" "Error line: Error saving output $PWD/out/a.png: *No space left on device"
  render rsvg-convert a.svg --out out --set Format=pdf
  bad "error line" "Error line: Error rendering SVG $PWD/a.svg: *"
}

case_killed_midway() {
  drawing a.svg
  render_killed rsvg-convert a.svg --set Width=20000
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  drawing "my shot/it's 100% \$(x); {a} 1.svg"
  render rsvg-convert "my shot/it's 100% \$(x); {a} 1.svg" --out "my images"
  good
  folder_has "my images" "it's 100% \$(x); {a} 1.png"
}

case_name_with_a_dash() {
  drawing ./-a.svg
  render rsvg-convert ./-a.svg --out out
  good
  folder_has out -a.png
}

case_usual_options() {
  drawing a.svg
  echo 'circle { fill: red }' >"my style.css"
  render rsvg-convert a.svg --set Width=60 --set Height=60 --set Background=white --set "Stylesheet=my style.css" \
    --set Language=de,en --set Unlimited=Yes --set Dpi=192
  good
  png_is export/a.png 60 40
  render rsvg-convert a.svg --set Zoom=2
  good
  png_is export/a.png 240 160
  render rsvg-convert a.svg --set ObjectId=ball
  good
  png_is export/a.png 40 40
  local kind
  for kind in pdf ps eps svg; do
    render rsvg-convert a.svg --set Format=$kind
    good
  done
}

case_what_is_not_there() {
  drawing a.svg
  render rsvg-convert a.svg --set ObjectId=nothing
  bad result "Exit code 1; last line: *"
  render rsvg-convert a.svg --set ExtraArguments=--frobnicate
  bad result "Exit code 1; it said: error: Found argument '--frobnicate'*"
  render rsvg-convert a.svg --set Width=99999999
  bad "error line" "Error line: The resulting image would be larger than 32767 pixels *"
}
