// A site that says nothing, forgets, or loses tasks.

#include "tests/trovik/cluster/SiteTest.h"

namespace trovik {
namespace {

TEST_F(SiteTest, NoAnswerMeansThatNothingIsKnown) {
  const JobId id = submit("1-3");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(5s);
  site.mood = FakeSite::Mood::Silent;
  for (std::int64_t count = 2; count < 200; ++count) {
    beat(101, 0, 1, count);
    pass(10s);
  }
  EXPECT_EQ(running(id), "1");
  EXPECT_EQ(ready(id), "2-3");
  EXPECT_EQ(site.arrays.size(), 1U);
  ASSERT_FALSE(notices.empty());
  EXPECT_EQ(notices.front(),
            "the cluster does not answer: squeue did not answer within 15 s | what runs there goes "
            "on, and what it finishes is seen all the same");
  EXPECT_EQ(notices.size(), 1U);
  finish(101, 0);
  finish(101, 1); // nobody said that it had started
  pass(20s);
  EXPECT_EQ(good(id), "1-2");
}

TEST_F(SiteTest, ATaskThatEndedWithoutAResultIsGivenUpAfterAWhile) {
  const JobId id = submit("1-2");
  pass(3s);
  site.start();
  begin(101, 0);
  finish(101, 1);
  pass(5s);
  FakeSite::end(task(101, 0), "NODE_FAIL");
  pass(25s);
  EXPECT_EQ(running(id), "1"); // its result may still come
  pass(30s);
  ASSERT_EQ(site.arrays.size(), 2U);
  EXPECT_EQ(folderOf(102).plan().works.size(), 1U);
  EXPECT_EQ(queue.attempts(id).front().state, AttemptState::Lost);
  // The process lived on: what it leaves now does not count any more.
  EXPECT_FALSE(finish(101, 0));
  site.start();
  finish(102, 0);
  pass(20s);
  EXPECT_EQ(state(id), JobState::Good);
}

TEST_F(SiteTest, AFrameWhoseProgramHadEndedWellIsKeptWhenItsTaskIsLost) {
  struct Case {
    const char* what;
    std::optional<ProcessExit> end;
    std::int64_t unwritten; // bytes of the log
    bool kept;
  };
  for (const Case& one :
       {Case{"a good end", ProcessExit{0, 0}, 0, true}, Case{"a bad end", ProcessExit{3, 0}, 0, false},
        Case{"a log that lacks its end", ProcessExit{0, 0}, 7, false},
        Case{"an end that nobody saw", std::nullopt, 0, false}}) {
    SCOPED_TRACE(one.what);
    job->SetParameter(p_OutputFolder, directory.file(one.what));
    const JobId id = submit("1");
    pass(3s);
    site.start();
    const std::int64_t number = site.arrays.rbegin()->first;
    ArrayFolder folder = folderOf(number);
    ASSERT_TRUE(folder.claim(0, claimed(1)));
    const std::string stage =
        directory.file(one.what) + "/.trovik-" + taskMark(queue.queueId(), id, folder, 0, 1);
    std::filesystem::create_directories(stage);
    std::ofstream(stage + "/f_1") << "picture";
    const std::string log = directory.file(std::string("log of ") + one.what);
    std::ofstream(log) << "image " << stage << "/f_1\n";
    WorkBeat sign;
    sign.count = 1;
    sign.stage = "checking";
    sign.log = log;
    sign.logBytes = static_cast<std::int64_t>(std::filesystem::file_size(log)) + one.unwritten;
    sign.end = one.end;
    folder.beat(0, sign);
    pass(5s);
    FakeSite::end(task(number, 0), "NODE_FAIL");
    pass(60s);
    EXPECT_EQ(state(id) == JobState::Good, one.kept);
    EXPECT_EQ(good(id), one.kept ? "1" : "");
    EXPECT_EQ(queue.attempts(id).front().state, one.kept ? AttemptState::Good : AttemptState::Lost);
    EXPECT_EQ(site.arrays.rbegin()->first, one.kept ? number : number + 1);
    EXPECT_EQ(readFile(directory.file(one.what) + "/f_1"), "picture");
    user.cancel(id);
    pass(2min);
  }
}

TEST_F(SiteTest, ATaskThatGivesSignsOfLifeIsNotGivenUpWhateverTheClusterSays) {
  const JobId id = submit("1");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(5s);
  FakeSite::end(task(101, 0), "NODE_FAIL");
  for (std::int64_t count = 2; count < 60; ++count) {
    beat(101, 0, 1, count);
    pass(10s);
  }
  EXPECT_EQ(running(id), "1");
  EXPECT_TRUE(finish(101, 0));
  pass(5s);
  EXPECT_EQ(state(id), JobState::Good);
}

TEST_F(SiteTest, ADeadProcessIsSeenThoughTheClusterBelievesThatItRuns) {
  const JobId id = submit("1");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(50s);
  EXPECT_EQ(site.arrays.size(), 1U);
  pass(30s);
  EXPECT_EQ(site.arrays.size(), 2U);
  EXPECT_EQ(queue.attempts(id).front().reason, "Its process on n1 died, or cannot reach the shared folder");
}

TEST_F(SiteTest, ATaskThatWaitsAgainTakesItsWorkUpByItself) {
  const JobId id = submit("1");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(5s);
  FakeSite::setWaiting(task(101, 0));
  task(101, 0).restarts = 1;
  pass(10min);
  EXPECT_EQ(site.arrays.size(), 1U);
  site.start();
  begin(101, 0, 2);
  pass(5s);
  finish(101, 0);
  pass(5s);
  EXPECT_EQ(state(id), JobState::Good);
  EXPECT_EQ(queue.attempts(id).size(), 1U);
}

TEST_F(SiteTest, WhatTheClusterForgotIsGivenUp) {
  const JobId id = submit("1-2");
  pass(3s);
  site.start();
  finish(101, 0);
  pass(5s);
  site.forget(101);
  pass(2min);
  EXPECT_EQ(good(id), "1");
  ASSERT_EQ(site.arrays.size(), 1U);
  EXPECT_EQ(folderOf(102).plan().works.size(), 1U);
}

TEST_F(SiteTest, ALostAnswerToASubmissionIsLookedUpByTheName) {
  site.mood = FakeSite::Mood::LosesAnswer;
  const JobId id = submit("1-2");
  pass(3s);
  site.mood = FakeSite::Mood::Answers;
  pass(60s);
  EXPECT_EQ(site.arrays.size(), 1U);
  site.start();
  finish(101, 0);
  finish(101, 1);
  pass(10s);
  EXPECT_EQ(state(id), JobState::Good);
}

TEST_F(SiteTest, ASubmissionThatDidNotArriveIsMadeAgainAndTheFirstOneCanDoNothing) {
  const JobId id = submit("1-2");
  engine->advance(); // asks for the site
  engine->advance();
  site.mood = FakeSite::Mood::Silent;
  pass(3s);
  const std::vector<ArrayRecord> arrays = queue.openArrays(id);
  ASSERT_EQ(arrays.size(), 1U);
  EXPECT_EQ(arrays.front().cluster, 0);
  const ArrayFolder first(JobFolder(Path(queue.job(id)->folder)).array(arrays.front().number));
  EXPECT_FALSE(first.isCanceled());
  pass(5min);
  EXPECT_EQ(queue.openArrays(id).size(), 1U) << "nothing is known while nobody answers";
  site.mood = FakeSite::Mood::Answers;
  pass(60s);
  EXPECT_EQ(site.arrays.size(), 1U);
  EXPECT_TRUE(first.isCanceled());
  EXPECT_NE(site.arrays.at(101).submission.folder.Text(), first.directory().Text());
}

TEST_F(SiteTest, AnEngineThatDiedWhileItSubmittedIsTakenUp) {
  site.mood = FakeSite::Mood::LosesAnswer;
  const JobId id = submit("1-2");
  pass(600ms);
  restart();
  site.mood = FakeSite::Mood::Answers;
  pass(60s);
  EXPECT_EQ(site.arrays.size(), 1U);
  ASSERT_EQ(queue.openArrays(id).size(), 1U);
  EXPECT_EQ(queue.openArrays(id).front().cluster, 101);
}

TEST_F(SiteTest, ARefusedSubmissionStopsTheJobWithTheReason) {
  site.mood = FakeSite::Mood::Refuses;
  const JobId id = submit("1-2");
  pass(10s);
  EXPECT_EQ(state(id), JobState::Stopped);
  EXPECT_EQ(queue.job(id)->note, "Stopped: the cluster refuses it: invalid partition specified: \"\"");
  EXPECT_TRUE(queue.openArrays(id).empty());
  site.mood = FakeSite::Mood::Answers;
  user.resume(id);
  pass(10s);
  EXPECT_EQ(site.arrays.size(), 1U);
}

TEST_F(SiteTest, CancelingEndsTheTasksAndMarksTheFolder) {
  const JobId id = submit("1-3");
  pass(3s);
  site.slots = 1;
  site.start();
  begin(101, 0);
  pass(5s);
  user.cancel(id);
  pass(5s);
  EXPECT_EQ(site.canceled, std::vector<std::string>{site.arrays.at(101).submission.name});
  EXPECT_TRUE(folderOf(101).isCanceled());
  EXPECT_EQ(queue.frames(id).canceled.text(), "2-3");
  WorkEnd end;
  end.by = WorkEnd::By::Canceled;
  end.outcome.state = AttemptState::Canceled;
  end.outcome.rule = VerdictRule::Canceled;
  folderOf(101).leave(0, end);
  FakeSite::end(task(101, 0), "CANCELLED");
  pass(10s);
  EXPECT_EQ(state(id), JobState::Canceled);
  EXPECT_TRUE(queue.openArrays(id).empty());
}

TEST_F(SiteTest, AWorkIsNotGivenAgainWhileItsOldTaskMayRun) {
  const JobId id = submit("1-2");
  pass(3s);
  site.start(); // both run, but have not said so
  user.cancel(id);
  site.mood = FakeSite::Mood::Silent;
  pass(10s);
  user.retry(id, std::nullopt);
  pass(60s);
  EXPECT_EQ(site.arrays.size(), 1U);
  site.mood = FakeSite::Mood::Answers;
  FakeSite::end(task(101, 0), "CANCELLED");
  FakeSite::end(task(101, 1), "CANCELLED");
  pass(60s);
  EXPECT_EQ(site.arrays.size(), 2U);
  site.start();
  finish(102, 0);
  finish(102, 1);
  pass(10s);
  EXPECT_EQ(state(id), JobState::Good);
}

/// Whatever happens in whatever order: every frame gets good in the end, and
/// no frame that was good is given to a task again.
TEST_F(SiteTest, RandomFaultsLoseNothing) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto oneIn = [&](unsigned n) { return random() % n == 0; };
    site.arrays.clear();
    site.mood = FakeSite::Mood::Answers;
    site.slots = 4;
    const std::int64_t before = site.arrays.empty() ? 0 : site.arrays.rbegin()->first;
    const JobId id = submit("1-12", 2);
    std::set<int> goodFrames;
    for (int turn = 0; turn < 3000 && state(id) != JobState::Good; ++turn) {
      const bool calm = turn > 400;
      if (oneIn(10) && !calm) {
        restart();
      }
      site.mood = calm       ? FakeSite::Mood::Answers
                  : oneIn(8) ? FakeSite::Mood::Silent
                  : oneIn(8) ? FakeSite::Mood::LosesAnswer
                             : FakeSite::Mood::Answers;
      site.start();
      for (auto& [number, array] : site.arrays) {
        const ArrayFolder folder(array.submission.folder);
        const ArrayPlan plan = folder.plan();
        for (ClusterTask& task : array.tasks) {
          if (task.phase != TaskPhase::Active) {
            continue;
          }
          const auto position = static_cast<std::size_t>(task.index);
          if (folder.isCanceled()) {
            FakeSite::end(task, "COMPLETED");
            continue;
          }
          const int last = folder.lastClaim(position);
          if (last <= task.restarts && !folder.hasEnded(position)) {
            folder.claim(position, claimed(last + 1));
          }
          if (!calm && oneIn(12)) {
            FakeSite::end(task, oneIn(2) ? "NODE_FAIL" : "FAILED"); // dies without a word
          } else if (!calm && oneIn(12)) {
            FakeSite::setWaiting(task);
            ++task.restarts;
          } else if (oneIn(3)) {
            WorkEnd end;
            end.claim = 1;
            end.outcome.state = !calm && oneIn(20) ? AttemptState::Lost : AttemptState::Good;
            if (folder.leave(position, end) && end.outcome.state == AttemptState::Good) {
              const int frame = plan.works.at(position).run.First;
              EXPECT_TRUE(goodFrames.insert(frame).second) << "frame " << frame << " was rendered again";
            }
            FakeSite::end(task, "COMPLETED");
          }
        }
      }
      pass(std::chrono::seconds(1 + random() % 20));
      if (queue.job(id)->state == JobState::Failed) { // too many losses or tries
        user.retry(id, std::nullopt);
      }
    }
    EXPECT_EQ(good(id), "1-12");
    EXPECT_EQ(goodFrames.size(), 12U);
    EXPECT_GE(site.arrays.rbegin()->first, before);
    user.cancel(id);
  }
}

} // namespace
} // namespace trovik
