#include "tests/trovik/queue/QueueTest.h"
#include "trovik/records/RunEvents.h"

namespace trovik {
namespace {

class StoreJobs : public QueueTest {};

TEST_F(StoreJobs, TheRecordHasAllThatWasSubmitted) {
  NewJob wanted = jobOf("1-3");
  wanted.name = "odd \xff\n\"name\"";
  wanted.priority = 70;
  wanted.retries = 2;
  wanted.stopAfter = 10;
  wanted.logs = "/logs";
  wanted.packed = std::string("\0\xff stream", 9);
  wanted.endCommand = {"/bin/tell", "", "it's\n\"over\" \\ $(x)", "\xfe"};
  const JobId id = store.submit(wanted);
  const JobRecord job = store.job(id).value();
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
  EXPECT_EQ(job.endCommand, wanted.endCommand);
  EXPECT_FALSE(job.started.has_value());
  EXPECT_FALSE(job.ended.has_value());
  EXPECT_EQ(store.packed(id), wanted.packed);
}

TEST_F(StoreJobs, LogsLieInTheQueuesFolderWhenNobodySaysOtherwise) {
  const JobId job = store.submit(jobOf("1"));
  EXPECT_EQ(store.job(job)->logs, directory.file("logs/" + std::to_string(job)));
}

TEST_F(StoreJobs, JobsComeTheNewestFirst) {
  const JobId first = store.submit(jobOf("1"));
  const JobId second = store.submit(jobOf("1"));
  const std::vector<JobRecord> jobs = store.jobs();
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0].id, second);
  EXPECT_EQ(jobs[1].id, first);
}

TEST_F(StoreJobs, AnUnknownJobIsNothing) {
  EXPECT_FALSE(store.job(7).has_value());
  EXPECT_EQ(store.packed(7), "");
  EXPECT_EQ(store.frames(7).works(), 0U);
  EXPECT_TRUE(store.works(7).empty());
}

TEST_F(StoreJobs, FramesThatWereFoundNeedNoWork) {
  NewJob wanted = jobOf("3,4");
  wanted.found = runsOf("1-2,5");
  FileRecord found = file("/out/1.png");
  found.frame = 1;
  wanted.foundFiles = {found};
  const JobId job = store.submit(wanted);
  EXPECT_EQ(standing(job), "3-4 - 1-2,5 - -");
  ASSERT_EQ(store.files(job).size(), 1U);
  EXPECT_EQ(store.files(job)[0].attempt, 0);
  EXPECT_EQ(store.files(job)[0].frame, 1);
  EXPECT_EQ(store.lastOf("/out/1.png")->attempt, 0);
  EXPECT_EQ(take().run.First, 3);
}

TEST_F(StoreJobs, AJobWhoseFramesWereAllFoundIsGoodAtOnce) {
  NewJob wanted = jobOf("");
  wanted.found = runsOf("1-5");
  const JobId job = store.submit(wanted);
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(store.takeEnded().size(), 1U);
}

TEST_F(StoreJobs, AJobThatWasNotStartedIsCanceledAtOnce) {
  const JobId job = store.submit(jobOf("1,2"));
  EXPECT_TRUE(store.cancel(job));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_EQ(standing(job), "- - - - 1-2");
  EXPECT_FALSE(store.cancel(job));
  EXPECT_FALSE(store.cancel(4711));
}

TEST_F(StoreJobs, AJobIsCanceledWhenItsLastAttemptHasEnded) {
  NewJob wanted = jobOf("1-4,5,6,7");
  wanted.retries = 3;
  const JobId job = store.submit(wanted);
  const JobId other = store.submit(jobOf("1"));
  const std::vector<Claim> claims = store.claim(engine, 4, std::nullopt);
  const Claim elsewhere = take(other);
  EXPECT_TRUE(store.cancel(job));
  EXPECT_TRUE(store.cancel(job));
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(store.canceled(engine), (std::vector<AttemptId>{claims[0].attempt, claims[1].attempt,
                                                            claims[2].attempt, claims[3].attempt}));
  EXPECT_TRUE(store.canceled(engine + 1).empty());

  EXPECT_FALSE(store.settle(canceledOutcome(claims[0].attempt, "1-2")));
  EXPECT_FALSE(store.settle(failed(claims[1].attempt)));
  EXPECT_FALSE(store.settle(lost(claims[2].attempt)));
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_FALSE(store.settle(good(claims[3].attempt)));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_EQ(standing(job), "- - 1-2,7 5 3-4,6");
  EXPECT_TRUE(store.canceled(engine).empty());
  store.settle(good(elsewhere.attempt));
}

TEST_F(StoreJobs, AJobThatWasCanceledTooLateIsGood) {
  const JobId job = store.submit(jobOf("1"));
  const Claim claim = take();
  store.cancel(job);
  store.settle(good(claim.attempt));
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(StoreJobs, AJobThatIsPutAsideStartsNothingUntilItIsResumed) {
  const JobId job = store.submit(jobOf("1,2,3"));
  const Claim running = take();
  const Claim other = take();
  store.stop(job, "Stopped by the user");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(noteOf(job), "Stopped by the user");
  EXPECT_TRUE(store.job(job)->ended);
  EXPECT_TRUE(store.claim(engine, 1, std::nullopt).empty());
  EXPECT_FALSE(store.cancel(job));

  EXPECT_FALSE(store.settle(failed(running.attempt)));
  EXPECT_FALSE(store.settle(canceledOutcome(other.attempt)));
  EXPECT_EQ(standing(job), "2-3 - - 1 -");
  EXPECT_EQ(noteOf(job), "Stopped by the user");
  EXPECT_TRUE(store.takeEnded().empty()) << "it is not over";

  store.resume(job);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(noteOf(job), "It broke");
  EXPECT_FALSE(store.job(job)->ended);
  EXPECT_EQ(take().run.First, 2);
}

TEST_F(StoreJobs, AJobThatWasPutAsideAndHasNothingLeftEnds) {
  const JobId job = store.submit(jobOf("1"));
  const Claim claim = take();
  store.stop(job, "Stopped by the user");
  store.settle(good(claim.attempt));
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(noteOf(job), "");
  EXPECT_EQ(store.takeEnded().size(), 1U);
}

TEST_F(StoreJobs, OnlyOpenJobsArePutAsideAndOnlyThoseAreResumed) {
  const JobId job = store.submit(jobOf("1"));
  store.cancel(job);
  store.stop(job, "Stopped by the user");
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  store.resume(job);
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  store.stop(4711, "Stopped by the user");
  store.resume(4711);
}

TEST_F(StoreJobs, FailedAndCanceledWorksAreRetried) {
  NewJob wanted = jobOf("1,2,3,4");
  wanted.retries = 1;
  const JobId job = store.submit(wanted);
  store.settle(good(take().attempt));
  Outcome outcome = failed(take().attempt);
  outcome.retryable = false;
  store.settle(outcome);
  const Claim running = take();
  store.cancel(job);
  EXPECT_EQ(store.retry(job, std::nullopt), 2U);
  EXPECT_EQ(standing(job), "2,4 3 1 - -");
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(noteOf(job), "");
  EXPECT_TRUE(store.canceled(engine).empty());
  EXPECT_TRUE(store.settle(canceledOutcome(running.attempt)));

  const Claim again = take();
  EXPECT_EQ(again.run.First, 2);
  EXPECT_EQ(again.number, 2);
  EXPECT_EQ(again.tries, 0);
  EXPECT_TRUE(store.settle(failed(again.attempt))) << "all its retries are before it";
}

TEST_F(StoreJobs, ARetryOfGivenFramesCutsWorksToThem) {
  const JobId job = store.submit(jobOf("1-5,6-10,11"));
  store.settle(good(take().attempt));
  store.settle(failed(take().attempt));
  EXPECT_EQ(store.retry(job, setOf("2-3,5-6,10-11,99")), 6U);
  EXPECT_EQ(standing(job), "2-3,5-6,10-11 - 1,4 7-9 -");
  EXPECT_EQ(take().run, (FrameRun{2, 3}));
  EXPECT_EQ(take().run, (FrameRun{5, 5}));
  EXPECT_EQ(take().run, (FrameRun{6, 6}));
}

TEST_F(StoreJobs, ARetryOfAnEndedJobOpensIt) {
  const JobId job = store.submit(jobOf("1"));
  store.settle(failed(take().attempt));
  ASSERT_EQ(store.takeEnded().size(), 1U);
  EXPECT_EQ(store.retry(job, std::nullopt), 1U);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_FALSE(store.job(job)->ended);
  EXPECT_TRUE(store.takeEnded().empty());
  store.settle(good(take().attempt));
  EXPECT_EQ(store.takeEnded().size(), 1U) << "this is another end";
}

TEST_F(StoreJobs, AJobThatWasNeverStartedWaitsAfterItsRetry) {
  const JobId job = store.submit(jobOf("1-3"));
  store.cancel(job);
  EXPECT_EQ(store.retry(job, setOf("2")), 1U);
  EXPECT_EQ(stateOf(job), JobState::Waiting);
  EXPECT_EQ(standing(job), "2 - - - 1,3");
  store.settle(good(take().attempt));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
}

TEST_F(StoreJobs, ARetryWithNothingToDoLeavesTheJobAsItIs) {
  const JobId job = store.submit(jobOf("1"));
  store.settle(good(take().attempt));
  EXPECT_EQ(store.retry(job, std::nullopt), 0U);
  EXPECT_EQ(store.retry(job, setOf("2")), 0U);
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(store.retry(4711, std::nullopt), 0U);
}

TEST_F(StoreJobs, AJobWithoutFramesIsRetriedAsAWhole) {
  NewJob wanted = jobOf("1");
  wanted.hasFrames = false;
  const JobId job = store.submit(wanted);
  store.settle(good(take().attempt));
  EXPECT_EQ(store.retry(job, std::nullopt), 0U);
  EXPECT_EQ(store.retry(job, setOf("7")), 1U);
  EXPECT_EQ(store.frames(job).readyWorks, 1U);
}

TEST_F(StoreJobs, ARemovedJobLeavesNothingAndItsNumbersAreNotUsedAgain) {
  const JobId job = store.submit(jobOf("1,2"));
  const Claim claim = take();
  const StoreError refused = storeErrorOf([&] { store.remove(job); });
  EXPECT_EQ(refused.message, "Job 1 still runs");
  EXPECT_EQ(refused.hint, "cancel it first, with trovik cancel 1");
  Outcome outcome = good(claim.attempt);
  outcome.files = {file("/out/1.png")};
  store.settle(outcome);
  const std::int64_t fileId = store.files(job).at(0).id;

  store.remove(job);
  EXPECT_FALSE(store.job(job).has_value());
  EXPECT_FALSE(store.attempt(claim.attempt).has_value());
  EXPECT_FALSE(store.lastOf("/out/1.png").has_value());
  store.remove(job);

  const JobId next = store.submit(jobOf("1"));
  EXPECT_GT(next, job);
  const Claim other = take();
  EXPECT_GT(other.attempt, claim.attempt);
  EXPECT_GT(other.work, claim.work);
  Outcome second = good(other.attempt);
  second.files = {file("/out/1.png")};
  store.settle(second);
  EXPECT_GT(store.files(next).at(0).id, fileId);
}

TEST_F(StoreJobs, AnEndIsHandedOutOnce) {
  const JobId job = store.submit(jobOf("1,2"));
  store.settle(failed(take().attempt));
  EXPECT_TRUE(store.takeEnded().empty());
  store.settle(good(take().attempt));
  Store other{Path(directory.path())};
  const std::vector<JobRecord> ended = other.takeEnded();
  ASSERT_EQ(ended.size(), 1U);
  EXPECT_EQ(ended[0].id, job);
  EXPECT_EQ(ended[0].state, JobState::Failed);
  EXPECT_TRUE(store.takeEnded().empty());
}

TEST_F(StoreJobs, TheUnfinishedJobOfAStreamIsFound) {
  NewJob wanted = jobOf("1");
  wanted.packed = "this very stream";
  EXPECT_FALSE(store.unfinished(wanted.packed).has_value());
  const JobId first = store.submit(wanted);
  const JobId second = store.submit(wanted);
  store.submit(jobOf("1"));
  EXPECT_EQ(store.unfinished(wanted.packed), second);
  store.cancel(second);
  EXPECT_EQ(store.unfinished(wanted.packed), first);
  store.stop(first, "Stopped by the user");
  EXPECT_EQ(store.unfinished(wanted.packed), first);
}

TEST_F(StoreJobs, AJobThatStoppedByItselfIsNotUnfinished) {
  NewJob wanted = jobOf("1,2");
  wanted.stopAfter = 1;
  const JobId job = store.submit(wanted);
  store.settle(failed(take().attempt));
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_FALSE(store.unfinished(wanted.packed).has_value());
}

TEST_F(StoreJobs, TheLatestJobOfASceneIsFound) {
  const NewJob wanted = jobOf("1");
  store.submit(wanted);
  const JobId second = store.submit(wanted);
  NewJob elsewhere = wanted;
  elsewhere.output = "/elsewhere";
  store.submit(elsewhere);
  EXPECT_EQ(store.latest(wanted.type, wanted.scene, wanted.output), second);
  EXPECT_FALSE(store.latest(UID(true), wanted.scene, wanted.output).has_value());
}

class EarlyStop : public QueueTest {
protected:
  JobId submit(const std::string& works, int stopAfter, int retries = 0) {
    NewJob wanted = jobOf(works);
    wanted.stopAfter = stopAfter;
    wanted.retries = retries;
    return store.submit(wanted);
  }
  void failNext(const std::string& reason, const std::string& alike = "alike") {
    Outcome outcome = failed(take().attempt, reason);
    outcome.alike = alike;
    store.settle(outcome);
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
  EXPECT_TRUE(store.claim(engine, 1, std::nullopt).empty());
  ASSERT_EQ(store.takeEnded().size(), 1U);
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
  EXPECT_EQ(store.attempts(job).at(0).again, true);
  EXPECT_FALSE(store.settle([&] {
    Outcome outcome = failed(third.attempt);
    outcome.alike = "alike";
    return outcome;
  }()));
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(standing(job), "1-3 - - - -");
  EXPECT_FALSE(store.attempt(third.attempt)->again);
}

TEST_F(EarlyStop, LostAndCanceledAttemptsDoNotCount) {
  const JobId job = submit("1,2,3", 2);
  store.settle(lost(take().attempt));
  store.settle(canceledOutcome(take().attempt));
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
  store.settle(failed(take().attempt, "It broke", "1"));
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
  EXPECT_EQ(store.retry(job, std::nullopt), 4U);
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
  EXPECT_TRUE(store.takeEnded().empty()) << "an attempt still runs";
  store.settle(good(running.attempt));
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(standing(job), "3 - 1 2 -");
  EXPECT_EQ(store.takeEnded().size(), 1U);
}

TEST_F(StoreJobs, TheSummaryCountsGroupsFailuresAndFindsImages) {
  NewJob wanted = jobOf("1-2,3,4,5,6,7");
  wanted.found = runsOf("8-9");
  wanted.foundFiles = {file("/found/8.png"), file("/found/9.png")};
  const JobId job = store.submit(wanted);
  const auto settle = [&](Outcome outcome, const std::vector<FileRecord>& files, const std::string& log) {
    outcome.files = files;
    outcome.log = log;
    store.settle(outcome);
  };
  settle(failed(take().attempt, "Late", "1"), {file("/out/1.png"), file("/out/2.png", "Empty")},
         "/l/1-2.log");
  settle(good(take().attempt), {file("/out/3.png"), file("/out/3.png"), file("/other/3.exr")}, "/l/3.log");
  settle(failed(take().attempt, "Late"), {}, "/l/4.log");
  settle(failed(take().attempt, "Other"), {}, "/l/5.log");
  settle(failed(take().attempt, "Late"), {file("/found/9.png", "Truncated")}, "/l/6.log");

  const RunSummary summary = store.summary(job);
  EXPECT_EQ(summary.info.job, job);
  EXPECT_EQ(summary.info.name, "shot");
  EXPECT_EQ(summary.info.type, "Sketch");
  EXPECT_EQ(summary.info.scene, wanted.scene);
  EXPECT_EQ(summary.info.range, wanted.range);
  EXPECT_EQ(summary.info.frames, 9U);
  EXPECT_EQ(summary.info.works, 8U);
  EXPECT_EQ(summary.info.logs.Text(), store.logDirectory(job).Text());
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
  EXPECT_EQ(store.summary(4711).info.job, 0);
}

TEST_F(StoreJobs, TheSummaryTellsTheTimeFromTheFirstAttemptToTheEnd) {
  const JobId job = store.submit(jobOf("1"));
  EXPECT_EQ(store.summary(job).duration, Duration(0));
  store.settle(good(take().attempt));
  change("UPDATE jobs SET started = 1000000, ended = 4500000");
  EXPECT_EQ(store.summary(job).duration, std::chrono::milliseconds(3500));
}

} // namespace
} // namespace trovik
