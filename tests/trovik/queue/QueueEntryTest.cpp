#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/queue/Child.h"
#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/QueueTest.h"

#include <memory>
#include <set>

namespace trovik {
namespace {

// The same command again: which job goes on, and what of it is kept.

class QueueEntry : public QueueTest {
protected:
  EnteredJob again(const NewJob& job, const std::string& gone = "") {
    return queue.enter(job, queue.begun(job), setOf(gone));
  }
  JobId begin(const std::string& works) { return queue.enter(jobOf(works), std::nullopt, {}).id; }

  /// Another process, which dies with what it has claimed.
  void die(JobId job, std::size_t works) {
    Queue other{Path(directory.path())};
    other.claim(other.enterEngine(works), works, job);
  }
  void recover() {
    for (const LostAttempt& one : queue.takeLost()) {
      queue.settle(lost(one.attempt.id));
    }
    queue.releaseLost();
  }
};

TEST_F(QueueEntry, AnOpenJobOfThisStreamGoesOn) {
  NewJob wanted = jobOf("1,2");
  wanted.packed = "this very stream";
  const EnteredJob first = again(wanted);
  EXPECT_FALSE(first.before.has_value());
  EXPECT_EQ(first.frames.ready.text(), "1-2");
  begin("1,2"); // of another stream
  wanted.priority = 70;
  const EnteredJob second = again(wanted);
  EXPECT_EQ(second.id, first.id);
  ASSERT_TRUE(second.before.has_value());
  EXPECT_EQ(second.before->state, JobState::Waiting);
  EXPECT_EQ(queue.job(first.id)->priority, 70);
  EXPECT_EQ(queue.jobs().size(), 2U);
}

TEST_F(QueueEntry, TheOtherKindOfEngineHasJobsOfItsOwn) {
  NewJob job = jobOf("1");
  const JobId here = again(job).id;
  job.runOn = RunOn::Cluster;
  job.folder = "/shared";
  const JobId there = again(job).id;
  EXPECT_NE(there, here);
  EXPECT_EQ(again(job).id, there);
}

TEST_F(QueueEntry, AJobThatEndedWellIsRenderedAnew) {
  const JobId first = begin("1");
  queue.settle(good(take().attempt));
  const EnteredJob second = again(jobOf("1"));
  EXPECT_NE(second.id, first);
  EXPECT_FALSE(second.before.has_value());
}

TEST_F(QueueEntry, AJobThatFailedGoesOnWithWhatIsNotGood) {
  const JobId job = begin("1,2,3");
  queue.settle(good(take().attempt));
  queue.settle(failed(take().attempt));
  queue.settle(good(take().attempt));
  ASSERT_EQ(stateOf(job), JobState::Failed);
  const EnteredJob entered = again(jobOf("1,2,3"));
  EXPECT_EQ(entered.id, job);
  EXPECT_EQ(entered.before->state, JobState::Failed);
  EXPECT_EQ(entered.frames.good.text(), "1,3");
  EXPECT_EQ(standing(job), "2 - 1,3 - -");
  EXPECT_EQ(stateOf(job), JobState::Running);
}

TEST_F(QueueEntry, AJobThatStoppedGoesOnWhoeverStoppedIt) {
  NewJob wanted = jobOf("1,2");
  wanted.stopAfter = 1;
  const JobId job = again(wanted).id;
  queue.settle(failed(take().attempt));
  ASSERT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(again(wanted).id, job);
  EXPECT_EQ(standing(job), "1-2 - - - -");
  EXPECT_EQ(stateOf(job), JobState::Running);
  queue.stop(job, "Stopped by the user");
  EXPECT_EQ(again(wanted).id, job);
  EXPECT_EQ(stateOf(job), JobState::Running);
}

TEST_F(QueueEntry, AJobThatWasStoppedWhileItsLastWorkRunsIsOpenAgain) {
  const JobId job = begin("1");
  const Claim claim = take();
  queue.stop(job, "Stopped by the user");
  EXPECT_EQ(again(jobOf("1")).id, job);
  EXPECT_EQ(stateOf(job), JobState::Running);
  queue.settle(good(claim.attempt));
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(QueueEntry, ACanceledJobIsAsIfItHadNeverBeen) {
  const JobId first = begin("1,2");
  queue.settle(good(take().attempt));
  queue.settle(failed(take().attempt));
  NewJob anew = jobOf("1,2");
  const JobId second = queue.submit(anew);
  queue.cancel(second);
  EXPECT_EQ(again(jobOf("1,2")).id, first);
  const Claim claim = take();
  queue.cancel(first); // its program is still ending
  EXPECT_GT(again(jobOf("1,2")).id, second);
  queue.settle(canceledOutcome(claim.attempt));
}

TEST_F(QueueEntry, TheNewestJobDecidesUnlessOneIsOpen) {
  const JobId first = begin("1,2");
  queue.settle(good(take().attempt));
  queue.settle(failed(take().attempt));
  ASSERT_EQ(stateOf(first), JobState::Failed);
  const JobId second = queue.submit(jobOf("1,2"));
  queue.settle(good(take().attempt));
  queue.settle(good(take().attempt));
  ASSERT_EQ(stateOf(second), JobState::Good);
  const JobId third = again(jobOf("1,2")).id;
  EXPECT_GT(third, second);
  queue.settle(good(take(third).attempt));
  queue.settle(good(take(third).attempt));
  queue.retry(first, std::nullopt);
  EXPECT_EQ(again(jobOf("1,2")).id, first);
}

TEST_F(QueueEntry, WhatFailedWaitsWhileTheJobIsUnderWay) {
  const JobId job = begin("1,2");
  queue.settle(failed(take().attempt));
  const Claim claim = take();
  const EnteredJob entered = again(jobOf("1,2"));
  EXPECT_TRUE(entered.before->underWay);
  EXPECT_EQ(standing(job), "- 2 - 1 -");
  queue.settle(good(claim.attempt));
}

TEST_F(QueueEntry, AnEngineThatDiedIsNotUnderWay) {
  const JobId job = begin("1,2");
  queue.settle(failed(take().attempt));
  die(job, 1);
  const EnteredJob entered = again(jobOf("1,2"));
  EXPECT_FALSE(entered.before->underWay);
  EXPECT_EQ(standing(job), "1 2 - - -");
  recover();
  EXPECT_EQ(standing(job), "1-2 - - - -");
}

TEST_F(QueueEntry, LossesOfAJobThatGoesOnAreNotForgotten) {
  const JobId job = begin("1");
  for (int round = 0; round < 5; ++round) {
    again(jobOf("1"));
    die(job, 1);
    recover();
  }
  EXPECT_EQ(standing(job), "- - - 1 -");
}

TEST_F(QueueEntry, GoodFramesThatLostTheirFilesAreReadyAgain) {
  const JobId job = begin("1-4,5");
  queue.settle(good(take().attempt));
  queue.settle(failed(take().attempt));
  const EnteredJob entered = again(jobOf("1-4,5"), "2-3,9");
  EXPECT_EQ(entered.again.text(), "2-3");
  EXPECT_EQ(entered.frames.good.text(), "1,4");
  EXPECT_EQ(standing(job), "2-3,5 - 1,4 - -");
}

TEST_F(QueueEntry, FoundFramesOfAnUnfinishedJobBecomeGood) {
  const JobId job = begin("1-3,4,5");
  queue.settle(failed(take().attempt));
  NewJob rest = jobOf("4");
  rest.found = runsOf("1-3,5");
  FileRecord two = file("/out/2.png");
  two.frame = 2;
  FileRecord four = file("/out/4.png");
  four.frame = 4;
  rest.foundFiles = {two, four};
  const EnteredJob entered = again(rest);
  EXPECT_EQ(entered.id, job);
  EXPECT_EQ(standing(job), "4 - 1-3,5 - -");
  ASSERT_EQ(queue.files(job).size(), 1U);
  EXPECT_EQ(queue.files(job)[0].path, "/out/2.png");
}

TEST_F(QueueEntry, AJobOfWhichAllWasFoundHasEnded) {
  const JobId job = begin("1,2");
  NewJob nothing = jobOf("");
  nothing.range = "1,2";
  nothing.found = runsOf("1,2");
  EXPECT_EQ(again(nothing).id, job);
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(again(nothing).id, 0); // and no new one is made
  EXPECT_EQ(queue.jobs().size(), 1U);
}

TEST_F(QueueEntry, AWholeWorkThatWasFoundIsGood) {
  NewJob whole = jobOf("0");
  whole.hasFrames = false;
  const JobId job = again(whole).id;
  whole.works.clear();
  EXPECT_EQ(again(whole).id, job);
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(QueueEntry, WhatChangedWhileFilesWereCheckedIsLeftAlone) {
  const JobId job = begin("1,2,3,4,5");
  for (int frame = 1; frame <= 2; ++frame) {
    queue.settle(good(take().attempt));
  }
  const Claim third = take();
  NewJob rest = jobOf("1-2");
  rest.found = runsOf("3,4,5");
  const std::optional<BegunJob> known = queue.begun(rest);
  // Meanwhile: 1 was rendered again, 3 and 4 failed, and 5 runs.
  queue.retry(job, setOf("1"));
  queue.settle(good(take().attempt));
  queue.settle(failed(third.attempt));
  queue.settle(failed(take().attempt));
  const Claim fifth = take();
  const EnteredJob entered = queue.enter(rest, known, setOf("1,2"));
  EXPECT_EQ(entered.again.text(), "2");
  EXPECT_EQ(standing(job), "2 5 1 3-4 -");
  queue.settle(good(fifth.attempt));
}

TEST_F(QueueEntry, AJobThatATwinMadeMeanwhileIsJoinedAsItIs) {
  NewJob rest = jobOf("1");
  rest.found = runsOf("2");
  const std::optional<BegunJob> known = queue.begun(rest);
  const JobId job = begin("1,2");
  EXPECT_EQ(queue.enter(rest, known, setOf("1")).id, job);
  EXPECT_EQ(standing(job), "1-2 - - - -");
}

TEST_F(QueueEntry, WorksThatATaskOfTheClusterMayBeAtStayAsTheyAre) {
  NewJob wanted = jobOf("1,2");
  wanted.runOn = RunOn::Cluster;
  wanted.folder = "/shared";
  const JobId job = again(wanted).id;
  const std::vector<WorkRecord> works = queue.worksToSubmit(job);
  ASSERT_EQ(works.size(), 2U);
  ArrayWork given;
  given.work = works[0].id;
  given.run = works[0].run;
  queue.addArray(job, 1, {given});
  NewJob rest = wanted;
  rest.works.clear();
  rest.found = runsOf("1,2");
  const EnteredJob entered = again(rest);
  EXPECT_TRUE(entered.before->underWay);
  EXPECT_EQ(standing(job), "1 - 2 - -");
}

/// The test's own process has no queue open while it forks: what SQLite knows of
/// its open files must not be inherited.
class QueueTwins : public testing::Test {
protected:
  Path place() const { return Path(directory.path()); }
  std::string databaseFile() const { return directory.file("queue.db"); }
  TemporaryDirectory directory;
};

TEST_F(QueueTwins, TheSameCommandManyTimesAtOnceMakesOneJob) {
  for (int round = 1; round <= 40; ++round) {
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    std::vector<std::unique_ptr<Child>> twins;
    twins.reserve(5);
    for (int number = 0; number < 5; ++number) {
      twins.push_back(std::make_unique<Child>([&, number](const Child::Tell& tell) {
        close(gate[1]);
        Queue queue(place());
        NewJob job = jobOf("1-3,4-6");
        job.packed = "round " + std::to_string(round);
        if (number % 2 == 1) { // with what it found to be good
          job.works = runsOf("4-6");
          job.found = runsOf("1-3");
        }
        char byte = 0;
        if (read(gate[0], &byte, 1) != 0) { // until all are there
          _exit(3);
        }
        tell(std::to_string(queue.enter(job, queue.begun(job), {}).id));
      }));
    }
    close(gate[0]);
    close(gate[1]);
    std::set<std::string> jobs;
    for (const auto& twin : twins) {
      for (const std::string& line : twin->finish()) {
        jobs.insert(line);
      }
      EXPECT_EQ(twin->status, 0);
    }
    EXPECT_EQ(jobs, std::set<std::string>{std::to_string(round)});
  }
  EXPECT_EQ(brokenInvariants(databaseFile()), std::vector<std::string>());
}

} // namespace
} // namespace trovik
