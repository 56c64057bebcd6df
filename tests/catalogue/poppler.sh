# shellcheck shell=bash
# The proof of the type Poppler; see lib.sh.

paper() { # FILE PAGES: a PDF file, written by hand
  mkdir -p "$(dirname "$1")"
  python3 - "$@" <<'PYTHON'
import sys
name, pages = sys.argv[1], int(sys.argv[2])
objects = ["<< /Type /Catalog /Pages 2 0 R >>",
           "<< /Type /Pages /Kids [%s] /Count %d >>" % (" ".join("%d 0 R" % (4 + 2 * i) for i in range(pages)), pages),
           "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>"]
for page in range(pages):
    text = "BT /F 20 Tf 10 30 Td (page %d) Tj ET" % (page + 1)
    objects.append("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 120 80] /Contents %d 0 R "
                   "/Resources << /Font << /F 3 0 R >> >> >>" % (5 + 2 * page))
    objects.append("<< /Length %d >>\nstream\n%s\nendstream" % (len(text), text))
data, places = "%PDF-1.4\n", []
for number, text in enumerate(objects, 1):
    places.append(len(data))
    data += "%d 0 obj\n%s\nendobj\n" % (number, text)
table = len(data)
data += "xref\n0 %d\n0000000000 65535 f \n" % (len(objects) + 1) + "".join("%010d 00000 n \n" % p for p in places)
data += "trailer << /Size %d /Root 1 0 R >>\nstartxref\n%d\n%%%%EOF\n" % (len(objects) + 1, table)
open(name, "w").write(data)
PYTHON
}

case_good() {
  paper s/a.pdf 12
  render pdftoppm s/a.pdf --range 2,11-12 --set Resolution=72
  good 2,11-12
  folder_has s/pages a_0002.png a_0011.png a_0012.png
  png_is s/pages/a_0002.png 120 80
}

case_without_a_range() {
  paper s/a.pdf 1
  render poppler s/a.pdf
  [ "$status" -eq 2 ] || fail "the exit code is $status"
  grep -q 'Range' "$tree/.errors" || fail "not told"
}

case_pages_behind_the_end() {
  paper s/a.pdf 2
  render pdftoppm s/a.pdf --range 2-3
  bad "error line" "Error line: Wrong page range given: *"
  failures_are 3
}

case_missing_scene() {
  paper s/a.pdf 1
  render_without pdftoppm s/a.pdf --range 1
  bad "error line" "Error line: I/O Error: Couldn't open file '$PWD/s/a.pdf': No such file or directory."
}

case_broken_scene() {
  echo 'no document' >a.pdf
  render pdftoppm a.pdf --range 1
  bad "error line" "Error line: Syntax Error: Couldn't find trailer dictionary"
}

case_mended_scene_is_good() {
  paper a.pdf 1
  sed -i 's/ Tj ET/ Tq ET/' a.pdf
  render pdftoppm a.pdf --range 1
  good
  said "Syntax Error"
}

case_full_disk() {
  paper a.pdf 1
  full out
  render pdftoppm a.pdf --range 1 --out out --set Kind=jpeg
  bad "error line" "Error line: Internal Error: Output file write error*"
  render pdftoppm a.pdf --range 1 --out out --set Kind=tiff
  bad "error line" "Error line: Could not write image to *"
  render pdftoppm a.pdf --range 1 --out out --set Kind=png
  bad files "Empty file: $PWD/out/a_0001.png"
  render pdftoppm a.pdf --range 1 --out out --set Kind=ppm
  bad files "Empty file: $PWD/out/a_0001.ppm"
}

case_killed_midway() {
  paper a.pdf 1
  render_killed pdftoppm a.pdf --range 1 --set Resolution=5000
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  paper "my papers/it's 100% %d \$(x); {a}.pdf" 1
  render pdftoppm "my papers/it's 100% %d \$(x); {a}.pdf" --range 1 --out "my %d pages"
  good
  folder_has "my %d pages" "it's 100% %d \$(x); {a}_0001.png"
}

case_name_with_a_dash() {
  paper ./-a.pdf 1
  render pdftoppm ./-a.pdf --range 1 --out out
  good
  folder_has out -a_0001.png
}

case_quiet_and_progress() {
  paper a.pdf 1
  render pdftoppm a.pdf --range 1 --set Quiet=Yes
  good
  render pdftoppm a.pdf --range 1 --set ExtraArguments=-progress
  good
  said "1 1 $PWD/pages/a_0001.png"
}

case_usual_options() {
  paper a.pdf 1
  local kind
  for kind in jpeg tiff ppm gray mono; do
    render pdftoppm a.pdf --range 1 --set Kind=$kind
    good
  done
  render pdftoppm a.pdf --range 1 --set ScaleTo=60 --set CropBox=Yes --set HideAnnotations=Yes --set Antialias=No
  good
  png_is pages/a_0001.png 60 40
  render pdftoppm a.pdf --range 1 --set Kind=jpeg --set JpegOptions=quality=90,progressive=y
  good
  render pdftoppm a.pdf --range 1 --set Kind=tiff --set TiffCompression=lzw
  good
}

case_wrong_option() {
  paper a.pdf 1
  render pdftoppm a.pdf --range 1 --set ExtraArguments=-frobnicate
  bad result "Exit code 99; last line: *"
}
