# shellcheck shell=bash
# The proof of the type Blender; see lib.sh.

# A cube, a camera and a sun, 64 x 36, one sample; LINES of Python change it.
scene() { # FILE [LINE]...
  local file=$1 text
  shift
  mkdir -p "$(dirname "$file")"
  text=$(printf '%s\n' "$@")
  SCENE_FILE=$PWD/$file SCENE_LINES=$text blender -b --factory-startup --python-exit-code 1 --python-expr '
import bpy, os
bpy.ops.wm.read_factory_settings(use_empty=True)
s = bpy.context.scene
bpy.ops.mesh.primitive_cube_add(rotation=(0.4, 0.3, 0.6))
cube = bpy.context.object
bpy.ops.object.light_add(type="SUN", rotation=(0.6, 0.3, 0))
bpy.ops.object.camera_add(location=(0, -8, 0), rotation=(1.5708, 0, 0))
s.camera = bpy.context.object
s.render.engine = "CYCLES"
s.cycles.samples = 1
s.cycles.use_denoising = False
s.render.resolution_x = 64
s.render.resolution_y = 36
exec(os.environ["SCENE_LINES"])
bpy.ops.wm.save_as_mainfile(filepath=os.environ["SCENE_FILE"])
' >"$tree/.scene-log" 2>&1 || fail "the scene cannot be made: $(cat "$tree/.scene-log")"
}

case_good() {
  scene s/cube.blend
  render blender s/cube.blend --range 1-3 --set PacketSize=2
  good 1-3
  folder_has s/images cube_0001.png cube_0002.png cube_0003.png
  png_is s/images/cube_0003.png 64 36
  images_are "$PWD"/s/images/cube_000{1,2,3}.png
}

case_parameters_reach_blender() {
  scene s/cube.blend 'other = bpy.data.scenes.new("second take"); other.camera = s.camera' \
    'other.collection.objects.link(cube); other.render.engine = "CYCLES"'
  echo 'print("first script", __import__("bpy").context.scene.name)' >'s/a b.py'
  echo 'print("second script")' >s/c.py
  render blender s/cube.blend --range 7 --set Width=80 --set Height=40 --set Samples=2 --set Denoise=No --set Transparent=Yes \
    --set 'SceneName=second take' --set 'Scripts=a b.py;c.py' --set CyclesDevice=CPU --set OwnSettings=No \
    --set 'ExtraArguments=--python-expr "print(\"samples\", __import__(\"bpy\").context.scene.cycles.samples)"'
  good 7
  png_is s/images/cube_0007.png 80 40
  said "first script second take"
  said "second script"
  said "samples 2"
}

case_every_format() {
  local format extension
  scene s/cube.blend
  while IFS=: read -r format extension; do
    render blender s/cube.blend --range 1 --set "Format=$format" --out "out $extension"
    good 1
    folder_has "out $extension" "cube_0001.$extension"
    rm -r "out $extension"
  done <<'FORMATS'
PNG:png
JPEG:jpg
OpenEXR:exr
OpenEXR multilayer:exr
TIFF:tif
TGA:tga
BMP:bmp
HDR:hdr
WebP:webp
JPEG 2000:jp2
DPX:dpx
FORMATS
}

case_workbench_without_a_display() {
  scene s/cube.blend
  render blender s/cube.blend --range 1 --set Engine=Workbench
  good 1
  said "EGL Error"
}

case_verbose_runs_stay_good() {
  scene s/cube.blend
  render blender s/cube.blend --range 1-2 --set 'ExtraArguments=--debug-all --log "*" --log-level 9 --verbose 3'
  good 1-2
}

case_warnings_stay_good() {
  scene s/cube.blend 'cube.driver_add("location", 0).driver.expression = "nosuch(1)"'
  render blender s/cube.blend --range 1 --set RunScripts=Yes
  good 1
  said "Error in PyDriver"
}

# A file of an earlier run is rendered again, also where the scene says not to.
case_existing_frames_are_rendered_again() {
  scene s/cube.blend 's.render.use_overwrite = False'
  mkdir s/images
  : >s/images/cube_0001.png
  render blender s/cube.blend --range 1
  good 1
}

case_skipped_frame() {
  scene s/cube.blend
  mkdir s/images
  : >s/images/cube_0001.png
  render blender s/cube.blend --range 1 \
    --set 'ExtraArguments=--python-expr "import bpy; bpy.context.scene.render.use_overwrite = False"'
  bad "error line" "Error line: skipping existing frame*cube_0001.png*"
}

case_missing_scene() {
  scene s/cube.blend
  render_without blender s/cube.blend --range 1
  bad "error line" "Error line: Error: Cannot read file '*s/cube.blend': No such file or directory"
}

case_broken_scene() {
  scene s/cube.blend
  truncate -s 30000 s/cube.blend
  render blender s/cube.blend --range 1
  bad "error line" "Error line: Error: Failed to read blend file '*s/cube.blend'*"
  echo "no scene" >s/cube.blend
  render blender s/cube.blend --range 1
  bad "error line" "Error line: Error: File format is not supported in file '*s/cube.blend'"
}

case_scene_without_camera() {
  scene s/cube.blend 's.camera = None' 'bpy.data.cameras.remove(bpy.data.cameras[0])'
  render blender s/cube.blend --range 1-2
  bad "error line" "Error line: Error: Cannot render, no camera"
}

case_unknown_scene_name() {
  scene s/cube.blend
  render blender s/cube.blend --range 1 --set SceneName=nosuch
  bad "error line" "Error line: Can't find scene: 'nosuch'*"
}

# Debian's Blender has no denoiser.
case_missing_denoiser() {
  scene s/cube.blend 's.cycles.use_denoising = True'
  render blender s/cube.blend --range 1
  bad "error line" "Error line: Build without OpenImageDenoiser"
  render blender s/cube.blend --range 1 --set Denoise=No
  good 1
}

case_failing_script() {
  scene s/cube.blend
  echo 'raise RuntimeError("artist script failed")' >s/a.py
  render blender s/cube.blend --range 1 --set Scripts=a.py
  bad "error line" "Error line: Error: Python: Traceback*"
  said "artist script failed"
}

case_missing_library() {
  scene s/cube.blend
  scene s/shot.blend 'bpy.ops.wm.link(filename="Cube", directory=os.path.dirname(os.environ["SCENE_FILE"]) + "/cube.blend/Object/")'
  render blender s/shot.blend --range 1
  good 1
  rm s/cube.blend
  render blender s/shot.blend --range 1
  bad "error line" "Error line: Info: Cannot find lib '*s/cube.blend'"
}

case_full_disk() {
  scene s/cube.blend
  full out
  render blender s/cube.blend --range 1 --out out --set Percentage=400
  bad "error line" "Error line: Error: Render error (No space left on device) cannot save: '*out/cube_0001.png'"
  # A small image is only lost when the file is closed, and nobody looks.
  render blender s/cube.blend --range 1 --out out
  bad files "Empty file: *out/cube_0001.png"
  # Blender calls this one a good run.
  render blender s/cube.blend --range 1 --out out --set Format=OpenEXR
  bad "error line" "Error line: OpenEXR-writePixels: ERROR: *No space left on device*"
  said "Saved: '$PWD/out/cube_0001.exr'"
  # And says nothing at all here: the empty file tells.
  render blender s/cube.blend --range 1 --out out --set Format=WebP
  bad files "*cube_0001.webp*"
}

case_killed_midway() {
  scene s/cube.blend
  render_killed blender s/cube.blend --range 1 --set Samples=100000
  bad signal "*signal 9*"
}

case_odd_names() {
  scene "my shot/it's #1; \$(x) & \"a\".blend"
  render blender "my shot/it's #1; \$(x) & \"a\".blend" --range 1 --out "my images"
  good 1
  folder_has "my images" "it's _1; \$(x) & \"a\"_0001.png"
}
