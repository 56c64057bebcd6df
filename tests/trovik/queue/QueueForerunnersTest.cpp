#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/QueueTest.h"
#include "trovik/queue/JobView.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>

namespace trovik {
namespace {

NewJob jobAfter(const std::string& works, const std::vector<Forerunner>& forerunners) {
  NewJob job = jobOf(works);
  job.forerunners = forerunners;
  return job;
}
Forerunner whole(JobId job) {
  return {.job = job};
}
Forerunner byFrame(JobId job, int low = 0, int high = 0) {
  return {.job = job, .byFrame = true, .low = low, .high = high};
}

class Forerunners : public QueueTest {
protected:
  std::string waiting(JobId job) { return queue.frames(job).waiting.text(); }
  /// All that can be claimed of the job now.
  std::string claimable(JobId job) {
    RunSet frames;
    for (const Claim& claim : queue.claim(engine, 1000, job)) {
      frames.add(claim.run);
    }
    return frames.text();
  }
  /// Takes the next work and ends it well.
  void finishOne(JobId job) { queue.settle(good(take(job).attempt)); }
};

TEST_F(Forerunners, JobBeginsWhenAllOfTheOtherIsGood) {
  const JobId first = queue.submit(jobOf("1-2,3-4"));
  const JobId second = queue.submit(jobAfter("1,2,3,4", {whole(first)}));
  EXPECT_EQ(waiting(second), "1-4");
  EXPECT_TRUE(queue.job(second)->blocked);
  EXPECT_EQ(queue.frames(second).ready.text(), "1-4") << "they are to be done all the same";
  finishOne(first);
  EXPECT_TRUE(queue.claim(engine, 5, second).empty());
  finishOne(first);
  EXPECT_EQ(stateOf(first), JobState::Good);
  EXPECT_EQ(waiting(second), "");
  EXPECT_FALSE(queue.job(second)->blocked);
  EXPECT_EQ(claimable(second), "1-4");
}

TEST_F(Forerunners, FrameBeginsWhenItsFrameIsGood) {
  const JobId first = queue.submit(jobOf("1,2,3"));
  const JobId second = queue.submit(jobAfter("1,2,3", {byFrame(first)}));
  EXPECT_TRUE(queue.job(second)->blocked);
  const Claim one = take(first);
  finishOne(first); // 2
  EXPECT_EQ(waiting(second), "1,3");
  EXPECT_FALSE(queue.job(second)->blocked);
  EXPECT_EQ(claimable(second), "2");
  EXPECT_TRUE(queue.job(second)->blocked) << "what is left waits";
  queue.settle(good(one.attempt));
  EXPECT_EQ(claimable(second), "1");
}

TEST_F(Forerunners, NeighboursAreWaitedForWhereThereAreSome) {
  const JobId first = queue.submit(jobOf("1,2,3,4"));
  const JobId second = queue.submit(jobAfter("1,2,3,4", {byFrame(first, -1, 1)}));
  finishOne(first); // 1
  EXPECT_EQ(waiting(second), "1-4");
  finishOne(first); // 2
  EXPECT_EQ(waiting(second), "2-4") << "there is no frame 0";
  finishOne(first); // 3
  EXPECT_EQ(waiting(second), "3-4");
  finishOne(first); // 4
  EXPECT_EQ(waiting(second), "");
}

TEST_F(Forerunners, WorkOfSeveralFramesNeedsAllOfThem) {
  const JobId first = queue.submit(jobOf("1-2,3,4-6"));
  const JobId second = queue.submit(jobAfter("1-4,5-6", {byFrame(first)}));
  finishOne(first); // 1-2
  const Claim three = take(first);
  finishOne(first); // 4-6
  EXPECT_EQ(waiting(second), "1-4");
  queue.settle(good(three.attempt));
  EXPECT_EQ(waiting(second), "");
}

TEST_F(Forerunners, SeveralAreAllWaitedFor) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobOf("1"));
  const JobId third = queue.submit(jobAfter("1", {whole(first), byFrame(second)}));
  finishOne(second);
  EXPECT_EQ(waiting(third), "1");
  finishOne(first);
  EXPECT_EQ(waiting(third), "");
}

TEST_F(Forerunners, FramesThatAFailedWorkLeftGoodCount) {
  const JobId first = queue.submit(jobOf("1-4"));
  const JobId second = queue.submit(jobAfter("1,2,3,4", {byFrame(first)}));
  queue.settle(failed(take(first).attempt, "It broke", "1-2"));
  EXPECT_EQ(stateOf(first), JobState::Failed);
  EXPECT_EQ(waiting(second), "3-4");
}

TEST_F(Forerunners, OneThatIsGoodAlreadyIsNotWaitedFor) {
  const JobId first = queue.submit(jobOf("1"));
  finishOne(first);
  EXPECT_EQ(waiting(queue.submit(jobAfter("1", {whole(first)}))), "");
  EXPECT_EQ(waiting(queue.submit(jobAfter("1", {byFrame(first)}))), "");
  NewJob found = jobOf("");
  found.works.clear();
  found.found = runsOf("1");
  EXPECT_EQ(waiting(queue.submit(jobAfter("1", {whole(queue.submit(found))}))), "");
}

TEST_F(Forerunners, OneThatIsRenderedAgainIsWaitedForAgain) {
  const JobId first = queue.submit(jobOf("1,2"));
  const JobId second = queue.submit(jobAfter("1,2", {byFrame(first)}));
  const JobId third = queue.submit(jobAfter("1", {whole(first)}));
  finishOne(first);
  finishOne(first);
  const Claim begun = take(second);
  EXPECT_EQ(begun.run, (FrameRun{1, 1}));
  queue.retry(first, setOf("1-2"));
  EXPECT_EQ(waiting(second), "2") << "what runs goes on";
  EXPECT_EQ(waiting(third), "1");
  queue.settle(good(begun.attempt));
  EXPECT_EQ(stateOf(second), JobState::Running);
}

TEST_F(Forerunners, ReleasedJobGoesAllTheSame) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1,2", {whole(first)}));
  queue.release(second);
  EXPECT_EQ(claimable(second), "1-2");
  ASSERT_EQ(queue.forerunners(second).size(), 1U);
  EXPECT_TRUE(queue.forerunners(second).front().released);
}

TEST_F(Forerunners, CanceledForerunnerKeepsItsFollowerWaitingUntilItIsReleased) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1", {whole(first)}));
  queue.cancel(first);
  EXPECT_EQ(waiting(second), "1");
  EXPECT_EQ(stateOf(second), JobState::Waiting);
  const JobView view = viewOf(queue, queue.job(second).value());
  ASSERT_EQ(view.forerunners.size(), 1U);
  EXPECT_TRUE(view.forerunners.front().isStuck());
  queue.release(second);
  EXPECT_EQ(waiting(second), "");
}

TEST_F(Forerunners, DeletedOneIsWaitedForUnlessItWasGood) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1,2", {whole(first)}));
  queue.cancel(first);
  queue.remove(first);
  EXPECT_EQ(waiting(second), "1-2");
  EXPECT_FALSE(standsOf(queue, second).front().state.has_value());

  const JobId third = queue.submit(jobOf("1"));
  const JobId fourth = queue.submit(jobAfter("1,2", {whole(third)}));
  finishOne(third);
  queue.remove(third);
  queue.cancel(fourth);
  queue.retry(fourth, std::nullopt);
  EXPECT_EQ(waiting(fourth), "");
}

TEST_F(Forerunners, WhatWaitsForADeletedOneWaitsHoweverItIsChanged) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1,2,3,4", {whole(first)}));
  queue.cancel(first);
  queue.remove(first);
  queue.change(second, {.packet = 2});
  EXPECT_EQ(waiting(second), "1-4");
  EXPECT_EQ(queue.frames(second).waitingWorks, 2U);
  queue.cancel(second);
  queue.retry(second, std::nullopt);
  EXPECT_EQ(waiting(second), "1-4");
  EXPECT_TRUE(queue.claim(engine, 5, second).empty());
  queue.release(second);
  EXPECT_EQ(claimable(second), "1-4");
}

TEST_F(Forerunners, CancelingWhatWaitsEndsIt) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1,2", {whole(first)}));
  EXPECT_TRUE(queue.cancel(second));
  EXPECT_EQ(stateOf(second), JobState::Canceled);
  EXPECT_EQ(queue.retry(second, std::nullopt), 2U);
  EXPECT_EQ(waiting(second), "1-2") << "it waits again";
  EXPECT_TRUE(queue.job(second)->blocked);
}

TEST_F(Forerunners, HeldJobThatWaitsGoesOnWaiting) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1", {whole(first)}));
  queue.stop(second, "Held");
  finishOne(first);
  EXPECT_EQ(stateOf(second), JobState::Stopped);
  EXPECT_TRUE(queue.claim(engine, 1, second).empty());
  queue.resume(second);
  EXPECT_EQ(claimable(second), "1");
}

TEST_F(Forerunners, FollowersAreThoseThatStillWait) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobAfter("1", {whole(first)}));
  const JobId third = queue.submit(jobAfter("1", {byFrame(second)}));
  const JobId released = queue.submit(jobAfter("1", {whole(first)}));
  queue.release(released);
  EXPECT_EQ(queue.followers(first, false), (std::vector<JobId>{second}));
  EXPECT_EQ(queue.followers(first, true), (std::vector<JobId>{second, third}));
  queue.cancel(third);
  EXPECT_EQ(queue.followers(first, true), (std::vector<JobId>{second}));
}

TEST_F(Forerunners, SameCommandAfterAnotherJobIsAnotherJob) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobOf("1,2"));
  NewJob wanted = jobAfter("1", {whole(first)});
  wanted.packed = "this very stream";
  const JobId id = queue.enter(wanted, std::nullopt, {}).id;
  EXPECT_EQ(queue.enter(wanted, queue.begun(wanted), {}).id, id);
  queue.release(id);
  EXPECT_EQ(queue.enter(wanted, queue.begun(wanted), {}).id, id);
  wanted.forerunners = {whole(second)};
  EXPECT_NE(queue.enter(wanted, queue.begun(wanted), {}).id, id);
}

TEST_F(Forerunners, WhatFailsOfAFollowerIsTriedAgain) {
  const JobId first = queue.submit(jobOf("1,2"));
  NewJob wanted = jobAfter("1,2", {byFrame(first)});
  wanted.retries = 1;
  const JobId second = queue.submit(wanted);
  finishOne(first);
  const std::vector<Claim> claims = queue.claim(engine, 2, second);
  ASSERT_EQ(claims.size(), 1U);
  EXPECT_TRUE(queue.job(second)->blocked);
  EXPECT_TRUE(queue.settle(failed(claims.front().attempt)));
  EXPECT_FALSE(queue.job(second)->blocked);
  EXPECT_EQ(claimable(second), "1");
}

TEST_F(Forerunners, WorkThatATaskOfTheClusterMayBeginStaysReady) {
  const JobId first = queue.submit(jobOf("1,2"));
  finishOne(first);
  finishOne(first);
  NewJob wanted = jobAfter("1,2", {byFrame(first)});
  wanted.runOn = RunOn::Cluster;
  wanted.folder = "/shared";
  const JobId second = queue.submit(wanted);
  std::vector<ArrayWork> works = arrayWorks(queue, second);
  works.resize(1);
  queue.addArray(second, 1, works);
  queue.retry(first, setOf("1-2"));
  EXPECT_EQ(waiting(second), "2");
  EXPECT_TRUE(queue.worksToSubmit(second).empty());
}

TEST_F(Forerunners, ImagesOfTheFramesThatAWorkNeedsAreTold) {
  const JobId first = queue.submit(jobOf("1-2,3"));
  const JobId second = queue.submit(jobAfter("1,2,3", {byFrame(first, 0, 1)}));
  const JobId third = queue.submit(jobAfter("2-3", {whole(first)}));
  const auto image = [](int frame, const std::string& problem = "") {
    FileRecord record = file("/out/a." + std::to_string(frame) + ".png", problem);
    record.frame = frame;
    record.checked = true;
    return record;
  };
  Outcome outcome = good(take(first).attempt);
  outcome.files = {image(1), image(2), image(7, "It is none of its frames")};
  queue.settle(outcome);
  EXPECT_EQ(queue.imagesBefore(second, {1, 1}), (std::vector<std::string>{"/out/a.1.png", "/out/a.2.png"}));
  EXPECT_EQ(queue.imagesBefore(second, {2, 2}), (std::vector<std::string>{"/out/a.2.png"}));
  EXPECT_EQ(queue.imagesBefore(third, {2, 3}), (std::vector<std::string>{"/out/a.2.png"}));
  NewJob movie = jobAfter("0", {whole(first)});
  movie.hasFrames = false;
  EXPECT_EQ(queue.imagesBefore(queue.submit(movie), {0, 0}),
            (std::vector<std::string>{"/out/a.1.png", "/out/a.2.png"}));
  EXPECT_TRUE(queue.imagesBefore(first, {1, 1}).empty());
}

/// A few jobs that wait for each other, and everything that can happen to
/// them in any order. Nothing begins before what it waits for is good, and
/// nothing that could begin waits.
class Chains {
public:
  void step() {
    switch (*rc::gen::inRange(0, 12)) {
    case 0:
    case 1:
      submit();
      break;
    case 2:
    case 3:
    case 4:
    case 5:
      claim();
      break;
    case 6:
    case 7:
    case 8:
      settle();
      break;
    case 9:
      change();
      break;
    case 10:
      queue.retry(someJob(), *rc::gen::arbitrary<bool>() ? std::optional(someFrames()) : std::nullopt);
      break;
    default:
      die();
    }
    for (const std::string& breach : brokenInvariants(directory.file("queue.db"))) {
      RC_FAIL(breach);
    }
  }

private:
  static RunSet someFrames() {
    RunSet frames;
    const int first = *rc::gen::inRange(1, 7);
    frames.add({first, first + *rc::gen::inRange(0, 3)});
    return frames;
  }
  JobId someJob() { return jobs.empty() ? 1 : *rc::gen::elementOf(jobs); }

  void submit() {
    if (jobs.size() >= 5) {
      return;
    }
    NewJob job = jobOf(*rc::gen::element<std::string>("1-2,3,4-6", "1,2,3,4,5,6", "1-6"));
    job.retries = *rc::gen::inRange(0, 2);
    for (const JobId other : jobs) {
      switch (*rc::gen::inRange(0, 4)) {
      case 0:
        job.forerunners.push_back(whole(other));
        break;
      case 1: {
        const int low = *rc::gen::inRange(-1, 2);
        job.forerunners.push_back(byFrame(other, low, low + *rc::gen::inRange(0, 2)));
        break;
      }
      default:
        break;
      }
    }
    jobs.push_back(queue.submit(job));
  }

  void claim() {
    for (const Claim& one : queue.claim(engine, *rc::gen::inRange<std::size_t>(1, 4), std::nullopt)) {
      running.push_back(one);
      if (one.number == 1) {
        requireSatisfied(one);
      }
    }
  }

  void requireSatisfied(const Claim& claim) {
    for (const Forerunner& one : queue.forerunners(claim.job)) {
      const std::optional<JobRecord> job = queue.job(one.job);
      if (one.released || !job || job->state == JobState::Good) {
        continue;
      }
      RC_ASSERT(one.byFrame);
      const JobFrames frames = queue.frames(one.job);
      for (int frame = claim.run.First + one.low; frame <= claim.run.Last + one.high; ++frame) {
        RC_ASSERT(frame < 1 || frame > 6 || frames.good.contains(frame));
      }
    }
  }

  void settle() {
    if (running.empty()) {
      return;
    }
    const auto place = *rc::gen::inRange<std::size_t>(0, running.size());
    const Claim claim = running[place];
    running.erase(running.begin() + static_cast<std::ptrdiff_t>(place));
    const std::string first = std::to_string(claim.run.First);
    switch (*rc::gen::inRange(0, 5)) {
    case 0:
      queue.settle(failed(claim.attempt, "It broke", *rc::gen::arbitrary<bool>() ? first : ""));
      break;
    case 1:
      queue.settle(canceledOutcome(claim.attempt));
      break;
    default:
      queue.settle(good(claim.attempt));
    }
  }

  void change() {
    const JobId job = someJob();
    switch (*rc::gen::inRange(0, 6)) {
    case 0:
      queue.cancel(job);
      break;
    case 1:
      queue.stop(job, "Held");
      break;
    case 2:
    case 3:
      queue.resume(job);
      break;
    case 4:
      queue.release(job);
      break;
    default:
      if (queue.runningAttempts(job).empty()) {
        queue.remove(job);
      }
    }
  }

  /// An engine that dies with what it has claimed.
  void die() {
    {
      Queue other{Path(directory.path())};
      for (const Claim& one : other.claim(other.enterEngine(1), 2, std::nullopt)) {
        if (one.number == 1) {
          requireSatisfied(one);
        }
      }
    }
    for (const LostAttempt& one : queue.takeLost()) {
      queue.settle(lost(one.attempt.id));
    }
    queue.releaseLost();
  }

  TemporaryDirectory directory;
  Queue queue{Path(directory.path())};
  EngineId engine = queue.enterEngine(2);
  std::vector<JobId> jobs;
  std::vector<Claim> running;
};

RC_GTEST_PROP(ForerunnersProperty, NothingBeginsTooEarlyAndNothingWaitsForNothing, ()) {
  Chains chains;
  for (int steps = *rc::gen::inRange(1, 60); steps > 0; --steps) {
    chains.step();
  }
}

} // namespace
} // namespace trovik
