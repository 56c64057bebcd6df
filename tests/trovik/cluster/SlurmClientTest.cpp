#include "trovik/cluster/SlurmClient.h"
#include "tests/trovik/FakeMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>

namespace trovik {
namespace {

using namespace std::chrono_literals;

Script says(const std::string& text, int code = 0) {
  Script script;
  script.output = {{10ms, text}};
  script.ends = 20ms;
  script.exitCode = code;
  return script;
}

class SlurmClientTest : public testing::Test {
protected:
  /// Runs until nothing is asked any more.
  void settle() {
    while (client.isBusy()) {
      std::vector<pollfd> descriptors;
      client.addDescriptors(descriptors);
      const auto deadline = client.deadline();
      machine.wait(descriptors, deadline ? std::optional<Duration>(*deadline - machine.now()) : std::nullopt);
      client.advance(machine.now());
    }
  }
  ClusterAnswer submit(const ClusterSubmission& submission) {
    return ask([&](auto take) { client.submit(submission, take); });
  }
  ClusterAnswer query(const std::vector<std::string>& names) {
    return ask([&](auto take) { client.query(names, take); });
  }
  ClusterAnswer cancel(const std::vector<std::string>& names) {
    return ask([&](auto take) { client.cancel(names, take); });
  }
  ClusterAnswer askSite(const std::string& partition = {}) {
    return ask([&](auto take) { client.askSite(partition, take); });
  }

  std::vector<std::string> words(std::size_t start = 0) const {
    return {machine.started.at(start).Arguments.begin(), machine.started.at(start).Arguments.end()};
  }

  static ClusterSubmission plain() {
    ClusterSubmission submission;
    submission.name = "trovik-1f-12-1";
    submission.comment = "Sunset";
    submission.folder = Path("/films/1f-12/1");
    submission.program = Path("/opt/trovik/bin/trovik");
    submission.taskLog = Path("/films/1f-12/1/task-%a.log");
    submission.tasks = 24;
    submission.memory = 2000;
    return submission;
  }

  FakeMachine machine;
  SlurmClient client{machine};

private:
  template <typename Action> ClusterAnswer ask(Action action) {
    std::optional<ClusterAnswer> answer;
    action([&answer](const ClusterAnswer& told) {
      EXPECT_FALSE(answer.has_value());
      answer = told;
    });
    EXPECT_FALSE(answer.has_value()); // only from advance
    settle();
    EXPECT_TRUE(answer.has_value());
    return answer.value_or(ClusterAnswer());
  }
};

TEST_F(SlurmClientTest, ASubmissionPassesItsValuesAsWholeWords) {
  machine.behaviour = [](const ProcessStart&) { return says("36\n"); };
  ClusterSubmission submission = plain();
  submission.throttle = 4;
  submission.cpus = 8;
  submission.minutes = 90;
  submission.partition = "night";
  submission.account = "--film";
  submission.qos = "a b";
  submission.licenses = "floating:2,renderer:1";
  submission.options = {"--gres=gpu:1", "--exclude", "n7"};
  const ClusterAnswer answer = submit(submission);
  EXPECT_TRUE(answer.answered);
  EXPECT_EQ(answer.array, 36);
  EXPECT_EQ(answer.problem, "");
  EXPECT_EQ(words(), (std::vector<std::string>{"sbatch",
                                               "--parsable",
                                               "--nodes=1",
                                               "--ntasks=1",
                                               "--requeue",
                                               "--cpus-per-task=8",
                                               "--mem=2000",
                                               "--time=90",
                                               "--partition=night",
                                               "--account=--film",
                                               "--licenses=floating:2,renderer:1",
                                               "--qos=a b",
                                               "--gres=gpu:1",
                                               "--exclude",
                                               "n7",
                                               "--parsable",
                                               "--job-name=trovik-1f-12-1",
                                               "--comment=Sunset",
                                               "--array=0-23%4",
                                               "--chdir=/films/1f-12/1",
                                               "--output=/films/1f-12/1/task-%a.log",
                                               "--open-mode=append",
                                               "--export=ALL",
                                               "--wrap=exec \"$TROVIK_PROGRAM\" task \"$TROVIK_FOLDER\""}));
}

TEST_F(SlurmClientTest, WhatIsNotSetIsLeftToTheSite) {
  machine.behaviour = [](const ProcessStart&) { return says("36\n"); };
  ClusterSubmission submission = plain();
  submission.tasks = 1;
  submission.memory = 0;
  submit(submission);
  std::set<std::string> names;
  for (const std::string& word : words()) {
    names.insert(word.substr(0, word.find('=')));
    if (word.starts_with("--array")) {
      EXPECT_EQ(word, "--array=0-0");
    }
  }
  for (const char* option : {"--mem", "--time", "--partition", "--account", "--qos", "--licenses"}) {
    EXPECT_FALSE(names.contains(option)) << option;
  }
}

TEST_F(SlurmClientTest, AnOptionThatSaysTheSameInAnotherWayReplacesTheUsualOne) {
  machine.behaviour = [](const ProcessStart&) { return says("36\n"); };
  ClusterSubmission submission = plain();
  submission.options = {"--mem-per-cpu=900", "--cpus-per-gpu=4"};
  submit(submission);
  const std::vector<std::string> all = words();
  EXPECT_EQ(std::count(all.begin(), all.end(), "--mem-per-cpu=900"), 1);
  EXPECT_EQ(std::count(all.begin(), all.end(), "--mem=2000"), 0);
  EXPECT_EQ(std::count(all.begin(), all.end(), "--cpus-per-task=1"), 0);
}

TEST_F(SlurmClientTest, TheNodesLearnProgramAndFolderFromTheEnvironment) {
  machine.behaviour = [](const ProcessStart&) { return says("36\n"); };
  ClusterSubmission submission = plain();
  submission.folder = Path("/films/it's $(odd)\n;\xff");
  submission.program = Path("/opt/a b/trovik");
  submit(submission);
  std::map<std::string, std::string> set;
  for (const auto& [name, value] : machine.started.at(0).Environment) {
    if (value) {
      set[name] = *value;
    }
  }
  EXPECT_EQ(set, (std::map<std::string, std::string>{{"TROVIK_FOLDER", "/films/it's $(odd)\n;\xff"},
                                                     {"TROVIK_PROGRAM", "/opt/a b/trovik"}}));
  EXPECT_EQ(words().back(), "--wrap=exec \"$TROVIK_PROGRAM\" task \"$TROVIK_FOLDER\"");
}

TEST_F(SlurmClientTest, SignsThatMeanSomethingInNamesOfLogsAreTakenAsTheyAre) {
  machine.behaviour = [](const ProcessStart&) { return says("36\n"); };
  const auto outputOf = [this](const std::string& taskLog) {
    ClusterSubmission submission = plain();
    submission.taskLog = Path(taskLog);
    submit(submission);
    return words(machine.started.size() - 1).at(words().size() - 4);
  };
  EXPECT_EQ(outputOf("/films/100%/a%a/task-%a.log"), "--output=/films/100%%/a%%a/task-%a.log");
  EXPECT_EQ(outputOf("/films/a\\b%/task-%a.log"), "--output=/films/a\\\\b%/task-%a.log");
}

TEST_F(SlurmClientTest, ACommentIsOneShortLine) {
  machine.behaviour = [](const ProcessStart&) { return says("36\n"); };
  ClusterSubmission submission = plain();
  submission.comment = "a\nb\x1b \xff \"c\"" + std::string(5000, 'x');
  submit(submission);
  const std::string comment = words().at(words().size() - 7);
  EXPECT_TRUE(comment.starts_with("--comment=a\\nb\\x1b \\xff \"c\"xxx")) << comment;
  EXPECT_LT(comment.size(), 250U);
}

TEST_F(SlurmClientTest, TheEnvironmentIsFreeOfWhatWouldChangeTheAnswers) {
  const std::vector<std::string> dropped = {"SBATCH_PARTITION",
                                            "SLURM_JOB_ID",
                                            "SQUEUE_FORMAT2",
                                            "SCANCEL_STATE",
                                            "SINFO_FORMAT",
                                            "SCONTROL_ALL",
                                            "DISPLAY",
                                            "XDG_SESSION_ID",
                                            "XDG_RUNTIME_DIR",
                                            "SSH_AUTH_SOCK",
                                            "TERM",
                                            "TMUX_PANE",
                                            "TMPDIR",
                                            "BASH_FUNC_ls%%",
                                            "TROVIK_ATTEMPT",
                                            "LS_COLORS",
                                            "DBUS_SESSION_BUS_ADDRESS"};
  const std::vector<std::string> kept = {"SLURM_CONF",         "SLURM_CLUSTERS",    "SLURM_JWT",
                                         "TROVIK_MODULE_PATH", "MY_STUDIO_LICENSE", "DISPLAYED"};
  for (const auto& names : {dropped, kept}) {
    for (const std::string& name : names) {
      setenv(name.c_str(), "x", 1);
    }
  }
  machine.behaviour = [](const ProcessStart&) { return says(""); };
  query({"a"});
  submit(plain());
  for (const auto& names : {dropped, kept}) {
    for (const std::string& name : names) {
      unsetenv(name.c_str());
    }
  }
  for (const ProcessStart& start : machine.started) {
    std::set<std::string> removed;
    for (const auto& [name, value] : start.Environment) {
      if (!value) {
        removed.insert(name);
      }
    }
    for (const std::string& name : dropped) {
      EXPECT_TRUE(removed.contains(name)) << name;
    }
    for (const std::string& name : kept) {
      EXPECT_FALSE(removed.contains(name)) << name;
    }
  }
}

TEST_F(SlurmClientTest, ARefusedSubmissionIsToldFromAnUnclearOne) {
  machine.behaviour = [](const ProcessStart&) {
    return says("sbatch: error: invalid partition specified: x\n"
                "sbatch: error: Batch job submission failed: Invalid partition name specified\n",
                1);
  };
  ClusterAnswer answer = submit(plain());
  EXPECT_FALSE(answer.answered);
  EXPECT_TRUE(answer.refused);
  machine.behaviour = [](const ProcessStart&) {
    return says(
        "sbatch: error: Batch job submission failed: Unable to contact slurm controller (connect failure)\n",
        1);
  };
  answer = submit(plain());
  EXPECT_FALSE(answer.answered);
  EXPECT_FALSE(answer.refused);
  EXPECT_EQ(answer.problem,
            "sbatch ended with exit code 1: Batch job submission failed: Unable to contact slurm "
            "controller (connect failure)");
}

TEST_F(SlurmClientTest, AProgramThatHangsIsKilledAtItsLimit) {
  machine.behaviour = [](const ProcessStart&) { return Script(); };
  EXPECT_EQ(query({"a"}).problem, "squeue did not answer within 15 s");
  EXPECT_EQ(machine.elapsed(), 15s);
  EXPECT_EQ(submit(plain()).problem, "sbatch did not answer within 60 s");
  EXPECT_EQ(machine.elapsed(), 75s);
  EXPECT_EQ(cancel({"a", "b"}).problem, "scancel did not answer within 20 s");
  EXPECT_EQ(machine.elapsed(), 95s);
  EXPECT_EQ(askSite().problem, "scontrol did not answer within 15 s");
  EXPECT_EQ(machine.elapsed(), 110s);
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"kill", "kill", "kill", "kill"}));
  EXPECT_EQ(machine.running, 0U);
}

TEST_F(SlurmClientTest, WhatAProgramLeavesBehindIsEndedAndKeepsNoAnswerBack) {
  machine.behaviour = [](const ProcessStart&) {
    Script script = says("36_0|RUNNING|0|None|0|n1\n");
    script.leaves = std::chrono::hours(1);
    return script;
  };
  EXPECT_EQ(query({"a"}).tasks.size(), 1U);
  EXPECT_EQ(query({"b"}).tasks.size(), 1U);
  EXPECT_LE(machine.elapsed(), 1s);
  EXPECT_EQ(machine.running, 0U);
  EXPECT_EQ(machine.mostRunning, 1U);
}

TEST_F(SlurmClientTest, WhatCannotBeKilledKeepsOnlyTheNextProgramFromStarting) {
  machine.behaviour = [](const ProcessStart&) {
    Script script = says("36_0|RUNNING|0|None|0|n1\n");
    script.leaves = 40s;
    script.killEnds = false; // it waits for a disk
    return script;
  };
  EXPECT_EQ(query({"a"}).tasks.size(), 1U);
  EXPECT_EQ(query({"b"}).problem, "the program before it cannot be ended");
  EXPECT_EQ(query({"c"}).problem, "the program before it cannot be ended");
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(query({"d"}).tasks.size(), 1U);
  EXPECT_EQ(machine.mostRunning, 1U);
}

TEST_F(SlurmClientTest, WhatASlowProgramSaidIsTold) {
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.output = {{1s, "squeue: error: slurm_receive_msg: Zero Bytes were transmitted or received\n"}};
    return script;
  };
  const ClusterAnswer answer = query({"a"});
  EXPECT_FALSE(answer.answered);
  EXPECT_EQ(answer.problem,
            "squeue did not answer within 15 s: slurm_receive_msg: Zero Bytes were transmitted or "
            "received");
}

TEST_F(SlurmClientTest, AFullListOfJobsIsNotWaitedFor) {
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.output = {{1s, "sbatch: error: Slurm temporarily unable to accept job, sleeping and retrying\n"}};
    script.ends = 120s;
    script.exitCode = 1;
    return script;
  };
  const ClusterAnswer answer = submit(plain());
  EXPECT_FALSE(answer.answered);
  EXPECT_FALSE(answer.refused);
  EXPECT_EQ(answer.problem,
            "Slurm's list of jobs is full: Slurm temporarily unable to accept job, sleeping and "
            "retrying");
  EXPECT_EQ(machine.elapsed(), 1s);
}

TEST_F(SlurmClientTest, AProgramThatCannotBeStartedAnswersNothing) {
  machine.beforeStart = [](const ProcessStart& start) {
    RaiseException("Process", k_ErrorSystem, "cannot start \"" + start.Arguments[0] + "\"", ENOENT);
  };
  for (const ClusterAnswer& answer : {submit(plain()), query({"a"}), cancel({"a"}), askSite()}) {
    EXPECT_FALSE(answer.answered);
    EXPECT_FALSE(answer.refused);
    EXPECT_TRUE(answer.problem.ends_with(": No such file or directory")) << answer.problem;
  }
}

TEST_F(SlurmClientTest, AQueryAsksForAllNamesAtOnce) {
  machine.behaviour = [](const ProcessStart&) {
    return says("36_0|RUNNING|0|None|0|n1\n37_5|PENDING|0|Priority|0|\n");
  };
  const ClusterAnswer answer = query({"a", "b", "c"});
  EXPECT_TRUE(answer.answered);
  EXPECT_EQ(answer.problem, "");
  ASSERT_EQ(answer.tasks.size(), 2U);
  EXPECT_EQ(answer.tasks[1].array, 37);
  EXPECT_EQ(words(), (std::vector<std::string>{
                         "squeue", "--noheader", "--array", "--states=all", "--me", "--name=a,b,c",
                         "--Format=JobArrayID:|,State:|,exit_code:|,Reason:|,RestartCnt:|,NodeList:"}));
  EXPECT_EQ(machine.started.size(), 1U);
}

TEST_F(SlurmClientTest, MoreNamesThanAWordMayHoldAreAskedInParts) {
  machine.behaviour = [](const ProcessStart&) { return says("36_0|RUNNING|0|None|0|n1\n"); };
  const std::vector<std::string> names(100, std::string(1000, 'n'));
  const ClusterAnswer answer = query(names);
  EXPECT_TRUE(answer.answered);
  EXPECT_EQ(answer.tasks.size(), machine.started.size());
  ASSERT_EQ(machine.started.size(), 2U);
  EXPECT_EQ(words(0).at(5).size() + words(1).at(5).size(), 2 * std::string("--name=").size() + 98 + 100'000);
  EXPECT_EQ(machine.mostRunning, 1U);
}

TEST_F(SlurmClientTest, AFailedQuerySaysNothingAboutTasks) {
  int runs = 0;
  machine.behaviour = [&runs](const ProcessStart&) {
    return ++runs == 1
               ? says("36_0|RUNNING|0|None|0|n1\n")
               : says("slurm_load_jobs error: Unable to contact slurm controller (connect failure)\n", 1);
  };
  const ClusterAnswer answer = query(std::vector<std::string>(100, std::string(1000, 'n')));
  EXPECT_FALSE(answer.answered);
  EXPECT_TRUE(answer.tasks.empty());
  EXPECT_EQ(answer.problem, "squeue ended with exit code 1: slurm_load_jobs error: Unable to contact slurm "
                            "controller (connect failure)");
  machine.behaviour = [](const ProcessStart&) { return says("squeue: error: Invalid user: 12345\n"); };
  EXPECT_EQ(query({"a"}).problem, "squeue said \"squeue: error: Invalid user: 12345\"");
  machine.behaviour = [](const ProcessStart&) {
    Script script = says("36_0|RUNNING|0|None|0|n1\n");
    script.signal = 9;
    return script;
  };
  EXPECT_EQ(query({"a"}).problem, "squeue was killed by signal 9");
}

TEST_F(SlurmClientTest, NothingIsStartedForNoNames) {
  EXPECT_TRUE(query({}).answered);
  EXPECT_TRUE(cancel({}).answered);
  EXPECT_TRUE(machine.started.empty());
}

TEST_F(SlurmClientTest, EndlessOutputIsNoAnswer) {
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.output.assign(65, {1s, std::string(std::size_t{1} << 20, 'x')});
    return script;
  };
  EXPECT_EQ(query({"a"}).problem, "squeue said more than 64 MiB");
  EXPECT_EQ(machine.running, 0U);
}

TEST_F(SlurmClientTest, EachNameIsCanceledByItself) {
  machine.behaviour = [](const ProcessStart&) { return says(""); };
  EXPECT_TRUE(cancel({"a", "b"}).answered);
  EXPECT_EQ(words(0), (std::vector<std::string>{"scancel", "--name=a"}));
  EXPECT_EQ(words(1), (std::vector<std::string>{"scancel", "--name=b"}));
  machine.behaviour = [](const ProcessStart&) {
    return says("slurm_load_jobs error: Unable to contact slurm controller (connect failure)\n", 1);
  };
  const ClusterAnswer answer = cancel({"a", "b"});
  EXPECT_FALSE(answer.answered);
  EXPECT_EQ(machine.started.size(), 3U);
}

TEST_F(SlurmClientTest, TheSiteIsAskedForItsLimitsAndItsSmallestNode) {
  machine.behaviour = [](const ProcessStart& start) {
    return start.Arguments[0] == "scontrol" ? says("MaxArraySize = 5001\nMaxJobCount = 30000\n")
                                            : says("2 1000\n4 8000\n");
  };
  ClusterAnswer answer = askSite("night");
  EXPECT_TRUE(answer.answered);
  EXPECT_EQ(answer.site.arraySize, 5001);
  EXPECT_EQ(answer.site.jobCount, 30000);
  EXPECT_EQ(answer.site.memoryPerCpu, 500);
  EXPECT_EQ(words(0), (std::vector<std::string>{"scontrol", "show", "config"}));
  EXPECT_EQ(words(1), (std::vector<std::string>{"sinfo", "--noheader", "--Node", "--format=%c %m",
                                                "--partition=night"}));
  machine.behaviour = [](const ProcessStart& start) {
    return start.Arguments[0] == "scontrol"
               ? says("DefMemPerCPU = 700\n")
               : says("slurm_load_partitions: Unable to contact slurm controller\n", 1);
  };
  answer = askSite();
  EXPECT_FALSE(answer.answered);
  EXPECT_EQ(answer.problem,
            "sinfo ended with exit code 1: slurm_load_partitions: Unable to contact slurm controller");
}

TEST_F(SlurmClientTest, AMachineWithoutAConfigurationIsKnownAndASlowOneIsNotTakenForIt) {
  machine.behaviour = [](const ProcessStart&) { return says("slurm 22.05.8\n"); };
  EXPECT_EQ(SlurmClient::configurationProblem(machine), "");
  EXPECT_EQ(words(), (std::vector<std::string>{"scontrol", "--version"}));
  machine.behaviour = [](const ProcessStart&) {
    return says("scontrol: fatal: Could not establish a configuration source\n", 1);
  };
  EXPECT_EQ(SlurmClient::configurationProblem(machine),
            "scontrol ended with exit code 1: Could not establish a configuration source");
  machine.behaviour = [](const ProcessStart&) { return Script(); };
  EXPECT_EQ(SlurmClient::configurationProblem(machine), "");
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.output = {{1s, "scontrol: error: DNS SRV lookup failed\n"}};
    return script;
  };
  EXPECT_EQ(SlurmClient::configurationProblem(machine),
            "scontrol did not answer within 5 s: DNS SRV lookup failed");
  EXPECT_EQ(machine.running, 0U);
}

TEST_F(SlurmClientTest, QuestionsWaitForEachOther) {
  machine.behaviour = [](const ProcessStart& start) {
    return start.Arguments[0] == "sbatch" ? says("36\n") : says("36_0|RUNNING|0|None|0|n1\n");
  };
  std::vector<std::string> told;
  client.submit(plain(), [&](const ClusterAnswer& answer) {
    told.push_back("array " + std::to_string(answer.array));
    client.query({"b"}, [&](const ClusterAnswer&) { told.emplace_back("asked from an answer"); });
  });
  client.query({"a"}, [&](const ClusterAnswer& answer) {
    told.push_back("tasks " + std::to_string(answer.tasks.size()));
  });
  EXPECT_TRUE(machine.started.empty());
  settle();
  EXPECT_EQ(told, (std::vector<std::string>{"array 36", "tasks 1", "asked from an answer"}));
  EXPECT_EQ(machine.mostRunning, 1U);
}

TEST_F(SlurmClientTest, AnIdleClientWaitsForNothing) {
  std::vector<pollfd> descriptors;
  client.addDescriptors(descriptors);
  EXPECT_TRUE(descriptors.empty());
  EXPECT_FALSE(client.deadline().has_value());
  EXPECT_FALSE(client.isBusy());
}

} // namespace
} // namespace trovik
