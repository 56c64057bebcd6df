#!/usr/bin/env bash
# A private Slurm cluster of several virtual nodes on this machine, for tests
# and for trying things out. Every file of it is below one directory; nothing
# of the system's own configuration is read or changed. Works for root and for
# any user that the system knows by name.
#
#   cluster.sh up DIR               starts it, and prints what to put into the environment
#   cluster.sh down DIR             ends it with all that runs on it; DIR stays
#   cluster.sh pids DIR WHAT [N]    the processes of it
#   cluster.sh kill DIR WHAT [N]    ends them at once (SIGKILL)
#   cluster.sh freeze DIR WHAT [N]  stops them; cluster.sh thaw lets them go on
#   cluster.sh start DIR controller | node N    starts a daemon again
#
# WHAT: controller   the controller's daemon; commands hang while it is frozen
#       node         the daemon of node N; its tasks go on without it
#       steps        what watches the tasks (slurmstepd) of node N
#       tasks        the processes of the tasks of node N
#       machine      all three of node N, as if it lost power or its network
# Without N: of all nodes. Nodes are named n1, n2, …; N is their number.
#
# The environment of "up":
#   CLUSTER_OWNER     a process; when it is gone, however it ended, the cluster ends
#   CLUSTER_NODES     3          CLUSTER_CPUS       2, of each node
#   CLUSTER_MEMORY    1000, MiB  CLUSTER_TIMEOUT    10, seconds until a silent node counts as down
#   CLUSTER_KILL_WAIT 5, seconds from TERM to KILL
#   CLUSTER_ARRAY     10001, the largest array and one more
#   CLUSTER_JOBS      20000, tasks that the controller keeps
#   CLUSTER_PORT      the first port to try; else one by chance from 20000 to 29984
#
# Needs: scripts/install-packages.sh slurm
set -euo pipefail
export PATH=$PATH:/usr/sbin:/sbin LC_ALL=C.UTF-8

fail() {
  printf 'cluster.sh: %s\n' "$*" >&2
  exit 1
}

usage() {
  sed -n '/^#   cluster.sh up/,/^# Without N/s/^# \{0,1\}//p' "$0" >&2
  exit 2
}

# Processes that carry the cluster's configuration in their environment and are
# Slurm's own or a task's; not those that only talk to the cluster.
pids_of() { # daemon NAME [NODE] | steps [NODE] | tasks [NODE] | all
  local what=$1 found pid exe words
  shift
  found=$(grep -s -l -z -x -F -e "SLURM_CONF=$conf" /proc/[0-9]*/environ || true)
  for pid in $found; do
    pid=${pid#/proc/}
    pid=${pid%/environ}
    exe=$(readlink "/proc/$pid/exe" 2>/dev/null) || continue
    exe=${exe##*/}
    exe=${exe%-wlm}
    case $what,$exe in
    daemon,"${1:-}")
      [ $# = 1 ] || grep -s -q -z -x -F -e "$2" "/proc/$pid/cmdline" || continue
      echo "$pid"
      ;;
    steps,slurmstepd)
      if [ $# = 1 ]; then
        # "slurmstepd: [7.batch]"; the node knows its steps by their sockets.
        words=$(tr -d '\0' <"/proc/$pid/cmdline" 2>/dev/null) || continue
        words=${words#*[}
        compgen -G "$dir/spool/$1/$1_${words%%.*}.*" >/dev/null || continue
      fi
      echo "$pid"
      ;;
    all,slurmctld | all,slurmd | all,slurmstepd | all,munged) echo "$pid" ;;
    tasks,slurm* | tasks,munged) ;;
    tasks,* | all,*)
      grep -s -q -z -e '^SLURM_JOB_ID=' "/proc/$pid/environ" || continue
      [ $# = 0 ] || grep -s -q -z -x -F -e "SLURMD_NODENAME=$1" "/proc/$pid/environ" || continue
      echo "$pid"
      ;;
    esac
  done
}

select_pids() { # WHAT [N]
  local node=()
  [ -z "${2:-}" ] || node=("n${2#n}")
  case $1 in
  controller) pids_of daemon slurmctld ;;
  node) pids_of daemon slurmd "${node[@]}" ;;
  steps | tasks) pids_of "$1" "${node[@]}" ;;
  # The daemon first, so that it cannot tell of the others' end.
  machine)
    pids_of daemon slurmd "${node[@]}"
    pids_of steps "${node[@]}"
    pids_of tasks "${node[@]}"
    ;;
  *) usage ;;
  esac
}

send() { # SIGNAL WHAT [N]
  local pid
  for pid in $(select_pids "$2" "${3:-}"); do
    kill "-$1" "$pid" 2>/dev/null || true
  done
}

start_daemon() { # PROGRAM [ARGUMENT]...
  env -i PATH="$PATH" HOME="$dir" TMPDIR=/tmp SLURM_CONF="$conf" "$@" </dev/null >>"$dir/log/start" 2>&1
}

start() { # controller | node N
  case "$1,${2:-}" in
  controller,) start_daemon slurmctld -f "$conf" ;;
  node,?*) start_daemon slurmd -N "n${2#n}" -f "$conf" ;;
  *) usage ;;
  esac
}

# No process of the cluster is left after it: what is just being started is
# seen in the next round.
down() {
  local pids round=0
  rm -f "$dir/watch"
  while pids=$(pids_of all) && [ -n "$pids" ]; do
    # shellcheck disable=SC2086
    kill -KILL $pids 2>/dev/null || true
    round=$((round + 1))
    [ "$round" -lt 200 ] || fail "these processes do not end: ${pids//$'\n'/ }"
    sleep 0.05
  done
}

# Ends the cluster with its owner. A process number may be given to another
# process later; the moment of its start tells them apart.
started() {
  local stat
  read -r stat 2>/dev/null <"/proc/$1/stat" || return 1
  # shellcheck disable=SC2086
  set -- ${stat##*) }
  [ "$1" != Z ] && echo "${20}"
}

watch_owner() { # PROCESS
  local since
  since=$(started "$1" || echo gone)
  while [ -e "$dir/watch" ]; do
    if [ "$(started "$1" || true)" != "$since" ]; then
      down
      return
    fi
    sleep 0.3
  done
}

# The numbers of the ports that are in use, of whatever kind and state.
used_ports() {
  local line
  cat /proc/net/tcp /proc/net/tcp6 2>/dev/null | while read -r _ line _; do
    case $line in
    *:????) echo $((16#${line##*:})) ;;
    esac
  done
}

free_ports() { # FIRST
  local port used
  used=$(used_ports)
  for ((port = $1; port <= $1 + nodes; ++port)); do
    ! grep -q -x "$port" <<<"$used" || return 1
  done
}

write_configuration() { # PORT
  local user node
  user=$(id -un 2>/dev/null) || fail "the user $(id -u) has no name; Slurm takes only users that have one"
  {
    cat <<END
ClusterName=private
SlurmctldHost=localhost(127.0.0.1)
SlurmctldPort=$1
SlurmUser=$user
SlurmdUser=$user
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$dir/munge/socket
# Neither control groups nor systemd are needed.
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
MpiDefault=none
MailProg=/bin/true
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool/%n
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.%n.pid
SlurmctldLogFile=$dir/log/slurmctld
SlurmdLogFile=$dir/log/slurmd.%n
# Virtual nodes may promise more than this machine has.
SlurmdParameters=config_overrides
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
PriorityType=priority/basic
# Quick to react; a site's are 3, 60 and 30.
SchedulerParameters=batch_sched_delay=0,sched_interval=1,bf_interval=1
SlurmctldTimeout=10
SlurmdTimeout=${CLUSTER_TIMEOUT:-10}
KillWait=${CLUSTER_KILL_WAIT:-5}
MinJobAge=300
ReturnToService=2
MaxArraySize=${CLUSTER_ARRAY:-10001}
MaxJobCount=${CLUSTER_JOBS:-20000}
PartitionName=main Nodes=ALL Default=YES MaxTime=INFINITE State=UP OverSubscribe=NO
END
    for ((node = 1; node <= nodes; ++node)); do
      echo "NodeName=n$node NodeHostname=localhost NodeAddr=127.0.0.1 Port=$(($1 + node))" \
        "CPUs=${CLUSTER_CPUS:-2} RealMemory=${CLUSTER_MEMORY:-1000}"
    done
    # The daemons listen on the address of this machine's own name, or on all
    # of them where that is not the loopback one.
    if [[ $(getent ahostsv4 "$(uname -n)" | head -n 1) == 127.* ]]; then
      echo "CommunicationParameters=NoCtldInAddrAny,NoInAddrAny"
    fi
  } >"$conf"
  # Without it the node's daemon ends where no control groups are mounted.
  echo "CgroupPlugin=cgroup/v1" >"$dir/cgroup.conf"
}

# Every daemon is there, and every node is known to be idle.
await() {
  local round expected=$((nodes + 1))
  for ((round = 0; round < 600; ++round)); do
    [ "$( (pids_of daemon slurmctld && pids_of daemon slurmd) | wc -l)" -ge "$expected" ] || return 1
    [ "$(timeout 5 sinfo -h -N -t idle -o %N 2>/dev/null | sort -u | wc -l)" -ne "$nodes" ] || return 0
    sleep 0.1
  done
  return 1
}

up() {
  local program port try node
  for program in munged slurmctld slurmd sbatch squeue scontrol; do
    command -v "$program" >/dev/null || fail "$program is missing: scripts/install-packages.sh slurm"
  done
  nodes=${CLUSTER_NODES:-3}
  [[ $nodes =~ ^([1-9]|1[0-5])$ ]] || fail "CLUSTER_NODES is \"$nodes\"; give 1 to 15"
  ! [ -e "$conf" ] || [ -z "$(pids_of all)" ] || fail "there is a cluster in $dir already; end it with: $0 down $dir"
  umask 022
  mkdir -p "$dir/state" "$dir/log" "$dir/munge"
  chmod 755 "$dir" "$dir/munge" # munge refuses a folder that others may write
  for ((node = 1; node <= nodes; ++node)); do
    mkdir -p "$dir/spool/n$node"
  done
  (umask 077 && head -c 128 /dev/urandom >"$dir/munge/key")

  : >"$dir/watch"
  if [ -n "${CLUSTER_OWNER:-}" ]; then
    setsid "$BASH" "$0" watch "$dir" "$CLUSTER_OWNER" </dev/null >/dev/null 2>&1 &
  fi
  trap 'down; exit 1' INT TERM HUP
  start_daemon munged --key-file="$dir/munge/key" --socket="$dir/munge/socket" --pid-file="$dir/munge/pid" \
    --log-file="$dir/log/munged" --seed-file="$dir/munge/seed" --force ||
    fail "munged does not start; see $dir/log"

  # A port may be taken between the look and the start: then the next ones.
  export SLURM_CONF=$conf
  for ((try = 0; try < 30; ++try)); do
    port=$((${CLUSTER_PORT:-$((20000 + (RANDOM * 32768 + RANDOM) % 624 * 16))} + (${CLUSTER_PORT:+1} + 0) * try * 16))
    free_ports "$port" || continue
    write_configuration "$port"
    rm -rf "$dir/state" && mkdir "$dir/state"
    start controller || true
    for ((node = 1; node <= nodes; ++node)); do
      start node "$node" || true
    done
    if await; then
      trap - INT TERM HUP
      echo "export SLURM_CONF=$conf"
      return
    fi
    send KILL controller
    send KILL node
    grep -q -s -i 'address already in use' "$dir"/log/* || break
    rm -f "$dir"/log/slurm*
  done
  tail -n 5 "$dir"/log/* >&2 || true
  down
  fail "no cluster came up; all of its logs are in $dir/log"
}

[ $# -ge 2 ] || usage
case $2 in
# Slurm's configuration has no quotes, and a socket's name holds 107 bytes.
*[!A-Za-z0-9_/.-]*) fail "the folder \"$2\" has characters that Slurm's configuration cannot hold; take one below /tmp" ;;
esac
mkdir -p "$2"
dir=$(cd "$2" && pwd -P)
[ ${#dir} -le 90 ] || fail "the name of the folder $dir is too long for a socket; take one below /tmp"
conf=$dir/slurm.conf
case $1,$# in
up,2) up ;;
down,2) down ;;
pids,[34]) select_pids "$3" "${4:-}" ;;
kill,[34]) send KILL "$3" "${4:-}" ;;
freeze,[34]) send STOP "$3" "${4:-}" ;;
thaw,[34]) send CONT "$3" "${4:-}" ;;
start,[34]) start "$3" "${4:-}" ;;
watch,3) watch_owner "$3" ;;
*) usage ;;
esac
