#include "tests/trovik/queue/QueueTest.h"

#include <fcntl.h>
#include <filesystem>
#include <optional>

namespace trovik {
namespace {

/// Each queue object has files of its own, so that two of them are to each
/// other what two processes are.
class QueueEngines : public QueueTest {
protected:
  /// An engine whose queue is gone, and with it the lock.
  void die() { dying.reset(); }

  std::optional<Queue> dying{std::in_place, Path(directory.path())};
  EngineId dead = dying->enterEngine(3);
};

TEST_F(QueueEngines, SlotsAreKept) {
  EXPECT_EQ(queue.slots(dead), 3U);
  EXPECT_EQ(queue.slots(4711), 0U);
}

TEST_F(QueueEngines, AnEngineIsSeenByOthersWhileItLives) {
  EXPECT_TRUE(queue.hasOtherEngine(engine));
  die();
  EXPECT_FALSE(queue.hasOtherEngine(engine));
  const EngineId second = queue.enterEngine(1);
  EXPECT_TRUE(queue.hasOtherEngine(engine)) << "one of the same queue";
  queue.leaveEngine(second);
  EXPECT_FALSE(queue.hasOtherEngine(engine));
}

TEST_F(QueueEngines, AnEngineThatLeavesTakesItsLockFileWithIt) {
  const std::string lock = directory.file("engines/" + std::to_string(dead) + ".lock");
  EXPECT_TRUE(std::filesystem::exists(lock));
  dying->leaveEngine(dead);
  EXPECT_FALSE(std::filesystem::exists(lock));
  EXPECT_FALSE(queue.hasOtherEngine(engine));
  EXPECT_TRUE(queue.takeLost().empty());
}

TEST_F(QueueEngines, LockFilesAreClosedOnExec) {
  std::size_t locks = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
    if (target.starts_with(directory.path()) && target.ends_with(".lock")) {
      ++locks;
      EXPECT_NE(fcntl(std::stoi(entry.path().filename().string()), F_GETFD) & FD_CLOEXEC, 0);
    }
  }
  EXPECT_EQ(locks, 2U);
}

TEST_F(QueueEngines, WorksOfALiveEngineAreNotLost) {
  queue.submit(jobOf("1"));
  ASSERT_EQ(dying->claim(dead, 1, std::nullopt).size(), 1U);
  EXPECT_TRUE(queue.takeLost().empty());
}

TEST_F(QueueEngines, WhatAnEngineDiedOverIsHandedOutToOneAndTakenUp) {
  const JobId job = queue.submit(jobOf("1-3,4"));
  const Claim claim = dying->claim(dead, 1, std::nullopt).at(0);
  dying->noteProcess(claim.attempt, 4711);
  dying->noteFile(claim.attempt, file("/out/1.png"));
  die();

  const std::vector<LostAttempt> lostOnes = queue.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  EXPECT_EQ(lostOnes[0].attempt.id, claim.attempt);
  EXPECT_EQ(lostOnes[0].attempt.job, job);
  EXPECT_EQ(lostOnes[0].attempt.run, claim.run);
  EXPECT_EQ(lostOnes[0].attempt.state, AttemptState::Running);
  EXPECT_EQ(lostOnes[0].mark, claim.mark);
  EXPECT_EQ(lostOnes[0].process, 4711);
  EXPECT_TRUE(lostOnes[0].sameBoot);
  ASSERT_EQ(lostOnes[0].files.size(), 1U);
  EXPECT_EQ(lostOnes[0].files[0].path, "/out/1.png");

  Queue other{Path(directory.path())};
  EXPECT_TRUE(other.takeLost().empty()) << "somebody takes it up already";
  EXPECT_TRUE(queue.takeLost().empty()) << "it was handed out";
  EXPECT_TRUE(queue.settle(lost(claim.attempt, "1")));
  queue.releaseLost();
  EXPECT_EQ(standing(job), "2-4 - 1 - -");
  EXPECT_TRUE(other.takeLost().empty());
  EXPECT_FALSE(std::filesystem::exists(directory.file("engines/" + std::to_string(dead) + ".lock")));
}

TEST_F(QueueEngines, WhatWasNotTakenUpIsHandedOutAgain) {
  queue.submit(jobOf("1,2"));
  const std::vector<Claim> claims = dying->claim(dead, 2, std::nullopt);
  die();
  EXPECT_EQ(queue.takeLost().size(), 2U);
  queue.settle(lost(claims[0].attempt));
  queue.releaseLost();
  const std::vector<LostAttempt> again = queue.takeLost();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].attempt.id, claims[1].attempt);
}

TEST_F(QueueEngines, WhoDiesOverTheTakingUpIsTakenUpTheSameWay) {
  queue.submit(jobOf("1"));
  const Claim claim = dying->claim(dead, 1, std::nullopt).at(0);
  die();
  {
    Queue helper{Path(directory.path())};
    EXPECT_EQ(helper.takeLost().size(), 1U);
  }
  const std::vector<LostAttempt> again = queue.takeLost();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].attempt.id, claim.attempt);
}

TEST_F(QueueEngines, AttemptsThatAnEngineLeavesRunningAreLost) {
  queue.submit(jobOf("1"));
  const Claim claim = dying->claim(dead, 1, std::nullopt).at(0);
  dying->leaveEngine(dead);
  const std::vector<LostAttempt> lostOnes = queue.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  EXPECT_EQ(lostOnes[0].attempt.id, claim.attempt);
}

TEST_F(QueueEngines, AMachineThatWasStartedAnewRunsNothingOfBefore) {
  queue.submit(jobOf("1"));
  ASSERT_EQ(dying->claim(dead, 1, std::nullopt).size(), 1U);
  die();
  change("UPDATE engines SET boot = 'before'");
  const std::vector<LostAttempt> lostOnes = queue.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  EXPECT_FALSE(lostOnes[0].sameBoot);
}

TEST_F(QueueEngines, OnlyEnginesOfThisQueueClaim) {
  const JobId job = queue.submit(jobOf("1"));
  EXPECT_EQ(queueErrorOf([&] { queue.claim(dead, 1, std::nullopt); }).message,
            "Engine " + std::to_string(dead) + " is none of this process, so it cannot take works");
  dying->leaveEngine(dead);
  EXPECT_EQ(queueErrorOf([&] { dying->claim(dead, 1, std::nullopt); }).message,
            "Engine " + std::to_string(dead) + " is none of this process, so it cannot take works");
  EXPECT_EQ(standing(job), "1 - - - -");
}

TEST_F(QueueEngines, AnotherConnectionsChangeShowsInTheVersion) {
  const std::int64_t before = queue.dataVersion();
  queue.submit(jobOf("1"));
  EXPECT_EQ(queue.dataVersion(), before) << "its own change";
  dying->submit(jobOf("1"));
  EXPECT_NE(queue.dataVersion(), before);
}

} // namespace
} // namespace trovik
