# shellcheck shell=bash
# The proof of the type ffmpeg; see lib.sh.

frames() { # FOLDER/NAME COUNT [SIZE]
  mkdir -p "$(dirname "$1")"
  ffmpeg -nostdin -v error -f lavfi -i "testsrc=size=${3:-64x48}:rate=25" -frames:v "$2" "${1//%/%%}_%04d.png"
}

# Pictures, width, height and rate of a movie.
movie_is() { # FILE PICTURES WIDTH HEIGHT RATE
  local found
  found=$(ffprobe -v error -count_frames -select_streams v:0 \
    -show_entries stream=nb_read_frames,width,height,r_frame_rate -of csv=p=0 "$1")
  [ "$found" = "$3,$4,$5,$2" ] || fail "$1 is $found, not $3,$4,$5,$2"
}

case_good() {
  frames s/shot 7
  render ffmpeg s/shot_0003.png --out movies
  good 1-7
  folder_has movies shot.mp4
  movie_is movies/shot.mp4 7 64 48 25/1
  images_are "$PWD/movies/shot.mp4"
}

case_part_of_a_sequence() {
  frames s/shot 7
  render ffmpeg s/shot_0003.png --range 3-5 --out movies --set FrameRate=24 --set Movie=part
  good 3-5
  movie_is movies/part.mp4 3 64 48 24/1
}

case_many_digits_and_the_name_of_the_job() {
  frames s/shot 3
  local number digits
  for digits in 10 19; do
    for number in 1 2 3; do
      cp "s/shot_000$number.png" "s/50%_$(printf "%0${digits}d" "$number").png"
    done
    render ffmpeg "s/50%_$(printf "%0${digits}d" 2).png" --out movies --set Name=cut/$digits
    good 1-3
    movie_is "movies/cut_$digits.mp4" 3 64 48 25/1
  done
}

case_frames_with_a_gap_are_no_movie() {
  frames s/shot 7
  render ffmpeg s/shot_0001.png --range 1-3,5-7
  [ "$status" -eq 2 ] || fail "the exit code is $status"
  grep -q 'the works for frames 1-3 and 5-7 would both write' .errors ../.errors 2>/dev/null || fail "not told"
}

# ffmpeg itself ends such a movie before the gap, with exit code 0.
case_missing_scene() {
  frames s/shot 7
  call_trovik submit --json ffmpeg s/shot_0001.png
  rm s/shot_0005.png
  call_trovik engine --job last --until-empty --json
  bad start "No scene file for frame 5: $PWD/s/shot_0005.png"
}

case_missing_movie() {
  frames shot 3
  render ffmpeg shot_0001.png --out .
  good
  render_without ffmpeg shot.mp4 --out again
  bad result "Exit code 1; last line: *shot.mp4: No such file or directory"
}

case_broken_scene() {
  frames s/shot 7
  echo 'no image' >s/shot_0005.png
  render ffmpeg s/shot_0001.png
  bad "error line" "Error line: Error while decoding stream #0:0: *"
}

case_full_disk() {
  frames s/shot 3
  full out
  render ffmpeg s/shot_0001.png --out out
  bad "error line" "Error line: *No space left on device*"
}

case_full_disk_at_the_end() {
  frames s/shot 7 640x480
  full out 4096
  render ffmpeg s/shot_0001.png --out out --set Codec=ffv1 --set Format=mkv --set PixelFormat=rgb24
  bad "error line" "Error line: *No space left on device*"
}

case_killed_midway() {
  frames s/shot 60 1280x720
  render_killed ffmpeg s/shot_0001.png --set Codec=libx265 --set Preset=veryslow
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  frames "my shot/it's 100%; \$(x) " 3
  render ffmpeg "my shot/it's 100%; \$(x) _0002.png" --out "my movies"
  good 1-3
  movie_is "my movies/it's 100%; \$(x) .mp4" 3 64 48 25/1
}

case_every_verbosity() {
  frames s/shot 3
  local level
  for level in error warning info verbose debug; do
    render ffmpeg s/shot_0001.png --set LogLevel="$level"
    good 1-3
    images_are "$PWD/s/movie/shot.mp4"
  done
}

case_odd_sizes_become_even() {
  frames s/shot 2 65x49
  render ffmpeg s/shot_0001.png
  good
  movie_is s/movie/shot.mp4 2 64 48 25/1
  render ffmpeg s/shot_0001.png --set Width=32
  good
  movie_is s/movie/shot.mp4 2 32 24 25/1
}

case_codecs_and_formats() {
  frames s/shot 2
  local kind
  for kind in libx265:mkv libvpx-vp9:webm prores_ks:mov ffv1:mkv gif:gif mjpeg:avi mpeg4:mp4; do
    render ffmpeg s/shot_0001.png --set Codec="${kind%:*}" --set Format="${kind#*:}"
    good 1-2
  done
  render ffmpeg s/shot_0001.png --set Format=webm
  bad "error line" "Error line: *"
  said "Only VP8 or VP9 or AV1"
}

case_usual_options() {
  frames s/shot 5
  ffmpeg -nostdin -v error -f lavfi -i sine=duration=9 "a sound.wav"
  render ffmpeg s/shot_0001.png --set Quality=18 --set Preset=ultrafast --set "Sound=a sound.wav" --set Shortest=Yes \
    --set Filters=hflip --set ExtraArguments='-tune film -metadata "title=Conversion failed!"' --set Bt709=No
  good 1-5
  [ "$(ffprobe -v error -show_entries stream=codec_type -of csv=p=0 s/movie/shot.mp4 | paste -sd ' ')" = "video audio" ] ||
    fail "there is no sound"
  render ffmpeg s/shot_0001.png --set BitRate=500k --set Format=mkv
  good
}

case_a_movie_becomes_another() {
  frames s/shot 5
  render ffmpeg s/shot_0001.png --out .
  good
  render ffmpeg shot.mp4 --set Format=mkv --out .
  good
  movie_is shot.mkv 5 64 48 25/1
}

case_wrong_option() {
  frames s/shot 3
  render ffmpeg s/shot_0001.png --set ExtraArguments=-frobnicate
  bad result "Exit code 1; it said: *"
  said "Unrecognized option 'frobnicate'"
}
