# The demo sequence gives the same images and the same verdicts on a cluster of
# three nodes as on this machine: with works that fail, several works a task,
# packets, and a scene that is gone when its work starts.
. "$(dirname "$0")/lib.sh"
DEMO=$5
TROVIK_MODULE_PATH=$4
export TROVIK_MODULE_PATH
start_cluster

mkdir set
cp "$DEMO"/scene_*.pov "$DEMO"/orrery.inc set
echo '#error "the artist stops here"' >>set/scene_0007.pov
echo '#include "nosuch.inc"' >>set/scene_0023.pov
# All other formats of POV-Ray hold the time of the rendering.
small="--set Width=64 --set Height=36 --set OutputFormat=BMP"

# Without times and what says where something ran, and without the lines around
# the deciding one: the threads of POV-Ray print in no fixed order. Of what a
# program has used, that it is known.
verdict() { # STATE WORD...
  state=$1
  shift
  mv "$TMP/images-${state##*/}" "$TMP/images" # where the job knows them
  "$TROVIK" "$@" --state "$state" --json </dev/null | jq -S '
    walk(if type == "object"
         then del(.submitted, .started, .ended, .seconds, .log, .logs, .bytes, .engine, .cluster, .lines, .last)
         else . end)
    | if .files then .files |= sort_by(.frame, .file) else . end
    | walk(if type == "object" and .usage then .usage |= keys else . end)
    | walk(if type == "object" and (.memory | type) == "object" then .memory |= map_values(type) else . end)
    | if .attempts then .attempts |= sort_by(.frames, .attempt) else . end'
  mv "$TMP/images" "$TMP/images-${state##*/}"
}

alike() { # FRAME...
  diff -r "$TMP/images-local" "$TMP/images-slurm" >&2 || fail "the images differ"
  for words in "show last" "images last" "log last"; do
    verdict "$TMP/local" $words >"$TMP/verdict-local" || fail "trovik $words fails"
    verdict "$TMP/slurm" $words >"$TMP/verdict-slurm" || fail "trovik $words fails"
    diff -u "$TMP/verdict-local" "$TMP/verdict-slurm" >&2 || fail "trovik $words differs (- local, + cluster)"
    [ -s "$TMP/verdict-local" ] || fail "trovik $words says nothing"
  done
  for frame in "$@"; do
    verdict "$TMP/local" log last "$frame" >"$TMP/verdict-local"
    verdict "$TMP/slurm" log last "$frame" >"$TMP/verdict-slurm"
    diff -u "$TMP/verdict-local" "$TMP/verdict-slurm" >&2 || fail "frame $frame differs (- local, + cluster)"
    [ "$(jq '.attempts | length' "$TMP/verdict-local")" -gt 0 ] || fail "frame $frame has no attempts"
  done
}

# Both write to the same folder, one after the other, so that all names agree.
render() { # CODE WORD...
  code=$1
  shift
  for where in local slurm; do
    rm -rf "$TMP/images-$where"
    run "$code" run "$@" --out "$TMP/images" --engine "$where" --state "$TMP/$where"
    mv "$TMP/images" "$TMP/images-$where"
  done
}

nodes_used() {
  timeout 20 squeue -h -r -t all -O NodeList:20 | sed 's/ *$//' | sort -u | grep -c n
}

render 1 povray set/scene_0012.pov $small --set WorksPerTask=2
alike 1 7 23 36
[ "$(ls "$TMP/images-slurm" | wc -l)" = 34 ] || fail "there are not 34 images"
[ "$(field '.frames.failed' show last --state "$TMP/slurm")" = 7,23 ] || fail "frames 7 and 23 have not failed"
[ "$(nodes_used)" = 3 ] || fail "not all nodes had tasks"
[ "$(field '[.attempts[].usage.memory > 0] | all' log last --state "$TMP/slurm")" = true ] ||
  fail "what programs have used on nodes is not known"
[ "$(timeout 20 squeue -h -r -t all | wc -l)" = 18 ] || fail "36 works did not take 18 tasks"

# A packet fails at its second frame, again and again.
cat >ball.pov <<'END'
#version 3.7;
global_settings { assumed_gamma 1 }
camera { location <0, 2, -5> look_at 0 }
light_source { <4, 6, -6> rgb 1 }
sphere { x * clock, 1 pigment { rgb 1 } }
#if (frame_number = 7) #error "frame seven" #end
END
render 1 povray-animation ball.pov $small --set FinalFrame=12 --set PacketSize=5 --set Retries=1 --range 1-12
alike 1 6 7 12
[ "$(field '.frames.failed' show last --state "$TMP/slurm")" != "" ] || fail "no frame has failed"

# A scene that goes away after the job was submitted.
for where in local slurm; do
  cp "$DEMO"/scene_0029.pov set
  scontrol update NodeName=ALL State=DRAIN Reason=test
  run 0 submit povray set/scene_0012.pov $small --range 27-31 --out "$TMP/images" --engine "$where" --state "$TMP/$where"
  rm set/scene_0029.pov
  scontrol update NodeName=ALL State=RESUME
  if [ "$where" = local ]; then
    run 0 engine --until-empty --state "$TMP/$where"
  else
    run 1 watch last --state "$TMP/$where"
  fi
  rm -rf "$TMP/images-$where"
  mv "$TMP/images" "$TMP/images-$where"
done
alike 27 29
[ "$(field '.frames.failed' show last --state "$TMP/slurm")" = 29 ] || fail "frame 29 alone has not failed"

# The demo's shot: its frames on nodes, and then a movie of them, where the
# programs of all types are installed.
if [ "${6-}" = shot ]; then
  mkdir shot
  cp "$DEMO"/scene_*.pov "$DEMO"/orrery.inc shot
  sed 's/^Scene=scene_0001.pov/&\nRange=1-9\nWidth=64\nHeight=36/' "$DEMO/shot.ini" >shot/shot.ini
  grep -q '^Width=64' shot/shot.ini || fail "the demo's shot has changed"
  run 0 submit shot/shot.ini --engine slurm --state "$TMP/shot"
  out_has "waits  job 1 is"
  run 0 engine --until-empty --state "$TMP/shot"
  [ "$(field '[.jobs[].state] | join(" ")' jobs --state "$TMP/shot")" = "good good" ] || fail "the shot is not good"
  [ "$(ls out/shot/images | wc -l)" = 9 ] || fail "there are not 9 frames"
  [ -s out/shot/movie/scene.mp4 ] || fail "there is no movie"
fi

eventually nothing_runs
