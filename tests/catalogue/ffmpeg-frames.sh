# shellcheck shell=bash
# The proof of the type ffmpeg frames; see lib.sh.

clip() { # FILE PICTURES [SIZE] [OPTION]...
  local file=$1 pictures=$2 size=${3:-64x48}
  shift $(($# < 3 ? $# : 3))
  mkdir -p "$(dirname "$file")"
  ffmpeg -nostdin -v error -f lavfi -i "testsrc=size=$size:rate=25" -frames:v "$pictures" -pix_fmt yuv420p "$@" "$file"
}

case_good() {
  clip clip.mp4 6
  render ffmpeg-frames clip.mp4 --range 2-5 --packet 2
  good 2-5
  folder_has frames clip_0002.png clip_0003.png clip_0004.png clip_0005.png
  png_is frames/clip_0002.png 64 48
}

case_the_frames_are_the_right_ones() {
  clip clip.mkv 6 64x48 -c:v ffv1
  render ffmpeg-frames clip.mkv
  good
  folder_has frames clip_000{1,2,3,4,5,6}.png
  render ffmpeg-frames clip.mkv --range 4-5 --out part
  good 4-5
  folder_has part clip_0004.png clip_0005.png
  cmp part/clip_0004.png frames/clip_0004.png
  cmp part/clip_0005.png frames/clip_0005.png
}

case_frames_behind_the_end() {
  clip clip.mp4 6
  render ffmpeg-frames clip.mp4 --range 5-9
  bad files "Missing file: *frames/clip_0007.png"
  render ffmpeg-frames clip.mp4 --range 7-9
  bad "error line" "Error line: frame=    0 *"
}

case_missing_scene() {
  clip clip.mp4 2
  render_without ffmpeg-frames clip.mp4
  bad result "Exit code 1; last line: *clip.mp4: No such file or directory"
}

case_broken_scene() {
  echo 'no movie' >clip.mp4
  render ffmpeg-frames clip.mp4
  bad "error line" "Error line: *moov atom not found"
}

case_scene_cut_short() {
  clip clip.mp4 50 320x240 -movflags +faststart
  truncate -s -3000 clip.mp4
  render ffmpeg-frames clip.mp4
  bad "error line" "Error line: *clip.mp4: corrupt input packet in stream 0"
}

case_full_disk() {
  clip clip.mp4 2
  full out
  render ffmpeg-frames clip.mp4 --out out
  bad "error line" "Error line: *No space left on device*"
}

case_killed_midway() {
  clip clip.mp4 100 640x480
  render_killed ffmpeg-frames clip.mp4 --range 1-100 --set ExtraArguments="-compression_level 9 -pred mixed"
  bad signal "*signal 9*"
}

case_name_with_blanks() {
  clip "my clips/it's 100% %d; \$(x).mp4" 2
  render ffmpeg-frames "my clips/it's 100% %d; \$(x).mp4" --range 1-2 --out "my %02d frames"
  good 1-2
  folder_has "my %02d frames" "it's 100% %d; \$(x)_0001.png" "it's 100% %d; \$(x)_0002.png"
}

case_every_verbosity() {
  clip clip.mp4 3
  local level
  for level in error warning info verbose debug; do
    render ffmpeg-frames clip.mp4 --range 1-3 --set LogLevel="$level"
    good 1-3
    images_are "$PWD"/frames/clip_000{1,2,3}.png
  done
}

case_usual_options() {
  clip clip.mp4 2
  local kind
  for kind in png jpg tif bmp tga ppm exr dpx; do
    render ffmpeg-frames clip.mp4 --range 1-2 --set Format="$kind" --set Width=32
    good 1-2
  done
  render ffmpeg-frames clip.mp4 --range 1-2 --set PixelFormat=rgb48be --set Filters=hflip
  good 1-2
  render ffmpeg-frames clip.mp4 --range 1-2 --set Format=jpg --set JpegQuality=2
  good 1-2
}
