# shellcheck shell=bash
# The proof of the type Inkscape; see lib.sh.

drawing() { # FILE...
  local file
  for file in "$@"; do
    mkdir -p "$(dirname "$file")"
    cat >"$file" <<'SVG'
<svg xmlns="http://www.w3.org/2000/svg" width="120" height="80">
<rect width="120" height="80" fill="#123456"/>
<circle id="ball" cx="40" cy="40" r="20" fill="orange"/>
<text x="10" y="70" font-size="10" fill="white">words</text>
</svg>
SVG
  done
}

case_good() {
  drawing s/a_0001.svg s/a_0002.svg
  render inkscape s/a_0002.svg --out out
  good 1-2
  folder_has out a_0001.png a_0002.png
  png_is out/a_0001.png 120 80
}

case_missing_scene() {
  drawing s/a.svg
  render_without inkscape s/a.svg
  bad "error line" "Error line: *Can't open file: $PWD/s/a.svg (doesn't exist)"
}

case_broken_scene() {
  drawing s/a.svg
  truncate -s -20 s/a.svg
  render inkscape s/a.svg
  bad "error line" "Error line: $PWD/s/a.svg:*: parser error : *"
  echo 'no drawing' >s/a.svg
  render inkscape s/a.svg
  bad "error line" "Error line: *parser error : *"
}

# Inkscape says nothing of it where it writes PNG or PDF.
case_full_disk() {
  drawing s/a.svg
  full out
  render inkscape s/a.svg --out out
  bad files "Empty file: $PWD/out/a.png"
  render inkscape s/a.svg --out out --set Format=ps
  bad "error line" "Error line: Failed to save PS/EPS/PDF to: $PWD/out/a.ps"
}

case_killed_midway() {
  drawing s/a.svg
  render_killed inkscape s/a.svg --set Width=9000
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  drawing "my shot/it's 100% \$(x); {a} 1.svg"
  render inkscape "my shot/it's 100% \$(x); {a} 1.svg" --out "my images"
  good
  folder_has "my images" "it's 100% \$(x); {a} 1.png"
}

case_name_with_a_dash() {
  drawing ./-a.svg
  render inkscape ./-a.svg --out out
  good
  folder_has out -a.png
}

case_no_home() {
  drawing s/a.svg
  render inkscape s/a.svg --set Environment=HOME=/nonexistent
  good
}

case_several_at_once() {
  drawing s/a_000{1,2,3,4}.svg
  render inkscape s/a_0001.svg --slots 4
  good 1-4
}

case_warnings_are_good() {
  drawing s/a.svg
  render inkscape s/a.svg
  good
  said "WARNING **"
}

case_usual_options() {
  drawing s/a.svg
  render inkscape s/a.svg --set Width=60 --set Background=white --set BackgroundOpacity=1 --set ColourMode=RGB_8
  good
  png_is s/export/a.png 60 40
  render inkscape s/a.svg --set Dpi=192
  good
  png_is s/export/a.png 240 160
  render inkscape s/a.svg --set ObjectId=ball --set IdOnly=Yes --set Area=drawing --set Margin=5
  good
  render inkscape s/a.svg --set Actions="select-by-id:ball; delete"
  good
  local kind
  for kind in pdf svg ps eps emf; do
    render inkscape s/a.svg --set Format=$kind --set TextToPath=Yes --set PlainSvg=Yes
    good
  done
}

case_what_is_not_there() {
  drawing s/a.svg
  render inkscape s/a.svg --set Format=pdf --out .
  good
  render inkscape a.pdf --set PdfPage=1
  good
  render inkscape a.pdf --set PdfPage=2
  bad "error line" "Error line: *Bad page number 2. Import first page instead."
  render inkscape s/a.svg --set ObjectId=nothing
  bad "error line" 'Error line: *Object with id="nothing" was not found in the document. Skipping.'
  render inkscape s/a.svg --set Actions=fly-away
  bad "error line" "Error line: *could not find action for: fly-away"
  render inkscape s/a.svg --set ExtraArguments=--frobnicate
  bad "error line" "Error line: Unknown option --frobnicate"
}
