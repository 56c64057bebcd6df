#include "tests/trovik/queue/QueueTest.h"

#include <fcntl.h>
#include <filesystem>
#include <optional>

namespace trovik {
namespace {

/// Each store object has files of its own, so that two of them are to each
/// other what two processes are.
class StoreEngines : public QueueTest {
protected:
  /// An engine whose store is gone, and with it the lock.
  void die() { dying.reset(); }

  std::optional<Store> dying{std::in_place, Path(directory.path())};
  EngineId dead = dying->enterEngine(3);
};

TEST_F(StoreEngines, SlotsAreKept) {
  EXPECT_EQ(store.slots(dead), 3U);
  EXPECT_EQ(store.slots(4711), 0U);
}

TEST_F(StoreEngines, AnEngineIsSeenByOthersWhileItLives) {
  EXPECT_TRUE(store.hasOtherEngine(engine));
  die();
  EXPECT_FALSE(store.hasOtherEngine(engine));
  const EngineId second = store.enterEngine(1);
  EXPECT_TRUE(store.hasOtherEngine(engine)) << "one of the same store";
  store.leaveEngine(second);
  EXPECT_FALSE(store.hasOtherEngine(engine));
}

TEST_F(StoreEngines, AnEngineThatLeavesTakesItsLockFileWithIt) {
  const std::string lock = directory.file("engines/" + std::to_string(dead) + ".lock");
  EXPECT_TRUE(std::filesystem::exists(lock));
  dying->leaveEngine(dead);
  EXPECT_FALSE(std::filesystem::exists(lock));
  EXPECT_FALSE(store.hasOtherEngine(engine));
  EXPECT_TRUE(store.takeLost().empty());
}

TEST_F(StoreEngines, LockFilesAreClosedOnExec) {
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

TEST_F(StoreEngines, WorksOfALiveEngineAreNotLost) {
  store.submit(jobOf("1"));
  ASSERT_EQ(dying->claim(dead, 1, std::nullopt).size(), 1U);
  EXPECT_TRUE(store.takeLost().empty());
}

TEST_F(StoreEngines, WhatAnEngineDiedOverIsHandedOutToOneAndTakenUp) {
  const JobId job = store.submit(jobOf("1-3,4"));
  const Claim claim = dying->claim(dead, 1, std::nullopt).at(0);
  dying->noteProcess(claim.attempt, 4711);
  dying->noteFile(claim.attempt, file("/out/1.png"));
  die();

  const std::vector<LostAttempt> lostOnes = store.takeLost();
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

  Store other{Path(directory.path())};
  EXPECT_TRUE(other.takeLost().empty()) << "somebody takes it up already";
  EXPECT_TRUE(store.takeLost().empty()) << "it was handed out";
  EXPECT_TRUE(store.settle(lost(claim.attempt, "1")));
  store.releaseLost();
  EXPECT_EQ(standing(job), "2-4 - 1 - -");
  EXPECT_TRUE(other.takeLost().empty());
  EXPECT_FALSE(std::filesystem::exists(directory.file("engines/" + std::to_string(dead) + ".lock")));
}

TEST_F(StoreEngines, WhatWasNotTakenUpIsHandedOutAgain) {
  store.submit(jobOf("1,2"));
  const std::vector<Claim> claims = dying->claim(dead, 2, std::nullopt);
  die();
  EXPECT_EQ(store.takeLost().size(), 2U);
  store.settle(lost(claims[0].attempt));
  store.releaseLost();
  const std::vector<LostAttempt> again = store.takeLost();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].attempt.id, claims[1].attempt);
}

TEST_F(StoreEngines, WhoDiesOverTheTakingUpIsTakenUpTheSameWay) {
  store.submit(jobOf("1"));
  const Claim claim = dying->claim(dead, 1, std::nullopt).at(0);
  die();
  {
    Store helper{Path(directory.path())};
    EXPECT_EQ(helper.takeLost().size(), 1U);
  }
  const std::vector<LostAttempt> again = store.takeLost();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].attempt.id, claim.attempt);
}

TEST_F(StoreEngines, AttemptsThatAnEngineLeavesRunningAreLost) {
  store.submit(jobOf("1"));
  const Claim claim = dying->claim(dead, 1, std::nullopt).at(0);
  dying->leaveEngine(dead);
  const std::vector<LostAttempt> lostOnes = store.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  EXPECT_EQ(lostOnes[0].attempt.id, claim.attempt);
}

TEST_F(StoreEngines, AMachineThatWasStartedAnewRunsNothingOfBefore) {
  store.submit(jobOf("1"));
  ASSERT_EQ(dying->claim(dead, 1, std::nullopt).size(), 1U);
  die();
  change("UPDATE engines SET boot = 'before'");
  const std::vector<LostAttempt> lostOnes = store.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  EXPECT_FALSE(lostOnes[0].sameBoot);
}

TEST_F(StoreEngines, OnlyEnginesOfThisStoreClaim) {
  const JobId job = store.submit(jobOf("1"));
  EXPECT_EQ(storeErrorOf([&] { store.claim(dead, 1, std::nullopt); }).message,
            "Engine " + std::to_string(dead) + " is none of this process, so it cannot take works");
  dying->leaveEngine(dead);
  EXPECT_EQ(storeErrorOf([&] { dying->claim(dead, 1, std::nullopt); }).message,
            "Engine " + std::to_string(dead) + " is none of this process, so it cannot take works");
  EXPECT_EQ(standing(job), "1 - - - -");
}

TEST_F(StoreEngines, AnotherConnectionsChangeShowsInTheVersion) {
  const std::int64_t before = store.dataVersion();
  store.submit(jobOf("1"));
  EXPECT_EQ(store.dataVersion(), before) << "its own change";
  dying->submit(jobOf("1"));
  EXPECT_NE(store.dataVersion(), before);
}

} // namespace
} // namespace trovik
