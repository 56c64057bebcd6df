# shellcheck shell=bash
# The proof of the types OpenSCAD and OpenSCAD picture; see lib.sh.

part() { # FILE [LINE]...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  printf '%s\n' 'size = 10; word = ""; frame = 0;' 'echo("part", size, word, frame);' \
    'difference() { cube(size, center = true); sphere(6.2); }' "$@" >"$file"
}
small=(--set Width=160 --set Height=120)

case_good() {
  part s/part_0001.scad
  part s/part_0002.scad
  render openscad s/part_0002.scad
  good 1-2
  folder_has s/models part_0001.stl part_0002.stl
  images_are "$PWD/s/models/part_0001.stl" "$PWD/s/models/part_0002.stl"
}

case_every_format() {
  local format
  part s/part.scad
  echo 'square(10);' >s/flat.scad
  for format in STL "STL (binary)" 3MF OFF AMF CSG; do
    render openscad s/part.scad --set "Format=$format" --out "out/$format"
    good
  done
  for format in DXF SVG PDF; do
    render openscad s/flat.scad --set Format=$format --out "out/$format"
    good
  done
  folder_has out STL/part.stl "STL (binary)/part.stl" 3MF/part.3mf OFF/part.off AMF/part.amf CSG/part.csg \
    DXF/flat.dxf SVG/flat.svg PDF/flat.pdf
  [ "$(head -c 5 out/STL/part.stl)" = solid ] || fail "the STL is not text"
  [ "$(head -c 5 "out/STL (binary)/part.stl")" != solid ] || fail "the binary STL is text"
}

case_definitions_and_frames_reach_openscad() {
  part s/part.scad
  echo '{"parameterSets": {"my set": {"size": "8"}}, "fileFormatVersion": "1"}' >"s/my sets.json"
  render openscad s/part.scad --range 7 --set 'Definitions=size=9;word="\"a b\""'
  good 7
  said 'ECHO: "part", 9, "a b", 7'
  render openscad s/part.scad --range 8 --set "ParameterFile=$PWD/s/my sets.json" --set 'ParameterSet=my set'
  good 8
  said 'ECHO: "part", 8, "", 8'
  folder_has s/models part_0007.stl part_0008.stl
}

case_quiet_and_verbose_runs_stay_good() {
  part s/part.scad
  render openscad s/part.scad --set ExtraArguments=-q
  good
  never_said ECHO
  render openscad s/part.scad --set 'ExtraArguments=--debug all'
  good
}

case_warnings_and_texts_of_the_scene_stay_good() {
  part s/part.scad 'echo("ERROR: none");' 'translate([nosuch, 0, 0]) cube(1);'
  render openscad s/part.scad
  good
  said 'ECHO: "ERROR: none"'
  said "WARNING: Ignoring unknown variable 'nosuch'"
  render openscad s/part.scad --set HardWarnings=Yes
  bad "error line" "Error line: Current top level object is empty."
}

case_missing_scene() {
  part s/part.scad
  render_without openscad s/part.scad
  bad "error line" "Error line: Can't open input file '*s/part.scad'!"
}

case_broken_scene() {
  part s/part.scad 'cube(3'
  render openscad s/part.scad
  bad "error line" "Error line: ERROR: Parser error: syntax error in file *"
}

case_missing_parts() {
  local line
  for line in 'import("gone.stl");' 'include <gone.scad>' 'use <gone.scad>' 'surface("gone.dat");' 'gone();'; do
    part s/part.scad "$line"
    render openscad s/part.scad
    bad "error line" "Error line: WARNING: *gone*"
  done
}

case_failed_assertion() {
  part s/part.scad 'assert(size > 20, "too small");'
  render openscad s/part.scad
  bad "error line" "Error line: ERROR: Assertion '*' failed: \"too small\"*"
}

case_wrong_kind_of_format() {
  part s/part.scad
  render openscad s/part.scad --set Format=SVG
  bad "error line" "Error line: Current top level object is not a 2D object."
}

case_full_disk() {
  part s/part.scad
  full out
  render openscad s/part.scad --out out
  bad "error line" "Error line: ERROR: \"*out/part.stl\" write error. (Disk full?)"
  # Nothing is said of this one.
  render openscad s/part.scad --out out --set Format=CSG
  bad files "Empty file: *out/part.csg"
  render openscad-picture s/part.scad "${small[@]}" --out out
  bad "error line" "Error line: Error writing to ostream"
}

case_killed_midway() {
  part s/part.scad 'minkowski() { sphere(9, $fn = 40); sphere(3, $fn = 40); }'
  render_killed openscad s/part.scad
  bad signal "*signal 9*"
}

case_odd_names() {
  part "my shot/it's; \$(x) & \"a\".scad"
  render openscad "my shot/it's; \$(x) & \"a\".scad" --out "my models"
  good
  folder_has "my models" "it's; \$(x) & \"a\".stl"
  render openscad-picture "my shot/it's; \$(x) & \"a\".scad" "${small[@]}" --out "my images"
  good
  folder_has "my images" "it's; \$(x) & \"a\".png"
}

case_picture_good() {
  part s/part.scad
  render openscad-picture s/part.scad --range 1-2 "${small[@]}" --set 'ColourScheme=Tomorrow Night' --set Projection=Ortho \
    --set Camera=30,20,10,0,0,0 --set ViewAll=No --set View=axes --set 'Definitions=size=9'
  good 1-2
  folder_has s/images part_0001.png part_0002.png
  png_is s/images/part_0001.png 160 120
  said 'ECHO: "part", 9, "", 1'
  render openscad-picture s/part.scad "${small[@]}" --set Render=Yes
  good
}

case_picture_of_nothing() {
  mkdir s
  echo 'echo("nothing");' >s/part.scad
  render openscad-picture s/part.scad "${small[@]}"
  bad files "*flat*s/images/part.png*"
}

case_picture_broken_scene() {
  part s/part.scad 'cube(3'
  render openscad-picture s/part.scad "${small[@]}"
  bad "error line" "Error line: ERROR: Parser error: syntax error in file *"
}

case_picture_without_a_display() {
  part s/part.scad
  render openscad-picture s/part.scad "${small[@]}" --set Executable=env --set 'CommandString=openscad -o $(OutputFolder)/part.png $(Scene)'
  bad "error line" "Error line: Unable to open a connection to the X server*"
}

case_picture_missing_scene() {
  part s/part.scad
  render_without openscad-picture s/part.scad "${small[@]}"
  bad "error line" "Error line: Can't open input file '*s/part.scad'*"
}

case_picture_killed_midway() {
  part s/part.scad 'minkowski() { sphere(9, $fn = 40); sphere(3, $fn = 40); }'
  render_killed openscad-picture s/part.scad "${small[@]}" --set Render=Yes
  bad signal "*signal 9*"
}
