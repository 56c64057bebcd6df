// Jobs become arrays on a site, and what it has no room for waits.

#include "tests/trovik/cluster/SiteTest.h"

namespace trovik {
namespace {

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

} // namespace
} // namespace trovik
