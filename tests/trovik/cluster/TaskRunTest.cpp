#include "tests/trovik/cluster/TaskRunTest.h"

// One task by itself: what it does, and what it says of it.

namespace trovik {
namespace {

using namespace std::chrono_literals;

TEST_F(TaskRunTest, TaskWorksItsPlacesAndNoOther) {
  plan({{1, 2}, {3, 3}, {4, 4}}, 2);
  EXPECT_TRUE(run(0));
  EXPECT_EQ(journal(), "1 2 3");
  EXPECT_EQ(output(), (Names{"f_1", "f_2", "f_3"}));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.claim, 1);
  EXPECT_EQ(end.node, "n1");
  EXPECT_LE(end.started, end.ended);
  EXPECT_EQ(end.outcome.state, AttemptState::Good);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Result);
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(end.outcome.log, directory.file("folder/q-7/logs/1-2.log"));
  EXPECT_EQ(end.outcome.command,
            JoinCommandLine({directory.file("draw"), "1", "2", directory.file("out"), directory.path()}));
  ASSERT_EQ(end.outcome.files.size(), 2U);
  EXPECT_EQ(end.outcome.files[1].path, directory.file("out/f_2"));
  EXPECT_EQ(end.outcome.files[1].frame, 2);
  EXPECT_EQ(end.outcome.files[1].problem, "");
  EXPECT_GT(end.outcome.duration.count(), 0);
  EXPECT_TRUE(works.hasEnded(1));
  EXPECT_EQ(works.lastClaim(2), 0);
  const WorkClaim claim = works.claimOf(0, 1).value();
  EXPECT_EQ(claim.mark, queue + "-7.1.0.1");
  EXPECT_EQ(claim.stage, directory.file("out/.trovik-" + queue + "-7.1.0.1"));
  EXPECT_GT(works.beatOf(0).value().count, 0);

  EXPECT_TRUE(run(0)); // a task that the site starts again finds all done
  EXPECT_EQ(journal(), "1 2 3");
  EXPECT_TRUE(run(1));
  EXPECT_EQ(journal(), "1 2 3 4");
  EXPECT_EQ(works.lastClaim(0), 1);
}

TEST_F(TaskRunTest, IndexBeyondThePlanIsRefused) {
  plan({{1, 1}, {2, 2}, {3, 3}}, 2);
  const Refusal refusal = refusalOf([&] { run(2); });
  EXPECT_EQ(refusal.message, "the array job in \"" + works.directory().Text() + "\" has no task 2");
  EXPECT_EQ(refusal.hint, "it has 2, counted from 0");
}

TEST_F(TaskRunTest, TextsOfAFailureAreThoseOfALocalRun) {
  plan({{1, 3}});
  directory.write("fail.2", "");
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  const std::string line = "fatal: cannot draw " + directory.file("out/f_2");
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.outcome.state, AttemptState::Failed);
  EXPECT_EQ(end.outcome.rule, VerdictRule::ErrorLine);
  EXPECT_EQ(end.outcome.reason, "Error line: " + line);
  EXPECT_EQ(end.outcome.lines, (std::vector<std::string>{"image " + directory.file("out/f_1"), line}));
  EXPECT_EQ(end.outcome.exitCode, 3);
  EXPECT_EQ(end.outcome.good.text(), "1");
  EXPECT_EQ(output(), Names{"f_1"});
}

TEST_F(TaskRunTest, ProgramThatCannotBeStartedIsAResult) {
  job->SetParameter(p_Executable, directory.file("none"));
  plan({{1, 1}});
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.outcome.state, AttemptState::Failed);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
  EXPECT_NE(end.outcome.reason.find(directory.file("none")), std::string::npos) << end.outcome.reason;
  EXPECT_FALSE(std::filesystem::exists(directory.file("out/.trovik-" + queue + "-7.1.0.1")));
}

TEST_F(TaskRunTest, NodeThatCannotWorkSaysSoForEachPlace) {
  plan({{1, 1}, {2, 2}}, 2);
  LocalMachine machine;
  NoInterrupts interrupts;
  TaskRun task(works.directory(), 0, self, machine, inspector, interrupts, nullptr, times);
  task.refuse("no module was found");
  EXPECT_TRUE(task.run());
  for (const std::size_t position : {0U, 1U}) {
    const WorkEnd end = works.endOf(position).value();
    EXPECT_EQ(end.outcome.state, AttemptState::Failed);
    EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
    EXPECT_EQ(end.outcome.reason, "no module was found");
  }
  EXPECT_EQ(journal(), "");
}

TEST_F(TaskRunTest, WhateverAModuleThrowsIsTheResultOfItsWork) {
  for (const std::string thrown : {"throw at the end", "raise at the end", "throw at the folder"}) {
    SCOPED_TRACE(thrown);
    job->SetParameter(p_Scene, thrown);
    std::filesystem::remove_all(folder.directory().Text().c_str());
    plan({{1, 1}, {2, 2}}, 2);
    const LogSink before = SetLogSink([](LogLevel, const String&) {});
    EXPECT_TRUE(run());
    SetLogSink(before);
    for (const std::size_t position : {0U, 1U}) {
      ASSERT_TRUE(works.hasEnded(position));
      const WorkEnd end = works.endOf(position).value();
      EXPECT_EQ(end.by, WorkEnd::By::Itself);
      EXPECT_EQ(end.outcome.state, AttemptState::Failed);
      EXPECT_EQ(end.outcome.reason, "The module of the type \"Sketch\" failed: " +
                                        std::string(thrown[0] == 'r' ? "raised" : "thrown") +
                                        thrown.substr(5));
    }
    EXPECT_FALSE(std::filesystem::exists(directory.file("out/.trovik-" + queue + "-7.1.0.1")));
  }
}

TEST_F(TaskRunTest, NodeWithoutProcessesIsWaitedFor) {
  FakeMachine machine;
  int refused = 0;
  machine.beforeStart = [&refused](const ProcessStart&) {
    if (refused++ < 3) {
      RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
    }
  };
  times = TaskTimes();
  plan({{1, 1}});
  std::vector<std::string> log;
  const LogSink before = SetLogSink([&log](LogLevel level, const String& text) {
    if (level >= LogLevel::Warning) {
      log.push_back(text);
    }
  });
  EXPECT_TRUE(run(0, machine, machine));
  SetLogSink(before);
  EXPECT_EQ(refused, 4);
  EXPECT_EQ(log, std::vector<std::string>{
                     "this node has no more processes to give (EAGAIN); the work is started when it has"});
  EXPECT_NE(works.endOf(0).value().outcome.rule, VerdictRule::Start) << works.endOf(0).value().outcome.reason;
  EXPECT_GT(works.beatOf(0).value().count, 1) << "it lives while it waits";
}

TEST_F(TaskRunTest, WorkFailsWhereANodeHasNoProcessesForLong) {
  FakeMachine machine;
  machine.beforeStart = [](const ProcessStart&) {
    RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
  };
  times = TaskTimes();
  plan({{1, 1}});
  const LogSink before = SetLogSink([](LogLevel, const String&) {});
  EXPECT_TRUE(run(0, machine, machine));
  SetLogSink(before);
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.outcome.state, AttemptState::Failed);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
  EXPECT_EQ(end.outcome.reason, "cannot start it: Resource temporarily unavailable");
  EXPECT_GE(machine.elapsed(), times.shortage);
  EXPECT_EQ(output(), Names{});
}

TEST_F(TaskRunTest, TaskThatIsEndedWhileItsNodeHasNoProcessesHasNotFailed) {
  FakeMachine machine;
  machine.beforeStart = [](const ProcessStart&) {
    RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
  };
  machine.interrupts = {10s};
  times = TaskTimes();
  plan({{1, 1}});
  const LogSink before = SetLogSink([](LogLevel, const String&) {});
  EXPECT_TRUE(run(0, machine, machine));
  SetLogSink(before);
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Interrupted);
  EXPECT_EQ(end.outcome.reason, "The cluster ended its task");
  EXPECT_LE(machine.elapsed(), 13s);
}

TEST_F(TaskRunTest, UnknownTypeIsAResult) {
  FolderJob entry;
  plan({{1, 1}});
  entry = folder.read();
  entry.type = UID(true);
  folder.create(entry);
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
  EXPECT_NE(end.outcome.reason, "");
}

TEST_F(TaskRunTest, AllocatedCpusAreTheJobs) {
  job->SetParameter("CommandString", "9 8 x; $(CPUs)");
  self.cpus = 5;
  plan({{1, 1}});
  EXPECT_TRUE(run());
  EXPECT_TRUE(works.endOf(0).value().outcome.command.ends_with(" 5"))
      << works.endOf(0).value().outcome.command;
}

TEST_F(TaskRunTest, CanceledArrayIsLeftAlone) {
  plan({{1, 1}});
  works.cancel();
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "");
  EXPECT_EQ(works.lastClaim(0), 0);
  EXPECT_FALSE(works.hasEnded(0));
}

TEST_F(TaskRunTest, CanceledWorkKeepsItsGoodFrames) {
  plan({{1, 4}, {5, 5}}, 2);
  hold(3);
  const pid_t task = startTask(0);
  const int held = heldAt(3);
  works.cancel();
  EXPECT_EQ(waitFor(task), 0);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Canceled);
  EXPECT_EQ(end.outcome.state, AttemptState::Canceled);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Canceled);
  EXPECT_EQ(end.outcome.reason, "Canceled");
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(output(), (Names{"f_1", "f_2"}));
  EXPECT_EQ(works.lastClaim(1), 0);
}

TEST_F(TaskRunTest, InterruptedWorkIsLostButForItsGoodFrames) {
  plan({{1, 4}, {5, 5}}, 2);
  hold(3);
  const pid_t task = startTask(0);
  const int held = heldAt(3);
  kill(task, SIGTERM);
  EXPECT_EQ(waitFor(task), 1); // the second position has no result
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Interrupted);
  EXPECT_EQ(end.outcome.state, AttemptState::Lost);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Cluster);
  EXPECT_EQ(end.outcome.reason, "The cluster ended its task");
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(output(), (Names{"f_1", "f_2"}));
  EXPECT_EQ(journal(), "1 2 3");
}

TEST_F(TaskRunTest, InterruptOfACanceledArrayCountsAsCanceled) {
  times.beat = 60s;
  plan({{1, 4}});
  hold(2);
  const pid_t task = startTask(0);
  heldAt(2);
  works.cancel();
  kill(task, SIGTERM);
  EXPECT_EQ(waitFor(task), 0);
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::Canceled);
}

TEST_F(TaskRunTest, ProgramThatDiesOfTheInterruptBeforeItIsHeardHasNotFailed) {
  FakeMachine machine;
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.ends = 10s;
    script.signal = SIGTERM;
    return script;
  };
  times = TaskTimes();
  plan({{1, 1}});
  machine.interrupts = {10s + times.aftermath / 2};
  EXPECT_TRUE(run(0, machine, machine));
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::Interrupted);

  std::filesystem::remove_all(works.directory().Text().c_str());
  FakeMachine later;
  later.behaviour = machine.behaviour;
  plan({{1, 1}});
  later.interrupts = {10s + 2 * times.aftermath};
  EXPECT_TRUE(run(0, later, later));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Signal);
}

TEST_F(TaskRunTest, ProgramThatHeedsNoInterruptIsKilledInTime) {
  FakeMachine machine;
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.heedsTerminate = false;
    return script;
  };
  times = TaskTimes();
  plan({{1, 1}});
  machine.interrupts = {10s};
  EXPECT_TRUE(run(0, machine, machine));
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"term", "kill"}));
  EXPECT_LE(machine.elapsed(), 13s);
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::Interrupted);
}

TEST_F(TaskRunTest, WorksWithoutAStageToo) {
  staged = false;
  plan({{1, 4}});
  hold(3);
  const pid_t first = startTask(0);
  const int held = heldAt(3);
  ASSERT_TRUE(beatNames(2));
  EXPECT_EQ(works.claimOf(0, 1).value().stage, "");
  kill(first, SIGKILL);
  waitFor(first);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  release(3);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 3 4");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-4");
  EXPECT_EQ(output(), (Names{"f_1", "f_2", "f_3", "f_4"}));
}

TEST_F(TaskRunTest, NamesThatAreNoTextSurvive) {
  const std::string odd = directory.file("out \xff");
  job->SetParameter(p_OutputFolder, odd);
  plan({{1, 1}});
  EXPECT_TRUE(run());
  EXPECT_EQ(works.endOf(0).value().outcome.files.at(0).path, odd + "/f_1");
  EXPECT_TRUE(std::filesystem::exists(odd + "/f_1"));
}

TEST_F(TaskRunTest, BeatsTellHowFarAWorkIs) {
  plan({{1, 3}});
  hold(3);
  const pid_t task = startTask(0);
  heldAt(3);
  ASSERT_TRUE(beatNames(2));
  ASSERT_TRUE(comes([&] { return works.beatOf(0).value().silent > 0.1; }));
  const WorkBeat beat = works.beatOf(0).value();
  EXPECT_EQ(beat.claim, 1);
  EXPECT_EQ(beat.stage, "running");
  EXPECT_EQ(beat.log, directory.file("folder/q-7/logs/1-3.log"));
  EXPECT_EQ(beat.logBytes, static_cast<std::int64_t>(std::filesystem::file_size(beat.log)));
  EXPECT_GE(beat.running, beat.silent);
  EXPECT_EQ(beat.files.at(1).frame, 2);
  EXPECT_TRUE(comes([&] { return works.beatOf(0).value().count > beat.count; }));
  release(3);
  EXPECT_EQ(waitFor(task), 0);
}

TEST_F(TaskRunTest, HowAProgramEndedIsKnownWhileItsFilesAreChecked) {
  plan({{1, 1}});
  SteeredMachine machine;
  NoInterrupts interrupts;
  std::optional<WorkBeat> checking;
  machine.onWait = [&](int) {
    const std::optional<WorkBeat> beat = works.beatOf(0);
    checking = beat && beat->end ? beat : checking;
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  ASSERT_TRUE(checking.has_value());
  EXPECT_EQ(checking->stage, "checking");
  EXPECT_EQ(checking->end->Code, 0);
  EXPECT_EQ(checking->end->Signal, 0);
  EXPECT_EQ(checking->logBytes, static_cast<std::int64_t>(readFile(checking->log).size()));
}

} // namespace
} // namespace trovik
