#include "trovik/progress/Progress.h"
#include "trovik/progress/ProgressText.h"

#include "trovik/text/Json.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

using namespace std::chrono_literals;
using Writes = std::vector<std::string>;

struct ProgressScreen {
  Writes writes;
  std::size_t width = 80;
  Console console;

  explicit ProgressScreen(bool terminal = false)
      : console([this](std::string_view bytes) { writes.emplace_back(bytes); }, [](std::string_view) {},
                {terminal, terminal, false, false}, [this] { return width; }) {}

  std::string all() const {
    std::string text;
    for (const std::string& write : writes) {
      text += write;
    }
    return text;
  }
};

RunInfo infoOf(std::size_t frames) {
  RunInfo info;
  info.type = "Sketch";
  info.scene = "/s/a_%04d.pov";
  info.frames = info.works = frames;
  info.range = "1-" + std::to_string(frames);
  info.slots = 2;
  info.logs = Path("/logs/run");
  return info;
}

WorkInfo workOf(int frame, int attempt = 1, int attempts = 1) {
  return {{frame, frame}, true, attempt, attempts};
}

WorkResult goodIn(Duration duration) {
  WorkResult result;
  result.duration = duration;
  return result;
}

WorkResult failedWith(const std::string& reason, std::vector<std::string> lines = {}, bool again = false) {
  WorkResult result;
  result.verdict = Verdict::Failed;
  result.reason = reason;
  result.lines = std::move(lines);
  result.again = again;
  result.log = Path("/logs/run/4-4.log");
  return result;
}

RunSummary mixedSummary() {
  RunSummary summary;
  summary.info = infoOf(24);
  summary.good.add({1, 6});
  summary.good.add({8, 20});
  summary.goodWorks = 19;
  summary.failed.add({7, 7});
  summary.failedWorks = 1;
  summary.notDone.add({21, 24});
  summary.notDoneWorks = 4;
  summary.failures = {{"Exit code 1", summary.failed, 1, Path("/logs/run/7-7.log")}};
  summary.images = {{"/s/images", 19}};
  summary.duration = 83s;
  return summary;
}

TEST(PlainProgress, EachEventIsOneWrite) {
  ProgressScreen screen;
  const auto progress = plainProgress(screen.console);
  progress->runStarted(infoOf(24));
  progress->workStarted(workOf(4));
  progress->image(workOf(4), Path("/s/a.png"));
  progress->workEnded(workOf(4), goodIn(1200ms));
  progress->workStarted(workOf(5, 2, 3));
  EXPECT_EQ(
      screen.writes,
      (Writes{"Sketch: 24 frames (1-24) on 2 slots\nscene  /s/a_%04d.pov\nlogs  /logs/run\n", "started  4\n",
              "image  /s/a.png\n", "finished  4  1.2 s\n", "started  5  attempt 2 of 3\n"}));
}

TEST(PlainProgress, FailureTellsReasonLinesAndLog) {
  ProgressScreen screen;
  const auto progress = plainProgress(screen.console);
  progress->workEnded(workOf(4), failedWith("Exit code 1", {"first", "second"}));
  EXPECT_EQ(screen.all(), "failed  4  Exit code 1\n  | first\n  | second\n  log  /logs/run/4-4.log\n");
}

TEST(PlainProgress, FailedAttemptTellsItsNumberAndWhatFollows) {
  ProgressScreen screen;
  const auto progress = plainProgress(screen.console);
  progress->workEnded(workOf(4, 1, 3), failedWith("Exit code 1", {}, true));
  EXPECT_EQ(screen.all(),
            "failed  4  attempt 1 of 3: Exit code 1\n  log  /logs/run/4-4.log\n  it will be tried again\n");
}

TEST(PlainProgress, EscapeSequencesOfNamesNotesAndLinesAreNeverPassedOn) {
  ProgressScreen screen(true);
  const auto progress = plainProgress(screen.console);
  progress->image(workOf(4), Path("/s/\x1b]0;x\a\n.png"));
  progress->workEnded(workOf(4), failedWith("bad \x1b[2J", {"\x1b[31mred\xff"}));
  EXPECT_EQ(screen.all(), "image  /s/\\x1b]0;x\\x07\\n.png\n"
                          "failed  4  bad \\x1b[2J\n  | \\x1b[31mred\\xff\n  log  /logs/run/4-4.log\n");
}

TEST(PlainProgress, AJobOfTheQueueIsTold) {
  ProgressScreen screen;
  const auto progress = plainProgress(screen.console);
  RunInfo info = infoOf(24);
  info.job = 3;
  info.goodBefore = 12;
  progress->runStarted(info);
  EXPECT_EQ(screen.all(), "job 3  Sketch: 24 frames (1-24) on 2 slots\nscene  /s/a_%04d.pov\n"
                          "12 frames are good already\nlogs  /logs/run\n");
}

TEST(PlainProgress, SeveralJobsInOneRunAreToldApart) {
  ProgressScreen screen;
  const auto progress = plainProgress(screen.console, true);
  WorkInfo work = workOf(4);
  work.job = 7;
  progress->workStarted(work);
  progress->image(work, Path("/s/a.png"));
  progress->workEnded(work, goodIn(2s));
  RunSummary summary = mixedSummary();
  summary.info.job = 7;
  progress->runEnded(summary);
  EXPECT_EQ(screen.all(),
            "job 7  started  4\njob 7  image  /s/a.png\njob 7  finished  4  2.0 s\n"
            "job 7  19 of 24 frames good, 1 failed, 4 not done, in 1 min 23 s\n"
            "failed  7  Exit code 1\nnot done  21-24\nimages  19 in /s/images\n"
            "logs  /logs/run\nTo do the rest, give \"trovik retry 7 && trovik engine --job 7\"\n");
}

TEST(PlainProgress, PartsOfAPacketThatAreGoodAreTold) {
  ProgressScreen screen;
  const auto progress = plainProgress(screen.console);
  const WorkInfo packet{{5, 8}, true, 1, 2};
  WorkResult result = failedWith("Exit code 1", {}, true);
  result.good.add({5, 6});
  progress->workEnded(packet, result);
  result.verdict = Verdict::Canceled;
  progress->workEnded(packet, result);
  EXPECT_EQ(screen.all(), "failed  5-8  attempt 1 of 2: Exit code 1\n  log  /logs/run/4-4.log\n"
                          "  good  5-6\n  the rest will be tried again\n"
                          "ended  5-8  only 5-6 done\n");
}

TEST(Summary, AJobOfTheQueueIsGoneOnWithByItsNumber) {
  ProgressScreen screen;
  RunSummary summary = mixedSummary();
  summary.info.job = 3;
  summary.failed = RunSet();
  summary.failures.clear();
  summary.failedWorks = 0;
  summary.state = JobState::Stopped;
  EXPECT_EQ(summaryText(screen.console, summary), "19 of 23 frames good, 4 not done, in 1 min 23 s\n"
                                                  "not done  21-24\n"
                                                  "images  19 in /s/images\n"
                                                  "logs  /logs/run\n"
                                                  "To do the rest, give \"trovik engine --job 3\"\n");
}

TEST(Summary, AdviceIsWhatDoesTheRest) {
  const auto advice = [](JobState state, bool failed, bool canceled, bool cluster, bool engine) {
    std::string text;
    for (const Advice& one : adviceOn({3, state, failed, canceled, cluster, false, engine})) {
      text += (text.empty() ? "" : "; ") + one.command;
    }
    return text;
  };
  constexpr bool onCluster = true;
  constexpr bool engine = true;
  EXPECT_EQ(advice(JobState::Good, false, false, false, false), "");
  EXPECT_EQ(advice(JobState::Failed, true, false, false, false), "trovik retry 3 && trovik engine --job 3");
  EXPECT_EQ(advice(JobState::Failed, true, false, false, engine), "trovik retry 3");
  EXPECT_EQ(advice(JobState::Failed, true, false, onCluster, false), "trovik retry 3");
  EXPECT_EQ(advice(JobState::Canceled, false, true, false, false), "trovik retry 3 && trovik engine --job 3");
  EXPECT_EQ(advice(JobState::Stopped, false, false, false, false), "trovik engine --job 3");
  EXPECT_EQ(advice(JobState::Stopped, true, false, false, false), "trovik retry 3 && trovik engine --job 3");
  EXPECT_EQ(advice(JobState::Stopped, false, false, false, engine), "trovik retry 3");
  EXPECT_EQ(advice(JobState::Stopped, false, false, onCluster, false), "trovik retry 3");
  EXPECT_EQ(advice(JobState::Running, false, false, false, false), "trovik engine --job 3");
  EXPECT_EQ(advice(JobState::Running, false, false, false, engine), "trovik watch 3");
  EXPECT_EQ(advice(JobState::Running, true, false, false, engine), "trovik retry 3; trovik watch 3");
}

TEST(Summary, TellsGoodFailedAndNotDoneWithReasonsAndPlaces) {
  ProgressScreen screen;
  EXPECT_EQ(summaryText(screen.console, mixedSummary()),
            "19 of 24 frames good, 1 failed, 4 not done, in 1 min 23 s\n"
            "failed  7  Exit code 1\n"
            "not done  21-24\n"
            "images  19 in /s/images\n"
            "logs  /logs/run\n"
            "To do the rest, give the same command with --range 7,21-24\n");
}

TEST(Summary, StoppedRunSaysSo) {
  ProgressScreen screen;
  RunSummary summary = mixedSummary();
  summary.interrupted = true;
  EXPECT_EQ(summaryText(screen.console, summary).substr(0, 24), "stopped: 19 of 24 frames");
}

TEST(Summary, AllGoodIsShort) {
  ProgressScreen screen;
  RunSummary summary;
  summary.info = infoOf(2);
  summary.good.add({1, 2});
  summary.goodWorks = 2;
  summary.images = {{"/a", 1}, {"/b", 1}};
  summary.duration = 3s;
  EXPECT_EQ(summaryText(screen.console, summary),
            "all 2 frames good, in 3.0 s\nimages  1 in /a\nimages  1 in /b\n");
}

TEST(Summary, WorkWithoutFramesIsCalledWork) {
  ProgressScreen screen;
  RunSummary summary;
  summary.info.hasFrames = false;
  summary.info.frames = summary.info.works = 1;
  summary.goodWorks = 1;
  summary.duration = 3s;
  EXPECT_EQ(summaryText(screen.console, summary), "1 work good, in 3.0 s\n");
  summary.goodWorks = 0;
  summary.failedWorks = 1;
  summary.failures = {{"Exit code 2", {}, 1, Path()}};
  EXPECT_EQ(summaryText(screen.console, summary),
            "0 of 1 work good, 1 failed, in 3.0 s\nfailed  work  Exit code 2\n");
}

TEST(Summary, ManyReasonsAreCut) {
  ProgressScreen screen;
  RunSummary summary;
  summary.info = infoOf(30);
  for (int frame = 1; frame <= 30; ++frame) {
    RunSet frames;
    frames.add({frame, frame});
    summary.failed.add(frames);
    summary.failures.push_back({"reason " + std::to_string(frame), frames, 1, Path()});
  }
  summary.failedWorks = 30;
  const std::string text = summaryText(screen.console, summary);
  EXPECT_NE(text.find("failed  20  reason 20\n  and 10 further reasons\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("reason 21"), std::string::npos);
}

TEST(TerminalProgress, LiveLineTellsTheStateOfTheRun) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(24));
  progress->workStarted(workOf(1));
  progress->workStarted(workOf(2));
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K0/24 frames  running 1 2");
  progress->workEnded(workOf(1), goodIn(20s));
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K1/24 frames  about 3 min 45 s left  running 2");
  progress->workEnded(workOf(2), failedWith("bad"));
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K1/24 frames  1 failed  about 3 min 40 s left");
}

TEST(TerminalProgress, ImagesStandAboveTheLiveLine) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(2));
  progress->workStarted(workOf(1));
  progress->image(workOf(1), Path("/s/a.png"));
  EXPECT_EQ(screen.writes.back(), "\r\x1b[Kimage  /s/a.png\n0/2 frames  running 1");
}

TEST(TerminalProgress, ManyRunningFramesStayOnOneLine) {
  ProgressScreen screen(true);
  screen.width = 40;
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(1000));
  for (int frame = 100; frame < 150; ++frame) {
    progress->workStarted(workOf(frame));
  }
  EXPECT_LE(displayWidth(screen.writes.back().substr(4)), 39U);
}

TEST(TerminalProgress, RetriedWorkDoesNotCountAsFailed) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(2));
  progress->workStarted(workOf(1, 1, 2));
  progress->workEnded(workOf(1, 1, 2), failedWith("bad", {}, true));
  EXPECT_EQ(screen.writes.back().find("failed"), std::string::npos);
}

TEST(TerminalProgress, FramesInsideAPacketCountByTheirImages) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  RunInfo info = infoOf(12);
  info.slots = 1;
  progress->runStarted(info);
  const WorkInfo first{{1, 4}, true, 1, 1};
  progress->workStarted(first);
  for (const char* file : {"/s/1.png", "/s/2.png"}) {
    progress->image(first, Path(file));
  }
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K0/12 frames  running 1-4 (2 of 4)");
  for (const char* file : {"/s/3.png", "/s/4.png"}) {
    progress->image(first, Path(file));
  }
  progress->workEnded(first, goodIn(40s));
  const WorkInfo second{{5, 8}, true, 1, 1};
  progress->workStarted(second);
  progress->image(second, Path("/s/5.png"));
  // Seven frames are left, and one of them is half done.
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K4/12 frames  about 1 min 05 s left  running 5-8 (1 of 4)");
}

TEST(TerminalProgress, SeveralImagesOfAFrameCountAsOne) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(8));
  const WorkInfo first{{1, 2}, true, 1, 1};
  progress->workStarted(first);
  for (const char* file : {"/s/1.png", "/s/1.z.png", "/s/2.png", "/s/2.z.png"}) {
    progress->image(first, Path(file));
  }
  progress->workEnded(first, goodIn(2s));
  const WorkInfo second{{3, 6}, true, 1, 1};
  progress->workStarted(second);
  for (const char* file : {"/s/3.png", "/s/3.z.png", "/s/4.png"}) {
    progress->image(second, Path(file));
  }
  EXPECT_EQ(screen.writes.back(),
            "\r\x1b[Kimage  /s/4.png\n2/8 frames  about 3 s left  running 3-6 (1 of 4)");
}

TEST(TerminalProgress, OneFrameThatHungDoesNotSpoilTheGuess) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  RunInfo info = infoOf(10);
  info.slots = 1;
  progress->runStarted(info);
  for (int frame = 1; frame <= 3; ++frame) {
    progress->workEnded(workOf(frame), goodIn(10s));
  }
  progress->workEnded(workOf(4), goodIn(2h));
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K4/10 frames  about 1 min 00 s left");
}

TEST(TerminalProgress, WhatWasGoodBeforeCounts) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  RunInfo info = infoOf(24);
  info.goodBefore = 20;
  info.failedBefore = 1;
  progress->runStarted(info);
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K20/24 frames  1 failed");
}

TEST(TerminalProgress, GoodFramesOfAFailedPacketCountAsDone) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(24));
  const WorkInfo packet{{5, 8}, true, 1, 1};
  WorkResult result = failedWith("bad");
  result.good.add({5, 6});
  progress->workEnded(packet, result);
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K2/24 frames  2 failed");
}

TEST(TerminalProgress, TheSameFramesOfTwoJobsAreTwoWorks) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(24));
  WorkInfo one = workOf(1);
  one.job = 1;
  WorkInfo two = workOf(1);
  two.job = 2;
  progress->workStarted(one);
  progress->workStarted(two);
  progress->workEnded(one, goodIn(1s));
  EXPECT_EQ(screen.writes.back(), "\r\x1b[K1/24 frames  about 11 s left  running 1");
}

TEST(TerminalProgress, SummaryReplacesTheLiveLine) {
  ProgressScreen screen(true);
  const auto progress = terminalProgress(screen.console);
  progress->runStarted(infoOf(24));
  progress->runEnded(mixedSummary());
  EXPECT_EQ(screen.writes[screen.writes.size() - 2], "\r\x1b[K");
  EXPECT_EQ(screen.writes.back(), summaryText(screen.console, mixedSummary()));
}

TEST(JsonProgress, EveryEventIsOneVersionedObjectOnALine) {
  ProgressScreen screen;
  const auto progress = jsonProgress(screen.console);
  progress->runStarted(infoOf(24));
  progress->workStarted(workOf(4, 2, 3));
  progress->image(workOf(4), Path("/s/a.png"));
  progress->workEnded(workOf(4), goodIn(1234567us));
  progress->workEnded(workOf(4), failedWith("bad", {"l"}, true));
  progress->interrupted(1, 2);
  progress->runEnded(mixedSummary());
  ASSERT_EQ(screen.writes.size(), 7U);
  std::vector<std::string> kinds;
  for (const std::string& write : screen.writes) {
    EXPECT_EQ(write.find('\n'), write.size() - 1);
    const Json event = Json::parse(write);
    EXPECT_EQ(event.at("version"), 1);
    kinds.push_back(event.at("kind"));
  }
  EXPECT_EQ(kinds, (Writes{"run.started", "work.started", "work.image", "work.finished", "work.failed",
                           "run.interrupted", "run.summary"}));
  EXPECT_EQ(screen.writes[1], "{\"version\":1,\"kind\":\"work.started\",\"job\":null,\"frames\":\"4\","
                              "\"attempt\":2,\"attempts\":3}\n");
  EXPECT_EQ(Json::parse(screen.writes[3]).at("seconds"), 1.234);
  EXPECT_EQ(Json::parse(screen.writes[4]).at("again"), true);
}

TEST(JsonProgress, JobRuleAndGoodFramesAreTold) {
  ProgressScreen screen;
  const auto progress = jsonProgress(screen.console);
  RunInfo info = infoOf(24);
  info.job = 3;
  info.name = "a";
  progress->runStarted(info);
  WorkInfo packet{{5, 8}, true, 1, 1};
  packet.job = 3;
  WorkResult result = failedWith("Error line: bad", {"bad"});
  result.rule = VerdictRule::ErrorLine;
  result.good.add({5, 6});
  progress->workEnded(packet, result);
  EXPECT_EQ(screen.all(),
            "{\"version\":1,\"kind\":\"run.started\",\"job\":3,\"name\":\"a\",\"type\":\"Sketch\","
            "\"scene\":\"/s/a_%04d.pov\",\"range\":\"1-24\",\"frames\":24,\"works\":24,\"goodBefore\":0,"
            "\"slots\":2,\"logs\":\"/logs/run\"}\n"
            "{\"version\":1,\"kind\":\"work.failed\",\"job\":3,\"frames\":\"5-8\",\"attempt\":1,"
            "\"attempts\":1,\"seconds\":0.0,\"log\":\"/logs/run/4-4.log\",\"good\":\"5-6\","
            "\"rule\":\"error line\",\"reason\":\"Error line: bad\",\"lines\":[\"bad\"],\"again\":false}\n");
}

TEST(JsonProgress, SummaryHoldsFramesFailuresAndImages) {
  ProgressScreen screen;
  const auto progress = jsonProgress(screen.console);
  progress->runEnded(mixedSummary());
  EXPECT_EQ(screen.all(),
            "{\"version\":1,\"kind\":\"run.summary\",\"job\":null,\"interrupted\":false,\"seconds\":83.0,"
            "\"works\":{\"good\":19,\"failed\":1,\"notDone\":4},"
            "\"frames\":{\"good\":\"1-6,8-20\",\"failed\":\"7\",\"notDone\":\"21-24\"},"
            "\"failures\":[{\"frames\":\"7\",\"works\":1,\"reason\":\"Exit code "
            "1\",\"log\":\"/logs/run/7-7.log\"}],"
            "\"images\":[{\"directory\":\"/s/images\",\"count\":19}],\"logs\":\"/logs/run\"}\n");
}

TEST(JsonProgress, BytesThatAreNoUtf8AreKept) {
  ProgressScreen screen;
  const auto progress = jsonProgress(screen.console);
  progress->image(workOf(4), Path("/s/caf\xe9.png"));
  EXPECT_EQ(Json::parse(screen.all()).at("file"), (Json{{"hex", "2f732f636166e92e706e67"}}));
}

} // namespace
} // namespace trovik
