#include "trovik/cluster/SlurmAnswers.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

std::vector<ClusterTask> tasksOf(const std::string& output) {
  std::string problem;
  const auto tasks = readTasks(output, problem);
  EXPECT_TRUE(tasks.has_value()) << problem;
  return tasks.value_or(std::vector<ClusterTask>());
}

std::string problemOf(const std::string& output) {
  std::string problem;
  EXPECT_FALSE(readTasks(output, problem).has_value());
  return problem;
}

TEST(SlurmTasks, AreReadAsSqueueTellsThem) {
  const std::vector<ClusterTask> tasks = tasksOf("48_1|PENDING|0|BeginTime|1|\n"
                                                 "36_9999|RUNNING|0|None|0|n1\n"
                                                 "59_0|FAILED|4021|JobLaunchFailure|0|n3\n");
  ASSERT_EQ(tasks.size(), 3U);
  EXPECT_EQ(tasks[0].array, 48);
  EXPECT_EQ(tasks[0].index, 1);
  EXPECT_EQ(tasks[0].phase, TaskPhase::Waiting);
  EXPECT_EQ(tasks[0].state, "PENDING");
  EXPECT_EQ(tasks[0].reason, "BeginTime");
  EXPECT_EQ(tasks[0].restarts, 1);
  EXPECT_EQ(tasks[0].node, "");
  EXPECT_EQ(tasks[1].index, 9999);
  EXPECT_EQ(tasks[1].phase, TaskPhase::Active);
  EXPECT_EQ(tasks[1].reason, "");
  EXPECT_EQ(tasks[1].node, "n1");
  EXPECT_EQ(tasks[2].phase, TaskPhase::Over);
  EXPECT_EQ(tasks[2].waitStatus, 4021);
}

TEST(SlurmTasks, AnEmptyAnswerIsNoTask) {
  EXPECT_TRUE(tasksOf("").empty());
  EXPECT_TRUE(tasksOf("\n").empty());
}

TEST(SlurmTasks, ReasonsMayBeSentences) {
  const std::vector<ClusterTask> tasks = tasksOf(
      "61_0|PENDING|0|Nodes required for job are DOWN, DRAINED or reserved for jobs in higher priority "
      "partitions|1|n1\n"
      "69_0|PENDING|0|ReqNodeNotAvail, UnavailableNodes:n3|0|\n"
      "70_0|PENDING|0|held | by \"me\"|2|\n");
  ASSERT_EQ(tasks.size(), 3U);
  EXPECT_EQ(tasks[0].reason,
            "Nodes required for job are DOWN, DRAINED or reserved for jobs in higher priority partitions");
  EXPECT_EQ(tasks[0].restarts, 1);
  EXPECT_EQ(tasks[0].node, "n1");
  EXPECT_EQ(tasks[1].reason, "ReqNodeNotAvail, UnavailableNodes:n3");
  EXPECT_EQ(tasks[2].reason, "held | by \"me\"");
  EXPECT_EQ(tasks[2].restarts, 2);
}

TEST(SlurmTasks, WhatWasCanceledBeforeItBeganIsToldOfNoMore) {
  const std::vector<ClusterTask> tasks =
      tasksOf("48|CANCELLED|0|JobArrayTaskLimit|0|\n48_0|CANCELLED|15|None|0|n1\n");
  ASSERT_EQ(tasks.size(), 1U);
  EXPECT_EQ(tasks[0].index, 0);
}

TEST(SlurmTasks, RemarksAreNoTasks) {
  EXPECT_EQ(tasksOf("squeue: info: a word\nCLUSTER: lab\n36_0|RUNNING|0|None|0|n1\n").size(), 1U);
}

TEST(SlurmTasks, WithALineThatCannotBeReadNothingIsKnown) {
  EXPECT_EQ(problemOf("squeue: error: Invalid user: 12345\n"),
            "squeue said \"squeue: error: Invalid user: 12345\"");
  EXPECT_EQ(problemOf("36_0|RUNNING|0|None|0|n1\n36_1|PENsqueue: error: slurm_receive_msg\n"),
            "squeue said \"36_1|PENsqueue: error: slurm_receive_msg\"");
  for (const std::string odd :
       {"36_|RUNNING|0|None|0|n1", "36_1x|RUNNING|0|None|0|n1", "_1|RUNNING|0|None|0|n1",
        "36_[1-9]|PENDING|0|None|0|", "36_-1|RUNNING|0|None|0|n1", "0_1|RUNNING|0|None|0|n1",
        "36_1|running|0|None|0|n1", "36_1||0|None|0|n1", "36_1|RUNNING|x|None|0|n1",
        "36_1|RUNNING|0|None|x|n1", "36_1|RUNNING|0|None|n1", "36_1|RUNNING|0|0|n1", "36_1|RUNNING", "|||||",
        "|", "36_99999999999|RUNNING|0|None|0|n1", "99999999999999999999_1|RUNNING|0|None|0|n1"}) {
    EXPECT_EQ(problemOf(odd + '\n'), "squeue said \"" + odd + '"');
  }
}

TEST(SlurmTasks, ACutAnswerIsNone) {
  EXPECT_EQ(problemOf("36_0|RUNNING|0|None|0|n1\n36_1|RUNNING|0|None|0|n"), "the answer of squeue is cut");
}

TEST(SlurmTasks, NoPartOfAnAnswerPassesForAllOfIt) {
  const std::string line = "36_1|PENDING|0|Nodes required, DOWN|2|n[1-2]\n";
  const std::string output = "36_0|RUNNING|0|None|0|n1\n" + line;
  for (std::size_t size = output.size() - line.size() + 1; size < output.size(); ++size) {
    std::string problem;
    EXPECT_FALSE(readTasks(output.substr(0, size), problem).has_value()) << output.substr(0, size);
    EXPECT_NE(problem, "");
  }
}

TEST(SlurmTasks, NoByteMakesMoreTasksThanLines) {
  const std::string output = "36_0|RUNNING|0|None|0|n1\n36_1|PENDING|0|Nodes required, DOWN|2|n[1-2]\n";
  for (std::size_t i = 0; i < output.size(); ++i) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string other = output;
      other[i] = static_cast<char>(byte);
      std::string problem;
      const auto tasks = readTasks(other, problem);
      ASSERT_EQ(tasks.has_value(), problem.empty()) << i << ' ' << byte;
      ASSERT_LE(tasks ? tasks->size() : 0, 2U) << i << ' ' << byte;
    }
  }
}

TEST(SlurmTasks, ALongOddLineIsQuotedInPart) {
  EXPECT_LT(problemOf(std::string(1 << 20, 'x') + '\n').size(), 400U);
}

TEST(SlurmTasks, TenThousandAreReadInOneGo) {
  std::string output;
  for (int i = 0; i < 10'000; ++i) {
    output += "36_" + std::to_string(i) + "|PENDING|0|JobArrayTaskLimit|0|\n";
  }
  const std::vector<ClusterTask> tasks = tasksOf(output);
  ASSERT_EQ(tasks.size(), 10'000U);
  for (int i = 0; i < 10'000; ++i) {
    ASSERT_EQ(tasks[static_cast<std::size_t>(i)].index, i);
  }
}

TEST(SlurmTasks, EveryStateHasItsPhase) {
  const auto phaseOf = [](const std::string& state) {
    return tasksOf("1_0|" + state + "|0|None|0|n1\n").at(0).phase;
  };
  for (const char* state : {"PENDING", "CONFIGURING", "REQUEUED", "REQUEUE_FED", "REQUEUE_HOLD",
                            "RESV_DEL_HOLD", "SPECIAL_EXIT"}) {
    EXPECT_EQ(phaseOf(state), TaskPhase::Waiting) << state;
  }
  for (const char* state :
       {"RUNNING", "COMPLETING", "SUSPENDED", "STOPPED", "SIGNALING", "RESIZING", "STAGE_OUT"}) {
    EXPECT_EQ(phaseOf(state), TaskPhase::Active) << state;
  }
  for (const char* state : {"COMPLETED", "FAILED", "CANCELLED", "TIMEOUT", "OUT_OF_MEMORY", "DEADLINE"}) {
    EXPECT_EQ(phaseOf(state), TaskPhase::Over) << state;
  }
  for (const char* state : {"NODE_FAIL", "BOOT_FAIL", "PREEMPTED", "REVOKED"}) {
    EXPECT_EQ(phaseOf(state), TaskPhase::Retry) << state;
  }
  EXPECT_EQ(phaseOf("NEW_IN_SOME_RELEASE"), TaskPhase::Unknown);
}

struct Submitted {
  bool answered;
  bool refused;
  std::int64_t array;
  std::string problem;
  bool operator==(const Submitted&) const = default;
};
void PrintTo(const Submitted& each, std::ostream* out) { // NOLINT(misc-use-internal-linkage): for GoogleTest
  *out << "answered " << each.answered << ", refused " << each.refused << ", array " << each.array << ", \""
       << each.problem << '"';
}

Submitted submitted(const std::string& output, int code, int signal = 0) {
  ClusterAnswer answer;
  readSubmission(output, {code, signal}, answer);
  return {answer.answered, answer.refused, answer.array, answer.problem};
}

TEST(SlurmSubmission, TellsTheNumber) {
  EXPECT_EQ(submitted("36\n", 0), (Submitted{true, false, 36, ""}));
  EXPECT_EQ(submitted("36;cluster\n", 0), (Submitted{true, false, 36, ""}));
  EXPECT_EQ(submitted("sbatch: a word of the site\n36\n", 0), (Submitted{true, false, 36, ""}));
  EXPECT_EQ(submitted("Submitted batch job 36\n", 0), (Submitted{true, false, 36, ""}));
  EXPECT_EQ(submitted("Submitted batch job 36 on cluster a\n", 0), (Submitted{true, false, 36, ""}));
}

TEST(SlurmSubmission, ThatSubmittedNothingIsRefused) {
  EXPECT_EQ(
      submitted("sbatch: Job 10 to start at 2031-01-05T20:11:09 using 1 processors on nodes n1 in "
                "partition main\n",
                0),
      (Submitted{false, true, 0,
                 "sbatch submitted nothing: Job 10 to start at 2031-01-05T20:11:09 using 1 processors on "
                 "nodes n1 in partition main"}));
  EXPECT_EQ(submitted("slurm-wlm 22.05.8\n", 0),
            (Submitted{false, true, 0, "sbatch submitted nothing: slurm-wlm 22.05.8"}));
  EXPECT_EQ(submitted("", 0), (Submitted{false, true, 0, "sbatch submitted nothing"}));
}

TEST(SlurmSubmission, WhatSlurmWillRefuseAgainIsRefused) {
  struct Case {
    int code;
    std::string output;
    std::string problem;
  };
  const std::vector<Case> cases = {
      {1,
       "sbatch: error: invalid partition specified: nosuch\n"
       "sbatch: error: Batch job submission failed: Invalid partition name specified\n",
       "sbatch ended with exit code 1: invalid partition specified: nosuch; Batch job submission failed: "
       "Invalid "
       "partition name specified"},
      {1,
       "sbatch: error: Memory specification can not be satisfied\n"
       "sbatch: error: Batch job submission failed: Requested node configuration is not available\n",
       "sbatch ended with exit code 1: Memory specification can not be satisfied; Batch job submission "
       "failed: "
       "Requested node configuration is not available"},
      {1, "sbatch: error: Batch job submission failed: Invalid job array specification\n",
       "sbatch ended with exit code 1: Batch job submission failed: Invalid job array specification"},
      {1, "sbatch: error: Batch job submission failed: Invalid feature specification\n",
       "sbatch ended with exit code 1: Batch job submission failed: Invalid feature specification"},
      {1,
       "sbatch: error: Batch job submission failed: Required partition not available (inactive or drain)\n",
       "sbatch ended with exit code 1: Batch job submission failed: Required partition not available "
       "(inactive or "
       "drain)"},
      {255, "sbatch: unrecognized option '--nonsense'\nTry \"sbatch --help\" for more information\n",
       "sbatch ended with exit code 255: unrecognized option '--nonsense'"},
      {255, "sbatch: error: Invalid --mem specification\n",
       "sbatch ended with exit code 255: Invalid --mem specification"},
      {1, "sbatch: error: Invalid numeric value \"x\" for --ntasks-per-socket.\n",
       "sbatch ended with exit code 1: Invalid numeric value \"x\" for --ntasks-per-socket."},
      {1, "sbatch: fatal: --mem, --mem-per-cpu, and --mem-per-gpu are mutually exclusive.\n",
       "sbatch ended with exit code 1: --mem, --mem-per-cpu, and --mem-per-gpu are mutually exclusive."},
      {1, "sbatch: error: Unable to open file foo\n",
       "sbatch ended with exit code 1: Unable to open file foo"},
      {1, "sbatch: error: Invalid generic resource (gres) specification\n",
       "sbatch ended with exit code 1: Invalid generic resource (gres) specification"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(submitted(each.output, each.code), (Submitted{false, true, 0, each.problem}));
  }
}

TEST(SlurmSubmission, WhatMayPassLeavesItOpen) {
  struct Case {
    std::string output;
    std::string problem;
  };
  const std::vector<Case> cases = {
      {"sbatch: error: Batch job submission failed: Unable to contact slurm controller (connect failure)\n",
       "sbatch ended with exit code 1: Batch job submission failed: Unable to contact slurm controller "
       "(connect "
       "failure)"},
      {"sbatch: error: Slurm temporarily unable to accept job, sleeping and retrying\n"
       "sbatch: error: Batch job submission failed: Resource temporarily unavailable\n",
       "sbatch ended with exit code 1: Slurm temporarily unable to accept job, sleeping and retrying; Batch "
       "job "
       "submission failed: Resource temporarily unavailable"},
      {"sbatch: error: slurm_send_node_msg: auth_g_create: REQUEST_SUBMIT_BATCH_JOB has authentication "
       "error\n"
       "sbatch: error: Batch job submission failed: Protocol authentication error\n",
       "sbatch ended with exit code 1: slurm_send_node_msg: auth_g_create: REQUEST_SUBMIT_BATCH_JOB has "
       "authentication error; Batch job submission failed: Protocol authentication error"},
      {"sbatch: error: Batch job submission failed: Socket timed out on send/recv operation\n",
       "sbatch ended with exit code 1: Batch job submission failed: Socket timed out on send/recv operation"},
      {"sbatch: error: AssocMaxSubmitJobLimit\n"
       "sbatch: error: Batch job submission failed: Job violates accounting/QOS policy (job submit limit, "
       "user's "
       "size and/or time limits)\n",
       "sbatch ended with exit code 1: AssocMaxSubmitJobLimit; Batch job submission failed: Job violates "
       "accounting/QOS policy (job submit limit, user's size and/or time limits)"},
      {"sbatch: error: ClusterName needs to be specified\nsbatch: fatal: Unable to process configuration "
       "file\n",
       "sbatch ended with exit code 1: ClusterName needs to be specified; Unable to process configuration "
       "file"},
      {"", "sbatch ended with exit code 1"},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(submitted(each.output, 1), (Submitted{false, false, 0, each.problem}));
  }
  EXPECT_EQ(submitted("", 137, 9), (Submitted{false, false, 0, "sbatch was killed by signal 9"}));
}

TEST(SlurmSubmission, AComplaintIsMadeVisibleAndBounded) {
  EXPECT_EQ(slurmProblem("sbatch: error: a\x1b[31mb\r\nsbatch: error: a\x1b[31mb\n\nsqueue: fatal: c"),
            "a\\x1b[31mb; c");
  EXPECT_LT(slurmProblem(std::string(1 << 20, 'x')).size(), 400U);
}

TEST(SlurmSite, LimitsAreReadFromTheConfiguration) {
  ClusterSite site;
  readConfiguration("Configuration data as of 2026-11-21T19:16:13\n"
                    "AccountingStorageEnforce = none\n"
                    "DefMemPerNode           = UNLIMITED\n"
                    "MaxArraySize            = 10001\n"
                    "MaxJobCount             = 20000\n"
                    "MaxMemPerNode           = UNLIMITED\n",
                    site);
  EXPECT_EQ(site.arraySize, 10001);
  EXPECT_EQ(site.jobCount, 20000);
  EXPECT_EQ(site.memoryPerCpu, 0);
  readConfiguration("DefMemPerCPU = 2048\n", site);
  EXPECT_EQ(site.memoryPerCpu, 2048);
}

TEST(SlurmSite, OddLimitsLeaveWhatSlurmHasByItself) {
  ClusterSite site;
  readConfiguration(
      "MaxArraySize = 0\nMaxJobCount = -3\nMaxArraySize\nDefMemPerCPU = 99999999999999999999\n= 3\n", site);
  EXPECT_EQ(site.arraySize, 1001);
  EXPECT_EQ(site.jobCount, 10000);
  EXPECT_EQ(site.memoryPerCpu, 0);
}

TEST(SlurmSite, TheSmallestShareOfACpuCounts) {
  EXPECT_EQ(readMemoryPerCpu("2 1000\n2 1000\n"), 500);
  EXPECT_EQ(readMemoryPerCpu("64 512000\n 32  64000 \n16+ 128000+\n"), 2000);
  EXPECT_EQ(readMemoryPerCpu("3 1000\n"), 333);
}

TEST(SlurmSite, NodesThatTellNoMemoryDoNotCount) {
  EXPECT_EQ(readMemoryPerCpu("2 1\n4 4000\n"), 1000);
  EXPECT_EQ(readMemoryPerCpu("2 1\n"), 0);
  EXPECT_EQ(readMemoryPerCpu("0 1000\nx y\n+ +\n5\n\n"), 0);
}

} // namespace
} // namespace trovik
