# Shared by the tests on a private cluster: what the command line tests share,
# and
#
#   cluster VERB WORD...     cluster.sh, for the cluster of this test
#   start_cluster            starts it; it ends with the test, however that ends
#   eventually COMMAND...    waits until the command succeeds
#   field QUERY WORD...      what jq finds in the JSON form of a trovik command

TMPDIR=/tmp # Slurm's configuration takes short and plain names
export TMPDIR
tests=$(cd "$(dirname "$0")" && pwd)
. "$tests/../cli/lib.sh"

TROVIK_SHARED=$TMP/shared
export TROVIK_SHARED
# What counts as dead after seconds here would take minutes at a site.
mkdir -p "$XDG_CONFIG_HOME/trovik"
printf '[Slurm]\nPatience=6\n' >"$XDG_CONFIG_HOME/trovik/settings.ini"

background=
finish() {
  code=$?
  trap - EXIT
  for process in $background $pid; do
    kill -KILL "$process" 2>/dev/null || :
  done
  if [ "$code" != 0 ]; then
    {
      echo "--- what Slurm knows"
      timeout 10 squeue -r -t all -O 'JobArrayID:12,Name:40,State:12,Reason:24,RestartCnt:8,NodeList:8' || :
      echo "--- what tasks printed"
      find "$TROVIK_SHARED" -name 'task-*.log' -size +0 -exec tail -n 5 {} + 2>/dev/null | head -n 60
      echo "--- the controller"
      tail -n 15 "$TMP/cluster/log/slurmctld"
    } >&2 2>&1 || :
  fi
  [ ! -e "$TMP/cluster" ] || cluster down || code=1
  rm -rf "$TMP"
  exit "$code"
}
trap finish EXIT

cluster() {
  cluster_verb=$1
  shift
  "$tests/cluster.sh" "$cluster_verb" "$TMP/cluster" "$@"
}

start_cluster() {
  CLUSTER_OWNER=$$ cluster up >"$TMP/up" || fail "no cluster"
  . "$TMP/up"
}

# The deadline is for tests that fail: no passing one comes near it.
eventually() {
  eventually_round=0
  until "$@"; do
    eventually_round=$((eventually_round + 1))
    [ "$eventually_round" -lt 600 ] || fail "this never came true: $*"
    sleep 0.2
  done
}

field() {
  query=$1
  shift
  "$TROVIK" "$@" --json 2>/dev/null </dev/null | jq -r "$query"
}

field_is() { # VALUE QUERY WORD...
  wanted=$1
  shift
  [ "$(field "$@")" = "$wanted" ]
}

# No process of any task is left, and Slurm has nothing that waits or runs.
nothing_runs() {
  [ -z "$(cluster pids tasks)" ] && [ -z "$(timeout 20 squeue -h -r -o %i || echo unknown)" ]
}
