#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/cluster/JobFolder.h"
#include "trovik/cluster/SlurmClient.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

extern const char* const FAKE_SLURM;

// The stand-ins, asked by the program's own client.

namespace trovik {
namespace {

using namespace std::chrono_literals;

class FakeSlurmTest : public testing::Test {
protected:
  FakeSlurmTest() {
    // Nothing of this machine's own programs is to be found.
    setenv("PATH", FAKE_SLURM, 1);
    setenv("FAKE_SLURM_DIR", directory.path().c_str(), 1);
    set("slots=4\nduration=10\nspread=0\n");
    at(0);
  }

  void set(const std::string& settings) const { directory.write("settings", settings); }
  void at(double seconds) const { directory.write("now", std::to_string(seconds)); }
  void turnOn(const std::string& name, const std::string& text = {}) const { directory.write(name, text); }
  void turnOff(const std::string& name) const { std::remove(directory.file(name).c_str()); }

  ArrayFolder folder(std::size_t works, std::size_t perTask = 1) const {
    ArrayFolder array(Path(directory.makeDirectory("1")));
    ArrayPlan plan;
    plan.perTask = perTask;
    plan.logs = directory.path();
    plan.patience = 60s;
    for (std::size_t i = 0; i < works; ++i) {
      PlannedWork work;
      work.run = {static_cast<int>(i) + 1, static_cast<int>(i) + 1};
      plan.works.push_back(work);
    }
    array.create(plan);
    return array;
  }

  ClusterAnswer submit(const ArrayFolder& array, const std::string& name, int throttle = 0) {
    ClusterSubmission submission;
    submission.name = name;
    submission.folder = array.directory();
    submission.program = Path("/opt/trovik");
    submission.taskLog = array.taskLog("%a");
    submission.tasks = static_cast<int>(array.plan().tasks());
    submission.throttle = throttle;
    submission.memory = 1000;
    return ask([&](auto take) { client.submit(submission, take); });
  }
  ClusterAnswer query(const std::string& name) {
    return ask([&](auto take) { client.query({name}, take); });
  }
  ClusterAnswer cancel(const std::string& name) {
    return ask([&](auto take) { client.cancel({name}, take); });
  }

  /// "RRPP": the first letters of the tasks' states, in their order.
  std::string states(const std::string& name) {
    std::string letters;
    for (const ClusterTask& task : query(name).tasks) {
      letters += task.state[0];
    }
    return letters;
  }

  static std::string steer(const std::vector<String>& words) {
    ProcessStart start;
    start.Arguments = {"site"};
    start.Arguments.insert(start.Arguments.end(), words.begin(), words.end());
    Process process(start);
    ProcessExit exit;
    process.Wait(exit, true);
    return exit.Code == 0 ? "done" : "refused";
  }

  template <typename Action> ClusterAnswer ask(Action action) {
    ClusterAnswer answer;
    action([&answer](const ClusterAnswer& told) { answer = told; });
    while (client.isBusy()) {
      std::vector<pollfd> descriptors;
      client.addDescriptors(descriptors);
      const auto deadline = client.deadline();
      machine.wait(descriptors, deadline ? std::optional<Duration>(*deadline - machine.now()) : std::nullopt);
      client.advance(machine.now());
    }
    return answer;
  }

  TemporaryDirectory directory;
  LocalMachine machine;
  SlurmClient client{machine};
};

TEST_F(FakeSlurmTest, TellsTheSite) {
  set("array_size=501\njob_count=2000\ncpus=8\nmemory=32000\n");
  const ClusterAnswer answer = ask([&](auto take) { client.askSite("", take); });
  EXPECT_TRUE(answer.answered) << answer.problem;
  EXPECT_EQ(answer.site.arraySize, 501);
  EXPECT_EQ(answer.site.jobCount, 2000);
  EXPECT_EQ(answer.site.memoryPerCpu, 4000);
  EXPECT_EQ(SlurmClient::missingProgram(), "");
}

TEST_F(FakeSlurmTest, TasksRunInTheirSlotsAndLeaveResults) {
  const ArrayFolder array = folder(6);
  EXPECT_EQ(submit(array, "a").array, 1);
  EXPECT_EQ(states("a"), "RRRRPP");
  EXPECT_EQ(array.lastClaim(0), 1);
  EXPECT_EQ(array.beatOf(3)->count, 1);
  EXPECT_EQ(array.lastClaim(4), 0);
  at(6);
  EXPECT_EQ(states("a"), "RRRRPP");
  EXPECT_EQ(array.beatOf(3)->count, 2);
  at(11);
  EXPECT_EQ(states("a"), "CCCCRR");
  const auto end = array.endOf(2);
  ASSERT_TRUE(end.has_value());
  EXPECT_EQ(end->outcome.state, AttemptState::Good);
  EXPECT_EQ(end->outcome.good.text(), "3");
  EXPECT_FALSE(array.hasEnded(5));
  at(20);
  EXPECT_EQ(states("a"), "CCCCCC");
  EXPECT_TRUE(array.hasEnded(5));
  at(315);
  EXPECT_EQ(states("a"), "CC") << "those that ended at 20";
  at(1000);
  EXPECT_EQ(states("a"), "");
}

TEST_F(FakeSlurmTest, TasksWorkTheirPlacesOneAfterAnother) {
  const ArrayFolder array = folder(5, 2);
  submit(array, "a");
  EXPECT_EQ(states("a"), "RRR");
  EXPECT_EQ(array.lastClaim(0), 1);
  EXPECT_EQ(array.lastClaim(1), 0);
  at(10);
  EXPECT_EQ(states("a"), "RRC");
  EXPECT_TRUE(array.hasEnded(0));
  EXPECT_EQ(array.lastClaim(1), 1);
  at(20);
  EXPECT_EQ(states("a"), "CCC");
  EXPECT_TRUE(array.hasEnded(3));
}

TEST_F(FakeSlurmTest, TheThrottleIsHeld) {
  const ArrayFolder array = folder(4);
  submit(array, "a", 1);
  const ClusterAnswer answer = query("a");
  EXPECT_EQ(answer.tasks.at(0).state, "RUNNING");
  EXPECT_EQ(answer.tasks.at(0).node, "n1");
  EXPECT_EQ(answer.tasks.at(1).reason, "JobArrayTaskLimit");
  at(10);
  EXPECT_EQ(states("a"), "CRPP");
}

TEST_F(FakeSlurmTest, CanceledTasksAreToldAsSlurmDoes) {
  const ArrayFolder array = folder(6);
  submit(array, "a");
  EXPECT_EQ(states("a"), "RRRRPP");
  array.cancel();
  EXPECT_TRUE(cancel("a").answered);
  EXPECT_EQ(states("a"), "CCCC") << "those that never began are told of no more";
  EXPECT_EQ(query("a").tasks.at(0).state, "CANCELLED");
  EXPECT_EQ(query("a").tasks.at(0).waitStatus, 15);
  EXPECT_EQ(array.endOf(0)->by, WorkEnd::By::Canceled);
  EXPECT_FALSE(array.hasEnded(4));
  EXPECT_TRUE(cancel("nobody").answered);
}

TEST_F(FakeSlurmTest, TasksOfACanceledFolderDoNothing) {
  const ArrayFolder array = folder(2);
  array.cancel();
  submit(array, "a");
  EXPECT_EQ(states("a"), "CC");
  EXPECT_EQ(array.lastClaim(0), 0);
}

TEST_F(FakeSlurmTest, FaultsHappenOnDemand) {
  const ArrayFolder array = folder(6);
  submit(array, "a");
  EXPECT_EQ(states("a"), "RRRRPP");
  EXPECT_EQ(steer({"kill", "1_0"}), "done");
  EXPECT_EQ(steer({"nodefail", "1_1"}), "done");
  EXPECT_EQ(steer({"requeue", "1_2"}), "done");
  EXPECT_EQ(steer({"hold", "1_4"}), "done");
  EXPECT_EQ(steer({"kill", "1_5"}), "refused");
  EXPECT_EQ(steer({"kill", "7_1"}), "refused");
  const ClusterAnswer answer = query("a");
  ASSERT_EQ(answer.tasks.size(), 6U);
  EXPECT_EQ(answer.tasks[0].state, "FAILED");
  EXPECT_EQ(answer.tasks[0].waitStatus, 9);
  EXPECT_EQ(answer.tasks[1].phase, TaskPhase::Retry);
  EXPECT_EQ(answer.tasks[2].state, "RUNNING");
  EXPECT_EQ(answer.tasks[2].restarts, 1);
  EXPECT_EQ(array.lastClaim(2), 2);
  EXPECT_EQ(answer.tasks[4].reason, "JobHeldUser");
  EXPECT_EQ(answer.tasks[5].state, "RUNNING");
  EXPECT_FALSE(array.hasEnded(0));
}

TEST_F(FakeSlurmTest, RefusesWhatSlurmRefuses) {
  const ArrayFolder array = folder(6);
  set("array_size=6\n");
  EXPECT_EQ(submit(array, "a").array, 1);
  set("array_size=5\n");
  ClusterAnswer answer = submit(array, "b");
  EXPECT_TRUE(answer.refused);
  EXPECT_EQ(answer.problem,
            "sbatch ended with exit code 1: Batch job submission failed: Invalid job array specification");
  set("job_count=11\n");
  answer = submit(array, "b");
  EXPECT_FALSE(answer.refused);
  EXPECT_EQ(answer.problem,
            "Slurm's list of jobs is full: Slurm temporarily unable to accept job, sleeping and retrying");
  set("memory=999\n");
  EXPECT_TRUE(submit(array, "b").refused);
  set("");
  turnOn("refuse", "sbatch: error: Batch job submission failed: Access/permission denied");
  answer = submit(array, "b");
  EXPECT_TRUE(answer.refused);
  EXPECT_EQ(answer.problem,
            "sbatch ended with exit code 1: Batch job submission failed: Access/permission denied");
}

TEST_F(FakeSlurmTest, AnUnclearSubmissionMayBeThere) {
  const ArrayFolder array = folder(1);
  turnOn("unclear");
  const ClusterAnswer answer = submit(array, "a");
  EXPECT_FALSE(answer.answered);
  EXPECT_FALSE(answer.refused);
  EXPECT_EQ(states("a"), "R");
}

TEST_F(FakeSlurmTest, WithoutAControllerNothingIsKnown) {
  turnOn("down");
  EXPECT_EQ(query("a").problem,
            "squeue ended with exit code 1: slurm_load_jobs error: Unable to contact slurm "
            "controller (connect failure)");
  turnOff("down");
  EXPECT_TRUE(query("a").answered);
}

TEST_F(FakeSlurmTest, AHangingProgramIsGivenUp) {
  turnOn("hang");
  ClusterAnswer answer;
  client.query({"a"}, [&answer](const ClusterAnswer& told) { answer = told; });
  const Clock::time_point now = machine.now();
  client.advance(now);
  client.advance(now + 14s);
  EXPECT_TRUE(client.isBusy());
  client.advance(now + 15s);
  EXPECT_FALSE(client.isBusy());
  EXPECT_EQ(answer.problem, "squeue did not answer within 15 s");
  turnOff("hang");
  EXPECT_TRUE(query("a").answered);
}

TEST_F(FakeSlurmTest, TenThousandTasksAreToldInOneAnswer) {
  set("array_size=10001\njob_count=20000\nslots=10\n");
  submit(folder(10'000), "a");
  const ClusterAnswer answer = query("a");
  ASSERT_EQ(answer.tasks.size(), 10'000U);
  EXPECT_EQ(std::count_if(answer.tasks.begin(), answer.tasks.end(),
                          [](const ClusterTask& task) { return task.phase == TaskPhase::Active; }),
            10);
}

TEST_F(FakeSlurmTest, NodesApartGoOnOnlyWhenToldTo) {
  set("slots=4\nduration=10\nspread=0\nnodes=apart\n");
  const ArrayFolder array = folder(6);
  submit(array, "a");
  EXPECT_EQ(states("a"), "PPPPPP");
  EXPECT_EQ(steer({"step"}), "done");
  EXPECT_EQ(states("a"), "RRRRPP");
  at(10);
  EXPECT_EQ(states("a"), "RRRRPP");
  EXPECT_FALSE(array.hasEnded(0));
  EXPECT_EQ(steer({"step"}), "done");
  EXPECT_EQ(states("a"), "CCCCRR");
  EXPECT_TRUE(array.hasEnded(0));
}

TEST_F(FakeSlurmTest, EveryCallIsLogged) {
  query("a");
  cancel("b");
  std::istringstream calls(readFile(directory.file("calls")));
  std::vector<std::string> told;
  for (std::string line; std::getline(calls, line);) {
    std::istringstream fields(line);
    double real = 0;
    double simulated = -1;
    int process = 0;
    fields >> real >> simulated >> process >> std::ws;
    EXPECT_GT(real, 1e9);
    EXPECT_EQ(simulated, 0);
    EXPECT_GT(process, 0);
    std::string rest;
    std::getline(fields, rest);
    told.push_back(rest);
  }
  EXPECT_EQ(told, (std::vector<std::string>{"squeue --noheader --array --states=all --me --name=a "
                                            "--Format=JobArrayID:|,State:|,exit_code:|,Reason:|,RestartCnt:|,"
                                            "NodeList:",
                                            "scancel --name=b"}));
}

} // namespace
} // namespace trovik
