// Several processes of one user, and what tasks do after their results.

#include "tests/trovik/cluster/SiteTest.h"

namespace trovik {
namespace {

// A file server may take its time for each of them.
TEST_F(SiteTest, NobodyWaitsWhileFilesOfTheFolderAreRead) {
  const JobId id = submit("1-3");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(10s);
  ASSERT_EQ(running(id), "1");
  int turns = 0;
  user.inTransaction([&] { // who reads with the right to write would wait for this one
    for (Clock::time_point end = machine.now() + ClusterEngine::questionPause / 2; machine.now() < end;
         ++turns) {
      std::vector<pollfd> none;
      machine.wait(none, 250ms);
      engine->advance();
    }
  });
  EXPECT_GT(turns, 2);
  finish(101, 0);
  pass(5s);
  EXPECT_EQ(good(id), "1");
}

TEST_F(SiteTest, ATaskThatIsPutBackWhenItsJobIsOverIsCanceled) {
  const JobId id = submit("1-2");
  pass(3s);
  site.start();
  finish(101, 0);
  finish(101, 1);
  FakeSite::end(task(101, 1), "COMPLETED");
  pass(5s);
  ASSERT_EQ(state(id), JobState::Good);
  FakeSite::setWaiting(task(101, 0));
  task(101, 0).reason = "launch failed requeued held";
  task(101, 0).restarts = 1;
  pass(20s);
  EXPECT_EQ(site.canceled, std::vector<std::string>{site.arrays.at(101).submission.name});
  EXPECT_EQ(task(101, 0).state, "CANCELLED");
  pass(1min);
  const std::size_t before = site.questions;
  pass(10min);
  EXPECT_EQ(site.questions, before) << "nothing is left to be asked";
  EXPECT_EQ(site.canceled.size(), 1U);
}

TEST_F(SiteTest, WhatAnArrayLeftIsCanceledByTheNextProcess) {
  leaveOneGoodJob();
  restart(ClusterEngine::Duty::Collect);
  FakeSite::setWaiting(task(101, 0));
  task(101, 0).reason = "job requeued in held state";
  pass(20s);
  EXPECT_TRUE(site.canceled.empty()) << "who only collects cancels nothing";
  restart();
  pass(5s);
  EXPECT_EQ(task(101, 0).state, "CANCELLED");
}

TEST_F(SiteTest, WhoPutsATaskBackAndHoldsItHasItsWorkDoneByAnother) {
  const JobId id = submit("1");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(5s);
  WorkEnd end;
  end.by = WorkEnd::By::Interrupted;
  end.claim = 1;
  end.outcome.state = AttemptState::Lost;
  folderOf(101).leave(0, end);
  FakeSite::setWaiting(task(101, 0));
  task(101, 0).reason = "job requeued in held state";
  task(101, 0).restarts = 1;
  EXPECT_TRUE(engine->advanceUntil(
      [&] {
        return !queue.openArrays().empty() && queue.openArrays().front().number == 2 && engine->isSettled();
      },
      60s));
  EXPECT_EQ(task(101, 0).state, "CANCELLED") << "before anybody leaves";
  site.start();
  finish(102, 0);
  pass(10s);
  EXPECT_EQ(state(id), JobState::Good);
}

TEST_F(SiteTest, ATaskThatEndsAfterItsResultIsLeftInPeace) {
  const JobId id = submit("1");
  pass(3s);
  site.start();
  finish(101, 0);
  pass(20s); // the site cleans up behind it
  ASSERT_EQ(state(id), JobState::Good);
  FakeSite::end(task(101, 0), "COMPLETED");
  pass(5min);
  EXPECT_TRUE(site.canceled.empty());
}

TEST_F(SiteTest, ATaskThatHangsAfterItsResultIsCanceled) {
  leaveOneGoodJob();
  pass(15s);
  EXPECT_TRUE(site.canceled.empty());
  pass(40s);
  EXPECT_EQ(site.canceled.size(), 1U);
}

TEST_F(SiteTest, ASiteThatIsSilentAboutWhatIsLeftTroublesNobody) {
  leaveOneGoodJob();
  site.mood = FakeSite::Mood::Silent;
  pass(10min);
  EXPECT_TRUE(notices.empty());
  site.mood = FakeSite::Mood::Answers;
  FakeSite::end(task(101, 0), "COMPLETED");
  pass(1min);
  EXPECT_TRUE(queue.leftArrays().empty());
}

TEST_F(SiteTest, OneProcessAtATimeIsInCharge) {
  pass(1s);
  ASSERT_TRUE(engine->isInCharge());
  Queue other{Path(directory.file("queue"))};
  FakeSite nobody;
  ClusterEngine second(machine, other, nobody, inspector, settings, ClusterEngine::Duty::All);
  submit("1-2");
  second.advance();
  EXPECT_FALSE(second.isInCharge());
  EXPECT_TRUE(nobody.arrays.empty());
  engine.reset();
  std::vector<pollfd> none;
  machine.wait(none, 2s);
  second.advance();
  EXPECT_TRUE(second.isInCharge());
}

TEST_F(SiteTest, WhoOnlyLooksSubmitsNothing) {
  restart(ClusterEngine::Duty::Collect);
  submit("1-2");
  pass(30s);
  EXPECT_TRUE(site.arrays.empty());
  EXPECT_EQ(site.questions, 0U);
}

TEST_F(SiteTest, QuestionsAreTwoSecondsApartAtLeast) {
  submit("1-50");
  pass(5s);
  site.slots = 3;
  const std::size_t before = site.questions;
  std::size_t done = 0;
  for (int turn = 0; turn < 60 && done < 50; ++turn) {
    site.start();
    pass(1s);
    for (std::size_t i = 0; i < 50; ++i) {
      if (task(101, i).phase == TaskPhase::Active) {
        finish(101, i);
        FakeSite::end(task(101, i), "COMPLETED");
        ++done;
      }
    }
  }
  EXPECT_LE(site.questions - before, 31U);
  EXPECT_GE(site.questions - before, 5U);
}

TEST_F(SiteTest, AFolderThatCannotBeReadSaysNothingAboutItsWorks) {
  const JobId id = submit("1");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(5s);
  const std::filesystem::path folder(folderOf(101).directory().c_str());
  std::filesystem::rename(folder, folder.string() + ".away");
  std::ofstream(folder) << "not a folder";
  FakeSite::end(task(101, 0), "COMPLETED");
  pass(5min);
  EXPECT_EQ(running(id), "1");
  ASSERT_EQ(notices.size(), 1U);
  std::filesystem::remove(folder);
  std::filesystem::rename(folder.string() + ".away", folder);
  finish(101, 0);
  pass(10s);
  EXPECT_EQ(state(id), JobState::Good);
}

} // namespace
} // namespace trovik
