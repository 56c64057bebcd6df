#include "tests/trovik/engine/EngineTest.h"

// In which order the turns of an engine record, start and tell.

namespace trovik {
namespace {

using namespace std::chrono_literals;

class TurnTest : public EngineTest {
protected:
  TurnTest() {
    recorder.watch = [this](const std::string& event) {
      told.push_back(event + ", " + std::to_string(machine.started.size()) + " begun");
    };
  }

  Events told; ///< with the number of programs that had been started by then
};

TEST_F(TurnTest, TheEndOfAllIsCheckedForOnlyWhereNothingBegins) {
  machine.behaviour = [](const ProcessStart&) { return script(1ms); };
  const JobId id = submit("1-100");
  int checks = 0;
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.only = id;
  plan.whenIdle = [&] { ++checks; };
  EXPECT_TRUE(engine.run(plan));
  EXPECT_EQ(machine.elapsed(), 100ms) << "the end is not waited for";
  EXPECT_LE(checks, 2) << "at the start, and after the last work";
}

TEST_F(TurnTest, AProgramBeginsBeforeTheEndOfTheLastOneIsTold) {
  run("1-3");
  told.erase(told.begin());
  EXPECT_EQ(told, (Events{"start 1 1/1, 1 begun", "good 1, 2 begun", "start 2 1/1, 2 begun",
                          "good 2, 3 begun", "start 3 1/1, 3 begun", "good 3, 3 begun"}));
}

TEST_F(TurnTest, WhatBeginsAndWhatHasEndedIsRecordedBeforeAProgramBegins) {
  const JobId id = submit("1-4");
  Queue other{Path(directory.file("queue"))}; // as one sees it who comes after a crash
  Events seen;
  machine.beforeStart = [&](const ProcessStart& start) {
    seen.push_back(frames(start) + ":");
    for (const AttemptRecord& attempt : other.attempts(id)) {
      seen.back() += std::string(" ") + nameOf(attempt.state);
    }
  };
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(seen, (Events{"1-1: running", "2-2: good running", "3-3: good good running",
                          "4-4: good good good running"}));
}

TEST_F(TurnTest, TheEndOfAJobIsToldBeforeAnotherBegins) {
  submit("1");
  submit("5");
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.untilEmpty = true;
  EXPECT_TRUE(engine.run(plan));
  EXPECT_EQ(told, (Events{"run 1 frames=1 works=1 slots=1, 0 begun", "start 1 1/1, 1 begun",
                          "good 1, 1 begun", "end, 1 begun", "run 5 frames=1 works=1 slots=1, 1 begun",
                          "start 5 1/1, 2 begun", "good 5, 2 begun", "end, 2 begun"}));
}

TEST_F(TurnTest, AnObjectThatWasMadeAheadKnowsNothingOfOtherWorks) {
  job->SetParameter("SuccessTexts", "success");
  machine.behaviour = [](const ProcessStart& start) {
    return script(1s, 0, frames(start) == "3-3" ? "nothing\n" : "success\n");
  };
  const RunSummary summary = run("1-5", 2);
  EXPECT_EQ(summary.good.text(), "1-2,4-5");
  EXPECT_EQ(summary.failed.text(), "3");
}

} // namespace
} // namespace trovik
