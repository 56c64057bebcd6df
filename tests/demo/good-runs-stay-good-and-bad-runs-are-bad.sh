#!/usr/bin/env bash
# The verdict on a run: however much or little POV-Ray says, and whatever a
# scene prints, a good frame is good; a frame that is not there never is.
source "$(dirname "$0")/harness.sh"

good() { # WHAT [ARGUMENT]...
  local what=$1
  shift
  rm -rf s/images
  render s/one.pov "$@"
  [ "$status" -eq 0 ] || fail "$what is called bad"
  expect_png s/images/one.png
}
bad() { # WHAT MESSAGE [ARGUMENT]...
  local what=$1 message=$2
  shift 2
  rm -rf s/images
  render s/one.pov "$@"
  [ "$status" -eq 1 ] || fail "$what ends with exit code $status"
  expect_text "$message"
}

ball s/one.pov
good "a plain run"
good "a verbose run" --set ExtraArguments=+V
good "a quiet run" --set ExtraArguments=-V
good "a silent run" --set "ExtraArguments=-V -GA"
good "a run without statistics" --set "ExtraArguments=+V -GS"

ball s/one.pov '#warning "Fatal error: 0 errors, artist text only"' '#warning "Parse Error: none"' \
  '#debug "0 errors, render failed 0 times\n"' '#declare Old = color rgb 1;'
good "a scene that warns"
sed -i -e 1,2d s/one.pov
good "a scene of an old version"

bad "an unknown option" "Failed to parse command-line option" --set ExtraArguments=--frobnicate
ball s/one.pov '#debug "POV-Ray finished\n"' 'sphere { oops'
bad "a broken scene that prints the success text" "Error line: "
expect_said "line 7: Parse Error:"
ball s/one.pov
bad "an output elsewhere" "one.png" --set ExtraArguments=+Oelsewhere.png

# No room for the image: what is written beyond 2 KiB fails as on a full disk.
cat >full.sh <<'SCRIPT'
#!/bin/sh
trap '' XFSZ
ulimit -f 4
exec povray "$@"
SCRIPT
chmod +x full.sh
ball s/one.pov
bad "a run without room" "Cannot access data in file." --set "Executable=$tree/full.sh" \
  --set "ExtraArguments=+W640 +H480"
[ ! -s s/images/one.png ] || fail "a run without room left an image"

# Killed midway: by then the renderer has begun its image.
cat >killed.sh <<'SCRIPT'
#!/bin/sh
povray "$@" &
until ls ./*.pov-state >/dev/null 2>&1; do
  kill -0 $! || exit 0
done
kill -KILL $!
wait
kill -KILL $$
SCRIPT
chmod +x killed.sh
ball s/one.pov
bad "a killed run" "signal 9" --set "Executable=$tree/killed.sh" --set "ExtraArguments=+W8000 +H8000 +A0.0 +R9"
[ ! -e s/images/one.png ] || fail "a killed run left an image"

render s/one.pov --set Executable=/nosuch/povray
expect_status 2
expect_text 'there is no program "/nosuch/povray"'
