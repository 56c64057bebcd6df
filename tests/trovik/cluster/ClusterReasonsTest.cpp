#include "trovik/cluster/ClusterClient.h"

#include <gtest/gtest.h>

#include <csignal>

namespace trovik {
namespace {

std::string waiting(const std::string& reason, const std::string& state = "PENDING") {
  const WaitingReason told = waitingReason(state, reason);
  return (told.stuck ? "stuck: " : "") + told.text + (told.hint.empty() ? "" : " / " + told.hint);
}

TEST(WaitingReasons, WhatPassesByItselfIsNotStuck) {
  EXPECT_EQ(waiting(""), "Slurm has not considered it yet");
  EXPECT_EQ(waiting("Resources"), "the CPUs and the memory that it needs are taken");
  EXPECT_EQ(waiting("Priority"), "jobs of higher priority come first");
  EXPECT_EQ(
      waiting("JobArrayTaskLimit"),
      "no more tasks of its array job may run at a time / \"scontrol update JobId=ID ArrayTaskThrottle=N\" "
      "lets N run; for new jobs --set ClusterThrottle=N");
  EXPECT_EQ(waiting("Dependency"), "a job that it depends on has not ended");
  EXPECT_EQ(waiting("BeginTime"), "its time has not come; a task whose node was lost waits for two minutes");
  EXPECT_EQ(waiting("Licenses"), "the licenses that it needs are taken");
  EXPECT_EQ(waiting("Reservation"), "its reservation has not begun");
  EXPECT_EQ(waiting("Cleaning"), "the rest of its last start is cleared away");
  EXPECT_EQ(waiting("Prolog"), "its node is made ready");
  EXPECT_EQ(waiting("", "CONFIGURING"), "its node is being started");
}

TEST(WaitingReasons, BrokenNodesAreToldWithWhereToLook) {
  const std::string look = " / \"sinfo -R\" tells of nodes with problems";
  EXPECT_EQ(waiting("ReqNodeNotAvail, UnavailableNodes:n3"),
            "a node that it needs is down, drained or reserved" + look);
  EXPECT_EQ(waiting("ReqNodeNotAvail"), "a node that it needs is down, drained or reserved" + look);
  EXPECT_EQ(waiting("ReqNodeNotAvail(Unavailable:n[1-2])"),
            "a node that it needs is down, drained or reserved" + look);
  EXPECT_EQ(
      waiting("Nodes required for job are DOWN, DRAINED or reserved for jobs in higher priority partitions"),
      "the nodes that it could run on are down, drained or reserved" + look);
  EXPECT_EQ(waiting("NodeDown"), "a node that it needs is down" + look);
}

TEST(WaitingReasons, HeldTasksAreStuckUntilTheirRelease) {
  EXPECT_EQ(waiting("JobHeldUser"), "stuck: its user holds it / \"scontrol release ID\" lets it go");
  EXPECT_EQ(waiting("JobHeldAdmin"),
            "stuck: an administrator holds it / ask the administrator of the cluster, who "
            "can let it go with \"scontrol release ID\"");
  EXPECT_EQ(waiting("JobHoldMaxRequeue"),
            "stuck: Slurm holds it: it was put back too often / \"scontrol release ID\" lets it go");
  EXPECT_EQ(waiting("launch failed requeued held"), "stuck: Slurm holds it: it could not be started on its "
                                                    "node / \"sinfo -R\" tells of nodes with problems; "
                                                    "then \"scontrol release ID\" lets it go");
  EXPECT_EQ(waiting("job requeued in held state"),
            "stuck: it was put back and is held / \"scontrol release ID\" lets it go");
  EXPECT_EQ(waiting("", "REQUEUE_HOLD"), "stuck: it is held / \"scontrol release ID\" lets it go");
  EXPECT_EQ(waiting("", "SPECIAL_EXIT"), "stuck: it is held / \"scontrol release ID\" lets it go");
}

TEST(WaitingReasons, WhatCannotBeHadIsStuck) {
  EXPECT_EQ(
      waiting("DependencyNeverSatisfied"),
      "stuck: a job that it depends on has failed / cancel it, and submit it anew without the dependency in "
      "ClusterOptions");
  EXPECT_EQ(waiting("PartitionDown"), "stuck: its partition is down / wait, or cancel it and submit it anew "
                                      "with --set ClusterPartition=NAME");
  EXPECT_EQ(waiting("PartitionInactive"),
            "stuck: its partition is inactive / wait, or cancel it and submit it anew "
            "with --set ClusterPartition=NAME");
  EXPECT_EQ(
      waiting("PartitionTimeLimit"),
      "stuck: it asks for more time than its partition allows / cancel it, and submit it anew with --set "
      "ClusterTimeLimit=… or --set WorksPerTask=1");
  EXPECT_EQ(waiting("PartitionNodeLimit"),
            "stuck: its partition allows no job of its size / wait, or cancel it and "
            "submit it anew with --set ClusterPartition=NAME");
  EXPECT_EQ(waiting("PartitionConfig"),
            "stuck: no node of its partition is large enough / cancel it, and submit it "
            "anew with less: --set CPUs=…, --set ClusterMemory=…");
  EXPECT_EQ(waiting("MaxMemPerLimit"),
            "stuck: it asks for more memory than its partition allows / cancel it, and "
            "submit it anew with less: --set ClusterMemory=…");
  EXPECT_EQ(waiting("BadConstraints"),
            "stuck: no node has what it asks for / cancel it, and submit it anew; check "
            "--constraint and its like in ClusterOptions");
  EXPECT_EQ(waiting("ReservationDeleted"),
            "stuck: its reservation was deleted / cancel it, and submit it anew "
            "without the reservation in ClusterOptions");
  EXPECT_EQ(waiting("DeadLine"),
            "stuck: it cannot end before its deadline / cancel it, and submit it anew without "
            "the deadline in ClusterOptions");
}

TEST(WaitingReasons, AccountsAndQosOfNoUseAreStuck) {
  const std::string account = " / cancel it, and submit it anew with --set ClusterAccount=NAME or --set "
                              "ClusterPartition=NAME";
  const std::string qos = " / cancel it, and submit it anew with --set ClusterQos=NAME or --set "
                          "ClusterPartition=NAME";
  EXPECT_EQ(waiting("InvalidAccount"), "stuck: its account is not valid" + account);
  EXPECT_EQ(waiting("AccountNotAllowed"), "stuck: its account may not use its partition" + account);
  EXPECT_EQ(waiting("Job's account not known, so it can't use this partition (acc allows foo)"),
            "stuck: its account may not use its partition" + account);
  EXPECT_EQ(waiting("Job's account not permitted to use this partition (a denies b including c)"),
            "stuck: its account may not use its partition" + account);
  EXPECT_EQ(waiting("InvalidQOS"), "stuck: its QOS is not valid" + qos);
  EXPECT_EQ(waiting("QOSNotAllowed"), "stuck: its QOS may not be used with its partition or account" + qos);
  EXPECT_EQ(waiting("Job's QOS not permitted to use this partition (a allows b not c)"),
            "stuck: its QOS may not be used with its partition" + qos);
}

TEST(WaitingReasons, LimitsOnWhatIsInUsePassByThemselves) {
  EXPECT_EQ(waiting("AssocGrpCpuLimit"), "its account may have no more CPUs at a time");
  EXPECT_EQ(waiting("AssocGrpJobsLimit"), "its account may have no more jobs at a time");
  EXPECT_EQ(waiting("AssocMaxJobsLimit"), "its account may have no more jobs at a time");
  EXPECT_EQ(waiting("AssocGrpMemLimit"), "its account may have no more memory at a time");
  EXPECT_EQ(waiting("AssocGrpCPURunMinutesLimit"), "its account may have no more minutes of CPUs at a time");
  EXPECT_EQ(waiting("QOSGrpNodeLimit"), "its QOS may have no more nodes at a time");
  EXPECT_EQ(waiting("QOSGrpGRES"), "its QOS may have no more GPUs or other devices at a time");
  EXPECT_EQ(waiting("QOSMaxJobsPerUserLimit"), "a user of its QOS may have no more jobs at a time");
  EXPECT_EQ(waiting("QOSMaxMemoryPerUser"), "a user of its QOS may have no more memory at a time");
  EXPECT_EQ(waiting("QOSMaxSubmitJobPerUserLimit"),
            "a user of its QOS may have no more submitted jobs at a time");
  EXPECT_EQ(waiting("MaxCpuPerAccount"), "its account in its QOS may have no more CPUs at a time");
  EXPECT_EQ(waiting("QOSMaxUnknownPerUser"), "a user of its QOS may have no more resources at a time");
  EXPECT_EQ(waiting("AssociationJobLimit"), "its account may run no more jobs at a time");
  EXPECT_EQ(waiting("QOSResourceLimit"), "its QOS may use no more at a time");
}

TEST(WaitingReasons, LimitsOnAJobAreStuckAndNameWhatToAskLessOf) {
  EXPECT_EQ(waiting("QOSMaxMemoryPerJob"),
            "stuck: it asks for more memory than its QOS allows a job / cancel it, "
            "and submit it anew with less: --set ClusterMemory=…");
  EXPECT_EQ(waiting("AssocMaxCpuPerJobLimit"),
            "stuck: it asks for more CPUs than its account allows a job / cancel "
            "it, and submit it anew with less: --set CPUs=…");
  EXPECT_EQ(waiting("QOSMaxWallDurationPerJobLimit"), "stuck: it asks for more time than its QOS allows a "
                                                      "job / cancel it, and submit it anew with less: --set "
                                                      "ClusterTimeLimit=…");
  EXPECT_EQ(
      waiting("QOSMaxNodePerJobLimit"),
      "stuck: it asks for more nodes than its QOS allows a job / cancel it, and submit it anew with less");
  EXPECT_EQ(waiting("QOSMaxCpuMinutesPerJobLimit"), "stuck: it asks for more minutes of CPUs than its QOS "
                                                    "allows a job / cancel it, and submit it anew with "
                                                    "less: --set CPUs=…");
  EXPECT_EQ(waiting("QOSMinCpuNotSatisfied"),
            "stuck: its QOS demands more CPUs than it asks for / cancel it, and "
            "submit it anew with more, or with --set ClusterQos=NAME");
  EXPECT_EQ(waiting("QOSMinGRES"),
            "stuck: its QOS demands more GPUs or other devices than it asks for / cancel it, "
            "and submit it anew with more, or with --set ClusterQos=NAME");
}

TEST(WaitingReasons, ABudgetThatIsUsedUpIsForTheAdministrator) {
  const std::string ask = " / ask the administrator of the cluster";
  EXPECT_EQ(waiting("AssocGrpCPUMinutesLimit"), "stuck: its account has used up its minutes of CPUs" + ask);
  EXPECT_EQ(waiting("AssocGrpBillingMinutes"),
            "stuck: its account has used up its minutes of billing units" + ask);
  EXPECT_EQ(waiting("QOSGrpWallLimit"), "stuck: its QOS has used up its time" + ask);
  EXPECT_EQ(waiting("QOSUsageThreshold"), "stuck: its QOS was used too much" + ask);
}

TEST(WaitingReasons, UnknownOnesAreQuoted) {
  EXPECT_EQ(waiting("NewInSomeRelease"), "Slurm says \"NewInSomeRelease\"");
  EXPECT_EQ(waiting("AssocMaxFoo"), "Slurm says \"AssocMaxFoo\"");
  EXPECT_EQ(waiting("PriorityOfTheMoon"), "Slurm says \"PriorityOfTheMoon\"");
  EXPECT_EQ(waiting("a\x1b[31m\n"), "Slurm says \"a\\x1b[31m\\n\"");
  EXPECT_EQ(waiting("", "ODD"), "Slurm says \"ODD\"");
  EXPECT_LT(waiting(std::string(1 << 20, 'x')).size(), 300U);
}

ClusterTask taskOf(const std::string& state, int waitStatus = 0, const std::string& node = "n2") {
  ClusterTask task;
  task.state = state;
  task.waitStatus = waitStatus;
  task.node = node;
  return task;
}

std::string died(const ClusterTask& task) {
  const TaskDeath death = taskDeath(task);
  return std::string(death.limits ? "limits: " : "") + (death.byHand ? "by hand: " : "") +
         (death.neverBegan ? "never began: " : "") + death.text +
         (death.hint.empty() ? "" : " / " + death.hint);
}

TEST(TaskDeaths, LimitsAreTheWorksOwnFault) {
  EXPECT_EQ(died(taskOf("TIMEOUT", 15)), "limits: The task ran into its time limit / give it more with --set "
                                         "ClusterTimeLimit=…, or fewer works with --set WorksPerTask=1");
  EXPECT_EQ(died(taskOf("OUT_OF_MEMORY", 9)),
            "limits: The task took more memory than it was given / give it more with --set ClusterMemory=…");
  EXPECT_EQ(died(taskOf("DEADLINE")),
            "limits: The deadline of the task is over / submit the job anew without the "
            "deadline in ClusterOptions");
}

TEST(TaskDeaths, NodesAndOtherJobsAreNot) {
  EXPECT_EQ(died(taskOf("NODE_FAIL")), "Node n2 failed");
  EXPECT_EQ(died(taskOf("NODE_FAIL", 0, "")), "Its node failed");
  EXPECT_EQ(died(taskOf("BOOT_FAIL")), "never began: Its node could not be started");
  EXPECT_EQ(died(taskOf("PREEMPTED")), "The task had to make room for a job of higher priority");
  EXPECT_EQ(died(taskOf("REVOKED")), "The task was taken away by another cluster");
  EXPECT_EQ(
      died(taskOf("CANCELLED", 15)),
      "by hand: The task was canceled in Slurm, not with trovik / \"trovik retry JOB\" submits it anew");
}

TEST(TaskDeaths, SignalsAreNamed) {
  EXPECT_EQ(died(taskOf("FAILED", SIGKILL)),
            "The task was killed by signal 9 (Killed) on node n2 / by somebody, or "
            "by the node when it ran out of memory: --set ClusterMemory=…");
  EXPECT_EQ(died(taskOf("FAILED", SIGSEGV, "")),
            "The task was killed by signal 11 (Segmentation fault) / the task's "
            "own log may tell why: task-INDEX.log in the folder of the job");
}

TEST(TaskDeaths, ALogThatCannotBeWrittenPointsAtTheFolder) {
  EXPECT_EQ(died(taskOf("FAILED", 4021)),
            "never began: Slurm could not open the task's log on node n2 / the folder "
            "of the job must be mounted there, and writable for you");
  EXPECT_EQ(died(taskOf("FAILED", 53)), died(taskOf("FAILED", 4021)));
}

TEST(TaskDeaths, ExitCodesOfTheScriptTellWhetherItBegan) {
  EXPECT_EQ(
      died(taskOf("FAILED", 127 << 8)),
      "never began: trovik was not found on node n2 / it must be there on every node; the key Program in the "
      "section [Slurm] of the settings names its path");
  EXPECT_EQ(died(taskOf("FAILED", 126 << 8)), "never began: trovik cannot be executed on node n2 / check its "
                                              "permissions and its kind of machine there");
  EXPECT_EQ(died(taskOf("FAILED", 2 << 8)),
            "never began: The task could not be read on node n2 / the task's own log "
            "may tell why: task-INDEX.log in the folder of the job");
  EXPECT_EQ(died(taskOf("FAILED", 1 << 8)),
            "The task ended with exit code 1 on node n2 / the task's own log may tell "
            "why: task-INDEX.log in the folder of the job");
  EXPECT_EQ(died(taskOf("FAILED", 0)),
            "never began: Slurm could not start the task on node n2 / \"sinfo -R\" tells "
            "of nodes with problems");
}

TEST(TaskDeaths, ARefusedSubmissionMayBeKeptAsFailedTasks) {
  ClusterTask task = taskOf("FAILED", 1, "");
  task.reason = "BadConstraints";
  EXPECT_EQ(died(task), "never began: No node has what the task asks for / submit the job anew with less: "
                        "--set CPUs=…, --set ClusterMemory=…; check ClusterOptions, too");
}

TEST(TaskDeaths, AGoodEndWithoutAResultIsOne) {
  EXPECT_EQ(died(taskOf("COMPLETED")),
            "The task ended but left no result on node n2 / the folder of the job must be "
            "the same one there as here");
  EXPECT_EQ(died(taskOf("")), "Slurm knows nothing of the task any more");
  EXPECT_EQ(died(taskOf("ODD\n", 0, "n\x1b")), "The task ended on node n\\x1b, Slurm says \"ODD\\n\"");
}

} // namespace
} // namespace trovik
