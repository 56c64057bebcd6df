#include "tests/trovik/cluster/TaskRunTest.h"

// Processes at the same work: twins, and successors of what has died.

extern const char* const CLUSTER_RENDERER;

namespace trovik {
namespace {

using namespace std::chrono_literals;

TEST_F(TaskRunTest, TwinWaitsForTheLivingProcessAndRendersNothing) {
  plan({{1, 3}});
  hold(2);
  const pid_t first = startTask(0);
  heldAt(2);
  SteeredMachine machine;
  NoInterrupts interrupts;
  machine.onWait = [&](int turn) {
    if (turn == 20) {
      EXPECT_EQ(works.lastClaim(0), 1);
      release(2);
    }
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  EXPECT_EQ(waitFor(first), 0);
  EXPECT_EQ(journal(), "1 2 3");
  EXPECT_EQ(works.lastClaim(0), 1);
  EXPECT_EQ(works.endOf(0).value().claim, 1);
}

TEST_F(TaskRunTest, TwinThatIsInterruptedWhileItWaitsLeavesNothing) {
  plan({{1, 1}});
  hold(1);
  startTask(0);
  heldAt(1);
  const pid_t twin = startTask(0);
  kill(twin, SIGTERM);
  const int code = waitFor(twin);
  EXPECT_TRUE(code == 1 || code == 128 + SIGTERM) << code; // before its handlers were there
  EXPECT_EQ(works.lastClaim(0), 1);
  EXPECT_FALSE(works.hasEnded(0));
}

TEST_F(TaskRunTest, SuccessorRendersOnlyWhatADeadProcessLeftUndone) {
  plan({{1, 4}});
  hold(3);
  const pid_t first = startTask(0);
  const int held = heldAt(3);
  ASSERT_TRUE(beatNames(2));
  kill(first, SIGKILL);
  EXPECT_EQ(waitFor(first), 128 + SIGKILL);
  EXPECT_TRUE(comes([&] { return isGone(held); })) << "the guard did not end the program";
  release(3);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 3 4");
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.claim, 2);
  EXPECT_EQ(end.outcome.state, AttemptState::Good);
  EXPECT_EQ(end.outcome.good.text(), "1-4");
  EXPECT_EQ(pathsOf(end.outcome), "f_1 f_2 f_3 f_4");
  EXPECT_EQ(end.outcome.log, directory.file("folder/q-7/logs/3-4.restart1.log"));
  EXPECT_EQ(output(), (Names{"f_1", "f_2", "f_3", "f_4"}));
}

TEST_F(TaskRunTest, SuccessorKnowsTheFilesThatWereNamedSinceTheLastBeat) {
  times.beat = times.leastBeat = 200s;
  plan({{1, 5}});
  hold(4);
  const pid_t first = startTask(0);
  const int held = heldAt(4);
  const std::string log = directory.file("folder/q-7/logs/1-5.log");
  ASSERT_TRUE(comes([&] { return readFile(log).ends_with("f_3\n"); }));
  EXPECT_TRUE(works.beatOf(0).value().files.empty());
  kill(first, SIGKILL);
  waitFor(first);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  release(4);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 4 4 5");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-5");
}

TEST_F(TaskRunTest, ThirdProcessTakesUpWhatTheFirstTwoLeft) {
  plan({{1, 6}});
  for (const int frame : {3, 5}) {
    hold(frame);
    const pid_t task = startTask(0);
    const int held = heldAt(frame);
    ASSERT_TRUE(beatNames(static_cast<std::size_t>(frame) - 1));
    kill(task, SIGKILL);
    waitFor(task);
    EXPECT_TRUE(comes([&] { return isGone(held); }));
    release(frame);
  }
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 3 4 5 5 6");
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 3);
  EXPECT_EQ(end.outcome.good.text(), "1-6");
  EXPECT_EQ(pathsOf(end.outcome), "f_1 f_2 f_3 f_4 f_5 f_6");
}

TEST_F(TaskRunTest, SuccessorEndsTheProgramOfADeadProcessOnItsMachine) {
  plan({{1, 4}});
  hold(3);
  const pid_t first = startTask(0, Guard::No);
  const int held = heldAt(3);
  ASSERT_TRUE(beatNames(2));
  kill(first, SIGKILL);
  waitFor(first);
  EXPECT_FALSE(isGone(held));
  SteeredMachine machine;
  NoInterrupts interrupts;
  machine.onWait = [&](int) {
    if (isGone(held)) {
      release(3);
    }
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  EXPECT_TRUE(isGone(held));
  EXPECT_EQ(journal(), "1 2 3 3 4");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-4");
}

TEST_F(TaskRunTest, ProcessThatWakesAfterTheTakeoverLeavesNoTrace) {
  plan({{1, 4}}, 1, 2s);
  hold(3);
  const pid_t first = startTask(0, Guard::No);
  heldAt(3);
  ASSERT_TRUE(beatNames(2));
  kill(first, SIGSTOP);
  self.host = "elsewhere"; // where a process number of "here" says nothing
  release(3);              // its program goes on
  const pid_t second = startTask(0);
  EXPECT_EQ(waitFor(second), 0);
  WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 2);
  EXPECT_EQ(end.outcome.good.text(), "1-4");
  const Names names = output();
  std::map<std::string, std::string> before;
  for (const std::string& name : names) {
    before[name] = readFile(directory.file("out/" + name));
  }
  EXPECT_EQ(names, (Names{"f_1", "f_2", "f_3", "f_4"}));
  kill(first, SIGCONT);
  EXPECT_EQ(waitFor(first), 0); // its place has a result
  end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 2);
  EXPECT_EQ(works.lastClaim(0), 2);
  EXPECT_EQ(output(), names);
  for (const std::string& name : names) {
    EXPECT_EQ(readFile(directory.file("out/" + name)), before[name]);
  }
}

TEST_F(TaskRunTest, ProgramOfATaskThatStandsStillIsEndedAndHasNotFailed) {
  plan({{1, 4}}, 1, 2s);
  hold(3);
  const pid_t task = startTask(0);
  const int held = heldAt(3);
  kill(task, SIGSTOP);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  kill(task, SIGCONT);
  EXPECT_EQ(waitFor(task), 0);
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Interrupted);
  EXPECT_EQ(end.outcome.state, AttemptState::Lost);
  EXPECT_EQ(end.outcome.reason, "Its task stood still for too long");
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(output(), (Names{"f_1", "f_2"}));
}

TEST_F(TaskRunTest, SilentProcessIsTakenOverAndALivingOneNever) {
  plan({{1, 2}}, 1, 1s);
  self.host = "elsewhere";
  WorkClaim claim;
  claim.host = "gone";
  claim.boot = "b";
  claim.process = 1;
  ASSERT_TRUE(works.claim(0, claim));
  // As long as it beats it lives, however long the patience is over.
  SteeredMachine machine;
  NoInterrupts interrupts;
  WorkBeat beat;
  const auto until = std::chrono::steady_clock::now() + 3s;
  bool early = false;
  machine.onWait = [&](int) {
    if (std::chrono::steady_clock::now() < until) {
      early = early || works.lastClaim(0) > 1;
      ++beat.count;
      works.beat(0, beat);
    }
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  EXPECT_FALSE(early);
  EXPECT_EQ(works.endOf(0).value().claim, 2);
}

TEST_F(TaskRunTest, DamagedClaimIsJudgedByItsBeat) {
  plan({{1, 1}}, 1, 1s);
  directory.write("folder/q-7/1/0.claim.1", "{\"version\":");
  EXPECT_TRUE(run());
  EXPECT_EQ(works.endOf(0).value().claim, 2);
  EXPECT_EQ(output(), Names{"f_1"});
}

TEST_F(TaskRunTest, WorkThatWasGivenUpIsLeftAlone) {
  plan({{1, 3}});
  hold(2);
  const pid_t task = startTask(0);
  const int held = heldAt(2);
  WorkEnd end;
  end.by = WorkEnd::By::GivenUp;
  end.outcome.state = AttemptState::Lost;
  ASSERT_TRUE(works.leave(0, end));
  EXPECT_EQ(waitFor(task), 0);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::GivenUp);
  EXPECT_EQ(output(), Names{});
}

TEST_F(TaskRunTest, WhatWasPublishedBeforeADeathIsNotRenderedAgain) {
  plan({{1, 2}});
  EXPECT_TRUE(run());
  // As if the process had died between its renames and its result.
  const Moment started = works.claimOf(0, 1).value().started;
  std::filesystem::remove(works.directory().Text() + "/0.result");
  directory.write("out/.trovik-" + queue + "-7.1.0.1/left", "");
  WorkBeat beat = works.beatOf(0).value();
  FileRecord file;
  for (const int frame : {1, 2}) {
    file.path = directory.file("out/.trovik-" + queue + "-7.1.0.1/f_" + std::to_string(frame));
    file.frame = frame;
    beat.files.push_back(file);
  }
  works.beat(0, beat);
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 2);
  EXPECT_GE(end.started, started);
  EXPECT_EQ(end.outcome.state, AttemptState::Good);
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(journal(), "1 2 2"); // the last may have been at work
}

// As an attempt leaves it that failed a moment ago, before a process on another
// node that skips what is there, and dies.
TEST_F(TaskRunTest, WhatWasThereBeforeADeadProcessIsRendered) {
  staged = false;
  plan({{1, 3}}, 1, 1s);
  self.host = "elsewhere";
  for (const int frame : {1, 2}) {
    directory.write("out/f_" + std::to_string(frame), "of before");
  }
  WorkClaim claim;
  claim.host = "gone";
  claim.boot = "b";
  claim.process = 1;
  ASSERT_TRUE(works.claim(0, claim));
  FilesBefore before;
  before.Note({}, {Path(directory.file("out"))}, true);
  WorkBeat beat;
  beat.filesBefore = before.Text();
  directory.write("out/f_2", "rendered");
  for (const int frame : {1, 2}) {
    FileRecord file;
    file.path = directory.file("out/f_" + std::to_string(frame));
    file.frame = frame;
    beat.files.push_back(file);
  }
  works.beat(0, beat);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 3");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-3");
  EXPECT_EQ(readFile(directory.file("out/f_2")), "rendered");
}

TEST_F(TaskRunTest, RacingTasksRenderEveryFrameOnce) {
  std::vector<FrameRun> runs;
  for (int frame = 1; frame <= 12; ++frame) {
    runs.push_back({frame, frame});
  }
  plan(runs, runs.size());
  std::vector<pid_t> tasks(5);
  for (pid_t& task : tasks) {
    task = startTask(0);
  }
  for (const pid_t task : tasks) {
    EXPECT_EQ(waitFor(task), 0);
  }
  std::istringstream stream(journal());
  std::multiset<int> frames;
  for (int frame = 0; stream >> frame;) {
    frames.insert(frame);
  }
  EXPECT_EQ(frames, (std::multiset<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(output().size(), 12U);
}

/// Kills tasks at random moments until their works are done: no frame is
/// rendered by two at once, none is lost, and all that is reported good is.
TEST_F(TaskRunTest, KillsAtAnyMomentLoseNothing) {
  job->SetParameter(p_Executable, CLUSTER_RENDERER);
  job->SetParameter("CommandString", "$(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote) " +
                                         EnquoteWord(directory.file("frames")) + " 40");
  job->SetParameter(p_ExpectedFiles, "$(OutputFolder)/f_$(Frame).ppm");
  WholeInspector whole;
  images = &whole;
  constexpr std::size_t positions = 4;
  constexpr int perPlace = 6;
  std::vector<FrameRun> runs;
  runs.reserve(positions);
  for (int position = 0; position < static_cast<int>(positions); ++position) {
    runs.push_back({position * perPlace + 1, (position + 1) * perPlace});
  }
  plan(runs, positions / 2);
  const unsigned seed = std::random_device()();
  std::cout << "seed " << seed << '\n';
  std::mt19937 random(seed);
  std::vector<pid_t> tasks;
  const auto allEnded = [&] {
    for (std::size_t position = 0; position < positions; ++position) {
      if (!works.hasEnded(position)) {
        return false;
      }
    }
    return true;
  };
  int kills = 0;
  for (; kills < 40 && !allEnded(); ++kills) {
    while (tasks.size() < 3) { // so that each has one or two processes
      tasks.push_back(startTask(random() % 2, random() % 2 == 0 ? Guard::Yes : Guard::No));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 120));
    const std::size_t victim = random() % tasks.size();
    kill(tasks[victim], SIGKILL);
    waitFor(tasks[victim]);
    tasks.erase(tasks.begin() + static_cast<std::ptrdiff_t>(victim));
  }
  for (const std::size_t index : {0U, 1U}) {
    tasks.push_back(startTask(index));
  }
  for (const pid_t task : tasks) {
    EXPECT_EQ(waitFor(task), 0);
  }
  RunSet good;
  for (std::size_t position = 0; position < positions; ++position) {
    const WorkEnd end = works.endOf(position).value();
    EXPECT_EQ(end.outcome.state, AttemptState::Good) << position << ": " << end.outcome.reason;
    good.add(end.outcome.good);
  }
  EXPECT_EQ(good.text(), "1-24");
  for (int frame = 1; frame <= 24; ++frame) {
    EXPECT_EQ(std::filesystem::file_size(directory.file("out/f_" + std::to_string(frame) + ".ppm")),
              WholeInspector::size);
  }
  EXPECT_EQ(readFile(directory.file("frames")).find("twice"), std::string::npos);
  std::cout << kills << " kills\n";
}

} // namespace
} // namespace trovik
