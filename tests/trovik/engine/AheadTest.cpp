#include "tests/trovik/engine/EngineTest.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <unistd.h>

// Short works are claimed many at a time, before there are slots for them.

namespace trovik {
namespace {

using namespace std::chrono_literals;

class AheadTest : public EngineTest {
protected:
  AheadTest() {
    machine.behaviour = [](const ProcessStart&) { return script(1ms); };
  }

  /// What the queue says of an attempt when its program begins.
  void watchStarts(JobId id) {
    machine.beforeStart = [this, id](const ProcessStart& start) {
      std::size_t running = 0;
      bool known = false;
      for (const AttemptRecord& attempt : other.attempts(id)) {
        running += attempt.state == AttemptState::Running ? 1U : 0U;
        known = known ||
                (attempt.state == AttemptState::Running && std::string(attempt.run.Text()) == frames(start));
      }
      EXPECT_TRUE(known) << frames(start) << " begins and the queue does not know";
      mostRunning = std::max(mostRunning, running);
    };
  }

  Queue other{Path(directory.file("queue"))}; // as one sees it who comes after a crash
  std::size_t mostRunning = 0;
};

TEST_F(AheadTest, TheQueueKnowsEachWorkBeforeItBegins) {
  const JobId id = submit("1-200");
  watchStarts(id);
  EXPECT_TRUE(workOff(id, 2).allGood());
  EXPECT_EQ(machine.started.size(), 200U);
  EXPECT_EQ(machine.mostRunning, 2U);
  EXPECT_GT(mostRunning, 10U) << "many were claimed at once";
  EXPECT_LE(mostRunning, 34U);
  EXPECT_EQ(machine.elapsed(), 100ms) << "no slot waits";
}

TEST_F(AheadTest, NoEndIsToldBeforeItIsRecordedNorBeforeItsStart) {
  const JobId id = submit("1-100");
  std::set<std::string> begun;
  recorder.watch = [&](const std::string& event) {
    const std::string work = event.substr(event.find(' ') + 1);
    if (event.starts_with("start ")) {
      EXPECT_TRUE(begun.insert(work.substr(0, work.find(' '))).second) << event;
    } else if (event.starts_with("good ")) {
      EXPECT_TRUE(begun.contains(work)) << event;
      EXPECT_TRUE(other.frames(id).good.contains(std::stoi(work))) << event;
    }
  };
  EXPECT_TRUE(workOff(id, 2).allGood());
  EXPECT_EQ(begun.size(), 100U);
}

TEST_F(AheadTest, NeverAreMoreToldToRunThanThereAreSlots) {
  int running = 0;
  recorder.watch = [&running](const std::string& event) {
    running += event.starts_with("start ") ? 1 : event.starts_with("good ") ? -1 : 0;
    EXPECT_LE(running, 4); // the next ones begin before the end of the last ones is told
  };
  EXPECT_TRUE(run("1-100", 2).allGood());
  EXPECT_EQ(running, 0);
}

TEST_F(AheadTest, LongWorksAreClaimedForTheirSlotsAlone) {
  machine.behaviour = [](const ProcessStart&) { return script(30ms); };
  const JobId id = submit("1-50");
  watchStarts(id);
  EXPECT_TRUE(workOff(id, 2).allGood());
  EXPECT_EQ(mostRunning, 2U);
}

TEST_F(AheadTest, WhatDoesNotBeginInTimeIsGivenBack) {
  machine.behaviour = [](const ProcessStart& start) {
    return script(std::stoi(frames(start)) > 30 ? 10s : 1ms);
  };
  const JobId id = submit("1-60");
  std::size_t attempts = 0;
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.only = id;
  plan.slots = 2;
  plan.whenIdle = [&] { // while two programs of ten seconds run
    if (machine.elapsed() > 1s && attempts == 0) {
      attempts = other.attempts(id).size();
      EXPECT_EQ(other.frames(id).runningWorks, 2U);
      EXPECT_EQ(other.engines().at(0).running.size(), 2U);
    }
  };
  EXPECT_TRUE(engine.run(plan));
  EXPECT_GT(attempts, 0U);
  EXPECT_TRUE(queue.summary(id).allGood());
  for (const WorkRecord& work : queue.works(id)) {
    EXPECT_EQ(work.attempts, 1) << "what was given back counts for nothing";
  }
}

TEST_F(AheadTest, AFailureIsRecordedBeforeAnythingElseBegins) {
  machine.behaviour = [](const ProcessStart& start) { return script(1ms, frames(start) == "20-20" ? 1 : 0); };
  const JobId id = submit("1-60");
  bool failed = false;
  std::size_t late = 0;
  machine.beforeStart = [&](const ProcessStart& start) {
    const JobFrames stand = other.frames(id);
    failed = failed || stand.failed.contains(20);
    late += std::stoi(frames(start)) > 22 && !failed ? 1U : 0U;
  };
  const RunSummary summary = workOff(id, 2);
  EXPECT_EQ(summary.failed.text(), "20");
  EXPECT_EQ(late, 0U);
}

TEST_F(AheadTest, OneThatCannotBePreparedFailsInItsTurn) {
  const std::string& folder = directory.path();
  directory.write("30", "no folder");
  job->SetParameter(p_OutputFolder, folder + "/$(SubRange.Start)");
  const JobId id = submit("1-60");
  watchStarts(id);
  const RunSummary summary = workOff(id, 2);
  EXPECT_EQ(summary.failed.text(), "30");
  EXPECT_EQ(summary.good.text(), "1-29,31-60");
  EXPECT_EQ(machine.started.size(), 59U);
  const std::string reason = "Cannot create folder \"" + folder + "/30\"";
  const auto told = std::find_if(recorder.events.begin(), recorder.events.end(),
                                 [](const std::string& event) { return event.starts_with("failed 30"); });
  ASSERT_NE(told, recorder.events.end());
  EXPECT_NE(told->find(reason), std::string::npos) << *told;
  EXPECT_NE(std::find(recorder.events.begin(), told, "start 30 1/1"), told) << "it was told to have begun";
  for (const WorkRecord& work : queue.works(id)) {
    EXPECT_EQ(work.attempts, 1);
  }
}

// A slot is filled before the files of what was in it are looked into.
TEST_F(AheadTest, NeverRunMoreProgramsThanThereAreSlotsWhileFilesAreLookedInto) {
  job->SetParameter(p_ExpectedFiles, directory.file("$(SubRange.Start).png"));
  machine.beforeStart = [&](const ProcessStart& start) {
    directory.write(std::to_string(std::stoi(frames(start))) + ".png", "image");
  };
  inspector.problems[directory.file("40.png")] = "Torn";
  const JobId id = submit("1-60");
  const RunSummary summary = workOff(id, 2);
  EXPECT_EQ(summary.failed.text(), "40");
  EXPECT_EQ(summary.good.text(), "1-39,41-60");
  EXPECT_EQ(machine.started.size(), 60U);
  EXPECT_EQ(machine.mostRunning, 2U);
  EXPECT_LE(inspector.mostWaiting, 2U) << "what waits to be looked into keeps its slot";
  std::set<std::string> ended;
  for (const std::string& event : recorder.events) {
    if (event.starts_with("good ") || event.starts_with("failed ")) {
      EXPECT_TRUE(ended.insert(event.substr(0, event.find(':'))).second) << event;
    }
  }
  EXPECT_EQ(ended.size(), 60U) << "each is told once";
}

TEST_F(AheadTest, WhatWasPreparedAndGivenBackIsPreparedAnew) {
  machine.behaviour = [](const ProcessStart& start) {
    return script(frames(start) == "20-20" ? 5s : 1ms, frames(start) == "40-40" ? 1 : 0);
  };
  const JobId id = submit("1-60", 1);
  std::map<std::string, int> starts;
  machine.beforeStart = [&](const ProcessStart& start) { ++starts[frames(start)]; };
  EXPECT_EQ(workOff(id, 2).failed.text(), "40");
  for (const auto& [work, count] : starts) {
    EXPECT_EQ(count, work == "40-40" ? 2 : 1) << work;
  }
  EXPECT_EQ(starts.size(), 60U);
}

TEST_F(AheadTest, WhatHasNotBegunIsGivenBackWhenTheUserStops) {
  machine.interrupts = {40ms};
  const JobId id = submit("1-200");
  const RunSummary summary = workOff(id, 2);
  EXPECT_TRUE(summary.interrupted);
  EXPECT_EQ(queue.attempts(id).size(), machine.started.size());
  EXPECT_EQ(queue.frames(id).runningWorks, 0U);
  queue.resume(id);
  machine.interrupts.clear();
  EXPECT_TRUE(workOff(id, 2).allGood());
}

TEST_F(AheadTest, ACanceledJobBeginsNothingMore) {
  const JobId id = submit("1-2000");
  machine.beforeStart = [&](const ProcessStart& start) {
    if (frames(start) == "100-100") {
      other.cancel(id);
    }
  };
  workOff(id, 2);
  EXPECT_EQ(queue.job(id)->state, JobState::Canceled);
  EXPECT_LT(machine.started.size(), 1200U) << "half a second of works";
  EXPECT_EQ(queue.frames(id).runningWorks, 0U);
}

/// From then on what an engine notes in its lock file cannot be written.
void makeLocksReadOnly(const std::string& directory) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
    if (target.starts_with(directory) && target.ends_with(".lock")) {
      const int reading = open(target.c_str(), O_RDONLY | O_CLOEXEC);
      ASSERT_GE(reading, 0);
      ASSERT_GE(dup3(reading, std::stoi(entry.path().filename().string()), O_CLOEXEC), 0);
      close(reading);
    }
  }
}

class UnnotedTest : public AheadTest, public testing::WithParamInterface<int> {};

TEST_P(UnnotedTest, NothingIsClaimedAheadWhereNoStartCanBeNoted) {
  const int from = GetParam();
  const JobId id = submit("1-100");
  std::size_t mostAfter = 0;
  machine.beforeStart = [&](const ProcessStart& start) {
    const int frame = std::stoi(frames(start));
    if (frame == from) {
      makeLocksReadOnly(directory.path());
    } else if (frame > from + 2) {
      mostAfter = std::max(mostAfter, other.frames(id).runningWorks);
    }
  };
  EXPECT_TRUE(workOff(id, 2).allGood());
  EXPECT_EQ(mostAfter, 2U);
  EXPECT_EQ(machine.started.size(), 100U);
  for (const WorkRecord& work : queue.works(id)) {
    EXPECT_EQ(work.attempts, 1);
  }
}

INSTANTIATE_TEST_SUITE_P(From, UnnotedTest, testing::Values(1, 30));

} // namespace
} // namespace trovik
