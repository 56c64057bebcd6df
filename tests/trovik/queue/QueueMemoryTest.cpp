#include "tests/trovik/queue/QueueTest.h"

namespace trovik {
namespace {

// Works begin where the machine can hold them.

constexpr std::int64_t giga = 1'000'000'000;

class QueueMemory : public QueueTest {
protected:
  JobId submit(std::int64_t memory, int priority = 50) {
    NewJob job = jobOf("1,2,3,4,5,6,7,8");
    job.memory = memory;
    job.priority = priority;
    return queue.submit(job);
  }
  /// The jobs of the works that begin, of so many that are wanted.
  std::vector<JobId> claimed(std::size_t count) {
    MemoryCheck check;
    check.ask = [this](const std::vector<int>& wanted) {
      ++asked;
      groups = wanted;
      return now;
    };
    std::vector<JobId> jobs;
    for (const Claim& claim : queue.claim(engine, count, std::nullopt, {}, &check)) {
      jobs.push_back(claim.job);
      running.push_back(claim);
    }
    waits = check.waits;
    return jobs;
  }
  void start(const Claim& claim, int process, std::int64_t used) {
    queue.noteProcess(claim.attempt, process);
    now.used[process] = used;
    now.available -= used;
  }
  void end(std::size_t place, std::int64_t peak = 0) {
    Outcome outcome = good(running.at(place).attempt);
    if (peak > 0) {
      outcome.usage = ProcessUsage{};
      outcome.usage->PeakMemory = peak;
    }
    queue.settle(outcome);
    running.erase(running.begin() + static_cast<std::ptrdiff_t>(place));
  }

  MemoryNow now{16 * giga, 16 * giga, {}};
  int asked = 0;
  std::vector<int> groups;
  std::vector<Claim> running;
  std::vector<MemoryWait> waits;
};

using Jobs = std::vector<JobId>;

TEST_F(QueueMemory, AsManyBeginAsFit) {
  submit(5 * giga);
  EXPECT_EQ(claimed(8), (Jobs{1, 1, 1}));
  EXPECT_EQ(waits, (std::vector<MemoryWait>{{1, 5 * giga, giga}}));
  EXPECT_EQ(claimed(8), Jobs{});
  EXPECT_EQ(waits, (std::vector<MemoryWait>{{1, 5 * giga, giga}}));
}

TEST_F(QueueMemory, WhatAProgramIsStillGoingToTakeIsNotFree) {
  submit(5 * giga);
  EXPECT_EQ(claimed(1), Jobs{1});
  start(running.at(0), 4711, giga);
  EXPECT_EQ(claimed(8), (Jobs{1, 1})) << "15 are free, and 4 are going to be taken";
  EXPECT_EQ(groups, std::vector<int>{4711});
}

TEST_F(QueueMemory, OneAlwaysBeginsWhereNothingRuns) {
  submit(50 * giga);
  EXPECT_EQ(claimed(8), Jobs{1});
  EXPECT_EQ(claimed(8), Jobs{});
  end(0);
  EXPECT_EQ(claimed(8), Jobs{1});
}

TEST_F(QueueMemory, NeedIsLearnedFromWhatHasEnded) {
  submit(0);
  EXPECT_EQ(claimed(1), Jobs{1});
  EXPECT_EQ(asked, 0) << "nobody knows what it needs";
  end(0, 6 * giga);
  EXPECT_EQ(queue.job(1).value().memorySeen, 6 * giga);
  EXPECT_EQ(claimed(8), (Jobs{1, 1}));
  end(0, 2 * giga);
  EXPECT_EQ(queue.job(1).value().memorySeen, 6 * giga) << "the most counts";
}

TEST_F(QueueMemory, WhatSomebodySaysCountsBeforeWhatWasSeen) {
  submit(0);
  claimed(1);
  end(0, 10 * giga);
  queue.change(1, {.memory = 4 * giga});
  EXPECT_EQ(claimed(8), (Jobs{1, 1, 1, 1}));
  queue.change(1, {.memory = 0});
  EXPECT_EQ(claimed(8), Jobs{});
}

TEST_F(QueueMemory, JobWithoutAFurtherWorkWaitsForNothing) {
  NewJob job = jobOf("1,2,3");
  job.memory = 5 * giga;
  queue.submit(job);
  EXPECT_EQ(claimed(8), (Jobs{1, 1, 1}));
  EXPECT_EQ(waits, std::vector<MemoryWait>{});
}

TEST_F(QueueMemory, SmallWorksOfLaterJobsBeginBesideABigOneThatWaits) {
  submit(10 * giga);
  submit(2 * giga);
  EXPECT_EQ(claimed(8), (Jobs{1, 2, 2, 2})) << "10 and three times 2 fit into 16";
}

TEST_F(QueueMemory, LaterWorksNeverKeepABigOneFromItsTurn) {
  submit(4 * giga);
  EXPECT_EQ(claimed(2), (Jobs{1, 1}));
  submit(10 * giga, 60);
  submit(2 * giga);
  // The big one has to wait for those of job 1; job 3 may take what it leaves.
  EXPECT_EQ(claimed(8), Jobs{}) << "10 for the big one, and 8 that run leave nothing";
  EXPECT_EQ(waits, (std::vector<MemoryWait>{{2, 10 * giga, 8 * giga}}));
  end(0);
  EXPECT_EQ(claimed(1), Jobs{2});
}

TEST_F(QueueMemory, SmallNeedsAreNotWorthTheQuestion) {
  submit(10'000'000);
  EXPECT_EQ(claimed(8).size(), 8U);
  EXPECT_EQ(asked, 0);
}

TEST_F(QueueMemory, MachineThatDoesNotTellStopsNothing) {
  now = {};
  submit(50 * giga);
  EXPECT_EQ(claimed(8).size(), 8U);
}

TEST_F(QueueMemory, WithoutACheckMemoryIsNoMatter) {
  submit(50 * giga);
  EXPECT_EQ(queue.claim(engine, 8, std::nullopt).size(), 8U);
}

} // namespace
} // namespace trovik
