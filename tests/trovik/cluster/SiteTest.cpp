#include "trovik/cluster/ClusterEngine.h"

#include "tests/trovik/TestJobs.h"
#include "tests/trovik/cluster/FakeSite.h"
#include "trovik/cluster/TaskProcess.h"
#include "trovik/queue/Database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>

namespace trovik {
namespace {

using namespace std::chrono_literals;

class SiteTest : public QueuedJobTest {
protected:
  SiteTest() {
    settings.folder = Path(directory.file("shared"));
    settings.program = Path("/opt/trovik/bin/trovik");
    settings.patience = 30s;
    site.site.arraySize = 1001;
    restart();
  }

  JobId submit(const std::string& range, int retries = 0) {
    NewJob entry = entryOf(range, retries);
    entry.runOn = RunOn::Cluster;
    entry.folder = settings.folder.Text();
    return user.submit(entry);
  }

  /// The engine's process ends, and another one begins.
  void restart(ClusterEngine::Duty duty = ClusterEngine::Duty::All) {
    site.hangUp();
    engine.reset();
    queue.noteContact({}); // that another process asked a moment ago is told by the clock on the wall
    engine = std::make_unique<ClusterEngine>(
        machine, queue, site, inspector, settings, duty,
        [this](const ClusterNotice& notice) { notices.push_back(notice.text + " | " + notice.hint); });
  }

  void pass(Duration time) {
    const Clock::time_point end = machine.now() + time;
    while (machine.now() < end) {
      engine->advance();
      std::vector<pollfd> none;
      machine.wait(none, std::max<Duration>(1ms, std::min<Clock::time_point>(end, engine->deadline()) -
                                                     machine.now()));
    }
    engine->advance();
  }

  ArrayFolder folderOf(std::int64_t array) const {
    return ArrayFolder(site.arrays.at(array).submission.folder);
  }

  static WorkClaim claimed(int number) {
    WorkClaim claim;
    claim.number = number;
    claim.host = "n1";
    claim.boot = "of another machine";
    claim.process = 4711;
    claim.mark = "mark-" + std::to_string(number);
    claim.node = "n1";
    claim.started = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
    return claim;
  }

  JobId submitFitting(const std::string& range) {
    NewJob entry = entryOf(range, 0);
    entry.packets.automatic = true;
    entry.runOn = RunOn::Cluster;
    entry.folder = settings.folder.Text();
    return user.submit(entry);
  }
  /// Ends all works of an array well, after a start and their frames.
  void finishAll(std::int64_t array, double start, double frame) {
    const ArrayPlan plan = folderOf(array).plan();
    for (std::size_t position = 0; position < plan.works.size(); ++position) {
      WorkEnd end;
      end.claim = 1;
      end.outcome.state = AttemptState::Good;
      end.outcome.duration = std::chrono::microseconds(static_cast<std::int64_t>(
          (start + frame * static_cast<double>(plan.works[position].run.Count())) * 1e6));
      EXPECT_TRUE(folderOf(array).leave(position, end));
    }
    for (ClusterTask& one : site.arrays.at(array).tasks) {
      FakeSite::end(one, "COMPLETED");
    }
  }
  std::vector<std::int64_t> lengths(std::int64_t array) {
    std::vector<std::int64_t> result;
    for (const auto& work : folderOf(array).plan().works) {
      result.push_back(work.run.Count());
    }
    return result;
  }

  void begin(std::int64_t array, std::size_t position, int claim = 1) {
    EXPECT_TRUE(folderOf(array).claim(position, claimed(claim)));
    beat(array, position, claim, 1);
  }
  void beat(std::int64_t array, std::size_t position, int claim, std::int64_t count) {
    WorkBeat sign;
    sign.claim = claim;
    sign.count = count;
    sign.stage = "running";
    folderOf(array).beat(position, sign);
  }
  /// What the task of the position would leave.
  bool finish(std::int64_t array, std::size_t position, AttemptState state = AttemptState::Good,
              const std::string& reason = "") {
    WorkEnd end;
    end.claim = 1;
    end.outcome.state = state;
    end.outcome.reason = reason;
    end.outcome.rule = VerdictRule::Result;
    return folderOf(array).leave(position, end);
  }
  /// Job 1, of array 101: its work is good, its task has not ended.
  void leaveOneGoodJob() {
    const JobId id = submit("1");
    pass(3s);
    site.start();
    finish(101, 0);
    pass(5s);
    ASSERT_EQ(state(id), JobState::Good);
  }
  ClusterTask& task(std::int64_t array, std::size_t index) { return site.arrays.at(array).tasks.at(index); }
  std::string good(JobId id) { return queue.frames(id).good.text(); }
  std::string ready(JobId id) { return queue.frames(id).ready.text(); }
  std::string running(JobId id) { return queue.frames(id).running.text(); }
  JobState state(JobId id) { return queue.job(id)->state; }

  Queue user{Path(directory.file("queue"))}; // another process
  ClusterSettings settings;
  FakeSite site;
  std::vector<std::string> notices;
  std::unique_ptr<ClusterEngine> engine;
};

TEST_F(SiteTest, AJobBecomesAnArrayWhosePlacesAreItsWorks) {
  const JobId id = submit("1-6x5,10-12");
  pass(3s);
  ASSERT_EQ(site.arrays.size(), 1U);
  const ClusterSubmission& submission = site.arrays.at(101).submission;
  EXPECT_EQ(submission.tasks, 5);
  EXPECT_EQ(submission.program.Text(), "/opt/trovik/bin/trovik");
  EXPECT_EQ(submission.memory, 0);
  EXPECT_EQ(submission.minutes, 0);
  const ArrayPlan plan = folderOf(101).plan();
  ASSERT_EQ(plan.works.size(), 5U);
  EXPECT_EQ(plan.works[1].run.First, 6);
  EXPECT_EQ(plan.patience, 30s);
  EXPECT_EQ(ready(id), "1,6,10-12");
}

TEST_F(SiteTest, WorksThatWaitForAJobHereAreSubmittedAsItsFramesBecomeGood) {
  const JobId before = user.submit(entryOf("1-3", 0));
  NewJob entry = entryOf("1-3", 0);
  entry.runOn = RunOn::Cluster;
  entry.folder = settings.folder.Text();
  entry.forerunners = {{.job = before, .byFrame = true}};
  const JobId id = user.submit(entry);
  pass(3s);
  EXPECT_TRUE(site.arrays.empty());
  const EngineId here = user.enterEngine(1);
  Outcome outcome;
  outcome.attempt = user.claim(here, 1, before).at(0).attempt;
  FileRecord image;
  image.path = "/out/\xff 1.png";
  image.frame = 1;
  image.checked = true;
  outcome.files = {image};
  user.settle(outcome);
  pass(3s);
  ASSERT_EQ(site.arrays.size(), 1U);
  const ArrayPlan plan = folderOf(101).plan();
  ASSERT_EQ(plan.works.size(), 1U);
  EXPECT_EQ(plan.works[0].run, (FrameRun{1, 1}));
  EXPECT_EQ(plan.works[0].imagesBefore, (std::vector<std::string>{"/out/\xff 1.png"}));
  EXPECT_EQ(queue.frames(id).waiting.text(), "2-3");
}

TEST_F(SiteTest, JobOnTheClusterWaitsForAnotherOneThere) {
  const JobId before = submit("1-2");
  NewJob entry = entryOf("1-2", 0);
  entry.runOn = RunOn::Cluster;
  entry.folder = settings.folder.Text();
  entry.forerunners = {{.job = before}};
  const JobId id = user.submit(entry);
  pass(3s);
  site.start();
  finish(101, 0);
  finish(101, 1);
  pass(5s);
  EXPECT_EQ(state(before), JobState::Good);
  EXPECT_EQ(queue.frames(id).waiting.text(), "");
  ASSERT_EQ(site.arrays.size(), 2U) << "nobody else has changed the queue";
  EXPECT_EQ(folderOf(102).plan().works.size(), 2U);
}

TEST_F(SiteTest, JobHereWaitsForOneOnTheCluster) {
  const JobId before = submit("1-2");
  NewJob entry = entryOf("1-2", 0);
  entry.forerunners = {{.job = before, .byFrame = true}};
  const JobId id = user.submit(entry);
  pass(3s);
  site.start();
  begin(101, 0);
  finish(101, 0);
  pass(5s);
  EXPECT_EQ(good(before), "1");
  EXPECT_EQ(queue.frames(id).waiting.text(), "2");
}

TEST_F(SiteTest, AJobOfAnotherQueueIsNotSubmittedUntilItIsMadeOnesOwn) {
  const JobId id = submit("1-2");
  Database(Path(directory.file("queue/queue.db"))).execute("UPDATE jobs SET home = ''");
  pass(3s);
  EXPECT_TRUE(site.arrays.empty());
  EXPECT_EQ(notices,
            std::vector<std::string>{"job 1 cannot be submitted from here: " + foreignJobText(1) + " | "});
  user.retry(id, std::nullopt);
  pass(3s);
  EXPECT_EQ(site.arrays.size(), 1U);
  EXPECT_EQ(notices.size(), 1U);
}

TEST_F(SiteTest, TheParametersOfTheJobReachTheCluster) {
  job->SetParameter(p_ClusterPartition, "long");
  job->SetParameter(p_ClusterAccount, "show");
  job->SetParameter(p_ClusterQos, "night");
  job->SetParameter(p_ClusterMemory, "2G");
  job->SetParameter(p_CPUs, "4");
  job->SetParameter(p_RunTimeLimit, "90s");
  job->SetParameter(p_ClusterThrottle, "7");
  job->SetParameter(p_ClusterOptions, "--constraint=fast '--licenses=a b'");
  submit("1-2");
  pass(3s);
  const ClusterSubmission& submission = site.arrays.at(101).submission;
  EXPECT_EQ(submission.partition, "long");
  EXPECT_EQ(submission.account, "show");
  EXPECT_EQ(submission.qos, "night");
  EXPECT_EQ(submission.memory, 2048);
  EXPECT_EQ(submission.cpus, 4);
  EXPECT_EQ(submission.minutes, 7); // 90 s, and time for all that is around it
  EXPECT_EQ(submission.throttle, 7);
  EXPECT_EQ(submission.options, (std::vector<std::string>{"--constraint=fast", "--licenses=a b"}));
}

TEST_F(SiteTest, LimitsOfAJobBecomeLicencesAndItsSlotsTheThrottle) {
  NewJob entry = entryOf("1-3", 0);
  entry.runOn = RunOn::Cluster;
  entry.folder = settings.folder.Text();
  entry.takes = {{"floating", 2}, {"renderer", 1}};
  entry.slotsAtMost = 2;
  user.submit(entry);
  pass(3s);
  const ClusterSubmission& submission = site.arrays.at(101).submission;
  EXPECT_EQ(submission.licenses, "floating:2,renderer:1");
  EXPECT_EQ(submission.throttle, 2);
}

TEST_F(SiteTest, WithoutAWishAWorkTakesItsShareOfANode) {
  site.site.memoryPerCpu = 500;
  job->SetParameter(p_CPUs, "3");
  submit("1");
  pass(3s);
  EXPECT_EQ(site.arrays.at(101).submission.memory, 1500);
}

TEST_F(SiteTest, WhatTheTaskLeftCountsWhateverTheClusterSays) {
  const JobId id = submit("1-2");
  pass(3s);
  site.start();
  begin(101, 0);
  pass(5s);
  EXPECT_EQ(running(id), "1");
  finish(101, 0);
  FakeSite::end(task(101, 0), "FAILED");
  finish(101, 1, AttemptState::Failed, "The sky is empty");
  FakeSite::end(task(101, 1), "COMPLETED");
  pass(40s);
  EXPECT_EQ(good(id), "1");
  EXPECT_EQ(state(id), JobState::Failed);
  EXPECT_EQ(queue.job(id)->note, "The sky is empty");
}

TEST_F(SiteTest, FailedWorksGoIntoAnArrayOfTheirOwnWhileThereAreRetries) {
  const JobId id = submit("1-3", 1);
  pass(3s);
  site.start();
  finish(101, 0);
  finish(101, 1, AttemptState::Failed, "Out of luck");
  finish(101, 2);
  pass(20s);
  ASSERT_EQ(site.arrays.size(), 2U);
  ASSERT_EQ(folderOf(102).plan().works.size(), 1U);
  EXPECT_EQ(folderOf(102).plan().works[0].run.First, 2);
  EXPECT_EQ(folderOf(102).plan().works[0].attempt, 2);
  site.start();
  finish(102, 0);
  pass(20s);
  EXPECT_EQ(good(id), "1-3");
  EXPECT_EQ(state(id), JobState::Good);
}

TEST_F(SiteTest, PacketsThatFitThemselvesAreTriedBeforeTheRestIsCut) {
  const JobId id = submitFitting("1-2000");
  pass(20s);
  ASSERT_EQ(site.arrays.size(), 1U) << "the rest waits for what the first ones tell";
  EXPECT_EQ(lengths(101), std::vector<std::int64_t>(8, 1));
  site.start();
  finishAll(101, 2, 0.1);
  pass(20s);
  ASSERT_EQ(site.arrays.size(), 2U);
  EXPECT_EQ(lengths(102), std::vector<std::int64_t>(8, 16)) << "which tell starts from frames";
  site.start();
  finishAll(102, 2, 0.1);
  pass(20s);
  ASSERT_EQ(site.arrays.size(), 3U);
  EXPECT_EQ(lengths(103), std::vector<std::int64_t>(4, 466)) << "the rest, in packets of one length";
  site.start();
  finishAll(103, 2, 0.1);
  pass(20s);
  EXPECT_EQ(state(id), JobState::Good);
  EXPECT_EQ(good(id), "1-2000");
}

TEST_F(SiteTest, FramesThatTakeLongerThanAPacketShouldNeedNoTrial) {
  const JobId id = submitFitting("1-50");
  pass(20s);
  ASSERT_EQ(site.arrays.size(), 1U);
  site.start();
  WorkClaim old = claimed(1);
  old.started -= 90s;
  EXPECT_TRUE(folderOf(101).claim(0, old));
  beat(101, 0, 1, 1);
  pass(20s);
  ASSERT_EQ(site.arrays.size(), 2U);
  EXPECT_EQ(lengths(102), std::vector<std::int64_t>(42, 1));
  EXPECT_EQ(running(id), "1");
}

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

TEST_F(SiteTest, LongListsAreCutByTheLimitsOfTheSite) {
  site.site.arraySize = 101;
  site.site.jobCount = 500;
  const JobId id = submit("1-300");
  pass(30s);
  std::size_t tasks = 0;
  std::size_t works = 0;
  for (const auto& [number, array] : site.arrays) {
    EXPECT_LE(array.submission.tasks, 101);
    tasks += array.tasks.size();
    works += folderOf(number).plan().works.size();
  }
  EXPECT_EQ(works, 300U);
  EXPECT_LE(tasks, 250U); // half of what the cluster keeps
  EXPECT_EQ(site.arrays.size(), 2U);
  EXPECT_TRUE(queue.worksToSubmit(id).empty());
  for (const ArrayRecord& array : queue.openArrays(id)) {
    EXPECT_NE(array.cluster, 0);
  }
}

TEST_F(SiteTest, WhatTheSiteHasNoRoomForFollowsAsTasksEnd) {
  site.site.jobCount = 20;
  job->SetParameter(p_WorksPerTask, "1");
  const JobId id = submit("1-25");
  std::set<int> frames;
  for (int turn = 0; turn < 20 && state(id) != JobState::Good; ++turn) {
    pass(20s);
    std::size_t open = 0;
    site.start();
    for (auto& [number, array] : site.arrays) {
      const ArrayPlan plan = folderOf(number).plan();
      EXPECT_EQ(plan.perTask, 1U);
      for (ClusterTask& one : array.tasks) {
        if (one.phase == TaskPhase::Active) {
          ++open;
          const auto position = static_cast<std::size_t>(one.index);
          EXPECT_TRUE(frames.insert(plan.works.at(position).run.First).second);
          finish(number, position);
          FakeSite::end(one, "COMPLETED");
        }
      }
    }
    EXPECT_LE(open, 10U); // half of what the cluster keeps
  }
  EXPECT_EQ(good(id), "1-25");
}

TEST(WorksPerTask, ShortWorksShareATaskAsLongAsTheJobCanUseManyNodes) {
  ClusterRequest request;
  EXPECT_EQ(worksPerTask(request, 36, std::nullopt, 5000), 1U);
  EXPECT_EQ(worksPerTask(request, 36, 2.0, 5000), 1U);      // 36 nodes are better than a long task
  EXPECT_EQ(worksPerTask(request, 10000, 5.0, 50000), 12U); // a minute
  EXPECT_EQ(worksPerTask(request, 640, 5.0, 5000), 10U);    // 64 tasks
  EXPECT_EQ(worksPerTask(request, 10000, 90.0, 5000), 2U);  // the cluster's list is that long
  EXPECT_EQ(worksPerTask(request, 10000, 0.0, 5000), 156U);
  request.worksPerTask = 3;
  EXPECT_EQ(worksPerTask(request, 10000, 5.0, 100), 3U);
  EXPECT_EQ(worksPerTask(request, 2, 5.0, 100), 2U);
}

TEST_F(SiteTest, HeldTasksAreNamedOnceWithWhatToDo) {
  const JobId id = submit("1-2");
  pass(3s);
  task(101, 0).reason = "JobHeldUser";
  task(101, 1).reason = "JobHeldUser";
  pass(60s);
  ASSERT_EQ(notices.size(), 1U);
  EXPECT_NE(notices.front().find("2 tasks of array job 101 (job " + std::to_string(id) + ") will not start"),
            std::string::npos)
      << notices.front();
  EXPECT_NE(notices.front().find("scontrol release 101"), std::string::npos) << notices.front();
}

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
