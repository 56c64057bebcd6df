# shellcheck shell=bash
# The proof of the type gnuplot; see lib.sh.

script() { # FILE LINE...
  local file=$1
  shift
  mkdir -p "$(dirname "$file")"
  printf '%s\n' "$@" >"$file"
}
small=(--set Width=160 --set Height=120)

case_good() {
  script s/wave_0001.gp 'plot sin(x)'
  script s/wave_0002.gp 'plot cos(x)'
  render gnuplot s/wave_0001.gp "${small[@]}"
  good 1-2
  folder_has s/images wave_0001.png wave_0002.png
  png_is s/images/wave_0001.png 160 120
  images_are "$PWD/s/images/wave_0001.png" "$PWD/s/images/wave_0002.png"
}

case_one_script_for_many_frames() {
  script s/wave.gp 'print "frame", frame, "of", outfile' 'plot sin(x + frame)'
  render gnuplot s/wave.gp "${small[@]}" --range 3-4
  good 3-4
  folder_has s/images wave_0003.png wave_0004.png
  said "frame 4 of $PWD/s/images/wave_0004.png"
  ! cmp -s s/images/wave_0003.png s/images/wave_0004.png || fail "the wave does not move"
}

case_every_format() {
  local format
  script s/wave.gp 'plot sin(x)'
  for format in PNG JPG SVG PDF; do
    render gnuplot s/wave.gp --set Format=$format --set Font="Sans,9" --set "TerminalOptions=background \"#eeeeee\"" --out out
    good
  done
  folder_has out wave.png wave.jpg wave.svg wave.pdf
  # Five inches by three and a half.
  render gnuplot s/wave.gp --set Format=PDF --set Width=500 --set Height=350 --out out
  good
  grep -qa 'MediaBox \[ 0 0 360 252 \]' out/wave.pdf || fail "the page has another size"
}

case_parameters_reach_gnuplot() {
  script s/wave.gp 'print "n", n, "word", word, "first", ARG1, "second", ARG2' 'plot n * x'
  render gnuplot s/wave.gp "${small[@]}" --set "Commands=n = 7;\"word = 'a; b'\"" --set 'Arguments=my data;b'
  good
  said "n 7 word a; b first my data second b"
}

case_script_with_its_own_terminal() {
  script s/wave.gp 'set terminal pngcairo size 80,60' 'set output outfile' 'plot x' 'print "Written: " . outfile'
  render gnuplot s/wave.gp
  good
  png_is s/images/wave.png 80 60
}

case_warnings_and_texts_of_the_script_stay_good() {
  script s/wave.gp 'set title font "Nosuch,20" "hi"' 'print "error: no error, undefined"' 'plot 5' \
    '$nothing << E' 'E' 'plot x, $nothing'
  render gnuplot s/wave.gp "${small[@]}"
  good
  said arning
}

case_missing_scene() {
  script s/wave.gp 'plot x'
  render_without gnuplot s/wave.gp "${small[@]}"
  bad "error line" "Error line: line 0: Cannot load input from '*s/wave.gp'"
}

case_broken_scene() {
  script s/wave.gp 'set title "t"' 'plto x'
  render gnuplot s/wave.gp "${small[@]}"
  bad "error line" "Error line: \"*s/wave.gp\" line 2: invalid command"
  script s/wave.gp 'plot nosuch'
  render gnuplot s/wave.gp "${small[@]}"
  bad "error line" "Error line: \"*s/wave.gp\" line 1: undefined variable: nosuch"
}

# It draws the rest and ends with exit code 0.
case_missing_data() {
  script s/wave.gp 'plot sin(x), "gone.dat"'
  render gnuplot s/wave.gp "${small[@]}"
  bad "error line" "Error line: *warning: Cannot find or open file \"gone.dat\""
}

# gnuplot goes on without it, and ends with exit code 0.
case_wrong_option() {
  script s/wave.gp 'plot x'
  render gnuplot s/wave.gp "${small[@]}" --set ExtraArguments=--frobnicate
  bad "error line" "Error line: unrecognized option --frobnicate"
}

case_exit_code_of_the_script() {
  script s/wave.gp 'plot x' 'exit status 3'
  render gnuplot s/wave.gp "${small[@]}"
  bad result "Exit code 3*"
}

# Nothing is said, and it is exit code 0: the empty file tells.
case_full_disk() {
  script s/wave.gp 'plot x'
  full out
  render gnuplot s/wave.gp "${small[@]}" --out out
  bad files "Empty file: *out/wave.png"
}

case_killed_midway() {
  script s/wave.gp 'set samples 1000000' 'do for [i = 1:1000] { plot sin(x * i) }'
  render_killed gnuplot s/wave.gp
  bad signal "*signal 9*"
}

case_odd_names() {
  script "my shot/it's; \$(x) & \"a\" %d.gp" 'plot x'
  render gnuplot "my shot/it's; \$(x) & \"a\" %d.gp" "${small[@]}" --out "my 'images'"
  good
  folder_has "my 'images'" "it's; \$(x) & \"a\" %d.png"
}
