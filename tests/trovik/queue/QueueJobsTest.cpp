#include "tests/trovik/queue/QueueTest.h"
#include "trovik/records/RunEvents.h"

#include <algorithm>

namespace trovik {
namespace {

class QueueJobs : public QueueTest {};

TEST_F(QueueJobs, TheRecordHasAllThatWasSubmitted) {
  NewJob wanted = jobOf("1-3");
  wanted.name = "odd \xff\n\"name\"";
  wanted.priority = 70;
  wanted.retries = 2;
  wanted.stopAfter = 10;
  wanted.logs = "/logs";
  wanted.packed = std::string("\0\xff stream", 9);
  wanted.endCommands = {"/bin/tell", "", "it's\n\"over\" \\ $(x)", "\xfe"};
  const JobId id = queue.submit(wanted);
  const JobRecord job = queue.job(id).value();
  EXPECT_EQ(job.id, id);
  EXPECT_EQ(job.name, wanted.name);
  EXPECT_EQ(job.type, wanted.type);
  EXPECT_EQ(job.typeName, "Sketch");
  EXPECT_EQ(job.scene, "/scenes/shot_%04d.skt");
  EXPECT_EQ(job.range, "1-3");
  EXPECT_TRUE(job.hasFrames);
  EXPECT_EQ(job.state, JobState::Waiting);
  EXPECT_EQ(job.note, "");
  EXPECT_EQ(job.priority, 70);
  EXPECT_EQ(job.retries, 2);
  EXPECT_EQ(job.stopAfter, 10);
  EXPECT_EQ(job.directory, "/home/ada");
  EXPECT_EQ(job.output, "/home/ada/out");
  EXPECT_EQ(job.logs, "/logs");
  EXPECT_EQ(job.endCommands, wanted.endCommands);
  EXPECT_FALSE(job.started.has_value());
  EXPECT_FALSE(job.ended.has_value());
  EXPECT_EQ(queue.packed(id), wanted.packed);
}

// Many works are entered with a statement.
TEST_F(QueueJobs, WorksOfAnyNumberAreEnteredInTheirOrder) {
  for (const int count : {1, 63, 64, 65, 129, 300}) {
    NewJob wanted = jobOf("1");
    wanted.works.clear();
    for (int i = 0; i < count; ++i) {
      const int first = (i % 7 - 3) * 10'000 + 3 * i; // in no order
      (i % 5 == 4 ? wanted.found : wanted.works).push_back({first, first + i % 3});
    }
    const JobId job = queue.submit(wanted);
    std::vector<WorkRecord> works = queue.works(job);
    EXPECT_EQ(queue.works(job, WorkState::Ready).size(), wanted.works.size());
    EXPECT_EQ(queue.works(job, WorkState::Good).size(), wanted.found.size());
    EXPECT_TRUE(queue.works(job, WorkState::Failed).empty());
    std::sort(works.begin(), works.end(),
              [](const WorkRecord& left, const WorkRecord& right) { return left.id < right.id; });
    std::vector<FrameRun> expected = wanted.works;
    expected.insert(expected.end(), wanted.found.begin(), wanted.found.end());
    ASSERT_EQ(works.size(), expected.size());
    for (std::size_t i = 0; i < works.size(); ++i) {
      EXPECT_EQ(works[i].run, expected[i]);
      EXPECT_EQ(works[i].state, i < wanted.works.size() ? WorkState::Ready : WorkState::Good);
      EXPECT_EQ(works[i].attempts, 0);
    }
  }
}

TEST_F(QueueJobs, LogsLieInTheQueuesFolderWhenNobodySaysOtherwise) {
  const JobId job = queue.submit(jobOf("1"));
  EXPECT_EQ(queue.job(job)->logs, directory.file("logs/" + std::to_string(job)));
}

TEST_F(QueueJobs, JobsComeTheNewestFirst) {
  const JobId first = queue.submit(jobOf("1"));
  const JobId second = queue.submit(jobOf("1"));
  const std::vector<JobRecord> jobs = queue.jobs();
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0].id, second);
  EXPECT_EQ(jobs[1].id, first);
}

TEST_F(QueueJobs, AnUnknownJobIsNothing) {
  EXPECT_FALSE(queue.job(7).has_value());
  EXPECT_EQ(queue.packed(7), "");
  EXPECT_EQ(queue.frames(7).works(), 0U);
  EXPECT_TRUE(queue.works(7).empty());
}

TEST_F(QueueJobs, FramesThatWereFoundNeedNoWork) {
  NewJob wanted = jobOf("3,4");
  wanted.found = runsOf("1-2,5");
  FileRecord found = file("/out/1.png");
  found.frame = 1;
  wanted.foundFiles = {found};
  const JobId job = queue.submit(wanted);
  EXPECT_EQ(standing(job), "3-4 - 1-2,5 - -");
  ASSERT_EQ(queue.files(job).size(), 1U);
  EXPECT_EQ(queue.files(job)[0].attempt, 0);
  EXPECT_EQ(queue.files(job)[0].frame, 1);
  EXPECT_EQ(queue.lastOf("/out/1.png")->attempt, 0);
  EXPECT_EQ(take().run.First, 3);
}

TEST_F(QueueJobs, AJobWhoseFramesWereAllFoundIsGoodAtOnce) {
  NewJob wanted = jobOf("");
  wanted.found = runsOf("1-5");
  const JobId job = queue.submit(wanted);
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(queue.takeEnded().size(), 1U);
}

TEST_F(QueueJobs, AJobThatWasNotStartedIsCanceledAtOnce) {
  const JobId job = queue.submit(jobOf("1,2"));
  EXPECT_TRUE(queue.cancel(job));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_EQ(standing(job), "- - - - 1-2");
  EXPECT_FALSE(queue.cancel(job));
  EXPECT_FALSE(queue.cancel(4711));
}

TEST_F(QueueJobs, AJobIsCanceledWhenItsLastAttemptHasEnded) {
  NewJob wanted = jobOf("1-4,5,6,7");
  wanted.retries = 3;
  const JobId job = queue.submit(wanted);
  const JobId other = queue.submit(jobOf("1"));
  const std::vector<Claim> claims = queue.claim(engine, 4, std::nullopt);
  const Claim elsewhere = take(other);
  EXPECT_TRUE(queue.cancel(job));
  EXPECT_TRUE(queue.cancel(job));
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(queue.canceled(engine), (std::vector<AttemptId>{claims[0].attempt, claims[1].attempt,
                                                            claims[2].attempt, claims[3].attempt}));
  EXPECT_TRUE(queue.canceled(engine + 1).empty());

  EXPECT_FALSE(queue.settle(canceledOutcome(claims[0].attempt, "1-2")));
  EXPECT_FALSE(queue.settle(failed(claims[1].attempt)));
  EXPECT_FALSE(queue.settle(lost(claims[2].attempt)));
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_FALSE(queue.settle(good(claims[3].attempt)));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_EQ(standing(job), "- - 1-2,7 5 3-4,6");
  EXPECT_TRUE(queue.canceled(engine).empty());
  queue.settle(good(elsewhere.attempt));
}

TEST_F(QueueJobs, AJobThatWasCanceledTooLateIsGood) {
  const JobId job = queue.submit(jobOf("1"));
  const Claim claim = take();
  queue.cancel(job);
  queue.settle(good(claim.attempt));
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(QueueJobs, AJobThatIsPutAsideStartsNothingUntilItIsResumed) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  const Claim running = take();
  const Claim other = take();
  queue.stop(job, "Stopped by the user");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(noteOf(job), "Stopped by the user");
  EXPECT_TRUE(queue.job(job)->ended);
  EXPECT_TRUE(queue.claim(engine, 1, std::nullopt).empty());
  EXPECT_FALSE(queue.cancel(job));

  EXPECT_FALSE(queue.settle(failed(running.attempt)));
  EXPECT_FALSE(queue.settle(canceledOutcome(other.attempt)));
  EXPECT_EQ(standing(job), "2-3 - - 1 -");
  EXPECT_EQ(noteOf(job), "Stopped by the user");
  EXPECT_TRUE(queue.takeEnded().empty()) << "it is not over";

  queue.resume(job);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(noteOf(job), "It broke");
  EXPECT_FALSE(queue.job(job)->ended);
  EXPECT_EQ(take().run.First, 2);
}

TEST_F(QueueJobs, AJobThatWasPutAsideAndHasNothingLeftEnds) {
  const JobId job = queue.submit(jobOf("1"));
  const Claim claim = take();
  queue.stop(job, "Stopped by the user");
  queue.settle(good(claim.attempt));
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(noteOf(job), "");
  EXPECT_EQ(queue.takeEnded().size(), 1U);
}

TEST_F(QueueJobs, OnlyOpenJobsArePutAsideAndOnlyThoseAreResumed) {
  const JobId job = queue.submit(jobOf("1"));
  queue.cancel(job);
  queue.stop(job, "Stopped by the user");
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  queue.resume(job);
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  queue.stop(4711, "Stopped by the user");
  queue.resume(4711);
}

TEST_F(QueueJobs, FailedAndCanceledWorksAreRetried) {
  NewJob wanted = jobOf("1,2,3,4");
  wanted.retries = 1;
  const JobId job = queue.submit(wanted);
  queue.settle(good(take().attempt));
  Outcome outcome = failed(take().attempt);
  outcome.retryable = false;
  queue.settle(outcome);
  const Claim running = take();
  queue.cancel(job);
  EXPECT_EQ(queue.retry(job, std::nullopt), 2U);
  EXPECT_EQ(standing(job), "2,4 3 1 - -");
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(noteOf(job), "");
  EXPECT_TRUE(queue.canceled(engine).empty());
  EXPECT_TRUE(queue.settle(canceledOutcome(running.attempt)));

  const Claim again = take();
  EXPECT_EQ(again.run.First, 2);
  EXPECT_EQ(again.number, 2);
  EXPECT_EQ(again.tries, 0);
  EXPECT_TRUE(queue.settle(failed(again.attempt))) << "all its retries are before it";
}

TEST_F(QueueJobs, ARetryOfGivenFramesCutsWorksToThem) {
  const JobId job = queue.submit(jobOf("1-5,6-10,11"));
  queue.settle(good(take().attempt));
  queue.settle(failed(take().attempt));
  EXPECT_EQ(queue.retry(job, setOf("2-3,5-6,10-11,99")), 6U);
  EXPECT_EQ(standing(job), "2-3,5-6,10-11 - 1,4 7-9 -");
  EXPECT_EQ(take().run, (FrameRun{2, 3}));
  EXPECT_EQ(take().run, (FrameRun{5, 5}));
  EXPECT_EQ(take().run, (FrameRun{6, 6}));
}

TEST_F(QueueJobs, ARetryOfAnEndedJobOpensIt) {
  const JobId job = queue.submit(jobOf("1"));
  queue.settle(failed(take().attempt));
  ASSERT_EQ(queue.takeEnded().size(), 1U);
  EXPECT_EQ(queue.retry(job, std::nullopt), 1U);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_FALSE(queue.job(job)->ended);
  EXPECT_TRUE(queue.takeEnded().empty());
  queue.settle(good(take().attempt));
  EXPECT_EQ(queue.takeEnded().size(), 1U) << "this is another end";
}

TEST_F(QueueJobs, AJobThatWasNeverStartedWaitsAfterItsRetry) {
  const JobId job = queue.submit(jobOf("1-3"));
  queue.cancel(job);
  EXPECT_EQ(queue.retry(job, setOf("2")), 1U);
  EXPECT_EQ(stateOf(job), JobState::Waiting);
  EXPECT_EQ(standing(job), "2 - - - 1,3");
  queue.settle(good(take().attempt));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
}

TEST_F(QueueJobs, ARetryWithNothingToDoLeavesTheJobAsItIs) {
  const JobId job = queue.submit(jobOf("1"));
  queue.settle(good(take().attempt));
  EXPECT_EQ(queue.retry(job, std::nullopt), 0U);
  EXPECT_EQ(queue.retry(job, setOf("2")), 0U);
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(queue.retry(4711, std::nullopt), 0U);
}

TEST_F(QueueJobs, AJobWithoutFramesIsRetriedAsAWhole) {
  NewJob wanted = jobOf("1");
  wanted.hasFrames = false;
  const JobId job = queue.submit(wanted);
  queue.settle(good(take().attempt));
  EXPECT_EQ(queue.retry(job, std::nullopt), 0U);
  EXPECT_EQ(queue.retry(job, setOf("7")), 1U);
  EXPECT_EQ(queue.frames(job).readyWorks, 1U);
}

TEST_F(QueueJobs, ARemovedJobLeavesNothingAndItsNumbersAreNotUsedAgain) {
  const JobId job = queue.submit(jobOf("1,2"));
  const Claim claim = take();
  const QueueError refused = queueErrorOf([&] { queue.remove(job); });
  EXPECT_EQ(refused.message, "Job 1 still runs");
  EXPECT_EQ(refused.hint, "cancel it first, with trovik cancel 1");
  Outcome outcome = good(claim.attempt);
  outcome.files = {file("/out/1.png")};
  queue.settle(outcome);
  const std::int64_t fileId = queue.files(job).at(0).id;

  queue.remove(job);
  EXPECT_FALSE(queue.job(job).has_value());
  EXPECT_FALSE(queue.attempt(claim.attempt).has_value());
  EXPECT_FALSE(queue.lastOf("/out/1.png").has_value());
  queue.remove(job);

  const JobId next = queue.submit(jobOf("1"));
  EXPECT_GT(next, job);
  const Claim other = take();
  EXPECT_GT(other.attempt, claim.attempt);
  EXPECT_GT(other.work, claim.work);
  Outcome second = good(other.attempt);
  second.files = {file("/out/1.png")};
  queue.settle(second);
  EXPECT_GT(queue.files(next).at(0).id, fileId);
}

TEST_F(QueueJobs, AnEndIsHandedOutOnce) {
  const JobId job = queue.submit(jobOf("1,2"));
  queue.settle(failed(take().attempt));
  EXPECT_TRUE(queue.takeEnded().empty());
  queue.settle(good(take().attempt));
  Queue other{Path(directory.path())};
  const std::vector<JobRecord> ended = other.takeEnded();
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].id, job);
  EXPECT_EQ(ended[0].state, JobState::Failed);
  EXPECT_TRUE(queue.takeEnded().empty());
}

TEST_F(QueueJobs, TheLatestJobOfASceneIsFound) {
  const NewJob wanted = jobOf("1");
  queue.submit(wanted);
  const JobId second = queue.submit(wanted);
  NewJob elsewhere = wanted;
  elsewhere.output = "/elsewhere";
  queue.submit(elsewhere);
  EXPECT_EQ(queue.latest(wanted.type, wanted.scene, wanted.output), second);
  EXPECT_FALSE(queue.latest(UID(true), wanted.scene, wanted.output).has_value());
}

class EarlyStop : public QueueTest {
protected:
  JobId submit(const std::string& works, int stopAfter, int retries = 0) {
    NewJob wanted = jobOf(works);
    wanted.stopAfter = stopAfter;
    wanted.retries = retries;
    return queue.submit(wanted);
  }
  void failNext(const std::string& reason, const std::string& alike = "alike") {
    Outcome outcome = failed(take().attempt, reason);
    outcome.alike = alike;
    queue.settle(outcome);
  }
};

TEST_F(EarlyStop, WorksThatFailAlikeStopTheJob) {
  const JobId job = submit("1,2,3,4,5", 3);
  failNext("Frame 1 broke");
  failNext("Frame 2 broke");
  EXPECT_EQ(noteOf(job), "Frame 2 broke");
  failNext("Frame 3 broke");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(noteOf(job), "Stopped: the first 3 works all failed alike: Frame 3 broke");
  EXPECT_EQ(standing(job), "4-5 - - 1-3 -");
  EXPECT_TRUE(queue.claim(engine, 1, std::nullopt).empty());
  ASSERT_EQ(queue.takeEnded().size(), 1U);
}

TEST_F(EarlyStop, OneWorkIsSaidInTheSingular) {
  const JobId job = submit("1,2", 1);
  failNext("It broke");
  EXPECT_EQ(noteOf(job), "Stopped: the first work failed: It broke");
}

TEST_F(EarlyStop, TheFirstAttemptOfEachWorkCounts) {
  const JobId job = submit("1,2,3", 3, 5);
  failNext("Frame 1 broke");
  failNext("Frame 2 broke");
  const Claim third = take();
  failNext("Frame 1 broke again");
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(queue.attempts(job).at(0).again, true);
  EXPECT_FALSE(queue.settle([&] {
    Outcome outcome = failed(third.attempt);
    outcome.alike = "alike";
    return outcome;
  }()));
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(standing(job), "1-3 - - - -");
  EXPECT_FALSE(queue.attempt(third.attempt)->again);
}

TEST_F(EarlyStop, LostAndCanceledAttemptsDoNotCount) {
  const JobId job = submit("1,2,3", 2);
  queue.settle(lost(take().attempt));
  queue.settle(canceledOutcome(take().attempt));
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Running);
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
}

TEST_F(EarlyStop, AnotherReasonAmongThemKeepsTheJobGoing) {
  const JobId job = submit("1,2,3,4,5", 2);
  failNext("It broke", "one");
  failNext("It broke", "two");
  failNext("It broke", "two");
  failNext("It broke", "two");
  EXPECT_EQ(stateOf(job), JobState::Running);
}

TEST_F(EarlyStop, AGoodFrameKeepsTheJobGoing) {
  const JobId job = submit("1-2,3,4,5,6", 2);
  queue.settle(failed(take().attempt, "It broke", "1"));
  failNext("It broke");
  failNext("It broke");
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Running);
}

TEST_F(EarlyStop, AJobWithNothingLeftEndsInstead) {
  const JobId job = submit("1,2", 2);
  failNext("It broke");
  failNext("It broke for good");
  EXPECT_EQ(stateOf(job), JobState::Failed);
  EXPECT_EQ(noteOf(job), "It broke for good");
}

TEST_F(EarlyStop, ARetryCountsAnew) {
  const JobId job = submit("1,2,3,4", 2);
  failNext("It broke");
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(queue.retry(job, std::nullopt), 4U);
  EXPECT_EQ(noteOf(job), "");
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Running);
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
}

TEST_F(EarlyStop, WhatRunsThenSettlesAndTheEndIsToldAfterIt) {
  const JobId job = submit("1,2,3", 1);
  const Claim running = take();
  failNext("It broke");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_TRUE(queue.takeEnded().empty()) << "an attempt still runs";
  queue.settle(good(running.attempt));
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(standing(job), "3 - 1 2 -");
  EXPECT_EQ(queue.takeEnded().size(), 1U);
}

TEST_F(QueueJobs, TheSummaryCountsGroupsFailuresAndFindsImages) {
  NewJob wanted = jobOf("1-2,3,4,5,6,7");
  wanted.found = runsOf("8-9");
  wanted.foundFiles = {file("/found/8.png"), file("/found/9.png")};
  const JobId job = queue.submit(wanted);
  const auto settle = [&](Outcome outcome, const std::vector<FileRecord>& files, const std::string& log) {
    outcome.files = files;
    outcome.log = log;
    queue.settle(outcome);
  };
  settle(failed(take().attempt, "Late", "1"), {file("/out/1.png"), file("/out/2.png", "Empty")},
         "/l/1-2.log");
  settle(good(take().attempt), {file("/out/3.png"), file("/out/3.png"), file("/other/3.exr")}, "/l/3.log");
  settle(failed(take().attempt, "Late"), {}, "/l/4.log");
  settle(failed(take().attempt, "Other"), {}, "/l/5.log");
  settle(failed(take().attempt, "Late"), {file("/found/9.png", "Truncated")}, "/l/6.log");

  const RunSummary summary = queue.summary(job);
  EXPECT_EQ(summary.info.job, job);
  EXPECT_EQ(summary.info.name, "shot");
  EXPECT_EQ(summary.info.type, "Sketch");
  EXPECT_EQ(summary.info.scene, wanted.scene);
  EXPECT_EQ(summary.info.range, wanted.range);
  EXPECT_EQ(summary.info.frames, 9U);
  EXPECT_EQ(summary.info.works, 8U);
  EXPECT_EQ(summary.info.logs.Text(), queue.logDirectory(job).Text());
  EXPECT_EQ(summary.good.text(), "1,3,8-9");
  EXPECT_EQ(summary.failed.text(), "2,4-6");
  EXPECT_EQ(summary.notDone.text(), "7");
  EXPECT_EQ(summary.goodWorks, 3U);
  EXPECT_EQ(summary.failedWorks, 4U);
  EXPECT_EQ(summary.notDoneWorks, 1U);
  ASSERT_EQ(summary.failures.size(), 2U);
  EXPECT_EQ(summary.failures[0].reason, "Late");
  EXPECT_EQ(summary.failures[0].frames.text(), "2,4,6");
  EXPECT_EQ(summary.failures[0].works, 3U);
  EXPECT_EQ(summary.failures[0].log.Text(), "/l/1-2.log");
  EXPECT_EQ(summary.failures[1].reason, "Other");
  EXPECT_EQ(summary.images, (std::map<std::string, std::size_t>{{"/found", 1}, {"/other", 1}, {"/out", 2}}));
  EXPECT_EQ(queue.summary(4711).info.job, 0);
}

TEST_F(QueueJobs, TheSummaryTellsTheTimeFromTheFirstAttemptToTheEnd) {
  const JobId job = queue.submit(jobOf("1"));
  EXPECT_EQ(queue.summary(job).duration, Duration(0));
  queue.settle(good(take().attempt));
  change("UPDATE jobs SET started = 1000000, ended = 4500000");
  EXPECT_EQ(queue.summary(job).duration, std::chrono::milliseconds(3500));
}

} // namespace
} // namespace trovik
