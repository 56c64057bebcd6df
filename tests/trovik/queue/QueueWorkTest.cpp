#include "tests/trovik/queue/QueueTest.h"

namespace trovik {
namespace {

class QueueWork : public QueueTest {};

TEST_F(QueueWork, EverythingGoodEndsTheJobWell) {
  const JobId job = queue.submit(jobOf("1-3,4-6"));
  EXPECT_EQ(stateOf(job), JobState::Waiting);
  EXPECT_EQ(standing(job), "1-6 - - - -");

  const Claim first = take();
  EXPECT_EQ(first.job, job);
  EXPECT_EQ(first.run, (FrameRun{1, 3}));
  EXPECT_EQ(first.number, 1);
  EXPECT_EQ(first.tries, 0);
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(standing(job), "4-6 1-3 - - -");

  EXPECT_FALSE(queue.settle(good(first.attempt)));
  EXPECT_EQ(standing(job), "4-6 - 1-3 - -");
  EXPECT_FALSE(queue.job(job)->ended);
  EXPECT_FALSE(queue.settle(good(take().attempt)));
  EXPECT_EQ(standing(job), "- - 1-6 - -");
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_TRUE(queue.job(job)->ended);
  EXPECT_TRUE(queue.claim(engine, 1, std::nullopt).empty());
}

TEST_F(QueueWork, SeveralAreClaimedAtOnceEachOnce) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  const std::vector<Claim> claims = queue.claim(engine, 5, std::nullopt);
  ASSERT_EQ(claims.size(), 3U);
  EXPECT_EQ(claims[0].run.First, 1);
  EXPECT_EQ(claims[1].run.First, 2);
  EXPECT_EQ(claims[2].run.First, 3);
  EXPECT_NE(claims[0].mark, claims[1].mark);
  EXPECT_EQ(standing(job), "- 1-3 - - -");
}

TEST_F(QueueWork, WorksStartInTheirJobsOrder) {
  queue.submit(jobOf("9,1,5-6"));
  EXPECT_EQ(take().run.First, 9);
  EXPECT_EQ(take().run.First, 1);
  EXPECT_EQ(take().run.First, 5);
}

TEST_F(QueueWork, HigherPriorityComesFirstThenTheOlderJob) {
  const JobId old = queue.submit(jobOf("1"));
  const JobId young = queue.submit(jobOf("1"));
  NewJob urgent = jobOf("1");
  urgent.priority = 90;
  const JobId first = queue.submit(urgent);
  EXPECT_EQ(take().job, first);
  EXPECT_EQ(take().job, old);
  EXPECT_EQ(take().job, young);
}

TEST_F(QueueWork, APriorityThatWasChangedCounts) {
  queue.submit(jobOf("1"));
  const JobId young = queue.submit(jobOf("1"));
  queue.change(young, {.priority = 51});
  EXPECT_EQ(queue.job(young)->priority, 51);
  EXPECT_EQ(take().job, young);
}

TEST_F(QueueWork, ClaimsKeepToOneJobAndLeaveOthersOut) {
  const JobId first = queue.submit(jobOf("1,2"));
  const JobId second = queue.submit(jobOf("1,2"));
  EXPECT_EQ(take(second).job, second);
  const std::vector<Claim> claims = queue.claim(engine, 9, std::nullopt, {first});
  ASSERT_EQ(claims.size(), 1U);
  EXPECT_EQ(claims[0].job, second);
  EXPECT_TRUE(queue.claim(engine, 9, first, {first}).empty());
}

TEST_F(QueueWork, AFailedWorkIsTriedAgainAfterTheOthersWhileThereAreRetries) {
  NewJob wanted = jobOf("1,2");
  wanted.retries = 1;
  const JobId job = queue.submit(wanted);
  EXPECT_TRUE(queue.settle(failed(take().attempt)));
  EXPECT_EQ(standing(job), "1-2 - - - -");
  EXPECT_TRUE(queue.attempts(job).at(0).again);

  EXPECT_EQ(take().run.First, 2);
  const Claim second = take();
  EXPECT_EQ(second.run.First, 1);
  EXPECT_EQ(second.number, 2);
  EXPECT_EQ(second.tries, 1);
  EXPECT_FALSE(queue.settle(failed(second.attempt, "It broke for good")));
  EXPECT_FALSE(queue.attempt(second.attempt)->again);
  EXPECT_EQ(standing(job), "- 2 - 1 -");
  EXPECT_EQ(stateOf(job), JobState::Running);
  EXPECT_EQ(noteOf(job), "It broke for good");
}

TEST_F(QueueWork, WhatIsNotWorthARetryGetsNone) {
  NewJob wanted = jobOf("1");
  wanted.retries = 3;
  const JobId job = queue.submit(wanted);
  Outcome outcome = failed(take().attempt);
  outcome.retryable = false;
  EXPECT_FALSE(queue.settle(outcome));
  EXPECT_EQ(stateOf(job), JobState::Failed);
}

TEST_F(QueueWork, GoodFramesAreCutOffAndTheRestIsAsManyWorksAsRuns) {
  NewJob wanted = jobOf("1-10");
  wanted.retries = 1;
  const JobId job = queue.submit(wanted);
  EXPECT_TRUE(queue.settle(failed(take().attempt, "It broke", "2-3,7")));
  EXPECT_EQ(standing(job), "1,4-6,8-10 - 2-3,7 - -");
  std::string works;
  for (const WorkRecord& work : queue.works(job)) {
    works += runText(work.run) + ' ' + nameOf(work.state) + ' ' + std::to_string(work.attempts) + "; ";
  }
  EXPECT_EQ(works, "1 ready 1; 2-3 good 1; 4-6 ready 1; 7 good 1; 8-10 ready 1; ");
  EXPECT_EQ(queue.attempts(job).at(0).good.text(), "2-3,7");

  const Claim next = take();
  EXPECT_EQ(next.run, (FrameRun{1, 1}));
  EXPECT_EQ(next.number, 2);
  EXPECT_EQ(next.tries, 1);
  EXPECT_EQ(take().run, (FrameRun{4, 6}));
  EXPECT_EQ(take().run, (FrameRun{8, 10}));
}

TEST_F(QueueWork, FramesOutsideOfTheWorkAreNoGoodFramesOfIt) {
  const JobId job = queue.submit(jobOf("5-6,7-8"));
  EXPECT_FALSE(queue.settle(failed(take().attempt, "It broke", "1-5,8-20")));
  EXPECT_EQ(standing(job), "7-8 - 5 6 -");
}

TEST_F(QueueWork, AFailedAttemptThatLeftAllFramesGoodLeavesNothing) {
  const JobId job = queue.submit(jobOf("1-3"));
  EXPECT_FALSE(queue.settle(failed(take().attempt, "It crashed", "1-3")));
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(queue.attempts(job).at(0).state, AttemptState::Failed);
}

TEST_F(QueueWork, ACanceledAttemptLeavesItsWorkReadyInAnOpenJob) {
  NewJob wanted = jobOf("1-4");
  const JobId job = queue.submit(wanted);
  EXPECT_TRUE(queue.settle(canceledOutcome(take().attempt, "1-2")));
  EXPECT_EQ(standing(job), "3-4 - 1-2 - -");
  const Claim next = take();
  EXPECT_EQ(next.tries, 0);
  EXPECT_EQ(next.number, 2);
}

TEST_F(QueueWork, AWorkWhoseEngineDiesFiveTimesFails) {
  const JobId job = queue.submit(jobOf("1-2,3"));
  for (int loss = 1; loss < 5; ++loss) {
    const Claim claim = take();
    EXPECT_EQ(claim.run.First, 1);
    EXPECT_EQ(claim.tries, 0);
    EXPECT_EQ(claim.number, loss);
    EXPECT_TRUE(queue.settle(lost(claim.attempt)));
  }
  const Claim last = take();
  EXPECT_FALSE(queue.settle(lost(last.attempt)));
  EXPECT_EQ(standing(job), "3 - - 1-2 -");
  EXPECT_EQ(noteOf(job), "Its engine died 5 times while it ran");
  EXPECT_EQ(queue.attempt(last.attempt)->reason, "Its engine died 5 times while it ran");
  EXPECT_EQ(queue.attempt(last.attempt)->state, AttemptState::Lost);
}

TEST_F(QueueWork, AnAttemptIsSettledOnce) {
  const JobId job = queue.submit(jobOf("1"));
  const Claim claim = take();
  EXPECT_FALSE(queue.settle(good(claim.attempt)));
  EXPECT_FALSE(queue.settle(failed(claim.attempt)));
  EXPECT_FALSE(queue.settle(good(4711)));
  EXPECT_EQ(standing(job), "- - 1 - -");
}

TEST_F(QueueWork, NoAttemptIsSettledAsRunning) {
  queue.submit(jobOf("1"));
  Outcome outcome = good(take().attempt);
  outcome.state = AttemptState::Running;
  EXPECT_EQ(queueErrorOf([&] { queue.settle(outcome); }).message, "An attempt cannot be settled as running");
}

TEST_F(QueueWork, TheAttemptKeepsAllThatWasSaidOfIt) {
  const JobId job = queue.submit(jobOf("1-3"));
  const Claim claim = take();
  queue.noteProcess(claim.attempt, 4711);
  Outcome outcome = failed(claim.attempt, "Error line: \xff\x01 \"odd\"", "2");
  outcome.lines = {"", "one\twith a tab", "\xfe two"};
  outcome.log = "/logs/1-3.log";
  outcome.command = "/bin/sketch --frames 1-3";
  outcome.exitCode = 3;
  outcome.usage = ProcessUsage{1500000, 20000, 812 << 20, 4096, std::nullopt};
  outcome.signal = 11;
  outcome.duration = std::chrono::microseconds(1234567);
  queue.settle(outcome);

  const AttemptRecord record = queue.attempt(claim.attempt).value();
  EXPECT_EQ(record.job, job);
  EXPECT_EQ(record.work, claim.work);
  EXPECT_EQ(record.engine, engine);
  EXPECT_EQ(record.run, (FrameRun{1, 3}));
  EXPECT_EQ(record.number, 1);
  EXPECT_EQ(record.state, AttemptState::Failed);
  EXPECT_EQ(record.rule, VerdictRule::ErrorLine);
  EXPECT_EQ(record.reason, outcome.reason);
  EXPECT_EQ(record.lines, outcome.lines);
  EXPECT_EQ(record.log, outcome.log);
  EXPECT_EQ(record.command, outcome.command);
  EXPECT_EQ(record.exitCode, 3);
  EXPECT_EQ(record.signal, 11);
  EXPECT_EQ(record.usage, outcome.usage);
  EXPECT_EQ(record.good.text(), "2");
  EXPECT_EQ(record.duration, outcome.duration);
  EXPECT_TRUE(record.ended.has_value());
  EXPECT_LE(record.started, record.ended.value());
}

TEST_F(QueueWork, AttemptsComeInTheOrderOfTheirStart) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  const std::vector<Claim> claims = queue.claim(engine, 3, std::nullopt);
  queue.settle(good(claims[2].attempt));
  const std::vector<AttemptRecord> all = queue.attempts(job);
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].state, AttemptState::Running);
  EXPECT_EQ(all[2].run.First, 3);
  ASSERT_EQ(queue.attempts(job, all[1].id).size(), 1U);
  EXPECT_EQ(queue.attempts(job, all[1].id)[0].id, all[2].id);
}

TEST_F(QueueWork, FilesThatWereCheckedReplaceThoseThatWereNoted) {
  const JobId job = queue.submit(jobOf("1-2"));
  const Claim claim = take();
  queue.noteFile(claim.attempt, file("/out/1.png"));
  ASSERT_EQ(queue.files(job).size(), 1U);
  EXPECT_FALSE(queue.files(job)[0].checked);
  EXPECT_FALSE(queue.lastOf("/out/1.png")->checked);

  Outcome outcome = good(claim.attempt);
  FileRecord first = file("/out/1.png");
  first.frame = 1;
  outcome.files = {first, file("/out/\xff\n2.png", "Empty")};
  queue.settle(outcome);
  const std::vector<FileRecord> files = queue.files(job);
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].path, "/out/1.png");
  EXPECT_EQ(files[0].attempt, claim.attempt);
  EXPECT_EQ(files[0].frame, 1);
  EXPECT_TRUE(files[0].checked);
  EXPECT_EQ(files[0].problem, "");
  EXPECT_EQ(files[0].size, 1234);
  EXPECT_EQ(files[0].modified, 1'700'000'000'123'456'789);
  EXPECT_EQ(files[1].path, "/out/\xff\n2.png");
  EXPECT_FALSE(files[1].frame.has_value());
  EXPECT_EQ(files[1].problem, "Empty");
  ASSERT_EQ(queue.files(job, files[0].id).size(), 1U);
  EXPECT_TRUE(queue.lastOf("/out/1.png")->checked);
  EXPECT_FALSE(queue.lastOf("/out/3.png").has_value());
}

TEST_F(QueueWork, AFileOfAnAttemptThatHasEndedIsNotNoted) {
  const JobId job = queue.submit(jobOf("1"));
  const Claim claim = take();
  queue.settle(good(claim.attempt));
  queue.noteFile(claim.attempt, file("/out/1.png"));
  EXPECT_TRUE(queue.files(job).empty());
}

TEST_F(QueueWork, AJobWithoutFramesIsOneWork) {
  NewJob wanted = jobOf("1");
  wanted.hasFrames = false;
  wanted.retries = 1;
  const JobId job = queue.submit(wanted);
  Outcome outcome = failed(take().attempt, "It broke", "0");
  EXPECT_TRUE(queue.settle(outcome)); // frames mean nothing here
  EXPECT_EQ(queue.frames(job).readyWorks, 1U);
  EXPECT_TRUE(queue.frames(job).ready.empty());
  queue.settle(good(take().attempt));
  EXPECT_EQ(stateOf(job), JobState::Good);
  EXPECT_EQ(queue.frames(job).goodWorks, 1U);
}

TEST_F(QueueWork, ATransactionOfSeveralCallsIsUndoneAsAWhole) {
  const JobId job = queue.submit(jobOf("1,2"));
  EXPECT_THROW(queue.inTransaction([&] {
    queue.settle(good(take().attempt));
    take();
    throw std::string("enough");
  }),
               std::string);
  EXPECT_EQ(standing(job), "1-2 - - - -");
  queue.inTransaction([&] {
    queue.settle(good(take().attempt));
    take();
  });
  EXPECT_EQ(standing(job), "- 2 1 - -");
}

TEST_F(QueueWork, TransactionsDoNotNest) {
  EXPECT_EQ(queueErrorOf([&] { queue.inTransaction([&] { queue.inTransaction([] {}); }); }).message,
            "A transaction of the queue was begun within another");
}

TEST_F(QueueWork, ATransactionWhoseErrorWasSwallowedIsUndoneToo) {
  const JobId job = queue.submit(jobOf("1"));
  const QueueError error = queueErrorOf([&] {
    queue.inTransaction([&] {
      take();
      queueErrorOf([&] { queue.remove(job); });
    });
  });
  EXPECT_EQ(error.message,
            "A part of a change of the queue \"" + databaseFile() + "\" failed, so all of it is undone");
  EXPECT_EQ(standing(job), "1 - - - -");
}

} // namespace
} // namespace trovik
