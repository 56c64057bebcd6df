#include "trovik/progress/JobFollower.h"

#include "tests/trovik/queue/QueueTest.h"

#include <deque>

namespace trovik {
namespace {

/// Writes down what it hears.
class Listener final : public RunEvents {
public:
  std::vector<std::string> heard;
  RunInfo info;
  WorkResult last;

  void runStarted(const RunInfo& started) override {
    info = started;
    heard.emplace_back("run");
  }
  void workStarted(const WorkInfo& work) override {
    heard.push_back("started " + work.title() + " " + std::to_string(work.attempt) + "/" +
                    std::to_string(work.attempts));
  }
  void image(const WorkInfo& work, const Path& file) override {
    heard.push_back("image " + work.title() + " " + file.Text());
  }
  void workEnded(const WorkInfo& work, const WorkResult& result) override {
    last = result;
    const char* verdict = result.verdict == Verdict::Good     ? "good "
                          : result.verdict == Verdict::Failed ? "failed "
                          : result.verdict == Verdict::Lost   ? "lost "
                                                              : "canceled ";
    heard.push_back(verdict + work.title() + (result.again ? " again" : ""));
  }
  void interrupted(int /*times*/, std::size_t /*running*/) override {}
  void runEnded(const RunSummary& /*summary*/) override {}

  std::vector<std::string> take() { return std::exchange(heard, {}); }
};

using Heard = std::vector<std::string>;

class Follower : public QueueTest {
protected:
  /// Looks at the queue through a connection of its own, as another process.
  Queue reader{Path(directory.path())};
  Listener listener;
};

TEST_F(Follower, ReadsWhileAnotherProcessWrites) {
  const JobId job = queue.submit(jobOf("1,2"));
  take();
  JobFollower follower(reader, job, listener);
  queue.inTransaction([&] {
    follower.beginRun();
    follower.poll();
  });
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/1"}));
}

TEST_F(Follower, WhatIsClaimedAheadIsToldWhenItHasBegun) {
  const JobId job = queue.submit(jobOf("1,2,3,4,5"));
  const auto claim = [&](std::size_t count, std::size_t ahead) {
    return queue.claim(engine, count, std::nullopt, {}, nullptr, {ahead, {job}});
  };
  const std::vector<Claim> first = claim(1, 1);
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/1"}));
  const std::vector<Claim> more = claim(0, 3);
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{});
  queue.noteProcess(more.at(0).attempt, 4711);
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{"started 3 1/1"});
  queue.settle(good(more.at(1).attempt));
  queue.giveBack({first.at(1).attempt, more.at(2).attempt});
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"started 4 1/1", "good 4"}));
  queue.cancel(job);
  queue.settle(good(first.at(0).attempt));
  queue.settle(good(more.at(0).attempt));
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"good 1", "good 3"}));
  EXPECT_TRUE(follower.isOver());
}

TEST_F(Follower, IsNotOverBeforeItIsKnownWhatBecameOfAClaim) {
  const JobId job = queue.submit(jobOf("1,2"));
  const std::vector<Claim> claims = queue.claim(engine, 1, std::nullopt, {}, nullptr, {1, {job}});
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  queue.cancel(job);
  queue.settle(good(claims.at(0).attempt));
  follower.poll();
  EXPECT_FALSE(follower.isOver());
  queue.giveBack({claims.at(1).attempt});
  follower.poll();
  EXPECT_TRUE(follower.isOver());
}

TEST_F(Follower, TellsWhatOthersDo) {
  const JobId job = queue.submit(jobOf("1,2"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  EXPECT_EQ(listener.take(), Heard{"run"});
  const Claim claim = take();
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{"started 1 1/1"});
  queue.noteFile(claim.attempt, file("/out/a.png"));
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{}) << "the file may still be written";
  queue.noteFile(claim.attempt, file("/out/b.png"));
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{"image 1 /out/a.png"});
  Outcome outcome = good(claim.attempt);
  outcome.files = {file("/out/a.png"), file("/out/b.png")};
  outcome.duration = std::chrono::seconds(3);
  queue.settle(outcome);
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"image 1 /out/b.png", "good 1"}));
  EXPECT_EQ(listener.last.duration, Duration(std::chrono::seconds(3)));
  EXPECT_FALSE(follower.isOver());
  queue.settle(good(take().attempt));
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"started 2 1/1", "good 2"}));
  EXPECT_TRUE(follower.isOver());
}

TEST_F(Follower, WhatEndedIsToldBeforeWhatBeganInItsSlot) {
  const JobId job = queue.submit(jobOf("1,2"));
  const Claim first = take();
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  Outcome outcome = good(first.attempt);
  outcome.files = {file("/out/1.png")};
  queue.settle(outcome);
  const Claim second = take();
  queue.noteFile(second.attempt, file("/out/2.png"));
  queue.noteFile(second.attempt, file("/out/3.png"));
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/1", "image 1 /out/1.png", "good 1", "started 2 1/1",
                                    "image 2 /out/2.png"}));
}

TEST_F(Follower, AWorkThatBeganAndEndedBetweenTwoLooksIsTold) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  for (int i = 0; i < 2; ++i) {
    Outcome outcome = good(take().attempt);
    outcome.files = {file("/out/" + std::to_string(i) + ".png")};
    queue.settle(outcome);
  }
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/1", "started 2 1/1", "image 1 /out/0.png",
                                    "image 2 /out/1.png", "good 1", "good 2"}));
}

TEST_F(Follower, WhatEndedBeforeIsCountedAndNotTold) {
  NewJob wanted = jobOf("1-2,3,4,5");
  wanted.found = runsOf("6");
  const JobId job = queue.submit(wanted);
  queue.settle(good(take().attempt));
  queue.settle(failed(take().attempt));
  const Claim running = take();
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 4 1/1"}));
  EXPECT_EQ(listener.info.frames, 6U);
  EXPECT_EQ(listener.info.goodBefore, 3U);
  EXPECT_EQ(listener.info.failedBefore, 1U);
  EXPECT_EQ(listener.info.slots, 2U);
  EXPECT_EQ(listener.info.job, job);
  queue.settle(good(running.attempt));
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{"good 4"});
}

TEST_F(Follower, FailuresTellTheirReasonRuleAndWhatFollows) {
  NewJob wanted = jobOf("1-4");
  wanted.retries = 1;
  const JobId job = queue.submit(wanted);
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  Outcome outcome = failed(take().attempt, "Error line: bad", "1-2");
  outcome.lines = {"bad"};
  outcome.log = "/logs/1-4.log";
  queue.settle(outcome);
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1-4 1/2", "failed 1-4 again"}));
  EXPECT_EQ(listener.last.reason, "Error line: bad");
  EXPECT_EQ(listener.last.rule, VerdictRule::ErrorLine);
  EXPECT_EQ(listener.last.good.text(), "1-2");
  EXPECT_EQ(listener.last.lines, std::vector<std::string>{"bad"});
  EXPECT_EQ(listener.last.log.Text(), "/logs/1-4.log");
  queue.settle(failed(take().attempt));
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"started 3-4 2/2", "failed 3-4"}));
  EXPECT_TRUE(follower.isOver());
}

TEST_F(Follower, AnAttemptWhoseEngineDiedIsLostAndComesAgain) {
  const JobId job = queue.submit(jobOf("1"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  queue.settle(lost(take().attempt));
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/1", "lost 1 again"}));
  EXPECT_EQ(listener.last.reason, "Its engine died");
}

TEST_F(Follower, AttemptsOfOneEngineCanBeLeftOut) {
  const JobId job = queue.submit(jobOf("1,2"));
  Queue another{Path(directory.path())};
  const EngineId other = another.enterEngine(4);
  JobFollower follower(reader, job, listener, engine);
  follower.poll();
  queue.noteFile(take().attempt, file("/out/own.png"));
  const std::vector<Claim> claims = another.claim(other, 1, job);
  ASSERT_EQ(claims.size(), 1U);
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{"started 2 1/1"});
}

TEST_F(Follower, WithoutABeginningItTakesWhatIsUnderWay) {
  const JobId job = queue.submit(jobOf("1,2"));
  queue.settle(good(take().attempt));
  take();
  JobFollower follower(reader, job, listener);
  follower.poll();
  EXPECT_EQ(listener.take(), Heard{"started 2 1/1"});
}

TEST_F(Follower, BadFilesAreNoImagesAndAFileIsToldOnce) {
  NewJob wanted = jobOf("1");
  wanted.retries = 1;
  const JobId job = queue.submit(wanted);
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  Outcome outcome = failed(take().attempt);
  outcome.files = {file("/out/a.png"), file("/out/b.png", "It is empty")};
  queue.settle(outcome);
  outcome = good(take().attempt);
  outcome.files = {file("/out/a.png"), file("/out/b.png")};
  queue.settle(outcome);
  follower.poll();
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/2", "started 1 2/2", "image 1 /out/a.png",
                                    "image 1 /out/b.png", "failed 1 again", "good 1"}));
}

TEST_F(Follower, ADeletedJobIsOver) {
  const JobId job = queue.submit(jobOf("1"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  queue.remove(job);
  follower.poll();
  EXPECT_TRUE(follower.isOver());
}

TEST_F(Follower, AStoppedJobIsOverWhenItsLastWorkHasEnded) {
  const JobId job = queue.submit(jobOf("1,2"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  const Claim claim = take();
  queue.stop(job, "aside");
  follower.poll();
  EXPECT_FALSE(follower.isOver());
  queue.settle(good(claim.attempt));
  follower.poll();
  EXPECT_TRUE(follower.isOver());
}

/// A machine whose every wait is a step of the test.
class Steps final : public Machine, public InterruptSource {
public:
  std::deque<std::function<void()>> steps;
  int interrupts = 0;

  Clock::time_point now() override { return {}; }
  std::unique_ptr<Program> start(const ProcessStart& /*start*/) override { return nullptr; }
  void wait(std::vector<pollfd>& /*descriptors*/, std::optional<Duration> timeout) override {
    ASSERT_TRUE(timeout.has_value());
    ASSERT_FALSE(steps.empty()) << "it would wait for ever";
    const auto step = steps.front();
    steps.pop_front();
    step();
  }
  std::vector<pid_t> killOrphans(const Orphans& /*orphans*/) override { return {}; }
  MemoryNow memory(const std::vector<int>& /*groups*/) override { return {}; }
  int descriptor() const override { return 1; }
  int take() override { return std::exchange(interrupts, 0); }
  bool byUser() const override { return true; }
};

TEST_F(Follower, IsFollowedToItsEnd) {
  const JobId job = queue.submit(jobOf("1"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  Steps machine;
  Claim claim;
  machine.steps = {[&] { claim = take(); }, [] {}, [&] { queue.settle(good(claim.attempt)); }};
  int gone = 0;
  EXPECT_TRUE(followToEnd(follower, reader, machine, machine, [&] { ++gone; }));
  EXPECT_EQ(listener.take(), (Heard{"run", "started 1 1/1", "good 1"}));
  EXPECT_EQ(gone, 0);
  EXPECT_TRUE(machine.steps.empty());
}

TEST_F(Follower, InterruptsOnlyLeave) {
  const JobId job = queue.submit(jobOf("1"));
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  Steps machine;
  machine.steps = {[&] { machine.interrupts = 1; }};
  EXPECT_FALSE(followToEnd(follower, reader, machine, machine, [] {}));
  EXPECT_EQ(stateOf(job), JobState::Waiting);
}

TEST_F(Follower, ThatNoEngineIsAtWorkIsToldOnceEachTime) {
  const JobId job = queue.submit(jobOf("1"));
  queue.leaveEngine(engine);
  JobFollower follower(reader, job, listener);
  follower.beginRun();
  Steps machine;
  int gone = 0;
  for (int i = 0; i < 25; ++i) {
    machine.steps.emplace_back([] {});
  }
  machine.steps.emplace_back([&] { machine.interrupts = 1; });
  EXPECT_FALSE(followToEnd(follower, reader, machine, machine, [&] { ++gone; }));
  EXPECT_EQ(gone, 1);
}

} // namespace
} // namespace trovik
