# shellcheck shell=bash
# The proof of the type Ghostscript; see lib.sh.

# shellcheck source=names.sh
source "$here/names.sh"

paper() { # FILE PAGES
  local page
  mkdir -p "$(dirname "$1")"
  {
    printf '%%!PS-Adobe-3.0\n%%%%Pages: %s\n' "$2"
    echo '<< /PageSize [120 80] >> setpagedevice /Helvetica findfont 20 scalefont setfont'
    for page in $(seq "$2"); do
      printf '%%%%Page: %s %s\n10 30 moveto (page %s) show showpage\n' "$page" "$page" "$page"
    done
    echo '%%EOF'
  } >paper.ps
  case $1 in
  *.pdf) gs -q -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOutputFile="${1//%/%%}" paper.ps ;;
  *) mv paper.ps "$1" ;;
  esac
}

case_good() {
  paper s/a.pdf 4
  render gs s/a.pdf --range 2-3 --set Resolution=72
  good 2-3
  folder_has s/pages a_0002.png a_0003.png
  png_is s/pages/a_0002.png 120 80
}

case_whole_document() {
  paper s/a.pdf 3
  render ghostscript s/a.pdf
  good
  folder_has s/pages a_0001.png a_0002.png a_0003.png
  paper s/b.ps 2
  render gs s/b.ps --out b
  good
  folder_has b b_0001.png b_0002.png
}

case_pages_behind_the_end() {
  paper s/a.pdf 2
  render gs s/a.pdf --range 2-3
  bad "error line" "Error line: Requested FirstPage is greater than the number of pages in the file: 2"
  failures_are 3
}

case_missing_scene() {
  paper s/a.pdf 1
  render_without gs s/a.pdf
  bad "error line" "Error line: Error: /undefinedfilename in ($PWD/s/a.pdf)"
}

case_broken_scene() {
  paper s/a.ps 2
  sed -i 's/(page 2) show/(page 2) shw/' s/a.ps
  render gs s/a.ps
  bad "error line" "Error line: Error: /undefined in shw"
}

case_scene_cut_short() {
  paper s/a.pdf 3
  truncate -s -300 s/a.pdf
  render gs s/a.pdf
  bad "error line" "Error line: *no startxref token found"
}

case_full_disk() {
  paper s/a.pdf 1
  full out
  local device
  for device in png16m jpeg tiff24nc; do
    render gs s/a.pdf --range 1 --out out --set Device=$device
    bad "error line" "Error line: *Page drawing error occurred."
  done
}

case_killed_midway() {
  paper s/a.pdf 1
  render_killed gs s/a.pdf --set Resolution=5000
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  paper "my papers/it's 100% %d \$(x); {a}.pdf" 1
  render gs "my papers/it's 100% %d \$(x); {a}.pdf" --range 1 --out "my %d pages"
  good 1
  folder_has "my %d pages" "it's 100% %d \$(x); {a}_0001.png"
}

case_name_with_a_dash() {
  paper ./-a.pdf 1
  render gs ./-a.pdf --out out
  good
  folder_has out -a_0001.png
}

case_quiet_and_warnings() {
  paper s/a.pdf 2
  render gs s/a.pdf --range 1-2 --set Quiet=Yes
  good 1-2
  never_said Page
  paper s/b.ps 1
  sed -i 's/Helvetica/NoSuchFont/' s/b.ps
  render gs s/b.ps
  good
  said "Substituting font"
}

case_usual_options() {
  paper s/a.pdf 1
  render gs s/a.pdf --range 1 --set Width=60 --set Height=40 --set Resolution=36 --set FitPage=Yes --set UseCropBox=Yes \
    --set StopOnError=Yes --set CPUs=2 --set ExtraArguments=-dDownScaleFactor=1
  good
  local device
  for device in pngalpha pnggray jpeg jpeggray tiff24nc tiffgray bmp16m ppmraw; do
    render gs s/a.pdf --range 1 --set Device=$device
    good
  done
  for device in pngmono tiffg4 pdfwrite; do
    render gs s/a.pdf --range 1 --set Device=$device --set Antialias=No
    good
  done
  render gs s/a.pdf --set Device=jpeg --set JpegQuality=95
  good
}

case_password() {
  paper a.ps 1
  gs -q -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOwnerPassword=own -sUserPassword='a word' -dEncryptionR=3 -dKeyLength=128 \
    -sOutputFile=a.pdf a.ps
  render gs a.pdf
  bad "error line" "Error line: *This file requires a password for access."
  render gs a.pdf --set Password=wrong
  bad "error line" "Error line: *Password did not work."
  render gs a.pdf --set Password='a word'
  good
}

case_wrong_option() {
  paper s/a.pdf 1
  render gs s/a.pdf --set ExtraArguments=--frobnicate
  bad "error line" "Error line: *Unknown switch '--frobnicate'."
}

case_names_that_ghostscript_refuses() {
  paper a.pdf 1
  mkdir -p s $'my|papers/l\xe9'
  cp a.pdf $'my|papers/l\xe9'
  render gs $'my|papers/l\xe9/a.pdf' --range 1
  good 1
  folder_has $'my|papers/l\xe9/pages' a_0001.png
  cp a.pdf 's/a|b.pdf'
  render gs 's/a|b.pdf' --range 1
  refused "\"|\""
  cp a.pdf $'s/l\xe9.pdf'
  render gs $'s/l\xe9.pdf' --range 1
  refused "the byte \\xe9, which is no letter of UTF-8"
}
