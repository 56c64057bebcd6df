#include "host/application/jobs/FilesBefore.h"
#include "host/foundation/Log.h"
#include "tests/trovik/engine/EngineTest.h"
#include "trovik/queue/Database.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <unistd.h>

// What becomes of attempts whose engine died.

namespace trovik {
namespace {

using namespace std::chrono_literals;

/// An engine that died while it ran the first work of a job.
class LostWorkTest : public EngineTest {
protected:
  /// No file that an attempt might name was there before it.
  static constexpr const char* nothing = "now 0\n";

  void lose(const std::vector<std::string>& named) {
    Queue other(Path(directory.file("queue")));
    const EngineId engine = other.enterEngine(1);
    const std::vector<Claim> claims = other.claim(engine, 1, std::nullopt);
    ASSERT_EQ(claims.size(), 1U);
    mark = claims[0].mark;
    other.noteProcess(claims[0].attempt, 4242, nothing);
    for (const std::string& file : named) {
      FileRecord record;
      record.path = file;
      other.noteFile(claims[0].attempt, record);
    }
  } // its lock goes with it

  std::string mark;

  /// The same, and the program of frame 1 had printed this and left its image.
  /// How it ended was seen where it is given.
  /// With `wasThere` the program had left the image alone.
  void loseWithLog(const std::string& output, std::optional<ProgramEnd> end, bool wasThere = false) {
    Queue other(Path(directory.file("queue")));
    const std::vector<Claim> claims = other.claim(other.enterEngine(1), 1, std::nullopt);
    ASSERT_EQ(claims.size(), 1U);
    std::filesystem::create_directories(directory.file("queue/logs/1"));
    const std::string log = directory.write("queue/logs/1/1-1.log", output);
    FilesBefore before;
    before.Note({Path(directory.write("a_1.drw", "x"))}, {}, true);
    other.noteProcess(claims[0].attempt, 4242, wasThere ? before.Text() : nothing);
    // The clock that stamps files is a few milliseconds late.
    std::filesystem::last_write_time(log, std::filesystem::file_time_type::clock::now());
    if (end) {
      end->log = log;
      end->command = "/bin/true 1-1";
      end->duration = 7s;
      other.noteEnd(claims[0].attempt, *end);
    }
  }

  static ProgramEnd endOf(const std::string& output, int code = 0, int signal = 0) {
    ProgramEnd end;
    end.exitCode = code;
    end.signal = signal;
    end.printed = static_cast<std::int64_t>(output.size());
    return end;
  }

  JobId submitImages(int retries = 0) {
    job->SetParameter("ImageStartText", "image");
    machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "image a_1.drw\n"); };
    return submit("1", retries);
  }
};

/// The process dies while files are looked into: nothing of it goes on.
class DyingInspector final : public ImageInspector {
public:
  void ask(const Path& /*file*/, bool /*refuseFlat*/, Answer /*answer*/) override { asked_ = true; }
  int descriptor() const override { return -1; }
  std::optional<Clock::time_point> deadline() const override { return std::nullopt; }
  void advance(Clock::time_point /*now*/) override {
    if (asked_) {
      throw std::runtime_error("killed");
    }
  }

private:
  bool asked_ = false;
};

TEST_F(LostWorkTest, AFrameWhoseProgramHadEndedIsJudgedAndNotRenderedAgain) {
  const JobId id = submitImages();
  machine.behaviour = [this](const ProcessStart&) {
    directory.write("a_1.drw", "x");
    return script(1s, 0, "image a_1.drw\n");
  };
  {
    DyingInspector dying;
    Queue other(Path(directory.file("queue")));
    LocalEngine engine(machine, other, dying, machine, recorder);
    EnginePlan plan;
    plan.only = id;
    EXPECT_THROW(engine.run(plan), std::runtime_error);
  }
  ASSERT_EQ(machine.started.size(), 1U);
  recorder.events.clear();
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(recorder.events, (Events{"run 1 frames=1 works=1 slots=1", "good 1"}));
  const AttemptRecord attempt = queue.attempts(id).at(0);
  EXPECT_EQ(attempt.state, AttemptState::Good);
  EXPECT_EQ(attempt.rule, VerdictRule::Result);
  EXPECT_EQ(attempt.command, "/bin/true 1-1");
  EXPECT_EQ(attempt.duration, 1s);
  EXPECT_EQ(Path(attempt.log).Leaf(true), "1-1.log");
  EXPECT_EQ(inspector.asked, std::vector<std::string>{directory.file("a_1.drw")});
}

TEST_F(LostWorkTest, AFileThatWasThereBeforeIsNotThatOfALostAttempt) {
  const JobId id = submitImages();
  const std::string output = "image a_1.drw\n";
  loseWithLog(output, endOf(output), true);
  EXPECT_FALSE(workOff(id).allGood());
  EXPECT_EQ(recorder.events.back(),
            "failed 1: File was there before and is not of this attempt: " + directory.file("a_1.drw"));
  EXPECT_TRUE(machine.started.empty());
}

TEST_F(LostWorkTest, NoFileCountsWhereNobodyKnowsWhatWasThere) {
  const JobId id = submitImages(1);
  const std::string output = "image a_1.drw\n";
  loseWithLog(output, endOf(output));
  Database(Path(directory.file("queue/queue.db"))).execute("UPDATE attempts SET files_before = ''");
  workOff(id);
  EXPECT_EQ(machine.started.size(), 1U);
}

TEST_F(LostWorkTest, AFrameWhoseProgramHadFailedFailsWithItsReason) {
  const JobId id = submitImages(1);
  const std::string output = "image a_1.drw\nno more memory\n";
  ProgramEnd end = endOf(output, 3);
  end.usage = ProcessUsage{5000000, 100000, 12000000000, 7, std::nullopt};
  loseWithLog(output, end);
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(recorder.events, (Events{"run 1 frames=1 works=1 slots=1",
                                     "failed 1 again: Exit code 3; last line: no more memory", "start 1 2/2",
                                     "image 1 a_1.drw", "good 1"}));
  EXPECT_EQ(queue.attempts(id).at(0).usage, end.usage);
  EXPECT_EQ(queue.attempts(id).at(0).lines, (std::vector<std::string>{"image a_1.drw", "no more memory"}));
  EXPECT_EQ(queue.attempts(id).at(0).exitCode, 3);
}

TEST_F(LostWorkTest, AnErrorLineOfTheLogCounts) {
  job->SetParameter(p_ErrorStarts, "fatal");
  const JobId id = submitImages();
  const std::string output = "fatal: colours\nimage a_1.drw\n";
  loseWithLog(output, endOf(output));
  EXPECT_FALSE(workOff(id).allGood());
  EXPECT_EQ(recorder.events.back(), "failed 1: Error line: fatal: colours");
  EXPECT_TRUE(machine.started.empty());
}

TEST_F(LostWorkTest, ALogThatLacksSomethingProvesNothing) {
  const JobId id = submitImages();
  const std::string output = "image a_1.drw\n";
  ProgramEnd end = endOf(output);
  ++end.printed;
  loseWithLog(output, end);
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(recorder.events, (Events{"run 1 frames=1 works=1 slots=1", "lost 1 again: Its engine died",
                                     "start 1 2/2", "image 1 a_1.drw", "good 1"}));
}

TEST_F(LostWorkTest, WhatWasOnItsWayToTheDiskWhenTheMachineWentDownProvesNothing) {
  const JobId id = submitImages();
  const std::string output = "success\nimage a_1.drw\n";
  loseWithLog(output, endOf(output));
  Database(Path(directory.file("queue/queue.db"))).execute("UPDATE engines SET boot = 'another'");
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_TRUE(machine.hunted.empty());
}

TEST_F(LostWorkTest, AnEndThatNobodySawIsGoodByTheSuccessTextAlone) {
  job->SetParameter("SuccessTexts", "success");
  const JobId id = submitImages();
  loseWithLog("image a_1.drw\nsuccess\n", std::nullopt);
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_TRUE(machine.started.empty());
  EXPECT_EQ(queue.attempts(id).at(0).reason,
            "Its engine died after the success text, and every file is good");
}

TEST_F(LostWorkTest, WithoutItTheFrameIsRenderedAgain) {
  job->SetParameter("SuccessTexts", "success");
  const JobId id = submitImages();
  loseWithLog("image a_1.drw\n", std::nullopt);
  machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "image a_1.drw\nsuccess\n"); };
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(queue.attempts(id).at(0).state, AttemptState::Lost);
}

TEST_F(LostWorkTest, TheSuccessTextInALogThatWasCutIsWorthNothing) {
  job->SetParameter("SuccessTexts", "success");
  const JobId id = submitImages();
  loseWithLog(
      "success\nimage a_1.drw\n[trovik:               4711000 bytes of output are left out here]\nlast\n",
      std::nullopt);
  machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "image a_1.drw\nsuccess\n"); };
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(queue.attempts(id).at(0).state, AttemptState::Lost);
}

TEST_F(LostWorkTest, TheSuccessTextOfADamagedFileIsWorthNothing) {
  job->SetParameter("SuccessTexts", "success");
  const JobId id = submitImages();
  loseWithLog("image a_1.drw\nsuccess\n", std::nullopt);
  inspector.problems[directory.file("a_1.drw")] = "Truncated or damaged image (too short)";
  machine.beforeStart = [&](const ProcessStart&) { inspector.problems.clear(); };
  machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "image a_1.drw\nsuccess\n"); };
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
}

TEST_F(LostWorkTest, ALogOfAnEarlierQueueProvesNothing) {
  job->SetParameter("SuccessTexts", "success");
  const JobId id = submitImages();
  loseWithLog("image a_1.drw\nsuccess\n", std::nullopt);
  std::filesystem::last_write_time(directory.file("queue/logs/1/1-1.log"),
                                   std::filesystem::file_time_type::clock::now() - 1h);
  machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "image a_1.drw\nsuccess\n"); };
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
}

TEST_F(LostWorkTest, ALogInAFolderThatJobsShareProvesNothing) {
  job->SetParameter("SuccessTexts", "success");
  job->SetParameter("ImageStartText", "image");
  job->SetParameter(p_Range, "1");
  NewJob entry = TestType::newJob(*job);
  entry.logs = directory.file("shared");
  const JobId id = queue.submit(entry);
  loseWithLog("image a_1.drw\nsuccess\n", std::nullopt);
  std::filesystem::rename(directory.file("queue/logs/1"), directory.file("shared"));
  machine.behaviour = [](const ProcessStart&) { return script(1s, 0, "image a_1.drw\nsuccess\n"); };
  EXPECT_TRUE(workOff(id).allGood());
  EXPECT_EQ(machine.started.size(), 1U);
}

TEST_F(LostWorkTest, WhoFollowsAnOlderEngineTakesOverWhenThatHasGone) {
  const JobId id = submit("1-2");
  auto older = std::make_unique<Queue>(Path(directory.file("queue")));
  ASSERT_EQ(older->claim(older->enterEngine(1), 1, id).size(), 1U);
  LocalEngine engine(machine, queue, inspector, machine, recorder);
  EnginePlan plan;
  plan.only = id;
  plan.follows = true;
  int ticks = 0;
  plan.whenIdle = [&] {
    EXPECT_TRUE(machine.started.empty() || !older);
    if (++ticks == 5) {
      older.reset(); // it dies
    }
  };
  EXPECT_TRUE(engine.run(plan));
  EXPECT_GT(ticks, 5);
  EXPECT_TRUE(queue.summary(id).allGood());
  EXPECT_EQ(machine.started.size(), 2U);
}

TEST_F(LostWorkTest, WhatCannotBeEndedIsNamedOnce) {
  const JobId id = submit("1");
  lose({});
  machine.orphans = 1000; // twenty seconds
  std::vector<std::string> log;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { log.push_back(text); });
  EXPECT_TRUE(workOff(id).allGood());
  SetLogSink(before);
  const std::string process = "process " + std::to_string(getpid()) + " (";
  EXPECT_EQ(std::count_if(log.begin(), log.end(),
                          [&](const std::string& line) {
                            return line.starts_with(process) &&
                                   line.find(") was killed and has not ended: ") != std::string::npos;
                          }),
            1);
}

TEST_F(LostWorkTest, IsTakenUpWhenNoProcessOfItIsLeft) {
  const JobId id = submit("1-2");
  lose({});
  machine.orphans = 3; // found three times before they are gone
  const RunSummary summary = workOff(id, 2);
  EXPECT_TRUE(summary.allGood());
  ASSERT_EQ(machine.hunted.size(), 4U);
  EXPECT_EQ(machine.hunted[0].mark, mark);
  EXPECT_EQ(machine.hunted[0].group, 4242);
  // The other work need not wait for it.
  ASSERT_EQ(machine.started.size(), 2U);
  EXPECT_EQ(frames(machine.started[0]), "2-2");
  EXPECT_EQ(frames(machine.started[1]), "1-1");
  const std::vector<AttemptRecord> attempts = queue.attempts(id);
  EXPECT_EQ(attempts[0].state, AttemptState::Lost);
  EXPECT_EQ(attempts[0].reason, "Its engine died");
}

TEST_F(LostWorkTest, KeepsTheFramesWithGoodFiles) {
  job->SetParameter(p_PacketSize, "5");
  job->SetParameter("ImageStartText", "image");
  const JobId id = submit("1-5");
  std::vector<std::string> named;
  for (const char* name : {"a_1.drw", "a_2.drw", "a_3.drw"}) {
    named.push_back(directory.write(name, "x"));
  }
  inspector.problems[named[2]] = "Truncated or damaged image (too short)";
  lose(named);
  machine.beforeStart = [&](const ProcessStart&) {
    for (const char* name : {"a_3.drw", "a_4.drw", "a_5.drw"}) {
      directory.write(name, "x");
    }
    inspector.problems.clear();
  };
  machine.behaviour = [](const ProcessStart&) {
    return script(1s, 0, "image a_3.drw\nimage a_4.drw\nimage a_5.drw\n");
  };
  EXPECT_TRUE(workOff(id).allGood());
  ASSERT_EQ(machine.started.size(), 1U);
  EXPECT_EQ(frames(machine.started[0]), "3-5");
}

} // namespace
} // namespace trovik
