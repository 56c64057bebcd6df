#include "tests/trovik/queue/QueueTest.h"
#include "trovik/queue/Database.h"

#include <filesystem>
#include <fstream>
#include <optional>

// Works that are claimed before there are slots for them.

namespace trovik {
namespace {

class QueueAhead : public QueueTest {
protected:
  std::vector<Claim> claim(std::size_t count, std::size_t ahead, const std::vector<JobId>& jobs) {
    return queue.claim(engine, count, std::nullopt, {}, nullptr, {ahead, jobs});
  }

  /// "1 2 +3": the first frame of each, those that were claimed ahead marked.
  static std::string text(const std::vector<Claim>& claims) {
    std::string text;
    for (const Claim& claim : claims) {
      text +=
          (text.empty() ? "" : " ") + std::string(claim.ahead ? "+" : "") + std::to_string(claim.run.First);
    }
    return text;
  }
};

TEST_F(QueueAhead, TheyComeAfterThoseThatHaveASlot) {
  const JobId job = queue.submit(jobOf("1,2,3,4,5,6"));
  const std::vector<Claim> claims = claim(2, 3, {job});
  EXPECT_EQ(text(claims), "1 2 +3 +4 +5");
  EXPECT_EQ(standing(job), "6 1-5 - - -");
  for (std::size_t i = 1; i < claims.size(); ++i) {
    EXPECT_GT(claims[i].attempt, claims[i - 1].attempt);
  }
}

TEST_F(QueueAhead, TheyAreOfTheNamedJobsAlone) {
  NewJob first = jobOf("1,2,3,4");
  first.priority = 60;
  queue.submit(first);
  const JobId second = queue.submit(jobOf("11,12,13,14"));
  EXPECT_EQ(text(claim(2, 3, {second})), "1 2 +11 +12 +13");
  EXPECT_EQ(text(claim(0, 3, {second})), "+14");
  EXPECT_EQ(text(claim(0, 3, {})), "");
  EXPECT_EQ(text(claim(3, 0, {second})), "3 4");
}

TEST_F(QueueAhead, NoneIsOfAJobWhoseWorksWaitForMoreThanASlot) {
  NewJob few = jobOf("1,2,3,4");
  few.slotsAtMost = 3;
  NewJob limited = jobOf("11,12,13,14");
  limited.takes = {{"licence", 1}};
  NewJob automatic = jobOf("21,22,23,24");
  automatic.packets.automatic = true;
  NewJob large = jobOf("31,32,33,34");
  large.memory = std::int64_t{1} << 30;
  std::vector<JobId> jobs = {queue.submit(few), queue.submit(limited), queue.submit(automatic),
                             queue.submit(large)};
  NewJob follower = jobOf("41,42,43,44");
  follower.forerunners = {{queue.submit(jobOf("50")), true, 0, 0, false}};
  jobs.push_back(queue.submit(follower));
  EXPECT_EQ(text(claim(0, 20, jobs)), "");
  EXPECT_EQ(text(claim(1, 20, jobs)), "1");
}

TEST_F(QueueAhead, WhatIsGivenBackIsAsItWas) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  const std::vector<Claim> claims = claim(1, 2, {job});
  queue.giveBack({claims.at(1).attempt, claims.at(2).attempt});
  EXPECT_EQ(standing(job), "2-3 1 - - -");
  EXPECT_EQ(queue.attempts(job).size(), 1U);
  for (const WorkRecord& work : queue.works(job, WorkState::Ready)) {
    EXPECT_EQ(work.attempts, 0);
    EXPECT_EQ(work.attempt, 0);
  }
  const Claim again = take();
  EXPECT_EQ(again.run.First, 2);
  EXPECT_EQ(again.number, 1);
  EXPECT_GT(again.attempt, claims.at(2).attempt) << "numbers are never used again";
}

TEST_F(QueueAhead, TheAttemptBeforeIsTheLastAgain) {
  NewJob wanted = jobOf("1,2");
  wanted.retries = 2;
  const JobId job = queue.submit(wanted);
  const Claim failing = take();
  queue.settle(failed(failing.attempt));
  const std::vector<Claim> claims = claim(1, 1, {job});
  ASSERT_EQ(text(claims), "2 +1");
  queue.giveBack({claims.at(1).attempt});
  const WorkRecord work = queue.works(job, WorkState::Ready).at(0);
  EXPECT_EQ(work.attempt, failing.attempt);
  EXPECT_EQ(work.attempts, 1);
  const Claim again = take();
  EXPECT_EQ(again.number, 2);
  EXPECT_EQ(again.tries, 1);
}

TEST_F(QueueAhead, OfACanceledJobItIsCanceled) {
  const JobId job = queue.submit(jobOf("1,2"));
  const std::vector<Claim> claims = claim(1, 1, {job});
  ASSERT_TRUE(queue.cancel(job));
  queue.giveBack({claims.at(1).attempt});
  EXPECT_EQ(standing(job), "- 1 - - 2");
  queue.settle(canceledOutcome(claims.at(0).attempt));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
}

TEST_F(QueueAhead, OfAStoppedJobItIsReady) {
  const JobId job = queue.submit(jobOf("1,2"));
  const std::vector<Claim> claims = claim(1, 1, {job});
  queue.stop(job, "Enough");
  queue.giveBack({claims.at(1).attempt});
  EXPECT_EQ(standing(job), "2 1 - - -");
  EXPECT_TRUE(claim(1, 1, {job}).empty());
}

TEST_F(QueueAhead, ItsStartIsWhenItBeganAndNotWhenItWasClaimed) {
  using namespace std::chrono_literals;
  const Moment begin(1'700'000'000s);
  Moment now = begin;
  Queue::Settings settings;
  settings.clock = [&now] { return now; };
  Queue timed(Path(directory.file("timed")), settings);
  const EngineId own = timed.enterEngine(1);
  const JobId job = timed.submit(jobOf("1,2,3"));
  const std::vector<Claim> claims = timed.claim(own, 1, std::nullopt, {}, nullptr, {2, {job}});
  const auto settleAt = [&](const Claim& claim, std::chrono::microseconds after) {
    now = begin + after;
    Outcome outcome = good(claim.attempt);
    outcome.duration = 5ms;
    timed.settle(outcome);
    return timed.attempt(claim.attempt)->started - begin;
  };
  EXPECT_EQ(settleAt(claims.at(0), 5ms), 0ms);
  EXPECT_EQ(settleAt(claims.at(1), 30ms), 25ms);
  EXPECT_EQ(settleAt(claims.at(2), 1h), 0ms) << "nobody knows when, after its engine has died";
}

TEST_F(QueueAhead, WhatHasEndedIsLeftAlone) {
  const JobId job = queue.submit(jobOf("1"));
  const Claim claim = take();
  queue.settle(good(claim.attempt));
  queue.giveBack({claim.attempt, 4711});
  EXPECT_EQ(standing(job), "- - 1 - -");
  EXPECT_EQ(queue.attempts(job).size(), 1U);
}

TEST_F(QueueAhead, OthersSeeItRunWhenItsProcessIsKnown) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  const std::vector<Claim> claims = claim(1, 2, {job});
  EXPECT_EQ(queue.engines().at(0).running, (std::vector<AttemptId>{claims[0].attempt}));
  queue.noteProcess(claims[1].attempt, 4711);
  EXPECT_EQ(queue.engines().at(0).running, (std::vector<AttemptId>{claims[0].attempt, claims[1].attempt}));
}

/// The engine has claimed work 1 for a slot, and 2 to 4 ahead, and dies.
class DeadAhead : public QueueAhead {
protected:
  void SetUp() override {
    job = queue.submit(jobOf("1,2,3,4"));
    claims = dying->claim(dead, 1, std::nullopt, {}, nullptr, {3, {job}});
    ASSERT_EQ(text(claims), "1 +2 +3 +4");
  }

  std::string lockFile() const { return directory.file("engines/" + std::to_string(dead) + ".lock"); }
  std::string lostFrames() {
    dying.reset();
    std::string text;
    for (const LostAttempt& lost : queue.takeLost()) {
      text += std::to_string(lost.attempt.run.First);
      queue.settle(trovik::lost(lost.attempt.id));
    }
    queue.releaseLost();
    return text;
  }

  std::optional<Queue> dying{std::in_place, Path(directory.path())};
  EngineId dead = dying->enterEngine(1);
  JobId job = 0;
  std::vector<Claim> claims;
};

TEST_F(DeadAhead, WhatHadNotBegunIsNotLost) {
  dying->noteBegun(dead, 0);
  dying->noteBegun(dead, claims.at(1).attempt);
  EXPECT_EQ(lostFrames(), "12");
  EXPECT_EQ(standing(job), "1-4 - - - -");
  EXPECT_EQ(queue.attempts(job).size(), 2U);
  EXPECT_FALSE(std::filesystem::exists(lockFile()));
}

TEST_F(DeadAhead, NoneHadBegunWhereNoneWasNoted) {
  dying->noteBegun(dead, 0);
  EXPECT_EQ(lostFrames(), "1");
  EXPECT_EQ(standing(job), "1-4 - - - -");
}

TEST_F(DeadAhead, AnEngineWithNothingElseIsPutAwayAtOnce) {
  dying->noteBegun(dead, 0);
  dying->settle(good(claims.at(0).attempt));
  EXPECT_EQ(lostFrames(), "");
  EXPECT_EQ(standing(job), "2-4 - 1 - -");
  EXPECT_FALSE(queue.hasLost());
}

TEST_F(DeadAhead, WithoutANoteAllMayHaveBegun) {
  EXPECT_EQ(lostFrames(), "1234");
}

class DamagedNote : public DeadAhead, public testing::WithParamInterface<const char*> {};

TEST_P(DamagedNote, CountsAsNone) {
  dying->noteBegun(dead, 0);
  std::ofstream(lockFile()) << GetParam();
  EXPECT_EQ(lostFrames(), "1234");
}

INSTANTIATE_TEST_SUITE_P(All, DamagedNote,
                         testing::Values("", "0\n", "00000000000000000000", "000000000000000000x\n",
                                         "00000000000000000000\n", "0000000000000000000\n\n"));

TEST_F(DeadAhead, AfterTheMachineWasStartedAnewNoNoteIsTrusted) {
  dying->noteBegun(dead, 0);
  change("UPDATE engines SET boot = 'another'");
  EXPECT_EQ(lostFrames(), "1234");
}

TEST_F(DeadAhead, OfACanceledJobItIsCanceledWithoutBeingLost) {
  dying->noteBegun(dead, 0);
  ASSERT_TRUE(queue.cancel(job));
  EXPECT_EQ(lostFrames(), "1");
  EXPECT_EQ(stateOf(job), JobState::Canceled);
}

TEST_F(DeadAhead, OnlyWhoHasTheLockCanNote) {
  EXPECT_FALSE(queueErrorOf([&] { queue.noteBegun(dead, 0); }).message.empty());
}

} // namespace
} // namespace trovik
