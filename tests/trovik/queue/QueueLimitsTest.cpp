#include "tests/trovik/queue/Child.h"
#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/QueueTest.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <random>

namespace trovik {
namespace {

// What is scarce, and jobs of which only some works may run at a time.

class QueueLimits : public QueueTest {
protected:
  JobId submit(const std::string& works, const std::vector<LimitShare>& takes, int slotsAtMost = 0) {
    NewJob job = jobOf(works);
    job.takes = takes;
    job.slotsAtMost = slotsAtMost;
    return queue.submit(job);
  }
  std::size_t claimed(std::size_t count, std::optional<JobId> only = std::nullopt) {
    const std::vector<Claim> claims = queue.claim(engine, count, only);
    running.insert(running.end(), claims.begin(), claims.end());
    return claims.size();
  }
  void finishOne() {
    queue.settle(good(running.front().attempt));
    running.erase(running.begin());
  }
  std::vector<Claim> running;
};

TEST_F(QueueLimits, JobHasSoManySlotsAtMost) {
  submit("1,2,3,4", {}, 2);
  EXPECT_EQ(claimed(1), 1U);
  EXPECT_EQ(claimed(3), 1U);
  EXPECT_EQ(claimed(3), 0U);
  finishOne();
  EXPECT_EQ(claimed(3), 1U);
  queue.change(1, {.slotsAtMost = 0});
  EXPECT_EQ(claimed(3), 1U);
}

TEST_F(QueueLimits, SeveralJobsShareALimit) {
  queue.setLimits({{"renderer", 3}});
  submit("1,2,3", {{"renderer", 2}});
  submit("1,2,3", {{"renderer", 1}});
  submit("1", {});
  EXPECT_EQ(claimed(9), 3U) << "one of each";
  EXPECT_EQ(running[0].job, 1);
  EXPECT_EQ(running[1].job, 2);
  EXPECT_EQ(running[2].job, 3);
  const std::vector<LimitStand> limits = queue.limits();
  ASSERT_EQ(limits.size(), 1U);
  EXPECT_EQ(limits[0].taken, 3);
  finishOne();
  EXPECT_EQ(claimed(9), 1U);
  EXPECT_EQ(running.back().job, 1);
}

TEST_F(QueueLimits, EachOfSeveralCounts) {
  queue.setLimits({{"a", 5}, {"b", 1}});
  submit("1,2", {{"a", 1}, {"b", 1}});
  submit("1,2", {{"a", 2}});
  EXPECT_EQ(claimed(9), 3U);
  EXPECT_EQ(running[0].job, 1);
  EXPECT_EQ(running[1].job, 2);
  EXPECT_EQ(running[2].job, 2);
}

TEST_F(QueueLimits, OfWhatIsNotNamedThereIsNoLimit) {
  submit("1,2,3", {{"renderer", 1}});
  EXPECT_EQ(claimed(9), 3U);
}

TEST_F(QueueLimits, ChangeCountsForWhatBeginsFromThenOn) {
  queue.setLimits({{"renderer", 2}});
  submit("1,2,3,4", {{"renderer", 1}});
  EXPECT_EQ(claimed(9), 2U);
  queue.setLimits({{"renderer", 1}});
  finishOne();
  EXPECT_EQ(claimed(9), 0U);
  queue.setLimits({{"renderer", 3}});
  EXPECT_EQ(claimed(9), 2U);
}

TEST_F(QueueLimits, WhatAStoppedOrCanceledJobStillRunsCounts) {
  queue.setLimits({{"renderer", 1}});
  submit("1,2", {{"renderer", 1}});
  submit("1,2", {{"renderer", 1}});
  EXPECT_EQ(claimed(1), 1U);
  queue.cancel(1);
  EXPECT_EQ(claimed(1), 0U);
  queue.settle(canceledOutcome(running.front().attempt));
  EXPECT_EQ(claimed(1), 1U);
  queue.stop(2, "Held");
  submit("1", {{"renderer", 1}});
  EXPECT_EQ(claimed(1), 0U);
}

TEST_F(QueueLimits, FramesAndOrderStayWhenWorksAreCutAnew) {
  NewJob job = jobOf("");
  job.works = {{1, 1}, {2, 2}, {9, 9}, {3, 3}, {4, 7}, {8, 8}, {20, 20}};
  const JobId id = queue.submit(job);
  queue.settle(good(take().attempt));
  queue.change(id, {.packet = 3});
  std::string order;
  for (const Claim& claim : queue.claim(engine, 100, id)) {
    order += runText(claim.run) + ' ';
  }
  EXPECT_EQ(order, "2 9 3-5 6-8 20 ");
  EXPECT_EQ(standing(id), "- 2-9,20 1 - -");
}

TEST_F(QueueLimits, WorksOfOtherPacketsAreCutUp) {
  EXPECT_EQ(cutAnew(runsOf("1-10"), 4), runsOf("1-4,5-8,9-10"));
  EXPECT_EQ(cutAnew(runsOf("1-4,5-8,9-10"), 1).size(), 10U);
  EXPECT_EQ(cutAnew(runsOf("1-4,5-8,9-10"), 100), runsOf("1-10"));
  EXPECT_EQ(cutAnew(runsOf("5,4,3"), 3), runsOf("5,4,3")) << "a work always ascends";
  EXPECT_EQ(cutAnew({{INT32_MAX - 1, INT32_MAX}}, 1).size(), 2U);
}

/// Jobs that take of one limit and of another, engines that come, die and are
/// recovered, and jobs that are changed in any way: never is more taken than
/// there is, and where there is enough for a ready work it is not left waiting.
RC_GTEST_PROP(QueueLimitsProperty, LimitsAreNeverExceededAndNothingStarves, ()) {
  const TemporaryDirectory directory;
  Queue queue{Path(directory.path())};
  const EngineId engine = queue.enterEngine(4);
  std::map<std::string, int> amounts = {{"a", *rc::gen::inRange(1, 3)}, {"b", *rc::gen::inRange(1, 4)}};
  queue.setLimits({{"a", amounts["a"]}, {"b", amounts["b"]}});
  std::map<JobId, NewJob> jobs;
  std::vector<Claim> running;
  const auto requireLimits = [&] {
    std::map<std::string, int> taken;
    for (const auto& [id, job] : jobs) {
      const auto works = static_cast<int>(queue.frames(id).runningWorks);
      RC_ASSERT(job.slotsAtMost == 0 || works <= job.slotsAtMost);
      for (const LimitShare& share : job.takes) {
        taken[share.name] += works * share.amount;
      }
    }
    for (const auto& [name, amount] : taken) {
      RC_ASSERT(amount <= amounts[name]);
    }
  };
  for (int steps = *rc::gen::inRange(1, 80); steps > 0; --steps) {
    switch (*rc::gen::inRange(0, 8)) {
    case 0:
      if (jobs.size() < 4) {
        NewJob job = jobOf("1,2,3,4,5");
        job.slotsAtMost = *rc::gen::inRange(0, 3);
        for (const char* name : {"a", "b"}) {
          if (*rc::gen::arbitrary<bool>()) {
            job.takes.push_back({name, *rc::gen::inRange(1, amounts[name] + 1)});
          }
        }
        jobs[queue.submit(job)] = job;
      }
      break;
    case 1:
    case 2:
    case 3: {
      const auto count = *rc::gen::inRange<std::size_t>(1, 5);
      const std::vector<Claim> claims = queue.claim(engine, count, std::nullopt);
      running.insert(running.end(), claims.begin(), claims.end());
      if (claims.size() < count) {
        RC_ASSERT(queue.claim(engine, 1, std::nullopt).empty());
      }
      break;
    }
    case 4:
    case 5:
      if (!running.empty()) {
        const auto place = *rc::gen::inRange<std::size_t>(0, running.size());
        queue.settle(*rc::gen::arbitrary<bool>() ? good(running[place].attempt)
                                                 : canceledOutcome(running[place].attempt));
        running.erase(running.begin() + static_cast<std::ptrdiff_t>(place));
      }
      break;
    case 6:
      if (!jobs.empty()) {
        const JobId id = jobs.begin()->first + *rc::gen::inRange<JobId>(0, static_cast<JobId>(jobs.size()));
        *rc::gen::arbitrary<bool>() ? queue.stop(id, "Held") : queue.resume(id);
      }
      break;
    default: {
      {
        Queue other{Path(directory.path())};
        other.claim(other.enterEngine(2), 2, std::nullopt);
        requireLimits();
      }
      for (const LostAttempt& one : queue.takeLost()) {
        queue.settle(lost(one.attempt.id));
      }
      queue.releaseLost();
    }
    }
    requireLimits();
  }
  for (const std::string& breach : brokenInvariants(directory.file("queue.db"))) {
    RC_FAIL(breach);
  }
}

/// Four engines of one limit, killed at random and started again: whoever asks
/// sees one work that runs at most.
TEST(QueueLimitsProcesses, ALimitOfOneIsNeverExceededByEnginesThatAreKilled) {
  const TemporaryDirectory directory;
  const Path folder(directory.path());
  constexpr int works = 300;
  {
    Queue queue(folder);
    queue.setLimits({{"renderer", 1}});
    for (int number = 0; number < 2; ++number) {
      NewJob job = jobOf("");
      for (int frame = 1; frame <= works / 2; ++frame) {
        job.works.push_back({frame, frame});
      }
      job.takes = {{"renderer", 1}};
      queue.submit(job);
    }
  }
  const auto work = [&](const Child::Tell& tell) {
    Queue queue(folder);
    const EngineId engine = queue.enterEngine(1);
    std::mt19937 random(static_cast<unsigned>(getpid()));
    for (int idle = 0; idle < 2000;) {
      for (const LostAttempt& one : queue.takeLost()) {
        queue.settle(lost(one.attempt.id));
      }
      queue.releaseLost();
      const std::vector<Claim> claims = queue.claim(engine, 3, std::nullopt);
      if (claims.size() > 1 || queue.limits().at(0).taken > 1) {
        tell("exceeded");
      }
      if (!claims.empty() && random() % 16 == 0) {
        raise(SIGKILL);
      }
      for (const Claim& claim : claims) {
        queue.settle(good(claim.attempt));
        tell("done");
      }
      const std::vector<JobRecord> jobs = queue.jobs();
      if (std::none_of(jobs.begin(), jobs.end(), [](const JobRecord& job) { return isOpen(job.state); })) {
        break;
      }
      idle = claims.empty() ? idle + 1 : 0;
      usleep(claims.empty() ? 500 : 0);
    }
    queue.leaveEngine(engine);
  };
  std::size_t killed = 0;
  std::size_t done = 0;
  for (int round = 0; round < 60; ++round) {
    std::vector<std::unique_ptr<Child>> engines(4);
    for (std::unique_ptr<Child>& engine : engines) {
      engine = std::make_unique<Child>(work);
    }
    std::size_t alive = 0;
    for (const auto& engine : engines) {
      for (const std::string& line : engine->finish()) {
        EXPECT_EQ(line, "done");
        ++done;
      }
      ++(WIFSIGNALED(engine->status) ? killed : alive);
    }
    if (alive == engines.size()) {
      break;
    }
  }
  EXPECT_GT(killed, 0U);
  EXPECT_EQ(done, static_cast<std::size_t>(works)) << "five losses are allowed, and good is good once";
  EXPECT_EQ(brokenInvariants(directory.file("queue.db")), std::vector<std::string>());
}

} // namespace
} // namespace trovik
