#include "tests/trovik/engine/EngineTest.h"

#include "trovik/engine/EndCommand.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"

#include <cerrno>

namespace trovik {
namespace {

using namespace std::chrono_literals;

TEST_F(EngineTest, WorksAreDoneInTheirOrder) {
  const RunSummary summary = run("1-3");
  EXPECT_EQ(recorder.events, (Events{"run 1-3 frames=3 works=3 slots=1", "start 1 1/1", "good 1",
                                     "start 2 1/1", "good 2", "start 3 1/1", "good 3"}));
  EXPECT_TRUE(summary.allGood());
  EXPECT_EQ(summary.good.text(), "1-3");
  EXPECT_EQ(summary.duration, 3s);
}

TEST_F(EngineTest, ProgramGetsTheArgumentsOfItsWork) {
  run("4-4");
  ASSERT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(machine.started[0].Arguments, (std::vector<String>{"/bin/true", "4-4"}));
  EXPECT_EQ(machine.started[0].StartDirectory.Text(), directory.path());
}

TEST_F(EngineTest, SlotsAreFilledAndNotExceeded) {
  const RunSummary summary = run("1-7", 3);
  EXPECT_EQ(machine.mostRunning, 3U);
  EXPECT_EQ(summary.duration, 3s);
}

TEST_F(EngineTest, FreeSlotIsFilledAtOnce) {
  machine.behaviour = [](const ProcessStart& start) { return script(frames(start) == "1-1" ? 10s : 1s); };
  const RunSummary summary = run("1-5", 2);
  EXPECT_EQ(summary.duration, 10s);
  EXPECT_EQ(recorder.events.back(), "good 1");
}

TEST_F(EngineTest, JobWithoutFramesIsOneWork) {
  job->SetParameter("CommandString", "x");
  const RunSummary summary = run("");
  EXPECT_EQ(recorder.events, (Events{"run  frames=1 works=1 slots=1", "start work 1/1", "good work"}));
  EXPECT_EQ(summary.goodWorks, 1U);
  EXPECT_TRUE(summary.good.empty());
}

TEST_F(EngineTest, ANameWithAZeroByteIsNotTheFileBeforeIt) {
  job->SetParameter("ImageStartText", "image");
  const std::string name("x.png\0junk", 10);
  machine.behaviour = [&](const ProcessStart&) {
    directory.write("x.png", "x");
    Script one;
    one.ends = 3s;
    one.output = {{1s, "image " + name + "\n"}, {2s, "image " + name + "2\n"}};
    return one;
  };
  run("1");
  EXPECT_EQ(recorder.events,
            (Events{"run 1 frames=1 works=1 slots=1", "start 1 1/1",
                    "failed 1: No file's name has a zero byte: " + directory.file("x.png?junk")}));
  EXPECT_TRUE(inspector.asked.empty());
}

TEST_F(EngineTest, OneImageOfEveryFrameIsGoodForTheFirstAlone) {
  job->SetParameter("ImageStartText", "image");
  machine.behaviour = [&](const ProcessStart& start) {
    directory.write("all.png", frames(start));
    return script(1s, 0, "image all.png\n");
  };
  const RunSummary summary = run("1-3", 1, 4);
  const std::string reason = ": " + directory.file("all.png");
  EXPECT_EQ(
      recorder.events,
      (Events{"run 1-3 frames=3 works=3 slots=1", "start 1 1/5", "image 1 all.png", "good 1", "start 2 1/5",
              "image 2 all.png", "failed 2: Frame 2 has the same file as frame 1" + reason, "start 3 1/5",
              "image 3 all.png", "failed 3: Frame 3 has the same file as frame 1" + reason}));
  EXPECT_EQ(summary.good.text(), "1");
  EXPECT_EQ(summary.failed.text(), "2-3");
}

TEST_F(EngineTest, FailedWorkIsNamedWithItsReasonAndTheOthersAreDone) {
  machine.behaviour = [](const ProcessStart& start) {
    return script(1s, frames(start) == "2-2" ? 3 : 0, "first\nsecond\n");
  };
  const RunSummary summary = run("1-3");
  EXPECT_EQ(summary.good.text(), "1,3");
  EXPECT_EQ(summary.failed.text(), "2");
  ASSERT_EQ(summary.failures.size(), 1U);
  EXPECT_EQ(summary.failures[0].frames.text(), "2");
  EXPECT_EQ(summary.failures[0].reason, "Exit code 3; last line: second");
  EXPECT_EQ(summary.failures[0].log.Text(), directory.file("queue/logs/1/2-2.log"));
  EXPECT_FALSE(summary.allGood());
}

TEST_F(EngineTest, FailuresWithOneReasonAreOneGroup) {
  machine.behaviour = [](const ProcessStart& start) { return script(1s, frames(start) == "3-3" ? 4 : 5); };
  const RunSummary summary = run("1-4");
  ASSERT_EQ(summary.failures.size(), 2U);
  EXPECT_EQ(summary.failures[0].frames.text(), "1-2,4");
  EXPECT_EQ(summary.failures[0].works, 3U);
  EXPECT_EQ(summary.failures[1].frames.text(), "3");
}

TEST_F(EngineTest, LinesAroundTheErrorLineAreQuoted) {
  job->SetParameter(p_ErrorStarts, "fatal");
  machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "a\nb\nc\nd\nfatal: x\ne\nf\ng\nh\n"); };
  run("1");
  EXPECT_EQ(recorder.lines, (std::vector<std::string>{"b", "c", "d", "fatal: x", "e", "f", "g"}));
}

TEST_F(EngineTest, LogKeepsEveryByte) {
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.ends = 3s;
    result.output = {{1s, "\x1b[31mhalf"}, {2s, " line\r\n"}, {3s, "end"}};
    return result;
  };
  run("1");
  EXPECT_EQ(logOf("1-1"), "\x1b[31mhalf line\r\nend");
  EXPECT_EQ(recorder.log.Text(), directory.file("queue/logs/1/1-1.log"));
}

TEST_F(EngineTest, FailedWorkIsTriedAgainAfterTheOthers) {
  int failures = 1;
  machine.behaviour = [&failures](const ProcessStart& start) {
    return script(1s, frames(start) == "1-1" && failures-- > 0 ? 1 : 0, "said\n");
  };
  const RunSummary summary = run("1-2", 1, 2);
  EXPECT_EQ(recorder.events, (Events{"run 1-2 frames=2 works=2 slots=1", "start 1 1/3",
                                     "failed 1 again: Exit code 1; last line: said", "start 2 1/3", "good 2",
                                     "start 1 2/3", "good 1"}));
  EXPECT_TRUE(summary.allGood());
  EXPECT_EQ(logOf("1-1.attempt2"), "said\n");
}

TEST_F(EngineTest, RetriesAreCountedAndThenGivenUp) {
  machine.behaviour = [](const ProcessStart&) { return script(1s, 1); };
  const RunSummary summary = run("1", 1, 1);
  EXPECT_EQ(recorder.events, (Events{"run 1 frames=1 works=1 slots=1", "start 1 1/2",
                                     "failed 1 again: Exit code 1", "start 1 2/2", "failed 1: Exit code 1"}));
  EXPECT_EQ(summary.failedWorks, 1U);
  EXPECT_EQ(summary.failed.text(), "1");
}

TEST_F(EngineTest, ProgramThatCannotBeStartedFailsItsWork) {
  machine.beforeStart = [](const ProcessStart& start) {
    if (frames(start) == "1-1") {
      RaiseException("start", k_ErrorSystem, "cannot start it", 11);
    }
  };
  const RunSummary summary = run("1-2");
  EXPECT_EQ(summary.failed.text(), "1");
  EXPECT_EQ(summary.good.text(), "2");
  EXPECT_EQ(summary.failures[0].reason, "cannot start it: Resource temporarily unavailable");
}

TEST_F(EngineTest, WorkThatCannotBePreparedIsNotTriedAgain) {
  job->SetParameter(p_Executable, "/nowhere/program");
  const RunSummary summary = run("1-2", 2, 5);
  EXPECT_EQ(summary.failedWorks, 2U);
  EXPECT_TRUE(machine.started.empty());
  EXPECT_EQ(recorder.events[1], "start 1 1/6");
  EXPECT_EQ(recorder.events[3].substr(0, 9), "failed 1:");
}

TEST_F(EngineTest, RunTimeLimitEndsAProgramPolitely) {
  job->SetParameter(p_RunTimeLimit, "30");
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.output = {{29s, "busy\n"}};
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_EQ(machine.signals, std::vector<std::string>{"term"});
  EXPECT_EQ(summary.duration, 30s);
  EXPECT_EQ(summary.failed.text(), "1");
  EXPECT_NE(summary.failures.at(0).reason.find("time limit"), std::string::npos)
      << summary.failures[0].reason;
}

TEST_F(EngineTest, ProgramThatDoesNotEndPolitelyIsKilledAfterTheGrace) {
  job->SetParameter(p_RunTimeLimit, "30");
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.heedsTerminate = false;
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"term", "kill"}));
  EXPECT_EQ(summary.duration, 30s + ProgramRun::k_Grace);
}

TEST_F(EngineTest, SilenceLimitCountsFromTheLastOutput) {
  job->SetParameter(p_SilenceLimit, "1m");
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.output = {{50s, "."}, {100s, "."}};
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_EQ(summary.duration, 160s);
  EXPECT_EQ(machine.signals, std::vector<std::string>{"term"});
}

TEST_F(EngineTest, WithoutLimitsThereIsNoDeadline) {
  machine.behaviour = [](const ProcessStart&) { return script(100h); };
  EXPECT_TRUE(run("1").allGood());
}

TEST_F(EngineTest, OutputHeldOpenByAnotherDoesNotKeepTheWork) {
  machine.behaviour = [](const ProcessStart&) {
    Script result = script(1s);
    result.outputStaysOpen = true;
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_TRUE(summary.allGood());
  EXPECT_EQ(summary.duration, 1s + ProgramRun::k_RestPatience);
}

TEST_F(EngineTest, WhatAProgramLeavesBehindIsEndedBeforeItsVerdict) {
  machine.behaviour = [](const ProcessStart&) {
    Script result = script(1s);
    result.leaves = 100s;
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_TRUE(summary.allGood());
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"term", "kill"}));
  EXPECT_EQ(summary.duration, 1s + ProgramRun::k_RestPatience);
}

TEST_F(EngineTest, WhatAProgramLeavesBehindMayEndByItself) {
  machine.behaviour = [](const ProcessStart&) {
    Script result = script(1s);
    result.leaves = 1500ms;
    return result;
  };
  EXPECT_EQ(run("1").duration, 1500ms);
  EXPECT_EQ(machine.signals, std::vector<std::string>{"term"});
}

TEST_F(EngineTest, WorkIsNotBegunAgainWhileAnythingOfItIsLeft) {
  job->SetParameter(p_RunTimeLimit, "30");
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.leaves = 100s; // waits for a disk all that time
    result.killEnds = false;
    return result;
  };
  const RunSummary summary = run("1", 4, 1);
  EXPECT_EQ(machine.started.size(), 2U);
  EXPECT_EQ(machine.mostRunning, 1U);
  EXPECT_EQ(summary.duration, 200s);
}

TEST_F(EngineTest, SecondStopLeavesWhatDoesNotEndToTheNextEngine) {
  machine.interrupts = {2s, 3s};
  machine.behaviour = [](const ProcessStart&) {
    Script result = script(1s);
    result.leaves = 100h;
    result.killEnds = false;
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_LT(summary.duration, 4s);
  EXPECT_EQ(summary.good.text(), "");
  EXPECT_TRUE(queue.hasLost());
}

TEST_F(EngineTest, SecondStopDoesNotWaitForAHelperThatHangs) {
  machine.interrupts = {2s, 3s};
  inspector.hangs = true;
  job->SetParameter(p_ExpectedFiles, directory.write("frame.png", "x"));
  const RunSummary summary = run("1");
  EXPECT_EQ(inspector.asked.size(), 1U);
  EXPECT_LT(summary.duration, 4s);
  EXPECT_TRUE(queue.hasLost());
}

TEST_F(EngineTest, StopAsksProgramsToEndAndSaysWhatIsNotDone) {
  machine.interrupts = {1500ms};
  const RunSummary summary = run("1-6", 2);
  EXPECT_EQ(recorder.events,
            (Events{"run 1-6 frames=6 works=6 slots=2", "start 1 1/1", "start 2 1/1", "good 1", "good 2",
                    "start 3 1/1", "start 4 1/1", "interrupted 1 running=2", "canceled 3: Canceled",
                    "canceled 4: Canceled"}));
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"term", "term"}));
  EXPECT_TRUE(summary.interrupted);
  EXPECT_EQ(summary.good.text(), "1-2");
  EXPECT_EQ(summary.notDone.text(), "3-6");
  EXPECT_EQ(summary.notDoneWorks, 4U);
  EXPECT_FALSE(summary.allGood());
}

TEST_F(EngineTest, SecondStopKillsAtOnce) {
  machine.interrupts = {1s, 2s};
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.heedsTerminate = false;
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"term", "kill"}));
  EXPECT_EQ(summary.duration, 2s);
  EXPECT_EQ(summary.notDone.text(), "1");
}

TEST_F(EngineTest, StopKillsAfterTheGraceWithoutASecondOne) {
  machine.interrupts = {1s};
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    result.heedsTerminate = false;
    return result;
  };
  EXPECT_EQ(run("1").duration, 1s + ProgramRun::k_Grace);
}

TEST_F(EngineTest, WorkThatEndedByItselfBeforeTheStopCounts) {
  machine.interrupts = {1200ms};
  machine.behaviour = [](const ProcessStart&) {
    Script result = script(1s);
    result.outputStaysOpen = true; // still waited for when the stop comes
    return result;
  };
  const RunSummary summary = run("1-2");
  EXPECT_EQ(summary.good.text(), "1");
  EXPECT_EQ(summary.notDone.text(), "2");
}

TEST_F(EngineTest, RetriesEndWithTheStop) {
  machine.interrupts = {500ms};
  machine.behaviour = [](const ProcessStart&) {
    Script result = script(600ms, 1);
    result.heedsTerminate = false;
    return result;
  };
  const RunSummary summary = run("1", 1, 5);
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(summary.notDone.text(), "1");
}

TEST_F(EngineTest, ImageIsToldWhenTheNextIsNamedAndTheLastAtAGoodEnd) {
  const std::string one = directory.write("one.png", "x");
  const std::string two = directory.write("two.png", "x");
  machine.behaviour = [&](const ProcessStart&) {
    Script result;
    result.ends = 3s;
    result.output = {{1s, "image " + one + "\n"}, {2s, "image two.png\n"}};
    return result;
  };
  const RunSummary summary = run("1");
  EXPECT_EQ(recorder.events, (Events{"run 1 frames=1 works=1 slots=1", "start 1 1/1", "image 1 one.png",
                                     "image 1 two.png", "good 1"}));
  EXPECT_EQ(summary.imageCount(), 2U);
  EXPECT_EQ(summary.images.at(directory.path()), 2U);
}

TEST_F(EngineTest, ImageOfAFailedWorkIsNotToldUnlessAnotherFollowedIt) {
  const std::string one = directory.write("one.png", "x");
  const std::string two = directory.write("two.png", "x");
  machine.behaviour = [&](const ProcessStart&) {
    return script(2s, 1, "image " + one + "\nimage " + two + "\n");
  };
  const RunSummary summary = run("1");
  EXPECT_EQ(recorder.events[2], "image 1 one.png");
  EXPECT_EQ(recorder.events[3].substr(0, 8), "failed 1");
  EXPECT_EQ(summary.failedWorks, 1U);
}

TEST_F(EngineTest, EmptyAndMissingFilesAreNoImages) {
  const std::string empty = directory.write("empty.png", "");
  machine.behaviour = [&](const ProcessStart&) {
    return script(2s, 1, "image " + empty + "\nimage /nowhere/x.png\nimage /y.png\n");
  };
  EXPECT_EQ(run("1").imageCount(), 0U);
}

TEST_F(EngineTest, ExpectedFilesAreToldAsImages) {
  job->SetParameter(p_ExpectedFiles, directory.path() + "/f_$(Frame.Pad(3)).png");
  machine.beforeStart = [&](const ProcessStart&) { directory.write("f_007.png", "x"); };
  run("7");
  EXPECT_EQ(recorder.events[2], "image 7 f_007.png");
  EXPECT_EQ(recorder.events[3], "good 7");
}

TEST_F(EngineTest, AFileIsToldOnceARun) {
  const std::string one = directory.write("one.png", "x");
  machine.behaviour = [&](const ProcessStart&) { return script(1s, 0, "image " + one + "\n"); };
  EXPECT_EQ(run("1-3").imageCount(), 1U);
}

TEST_F(EngineTest, PacketsAreWorksOfSeveralFrames) {
  job->SetParameter(p_PacketSize, "4");
  const RunSummary summary = run("1-10");
  ASSERT_EQ(machine.started.size(), 3U);
  EXPECT_EQ(frames(machine.started[2]), "9-10");
  EXPECT_EQ(summary.info.works, 3U);
  EXPECT_EQ(summary.info.frames, 10U);
}

TEST_F(EngineTest, FloodOfOutputDoesNotStarveTheLimit) {
  job->SetParameter(p_RunTimeLimit, "10");
  machine.behaviour = [](const ProcessStart&) {
    Script result;
    for (int second = 0; second < 60; ++second) {
      result.output.emplace_back(std::chrono::seconds(second), std::string(std::size_t{3} << 20U, 'x'));
    }
    return result;
  };
  EXPECT_EQ(run("1").duration, 10s);
}

TEST_F(EngineTest, RetryOfAPacketIsCutToTheFramesWithoutAGoodFile) {
  job->SetParameter(p_PacketSize, "6");
  job->SetParameter(p_ExpectedFiles, directory.path() + "/f_$(Frame).drw");
  machine.beforeStart = [&](const ProcessStart& start) {
    if (frames(start) == "1-6") {
      for (const char* name : {"f_1.drw", "f_2.drw", "f_4.drw"}) {
        directory.write(name, "x");
      }
    } else {
      directory.write("f_3.drw", "x");
      directory.write("f_5.drw", "x");
      directory.write("f_6.drw", "x");
    }
  };
  machine.behaviour = [](const ProcessStart& start) {
    Script result = script(1s);
    result.signal = frames(start) == "1-6" ? SIGSEGV : 0;
    return result;
  };
  const RunSummary summary = run("1-6", 1, 1);
  EXPECT_TRUE(summary.allGood());
  ASSERT_EQ(machine.started.size(), 3U);
  EXPECT_EQ(frames(machine.started[1]), "3-3");
  EXPECT_EQ(frames(machine.started[2]), "5-6");
}

TEST_F(EngineTest, DamagedImageFailsItsFrameAlone) {
  job->SetParameter(p_ExpectedFiles, directory.path() + "/f_$(Frame).png");
  machine.beforeStart = [&](const ProcessStart& start) {
    directory.write("f_" + frames(start).substr(0, 1) + ".png", "x");
  };
  inspector.problems[directory.file("f_2.png")] = "Truncated or damaged image (too short)";
  const RunSummary summary = run("1-3");
  EXPECT_EQ(summary.good.text(), "1,3");
  ASSERT_EQ(summary.failures.size(), 1U);
  EXPECT_EQ(summary.failures[0].reason,
            "Truncated or damaged image (too short): " + directory.file("f_2.png"));
  const std::vector<AttemptRecord> attempts = queue.attempts(1);
  ASSERT_EQ(attempts.size(), 3U);
  EXPECT_EQ(attempts[1].rule, VerdictRule::Files);
  EXPECT_EQ(inspector.asked.size(), 3U);
}

TEST_F(EngineTest, TextThatForbidsARetryEndsTheWorkAtOnce) {
  job->SetParameter(p_NoRetryTexts, "no such camera");
  machine.behaviour = [](const ProcessStart&) { return script(1s, 1, "Error: No such camera \"left\"\n"); };
  const RunSummary summary = run("1", 1, 5);
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(summary.failedWorks, 1U);
}

TEST_F(EngineTest, JobThatFailsAlikeOnItsFirstFramesStops) {
  stopAfter = 3;
  machine.behaviour = [](const ProcessStart& start) {
    return script(1s, 1, "cannot open " + frames(start) + "\n");
  };
  const RunSummary summary = run("1-50", 1, 2);
  EXPECT_EQ(machine.started.size(), 3U);
  const JobRecord record = queue.job(1).value();
  EXPECT_EQ(record.state, JobState::Stopped);
  EXPECT_EQ(record.note,
            "Stopped: the first 3 works all failed alike: Exit code 1; last line: cannot open 3-3");
  EXPECT_EQ(summary.notDone.count(), 50U);
}

TEST_F(EngineTest, JobGoesOnWhereOneFrameWasGood) {
  stopAfter = 2;
  machine.behaviour = [](const ProcessStart& start) { return script(1s, frames(start) == "1-1" ? 0 : 1); };
  EXPECT_EQ(run("1-5").failed.text(), "2-5");
}

TEST_F(EngineTest, UsersStopPutsTheJobAsideAndTheSystemsDoesNot) {
  machine.interrupts = {500ms};
  run("1-3");
  EXPECT_EQ(queue.job(1)->state, JobState::Stopped);
  EXPECT_EQ(queue.job(1)->note, "Stopped by the user");
  EXPECT_EQ(queue.frames(1).ready.text(), "1-3");

  machine.interrupts.push_back(machine.elapsed() + 500ms);
  machine.fromUser = false;
  run("7");
  EXPECT_TRUE(isOpen(queue.job(2)->state));
  EXPECT_EQ(queue.frames(2).ready.text(), "7");
}

TEST_F(EngineTest, ProgramsCarryTheMarkOfTheirAttempt) {
  run("1-2");
  ASSERT_EQ(machine.started.size(), 2U);
  EXPECT_FALSE(machine.started[0].Mark.empty());
  EXPECT_NE(machine.started[0].Mark, machine.started[1].Mark);
}

TEST_F(EngineTest, AMachineWithoutProcessesIsWaitedFor) {
  int refused = 0;
  machine.beforeStart = [&](const ProcessStart& start) {
    if (frames(start) == "2-2" && refused++ < 3) {
      RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
    }
  };
  std::vector<std::string> log;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { log.push_back(text); });
  const RunSummary summary = run("1-3");
  SetLogSink(before);
  EXPECT_EQ(recorder.events, (Events{"run 1-3 frames=3 works=3 slots=1", "start 1 1/1", "good 1",
                                     "start 2 1/1", "good 2", "start 3 1/1", "good 3"}));
  EXPECT_EQ(refused, 4);
  EXPECT_EQ(log, std::vector<std::string>{
                     "this machine has no more processes to give (EAGAIN); works are started when it has"});
  EXPECT_TRUE(summary.allGood());
}

TEST_F(EngineTest, AWorkFailsWhereAMachineHasNoProcessesForLong) {
  machine.beforeStart = [](const ProcessStart&) {
    RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
  };
  const LogSink before = SetLogSink([](LogLevel, const String&) {});
  const RunSummary summary = run("1");
  SetLogSink(before);
  EXPECT_EQ(recorder.events.back(), "failed 1: cannot start it: Resource temporarily unavailable");
  EXPECT_GE(machine.elapsed(), 60s);
  EXPECT_EQ(summary.failed.text(), "1");
}

TEST_F(EngineTest, AModuleThatFailsAtALineFailsItsWorkAlone) {
  machine.behaviour = [](const ProcessStart& start) {
    return script(1s, 0, frames(start) == "2-2" ? "throw\n" : "");
  };
  const RunSummary summary = run("1-3");
  EXPECT_EQ(recorder.events,
            (Events{"run 1-3 frames=3 works=3 slots=1", "start 1 1/1", "good 1", "start 2 1/1",
                    "failed 2: The module of the type \"Sketch\" failed in ProcessLine: thrown at a line",
                    "start 3 1/1", "good 3"}));
  EXPECT_EQ(summary.failed.text(), "2");
}

TEST_F(EngineTest, AModuleThatFailsAtTheVerdictCostsItsOwnJobAlone) {
  job->SetParameter(p_Scene, "throw at the end");
  const JobId hostile = submit("1-2");
  job->SetParameter(p_Scene, "");
  const JobId sound = submit("5-6");
  std::vector<std::string> log;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { log.push_back(text); });
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.untilEmpty = true;
  EXPECT_TRUE(engine.run(plan));
  SetLogSink(before);
  EXPECT_EQ(log, (std::vector<std::string>{"job 1, 1: The module of its type failed: thrown at the end",
                                           "job 1, 2: The module of its type failed: thrown at the end"}));
  EXPECT_EQ(queue.job(hostile)->state, JobState::Failed);
  EXPECT_EQ(queue.job(hostile)->note, "The module of its type failed: thrown at the end");
  EXPECT_EQ(queue.job(sound)->state, JobState::Good);
}

TEST(EndCommand, ANoteOnTheDesktopTakesNoNameForAnOption) {
  JobRecord job;
  job.name = "--help";
  const std::vector<String> words = endWords(desktopNote, endValues(job, RunSummary()));
  ASSERT_EQ(words.size(), 5U);
  EXPECT_EQ(words[2], "--");
  EXPECT_TRUE(words[4].starts_with("--help ")) << words[4];
}

TEST(EndCommand, OfAJobThatCameWithACopyNothingIsStarted) {
  JobRecord job;
  job.id = 3;
  job.own = false;
  job.endCommands = {"/there/is/no/such/program"}; // which would be a warning of its own
  std::vector<std::string> log;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { log.push_back(text); });
  startEndCommands(job, RunSummary());
  SetLogSink(before);
  EXPECT_EQ(log, std::vector<std::string>{"job 3: its end command is not started, since the job came with a "
                                          "copy of another queue"});
}

TEST_F(EngineTest, FollowersAreWorkedAsSoonAsTheyMayWithTheImagesBeforeThem) {
  const JobId first = submit("1-2");
  job->SetParameter("CommandString", "$(SubRange) $(After.Images)");
  job->Set(p_AfterOutputFolder, "/before");
  NewJob entry = entryOf("1-2", 0);
  entry.forerunners = {{.job = first, .byFrame = true}};
  entry.priority = 90; // so that its works come before those that are left of the other
  queue.submit(entry);
  machine.behaviour = [&](const ProcessStart& start) {
    return script(1s, start.Arguments.size() == 2 && frames(start) == "2-2" ? 1 : 0);
  };
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.untilEmpty = true;
  EXPECT_TRUE(engine.run(plan)) << "what waits for a job that failed is nothing that is left to do";
  std::vector<std::string> starts;
  for (const ProcessStart& start : machine.started) {
    starts.push_back(frames(start));
  }
  EXPECT_EQ(starts, (std::vector<std::string>{"1-1", "1-1", "2-2"}));
  EXPECT_EQ(queue.frames(2).good.text(), "1");
  EXPECT_EQ(queue.frames(2).waiting.text(), "2");
}

TEST_F(EngineTest, OneJobThatIsBlockedIsAwaited) {
  const JobId first = submit("1");
  NewJob entry = entryOf("1", 0);
  entry.forerunners = {{.job = first}};
  const JobId second = queue.submit(entry);
  Queue other{Path(directory.file("queue"))};
  const EngineId elsewhere = other.enterEngine(1);
  const Claim claim = other.claim(elsewhere, 1, first).at(0);
  int ticks = 0;
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.only = second;
  plan.whenIdle = [&] {
    if (++ticks == 3) {
      Outcome outcome;
      outcome.attempt = claim.attempt;
      other.settle(outcome);
    }
  };
  EXPECT_TRUE(engine.run(plan));
  EXPECT_EQ(queue.job(second)->state, JobState::Good);
}

} // namespace
} // namespace trovik
