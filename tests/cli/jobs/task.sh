# What a cluster's batch script starts on a node: no verb for people, but it
# says what it lacks.
. "$(dirname "$0")/../lib.sh"
unset SLURM_ARRAY_TASK_ID

run 0 --help
if grep -q '^  task ' "$TMP/out"; then fail "the help lists it"; fi
run 0 complete ta
out_is </dev/null
run 0 help task
out_has "--index N"

run 2 task
err_is <<'E2'
trovik: error: "trovik task" needs the folder of an array job
hint: see "trovik task --help"
E2
run 2 task nowhere
err_is <<'E2'
trovik: error: the number of the task is not known
hint: it is taken from SLURM_ARRAY_TASK_ID, or --index
E2
run 2 task nowhere --index -1
err_is <<'E2'
trovik: error: --index: "-1" is no number of a task
hint: write a whole number from 0
E2
SLURM_ARRAY_TASK_ID=1x
export SLURM_ARRAY_TASK_ID
run 2 task nowhere
err_is <<'E2'
trovik: error: SLURM_ARRAY_TASK_ID: "1x" is no number of a task
hint: write a whole number from 0
E2
run 2 task nowhere --index 0
grep -qF "cannot read \"$TMP/work/nowhere/plan.json\": No such file or directory" "$TMP/err" || fail "no reason"

# A plan without its job, and a damaged plan.
mkdir 1
echo '{"version":1,"kind":"cluster.plan","perTask":1,"logs":"/","stage":true,"patience":60,"works":[]}' >1/plan.json
run 2 task 1 --index 0
grep -qF "the array job in \"$TMP/work/1\" has no task 0" "$TMP/err" || fail "no reason"
echo '{"version":1' >1/plan.json
run 2 task 1 --index 0
grep -qF "\"$TMP/work/1/plan.json\": " "$TMP/err" || fail "no reason"
