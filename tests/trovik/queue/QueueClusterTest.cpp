#include "tests/trovik/queue/QueueTest.h"

#include <chrono>
#include <filesystem>
#include <limits>

namespace trovik {
namespace {

using namespace std::chrono_literals;

const Moment start{1'700'000'000'000'000us};

/// A queue with a job of a cluster.
class QueueCluster : public QueueTest {
protected:
  JobId submit(const std::string& works, int retries = 0) {
    NewJob job = jobOf(works);
    job.runOn = RunOn::Cluster;
    job.folder = "/shared/trovik";
    job.retries = retries;
    return queue.submit(job);
  }
  /// The frames that may be submitted, as they would start: "4-6 1-3".
  std::string toSubmit(JobId job) {
    std::string text;
    for (const WorkRecord& work : queue.worksToSubmit(job)) {
      text += (text.empty() ? "" : " ") + runText(work.run);
    }
    return text;
  }
  /// An array of all works that may be submitted.
  ArrayRecord addArray(JobId job, std::size_t perTask = 1) {
    return queue.addArray(job, perTask, arrayWorks(queue, job));
  }
  /// The open works, "0:1-3 ready, 1:4-6 running".
  std::string open(const ArrayRecord& array) {
    std::string text;
    for (const ArrayWork& given : queue.openArrayWorks(array.id)) {
      text += (text.empty() ? "" : ", ") + std::to_string(given.position) + ':' + runText(given.run) + ' ' +
              nameOf(given.workState);
    }
    return text;
  }
  AttemptId begin(const ArrayRecord& array, std::size_t at) {
    return queue.beginArrayWork(array.id, at, start);
  }
  bool settle(const ArrayRecord& array, std::size_t at, const Outcome& outcome) {
    return queue.settleArrayWork(array.id, at, start, outcome);
  }
};

TEST_F(QueueCluster, AJobHasAFolderOfItsOwnWithItsLogs) {
  const JobId job = submit("1");
  const JobRecord record = queue.job(job).value();
  EXPECT_EQ(record.runOn, RunOn::Cluster);
  EXPECT_EQ(record.folder, "/shared/trovik/" + queue.queueId().substr(0, 8) + "-1");
  EXPECT_EQ(record.logs, record.folder + "/logs");

  NewJob named = jobOf("1");
  named.runOn = RunOn::Cluster;
  named.folder = "/shared";
  named.logs = "/home/ada/logs";
  EXPECT_EQ(queue.job(queue.submit(named)).value().logs, "/home/ada/logs");

  const JobRecord local = queue.job(queue.submit(jobOf("1"))).value();
  EXPECT_EQ(local.runOn, RunOn::Local);
  EXPECT_EQ(local.folder, "");
}

TEST_F(QueueCluster, NoLocalEngineTakesItsWorks) {
  const JobId job = submit("1,2");
  EXPECT_TRUE(queue.claim(engine, 5, std::nullopt).empty());
  EXPECT_TRUE(queue.claim(engine, 5, job).empty());
  const JobId local = queue.submit(jobOf("1"));
  EXPECT_EQ(take().job, local);
}

TEST_F(QueueCluster, ItsJobsAreThoseThatAreOpenOrHaveTasks) {
  queue.submit(jobOf("1"));
  const JobId low = submit("1");
  const JobId high = submit("1");
  const JobId canceledJob = submit("1");
  const JobId over = submit("1");
  queue.change(high, {.priority = 60});
  addArray(canceledJob);
  queue.cancel(canceledJob);
  queue.cancel(over);
  std::vector<JobId> ids;
  for (const JobRecord& job : queue.clusterJobs()) {
    ids.push_back(job.id);
  }
  EXPECT_EQ(ids, (std::vector<JobId>{high, low, canceledJob}));
}

TEST_F(QueueCluster, ArraysAreNumberedAndNamedByQueueAndJob) {
  const JobId job = submit("1-3,4-6,9");
  std::vector<ArrayWork> works(1);
  works[0].work = queue.worksToSubmit(job).at(0).id;
  works[0].run = {1, 3};
  const ArrayRecord first = queue.addArray(job, 1, works);
  EXPECT_EQ(first.number, 1);
  EXPECT_EQ(first.name, "trovik-" + queue.queueId().substr(0, 8) + "-1-1");
  EXPECT_EQ(toSubmit(job), "4-6 9");
  const ArrayRecord second = addArray(job, 2);
  EXPECT_EQ(second.name, "trovik-" + queue.queueId().substr(0, 8) + "-1-2");
  EXPECT_EQ(toSubmit(job), "");
  EXPECT_EQ(open(second), "0:4-6 ready, 1:9 ready");

  const std::vector<ArrayRecord> arrays = queue.openArrays();
  ASSERT_EQ(arrays.size(), 2U);
  EXPECT_EQ(arrays[0].id, first.id);
  EXPECT_EQ(arrays[1].id, second.id);
  EXPECT_EQ(arrays[1].perTask, 2U);
  EXPECT_EQ(arrays[1].state, ArrayRecord::State::Prepared);
  EXPECT_EQ(arrays[1].cluster, 0);
  EXPECT_EQ(arrays[1].submitted, Moment());
  const JobId other = submit("1");
  addArray(other);
  EXPECT_EQ(queue.openArrays().size(), 3U);
  EXPECT_EQ(queue.openArrays(job).size(), 2U);
}

TEST_F(QueueCluster, AnArrayThatIsOverIsLeftUntilTheClusterHasNothingOfIt) {
  const ArrayRecord array = addArray(submit("1"));
  queue.noteSubmitted(array.id, 4711);
  EXPECT_TRUE(queue.leftArrays().empty());
  queue.closeArrayWork(array.id, 0);
  const std::vector<ArrayRecord> left = Queue(queue.directory()).leftArrays();
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].name, array.name);
  EXPECT_EQ(left[0].cluster, 4711);
  queue.noteGone(array.id);
  EXPECT_TRUE(queue.leftArrays().empty());
  queue.dropArray(addArray(submit("1")).id); // which the cluster never had
  EXPECT_TRUE(queue.leftArrays().empty());
}

TEST_F(QueueCluster, WhatBecameOfAnArrayIsKept) {
  const ArrayRecord array = addArray(submit("1"));
  queue.noteSubmitted(array.id, 4711);
  queue.cancelArray(array.id);
  const ArrayRecord now = Queue(queue.directory()).openArrays().at(0);
  EXPECT_EQ(now.state, ArrayRecord::State::Submitted);
  EXPECT_EQ(now.cluster, 4711);
  EXPECT_TRUE(now.canceling);
  EXPECT_GT(now.submitted, start);
}

TEST_F(QueueCluster, OnlyWorksOfItsJobsArePlacedAndOnlyInOnePlace) {
  const JobId job = submit("1");
  std::vector<ArrayWork> works(1);
  works[0].work = queue.worksToSubmit(job).at(0).id;
  works[0].run = {1, 1};
  queue.addArray(job, 1, works);
  EXPECT_NE(queueErrorOf([&] { queue.addArray(job, 1, works); }).message, "");
  EXPECT_EQ(queue.openArrays().size(), 1U);
  EXPECT_EQ(queueErrorOf([&] { queue.addArray(queue.submit(jobOf("1")), 1, works); }).message,
            "Job 2 is none of the cluster, or was removed");
  EXPECT_EQ(queueErrorOf([&] { queue.addArray(77, 1, works); }).message,
            "Job 77 is none of the cluster, or was removed");
  EXPECT_NE(queueErrorOf([&] { queue.addArray(job, 1, {}); }).message, "");
}

TEST_F(QueueCluster, AStartMakesARunningAttempt) {
  const JobId job = submit("1-3,4");
  const ArrayRecord array = addArray(job);
  EXPECT_EQ(stateOf(job), JobState::Waiting);
  const AttemptId attempt = begin(array, 0);
  ASSERT_NE(attempt, 0);
  EXPECT_EQ(begin(array, 0), attempt);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(queue.job(job).value().started, start);
  EXPECT_EQ(standing(job), "4 1-3 - - -");
  const AttemptRecord record = queue.attempt(attempt).value();
  EXPECT_EQ(record.state, AttemptState::Running);
  EXPECT_EQ(record.run, (FrameRun{1, 3}));
  EXPECT_EQ(record.number, 1);
  EXPECT_EQ(record.started, start);
  EXPECT_EQ(open(array), "0:1-3 running, 1:4 ready");
  EXPECT_EQ(queue.openArrayWorks(array.id).at(0).attempt, attempt);
  EXPECT_EQ(begin(array, 7), 0) << "there is no such position";
  settle(array, 0, good(0));
  EXPECT_EQ(begin(array, 0), 0) << "it is closed";
}

TEST_F(QueueCluster, ItsAttemptsBelongToAnEngineThatNeverDies) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  const AttemptId first = begin(array, 0);
  const AttemptId second = begin(array, 1);
  EXPECT_EQ(queue.attempt(first).value().engine, queue.attempt(second).value().engine);
  EXPECT_NE(queue.attempt(first).value().engine, engine);
  Queue other(queue.directory());
  EXPECT_FALSE(other.hasLost());
  EXPECT_TRUE(other.takeLost().empty());
  EXPECT_FALSE(queue.hasOtherEngine(engine));
}

TEST_F(QueueCluster, GoodResultsEndTheJobAndTheArray) {
  const JobId job = submit("1-3,4");
  const ArrayRecord array = addArray(job);
  begin(array, 0);
  EXPECT_FALSE(settle(array, 0, good(0)));
  EXPECT_EQ(open(array), "1:4 ready");
  EXPECT_EQ(queue.openArrays().size(), 1U);
  EXPECT_FALSE(settle(array, 1, good(0))) << "whose start was not seen";
  EXPECT_EQ(standing(job), "- - 1-4 - -");
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_TRUE(queue.openArrays().empty());
  EXPECT_EQ(queue.takeEnded().size(), 1U);
  EXPECT_EQ(queue.attempts(job).size(), 2U);
  EXPECT_EQ(queue.attempts(job).at(1).started, start);
}

TEST_F(QueueCluster, ASecondResultSaysNothing) {
  const JobId job = submit("1", 1);
  const ArrayRecord array = addArray(job);
  EXPECT_TRUE(settle(array, 0, failed(0)));
  EXPECT_FALSE(settle(array, 0, good(0)));
  EXPECT_EQ(standing(job), "1 - - - -");
  EXPECT_EQ(toSubmit(job), "1");
  EXPECT_EQ(queue.worksToSubmit(job).at(0).attempts, 1);
}

TEST_F(QueueCluster, OnlyWhatIsMissingIsPlacedAgain) {
  const JobId job = submit("1-6", 1);
  const ArrayRecord array = addArray(job);
  begin(array, 0);
  EXPECT_TRUE(settle(array, 0, failed(0, "It broke", "1-2,5")));
  EXPECT_EQ(toSubmit(job), "3-4 6");
  const ArrayRecord again = addArray(job);
  EXPECT_FALSE(settle(again, 0, failed(0, "It broke", "4")));
  EXPECT_FALSE(settle(again, 1, good(0)));
  EXPECT_EQ(standing(job), "- - 1-2,4-6 3 -");
  EXPECT_EQ(stateOf(job), JobState::Failed);
  EXPECT_EQ(noteOf(job), "It broke");
}

TEST_F(QueueCluster, WhatTheClusterEndedAgainAndAgainFailsWithItsReason) {
  const JobId job = submit("1");
  for (int turn = 1; turn <= 5; ++turn) {
    Outcome outcome = lost(0);
    outcome.rule = VerdictRule::Cluster;
    outcome.reason = "Its node failed";
    EXPECT_EQ(settle(addArray(job), 0, outcome), turn < 5);
  }
  EXPECT_EQ(stateOf(job), JobState::Failed);
  EXPECT_EQ(noteOf(job), "Its node failed (5 times)");
}

TEST_F(QueueCluster, AJobWithoutFramesIsOnePlace) {
  NewJob movie = jobOf("");
  movie.works = {{7, 9}};
  movie.hasFrames = false;
  movie.runOn = RunOn::Cluster;
  movie.retries = 1;
  const JobId job = queue.submit(movie);
  const ArrayRecord array = addArray(job);
  EXPECT_TRUE(queue.worksToSubmit(job).empty());
  queue.cancel(job);
  queue.retry(job, std::nullopt);
  EXPECT_TRUE(queue.worksToSubmit(job).empty());
  EXPECT_TRUE(settle(array, 0, failed(0)));
  EXPECT_FALSE(settle(addArray(job), 0, good(0)));
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(QueueCluster, WorksWhoseStartWasNotSeenAreCanceledAtOnce) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  EXPECT_TRUE(queue.cancel(job));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_EQ(open(array), "0:1 canceled, 1:2 canceled");
  EXPECT_EQ(begin(array, 0), 0) << "it is not wanted any more";
  EXPECT_EQ(queue.takeEnded().size(), 1U);

  EXPECT_FALSE(settle(array, 0, canceledOutcome(0)));
  EXPECT_EQ(standing(job), "- - - - 1-2");
  queue.closeArrayWork(array.id, 1);
  EXPECT_TRUE(queue.openArrays().empty());
  EXPECT_EQ(stateOf(job), JobState::Canceled);
}

TEST_F(QueueCluster, WhatRunsIsWaitedFor) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  begin(array, 0);
  queue.cancel(job);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(standing(job), "- 1 - - 2");
  settle(array, 0, canceledOutcome(0));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_EQ(standing(job), "- - - - 1-2");
}

TEST_F(QueueCluster, AWorkThatIsGoodAfterItsCancelIsGood) {
  const JobId job = submit("1-3,4");
  const ArrayRecord array = addArray(job);
  queue.cancel(job);
  const std::optional<Moment> ended = queue.job(job).value().ended;
  EXPECT_EQ(queue.takeEnded().size(), 1U);
  EXPECT_FALSE(settle(array, 0, failed(0, "It broke", "2")));
  EXPECT_EQ(standing(job), "- - 2 - 1,3-4");
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  EXPECT_FALSE(settle(array, 1, good(0)));
  EXPECT_EQ(standing(job), "- - 2,4 - 1,3");

  const JobId other = submit("1");
  const ArrayRecord late = addArray(other);
  queue.cancel(other);
  EXPECT_EQ(queue.takeEnded().size(), 1U);
  settle(late, 0, good(0));
  EXPECT_EQ(stateOf(other), JobState::Good);
  EXPECT_EQ(queue.attempts(other).at(0).good.text(), "1");
  EXPECT_EQ(queue.job(job).value().ended, ended);
  EXPECT_TRUE(queue.takeEnded().empty()) << "it was told that it ended";
}

TEST_F(QueueCluster, ACanceledJobWithFailuresStaysCanceledWhateverComesLate) {
  const JobId job = submit("1,2,3");
  const ArrayRecord array = addArray(job);
  settle(array, 0, failed(0));
  queue.cancel(job);
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  settle(array, 1, canceledOutcome(0));
  EXPECT_EQ(stateOf(job), JobState::Canceled);
  settle(array, 2, good(0));
  EXPECT_EQ(standing(job), "- - 3 1 2");
  EXPECT_EQ(stateOf(job), JobState::Canceled);
}

TEST_F(QueueCluster, AWorkIsNotPlacedAgainWhileItsTaskMayRun) {
  const JobId job = submit("1-3");
  const ArrayRecord array = addArray(job);
  queue.cancel(job);
  EXPECT_EQ(queue.retry(job, std::nullopt), 3U);
  EXPECT_EQ(stateOf(job), JobState::Waiting);
  EXPECT_EQ(standing(job), "1-3 - - - -");
  EXPECT_EQ(toSubmit(job), "");
  EXPECT_EQ(open(array), "0:1-3 ready");
  // The array was canceled, and its task says so.
  EXPECT_TRUE(settle(array, 0, canceledOutcome(0)));
  EXPECT_EQ(toSubmit(job), "1-3");
}

TEST_F(QueueCluster, TheLateResultOfAnOldPlaceCountsAfterARetry) {
  const JobId job = submit("1-3");
  const ArrayRecord array = addArray(job);
  queue.cancel(job);
  queue.retry(job, std::nullopt);
  settle(array, 0, good(0));
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(toSubmit(job), "");
}

TEST_F(QueueCluster, PartsOfAPlacedWorkWaitForItsEndToo) {
  const JobId job = submit("1-6,7");
  const ArrayRecord array = addArray(job);
  queue.cancel(job);
  EXPECT_EQ(queue.retry(job, setOf("3-4,7")), 3U);
  EXPECT_EQ(standing(job), "3-4,7 - - - 1-2,5-6");
  EXPECT_EQ(open(array), "0:1-6 canceled, 1:7 ready");
  EXPECT_EQ(toSubmit(job), "");
  EXPECT_EQ(begin(array, 0), 0);

  EXPECT_TRUE(settle(array, 0, canceledOutcome(0, "2-3")));
  EXPECT_EQ(standing(job), "4,7 - 2-3 - 1,5-6");
  EXPECT_EQ(toSubmit(job), "4");
  const AttemptRecord attempt = queue.attempts(job).at(0);
  EXPECT_EQ(attempt.run, (FrameRun{1, 6}));
  EXPECT_EQ(attempt.good.text(), "2-3");
  for (const WorkRecord& work : queue.works(job)) {
    EXPECT_EQ(work.attempts, work.run.First == 7 ? 0 : 1);
  }
}

TEST_F(QueueCluster, AFailureOfPartsCountsOnlyForThoseThatAreWanted) {
  const JobId job = submit("1-6");
  const ArrayRecord array = addArray(job);
  queue.cancel(job);
  queue.retry(job, setOf("3-4"));
  EXPECT_FALSE(settle(array, 0, failed(0)));
  EXPECT_EQ(standing(job), "- - - 3-4 1-2,5-6");
  EXPECT_EQ(stateOf(job), JobState::Failed);
  EXPECT_EQ(noteOf(job), "It broke");
}

TEST_F(QueueCluster, AStoppedJobKeepsWhatComesAndWaits) {
  const JobId job = submit("1,2,3");
  const ArrayRecord array = addArray(job);
  begin(array, 0);
  queue.stop(job, "Put aside");
  EXPECT_EQ(toSubmit(job), "");
  begin(array, 1);
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  settle(array, 0, good(0));
  EXPECT_FALSE(settle(array, 1, canceledOutcome(0)));
  queue.closeArrayWork(array.id, 2);
  EXPECT_EQ(standing(job), "2-3 - 1 - -");
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  queue.resume(job);
  EXPECT_EQ(toSubmit(job), "2 3");
}

TEST_F(QueueCluster, WorksThatFailAlikeStopTheJob) {
  NewJob alike = jobOf("1,2,3");
  alike.runOn = RunOn::Cluster;
  alike.stopAfter = 2;
  const JobId job = queue.submit(alike);
  const ArrayRecord array = addArray(job);
  settle(array, 0, failed(0));
  settle(array, 1, failed(0));
  EXPECT_EQ(stateOf(job), JobState::Stopped);
  EXPECT_EQ(noteOf(job), "Stopped: the first 2 works all failed alike: It broke");
  EXPECT_EQ(queue.clusterJobs().size(), 1U) << "a task is left to be ended";
}

TEST_F(QueueCluster, ADroppedArrayGivesItsWorksBack) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  queue.dropArray(array.id);
  EXPECT_EQ(toSubmit(job), "1 2");
  EXPECT_TRUE(queue.openArrays().empty());
  EXPECT_FALSE(settle(array, 0, good(0))) << "it is closed";
  EXPECT_EQ(addArray(job).number, 2);
}

TEST_F(QueueCluster, WhatWasSeenToStartIsNotDropped) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  begin(array, 1);
  queue.dropArray(array.id);
  EXPECT_EQ(toSubmit(job), "1");
  EXPECT_EQ(open(array), "1:2 running");
  EXPECT_EQ(queueErrorOf([&] { queue.closeArrayWork(array.id, 1); }).message,
            "The work at position 1 of array 1 has an attempt, so only a result closes it");
  settle(array, 1, good(0));
  EXPECT_TRUE(queue.openArrays().empty());
}

TEST_F(QueueCluster, AClosedPlaceSaysNothingOfItsWork) {
  const JobId job = submit("1");
  const ArrayRecord array = addArray(job);
  queue.closeArrayWork(array.id, 0);
  queue.closeArrayWork(array.id, 0);
  EXPECT_EQ(standing(job), "1 - - - -");
  EXPECT_EQ(toSubmit(job), "1");
  EXPECT_TRUE(queue.attempts(job).empty());
  EXPECT_EQ(stateOf(job), JobState::Waiting);
}

TEST_F(QueueCluster, WhatTheClusterSaysOfATaskIsKeptAndUnchangedWordsWriteNothing) {
  const ArrayRecord array = addArray(submit("1,2"));
  ArrayWork task = queue.openArrayWorks(array.id).at(1);
  task.state = "PENDING";
  task.reason = "Priority";
  task.node = "n\xff 1";
  task.restarts = 2;
  queue.noteTask(task);
  const ArrayWork now = queue.openArrayWorks(array.id).at(1);
  EXPECT_EQ(now.state, "PENDING");
  EXPECT_EQ(now.reason, "Priority");
  EXPECT_EQ(now.node, "n\xff 1");
  EXPECT_EQ(now.restarts, 2);
  EXPECT_EQ(queue.openArrayWorks(array.id).at(0).state, "");

  Queue other(queue.directory());
  const std::int64_t version = other.dataVersion();
  queue.noteTask(now);
  queue.beginArrayWork(array.id, 9, start);
  EXPECT_EQ(other.dataVersion(), version);
  task.reason = "";
  queue.noteTask(task);
  EXPECT_NE(other.dataVersion(), version);
}

TEST_F(QueueCluster, TheBeatOfARunningAttemptIsKeptTillItsEnd) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  AttemptBeat beat;
  beat.attempt = begin(array, 0);
  const AttemptId second = begin(array, 1);
  beat.stage = "starting";
  queue.noteBeat(beat);
  beat.stage = "running";
  beat.log = "/shared/logs/1.log";
  beat.logBytes = 12345678901;
  beat.silent = 2.5;
  beat.seen = start;
  queue.noteBeat(beat);
  const std::vector<AttemptBeat> beats = queue.beats(job);
  ASSERT_EQ(beats.size(), 1U);
  EXPECT_EQ(beats[0].attempt, beat.attempt);
  EXPECT_EQ(beats[0].stage, "running");
  EXPECT_EQ(beats[0].log, "/shared/logs/1.log");
  EXPECT_EQ(beats[0].logBytes, 12345678901);
  EXPECT_DOUBLE_EQ(beats[0].silent, 2.5);
  EXPECT_EQ(beats[0].seen, start);
  EXPECT_EQ(queue.attempt(beat.attempt).value().log, "/shared/logs/1.log");

  for (const double silent : {std::numeric_limits<double>::quiet_NaN(), -1.0}) {
    beat.silent = silent;
    queue.noteBeat(beat);
    EXPECT_EQ(queue.beats(job).at(0).silent, 0);
  }
  beat.silent = 1e300;
  queue.noteBeat(beat);
  EXPECT_GT(queue.beats(job).at(0).silent, 1e9);

  settle(array, 0, good(0));
  EXPECT_TRUE(queue.beats(job).empty());
  queue.noteBeat(beat);
  EXPECT_TRUE(queue.beats(job).empty()) << "it has ended";
  EXPECT_EQ(queue.attempt(beat.attempt).value().log, "");
  EXPECT_EQ(queue.attempt(second).value().state, AttemptState::Running);
}

TEST_F(QueueCluster, ARemovedJobTakesItsTasksWithIt) {
  const JobId job = submit("1,2");
  const ArrayRecord array = addArray(job);
  begin(array, 0);
  AttemptBeat beat;
  beat.attempt = 1;
  queue.noteBeat(beat);
  EXPECT_NE(queueErrorOf([&] { queue.remove(job); }).message, "");
  settle(array, 0, good(0));
  queue.remove(job);
  EXPECT_TRUE(queue.openArrays().empty());
  EXPECT_TRUE(queue.openArrayWorks(array.id).empty());
  EXPECT_TRUE(queue.clusterJobs().empty());
  EXPECT_FALSE(settle(array, 1, good(0)));
  EXPECT_EQ(begin(array, 1), 0);
  EXPECT_GT(addArray(submit("1")).id, array.id) << "numbers are never used again";
}

TEST_F(QueueCluster, OneProcessAtATimeSubmitsAndCollects) {
  Queue other(queue.directory());
  EXPECT_TRUE(queue.takeClusterLock());
  EXPECT_TRUE(queue.takeClusterLock()) << "it has it already";
  EXPECT_FALSE(other.takeClusterLock());
  queue.releaseClusterLock();
  EXPECT_TRUE(other.takeClusterLock());
  {
    Queue third(queue.directory());
    EXPECT_FALSE(third.takeClusterLock());
    other.releaseClusterLock();
    EXPECT_TRUE(third.takeClusterLock());
  }
  EXPECT_TRUE(queue.takeClusterLock()) << "the end of a queue frees it";
  EXPECT_TRUE(std::filesystem::exists(directory.file("engines/cluster.lock")));
}

TEST_F(QueueCluster, HowTheClusterAnswersIsKept) {
  EXPECT_EQ(queue.clusterContact().asked, Moment());
  ClusterContact contact;
  contact.asked = start + 2s;
  contact.answered = start;
  contact.problem = "no route to host";
  queue.noteContact(contact);
  const ClusterContact now = Queue(queue.directory()).clusterContact();
  EXPECT_EQ(now.asked, start + 2s);
  EXPECT_EQ(now.answered, start);
  EXPECT_EQ(now.problem, "no route to host");
}

TEST_F(QueueCluster, AWorkIsNotSettledAsRunning) {
  const ArrayRecord array = addArray(submit("1"));
  Outcome outcome;
  outcome.state = AttemptState::Running;
  EXPECT_NE(queueErrorOf([&] { settle(array, 0, outcome); }).message, "");
  EXPECT_EQ(open(array), "0:1 ready");
}

} // namespace
} // namespace trovik
