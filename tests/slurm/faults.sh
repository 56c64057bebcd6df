#!/usr/bin/env bash
# Daemons of nodes, whole nodes, step daemons, tasks, programs, the controller
# and the submitting program are killed, stopped or started anew at random
# moments, and tasks are requeued. In the end every frame is good and whole;
# none was called good before it was, none that was good was touched again, no
# frame was rendered more often than the faults explain, and nothing is left. A
# second job takes the first frames as they become good, and none before.
#
#   TROVIK_FAULTS       how many (25)
#   TROVIK_FAULTS_SEED  repeats a run, as far as the machine's timing allows
#   TROVIK_FAULTS_APART 1 or 0: whether tasks see each other's processes; else by chance
set -euo pipefail

tests=$(cd "$(dirname "$0")" && pwd)
trovik=$1
module=$2
most=${TROVIK_FAULTS:-25}
seed=${TROVIK_FAULTS_SEED:-$RANDOM}
RANDOM=$seed
echo "seed $seed"

unset TROVIK_IMAGE_HELPER TROVIK_SETTINGS TROVIK_OPTIONS
tree=$(mktemp -d /tmp/trovik-faults-XXXXXX)
export LC_ALL=C.UTF-8 HOME=$tree/home TROVIK_STATE=$tree/state TROVIK_SHARED=$tree/shared
export XDG_CONFIG_HOME=$HOME/config XDG_DATA_HOME=$HOME/data XDG_STATE_HOME=$HOME/state XDG_CACHE_HOME=$HOME/cache
export TROVIK_MODULE_PATH=$tree/modules
mkdir -p "$XDG_CONFIG_HOME/trovik" "$tree/modules" "$tree/images" "$tree/copies"
printf '[Slurm]\nPatience=4\n' >"$XDG_CONFIG_HOME/trovik/settings.ini"
ln -s "$module" "$tree/modules/Tessivar.so"
cat >"$tree/modules/copies.tvx" <<END
[Module]
ID=0f1a2f8c-95a3-4a5e-8d5b-7d7f2ad2c0ab
Name=Copies
Command=\$(After.OutputFolder.Enquote) \$(SubRange.Start) \$(SubRange.End) \$(OutputFolder.Enquote) $tree/early
ImageStartText=saved:
CheckForMultipleFiles=No
[OverrideDefaults]
Executable=$tree/copier
END
cat >"$tree/copier" <<'END'
#!/bin/sh
for frame in $(seq "$2" "$3"); do
  [ "$(stat -c %s "$1/f_$frame.ppm")" = 781 ] || echo "$frame" >>"$5"
  cp "$1/f_$frame.ppm" "$4/c_$frame.ppm" || exit 1
  echo "saved: $4/c_$frame.ppm"
done
END
chmod +x "$tree/copier"
cat >"$tree/modules/faults.tvx" <<END
[Module]
ID=0f1a2f8c-95a3-4a5e-8d5b-7d7f2ad2c0aa
Name=Faults
Command=\$(SubRange.Start) \$(SubRange.End) \$(OutputFolder.Enquote) $tree/begun
ImageStartText=saved:
CheckForMultipleFiles=No
[ErrorText]
1=fatal:
[OverrideDefaults]
Executable=$tree/renderer
END
# Takes about a second a frame, and knows nothing of others at the same frame.
cat >"$tree/renderer" <<'END'
#!/bin/sh
half=$(printf 'x%.0s' $(seq 384))
for frame in $(seq "$1" "$2"); do
  echo "begin $frame" >>"$4"
  {
    printf 'P6\n16 16\n255\n%s' "$half"
    sleep 1
    printf '%s' "$half"
  } >"$3/f_$frame.ppm" || exit 1
  echo "saved: $3/f_$frame.ppm"
done
END
chmod +x "$tree/renderer"

cluster() {
  local verb=$1
  shift
  "$tests/cluster.sh" "$verb" "$tree/cluster" "$@"
}

watcher=
finish() {
  local code=$?
  trap - EXIT
  [ -z "$watcher" ] || kill -KILL "$watcher" 2>/dev/null || true
  if [ "$code" != 0 ]; then
    {
      printf -- '--- the faults, seed %s\n' "$seed"
      cat "$tree/faults"
      echo "--- what the program said"
      tail -n 30 "$tree/watch"
      timeout 20 "$trovik" show 1 </dev/null
      timeout 20 "$trovik" show 2 </dev/null
      echo "--- what Slurm knows"
      timeout 20 squeue -r -t all -O 'JobArrayID:12,Name:40,State:12,Reason:24,RestartCnt:8,NodeList:8' | tail -n 40
      echo "--- what tasks printed"
      find "$tree/shared" -name 'task-*.log' -size +0 -exec tail -n 3 {} + | tail -n 60
    } 2>&1 || true
  fi
  if [ -n "${TROVIK_FAULTS_KEEP:-}" ]; then
    echo "everything is in $tree"
    cluster down
  else
    cluster down || code=1
    rm -rf "$tree"
  fi
  exit "$code"
}
trap finish EXIT
trap 'exit 1' INT TERM HUP

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# Tasks that see each other's processes end what a dead one left. Those of
# nodes that are machines of their own cannot, and then a frozen one wakes up
# beside its successor: half of the runs give each task process numbers of its
# own, where the system lets us.
apart=$((RANDOM % 2))
if [ "${TROVIK_FAULTS_APART:-$apart}" = 1 ] && unshare --pid --fork --mount-proc true 2>/dev/null; then
  printf '#!/bin/sh\nexec unshare --pid --fork --mount-proc --kill-child "%s" "$@"\n' "$trovik" >"$tree/apart"
  chmod +x "$tree/apart"
  echo "Program=$tree/apart" >>"$XDG_CONFIG_HOME/trovik/settings.ini"
  echo "with tasks apart"
fi

frames=240
: >"$tree/faults"
: >"$tree/watch"
CLUSTER_OWNER=$$ CLUSTER_TIMEOUT=5 CLUSTER_KILL_WAIT=2 cluster up >"$tree/up" || fail "no cluster"
# shellcheck disable=SC1091
source "$tree/up"
copies=24
cat >"$tree/shot.ini" <<END
[frames]
Type=Faults
Engine=slurm
Range=1-$frames
PacketSize=2
Out=$tree/images
WorksPerTask=2
Retries=100
StopAfter=0
[copies]
Type=Copies
AfterFrames=frames
Engine=slurm
Range=1-$copies
PacketSize=4
Out=$tree/copies
Retries=100
StopAfter=0
END
"$trovik" submit "$tree/shot.ini" >"$tree/submitted" 2>&1 </dev/null || fail "$(cat "$tree/submitted")"

job=1
watch_job() {
  "$trovik" watch "$job" >>"$tree/watch" 2>&1 </dev/null &
  watcher=$!
}

# What was called good once: its file's place, size and times, as they must stay.
declare -A kept
check_good() {
  local range frame first last file stamp now
  now=$(timeout 60 "$trovik" show 1 --json 2>>"$tree/watch" </dev/null | jq -r .frames.good) || return 0
  declare -A good=()
  for range in ${now//,/ }; do
    first=${range%-*} last=${range#*-}
    for ((frame = first; frame <= last; ++frame)); do
      good[$frame]=1
      file=$tree/images/f_$frame.ppm
      stamp=$(stat -c '%i %s %Y %Z' "$file") || fail "frame $frame is called good and has no file"
      [ "$(stat -c %s "$file")" = 781 ] || fail "frame $frame is called good and is not whole"
      [ "${kept[$frame]:=$stamp}" = "$stamp" ] || fail "frame $frame was good and was written again"
    done
  done
  for frame in "${!kept[@]}"; do
    [ -n "${good[$frame]:-}" ] || fail "frame $frame was good and is not any more"
  done
}

state() { timeout 60 "$trovik" show "$job" --json 2>/dev/null </dev/null | jq -r .state; }

# What a user does when "show" says that a task is stuck: Slurm holds tasks that
# it could not start on a node that had just died.
release_held() {
  timeout 20 squeue --noheader --array --states=PENDING --format='%i %r' 2>/dev/null |
    sed -n 's/^\([0-9_]*\) .*[Hh]eld.*/\1/p' |
    while read -r task; do
      timeout 20 scontrol release "$task" || true
    done
}

# What the site's administrator does: a controller that dies before it has saved
# what it started does so again, which the nodes refuse ("Duplicate jobid"), and
# then it drains them.
resume_drained() {
  local node
  for node in $(timeout 20 sinfo --noheader --Node --format='%N %E' 2>/dev/null | sed -n 's/ Duplicate jobid$//p'); do
    timeout 20 scontrol update NodeName="$node" State=RESUME || true
  done
}

# What a site's users see pass in two minutes is not waited for.
no_waiting() {
  local task
  for task in $(timeout 20 squeue -h -r -t PD -O 'JobArrayID:20,Reason:30' 2>/dev/null | awk '$2 == "BeginTime" { print $1 }'); do
    timeout 20 scontrol update JobId="$task" StartTime=now >/dev/null 2>&1 || true
  done
}

# Sets $chosen: a subshell would have chances of its own.
choose() { # WORD...
  chosen=
  local number=$((RANDOM % ($# > 0 ? $# : 1) + 1))
  [ $# = 0 ] || chosen=${!number}
}

some_time() { sleep "$((RANDOM % 2)).$((RANDOM % 10))"; }

# Each leaves the cluster as a site's watchdogs would: what was killed is back.
fault() {
  local node=$((RANDOM % 3 + 1)) kind round
  choose daemon machine steps task task task watcher watcher requeue freeze controller restart
  kind=$chosen
  echo "$(date +%T) $kind n$node" >>"$tree/faults"
  case $kind in
  daemon)
    cluster kill node "$node"
    some_time
    cluster start node "$node"
    ;;
  machine)
    cluster kill machine "$node"
    some_time
    cluster start node "$node"
    ;;
  steps) cluster kill steps "$node" ;;
  task)
    # One of its processes: trovik, what guards it, the renderer or its child.
    # shellcheck disable=SC2046
    choose $(cluster pids tasks "$node")
    [ -z "$chosen" ] || kill -KILL "$chosen" 2>/dev/null || true
    ;;
  watcher)
    kill -KILL "$watcher" 2>/dev/null || true
    wait "$watcher" 2>/dev/null || true
    some_time
    watch_job
    ;;
  requeue)
    # shellcheck disable=SC2046
    choose $(timeout 20 squeue -h -r -t R -o %i 2>/dev/null)
    [ -z "$chosen" ] || timeout 20 scontrol requeue "$chosen" >/dev/null 2>&1 || true
    ;;
  # Long enough to count as dead: its successors are at work when it wakes up.
  freeze)
    cluster freeze machine "$node"
    for ((round = 0; round < 22; ++round)); do
      sleep 1
      no_waiting
    done
    check_good
    cluster thaw machine "$node"
    ;;
  controller)
    cluster freeze controller
    some_time
    cluster thaw controller
    ;;
  restart)
    cluster kill controller
    some_time
    cluster start controller || fail "the controller does not start again"
    ;;
  esac
}

watch_job
done_faults=0
started=$SECONDS
while [ "$done_faults" -lt "$most" ] && [ "$(state)" != good ]; do
  some_time
  fault
  done_faults=$((done_faults + 1))
  check_good
  resume_drained
  no_waiting
done
echo "$done_faults faults in $((SECONDS - started)) s: $(cut -d" " -f2- "$tree/faults" | paste -sd,)"
for node in 1 2 3; do
  [ -n "$(cluster pids node "$node")" ] || cluster start node "$node" || true
done

await_good() { # SECONDS
  started=$SECONDS
  until [ "$(state)" = good ]; do
    [ $((SECONDS - started)) -lt "$1" ] || fail "job $job does not end"
    release_held
    resume_drained
    kill -0 "$watcher" 2>/dev/null || watch_job
    no_waiting
    check_good
    sleep 1
  done
  echo "job $job good after $((SECONDS - started)) s more"
}

await_good 900
check_good
wait "$watcher" || fail "the program that watches ends with $?"
job=2
watch_job
await_good 300
[ ! -e "$tree/early" ] || fail "these frames were copied before they were whole: $(tr '\n' ' ' <"$tree/early")"
for ((frame = 1; frame <= copies; ++frame)); do
  cmp -s "$tree/images/f_$frame.ppm" "$tree/copies/c_$frame.ppm" || fail "the copy of frame $frame is not right"
done
[ "$(find "$tree/copies" -mindepth 1 | wc -l)" = "$copies" ] ||
  fail "besides the copies there is: $(find "$tree/copies" -mindepth 1 ! -name 'c_*.ppm' | head)"
[ "${#kept[@]}" = "$frames" ] || fail "${#kept[@]} frames are good, not $frames"
wait "$watcher" || fail "the program that watches ends with $?"
watcher=

# Nothing runs any more, neither by Slurm's word nor by that of the machine.
for ((round = 0; round < 300; ++round)); do
  [ -n "$(cluster pids tasks)" ] || break
  sleep 0.2
done
[ -z "$(cluster pids tasks)" ] || fail "these processes are left: $(cluster pids tasks | xargs ps -o pid,args -p)"
check_good

half=$(printf 'x%.0s' $(seq 768))
for ((frame = 1; frame <= frames; ++frame)); do
  printf 'P6\n16 16\n255\n%s' "$half" | cmp -s - "$tree/images/f_$frame.ppm" || fail "frame $frame is not right"
done
[ "$(find "$tree/images" -mindepth 1 | wc -l)" = "$frames" ] ||
  fail "besides the frames there is: $(find "$tree/images" -mindepth 1 ! -name 'f_*.ppm' | head)"

# A fault takes at most the six works that run at a time, of two frames each.
begun=$(grep -c '^begin ' "$tree/begun")
[ "$begun" -le $((frames + 12 * done_faults)) ] || fail "$begun frames were begun"
worst=$(sed -n 's/^begin //p' "$tree/begun" | sort | uniq -c | sort -n | awk 'END { print $1 }')
[ "$worst" -le $((1 + done_faults)) ] || fail "a frame was begun $worst times"
echo "$frames frames, $begun begun, one of them $worst times"
