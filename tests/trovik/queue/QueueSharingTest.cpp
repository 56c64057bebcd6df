#include "tests/trovik/queue/QueueTest.h"

// One frame, one file.

namespace trovik {
namespace {

class QueueSharing : public QueueTest {
protected:
  static FileRecord fileOf(const std::string& path, std::optional<int> frame,
                           const std::string& problem = "") {
    FileRecord record = file(path, problem);
    record.frame = frame;
    return record;
  }

  /// What the queue put down of an attempt, where it is not the same.
  std::optional<Outcome> settle(Outcome outcome, std::vector<FileRecord> files) {
    outcome.files = std::move(files);
    std::optional<Outcome> corrected;
    again = queue.settle(outcome, &corrected);
    return corrected;
  }

  bool again = false;
};

TEST_F(QueueSharing, TheLaterFrameFailsAndNamesBothAndTheFile) {
  NewJob entry = jobOf("1,2,3");
  entry.retries = 5;
  const JobId job = queue.submit(entry);
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/out/logo.png", 1)}));
  const Claim second = take();
  const std::optional<Outcome> corrected = settle(good(second.attempt), {fileOf("/out/logo.png", 2)});
  ASSERT_TRUE(corrected);
  EXPECT_EQ(corrected->state, AttemptState::Failed);
  EXPECT_EQ(corrected->rule, VerdictRule::Files);
  EXPECT_EQ(corrected->reason, "Frame 2 has the same file as frame 1: /out/logo.png");
  EXPECT_TRUE(corrected->good.empty());
  EXPECT_FALSE(again) << "the same again would end the same";
  EXPECT_EQ(standing(job), "3 - 1 2 -");
  EXPECT_EQ(queue.attempt(second.attempt)->reason, corrected->reason);
  EXPECT_EQ(queue.lastOf("/out/logo.png")->problem, "It is the file of frame 1");
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/out/other.png", 3)}));
}

TEST_F(QueueSharing, TwoSlotsThatEndInTheOtherOrderAreToldAlike) {
  const JobId job = queue.submit(jobOf("1,2"));
  const std::vector<Claim> claims = queue.claim(engine, 2, std::nullopt);
  EXPECT_FALSE(settle(good(claims[1].attempt), {fileOf("/out/a.png", 2)}));
  const std::optional<Outcome> corrected = settle(good(claims[0].attempt), {fileOf("/out/a.png", 1)});
  EXPECT_EQ(corrected.value_or(Outcome()).reason, "Frame 1 has the same file as frame 2: /out/a.png");
  EXPECT_EQ(standing(job), "- - 2 1 -");
}

TEST_F(QueueSharing, OfAPacketOnlyTheFramesWithAnothersFileAreBad) {
  const JobId job = queue.submit(jobOf("1-2,3-5"));
  settle(good(take().attempt), {fileOf("/a1", 1), fileOf("/a2", 2)});
  const std::optional<Outcome> corrected =
      settle(good(take().attempt), {fileOf("/a3", 3), fileOf("/a2", 4), fileOf("/a5", 5)});
  EXPECT_EQ(corrected.value_or(Outcome()).reason, "Frame 4 has the same file as frame 2: /a2");
  EXPECT_EQ(standing(job), "- - 1-3,5 4 -");
}

TEST_F(QueueSharing, AFileThatTellsNoFrameIsOneWorksAlone) {
  const JobId job = queue.submit(jobOf("1-2,3-4"));
  settle(good(take().attempt), {fileOf("/movie.mp4", std::nullopt)});
  const std::optional<Outcome> corrected = settle(good(take().attempt), {fileOf("/movie.mp4", std::nullopt)});
  EXPECT_EQ(corrected.value_or(Outcome()).reason, "Frames 3-4 have the same file as frames 1-2: /movie.mp4");
  EXPECT_EQ(standing(job), "- - 1-2 3-4 -");
}

TEST_F(QueueSharing, WhatAFailedAttemptKeptIsTakenByNoneThatGoesOnWithIt) {
  NewJob entry = jobOf("1-3");
  entry.retries = 5;
  const JobId job = queue.submit(entry);
  settle(failed(take().attempt, "It broke", "1"), {fileOf("/a1", 1), fileOf("/settings", std::nullopt)});
  EXPECT_EQ(standing(job), "2-3 - 1 - -");
  const std::optional<Outcome> corrected =
      settle(good(take().attempt), {fileOf("/a1", 2), fileOf("/a3", 3), fileOf("/settings", std::nullopt)});
  EXPECT_EQ(corrected.value_or(Outcome()).reason, "Frame 2 has the same file as frame 1: /a1");
  EXPECT_EQ(standing(job), "- - 1,3 2 -");
}

TEST_F(QueueSharing, FramesOfAFailedAttemptAreGoodWithoutAnothersFileAlone) {
  const JobId job = queue.submit(jobOf("1,2-4"));
  settle(good(take().attempt), {fileOf("/a", 1)});
  const std::optional<Outcome> corrected =
      settle(failed(take().attempt, "It broke", "2-3"), {fileOf("/a", 2), fileOf("/a3", 3)});
  ASSERT_TRUE(corrected);
  EXPECT_EQ(corrected->reason, "It broke");
  EXPECT_EQ(standing(job), "- - 1,3 2,4 -");
}

TEST_F(QueueSharing, AnOutcomeThatWasMergedHasNoFileTwice) {
  const JobId job = queue.submit(jobOf("1-2"));
  const std::optional<Outcome> corrected =
      settle(good(take().attempt), {fileOf("/a", 1), fileOf("/a", 1), fileOf("/a", 2)});
  EXPECT_EQ(corrected.value_or(Outcome()).reason, "Frame 2 has the same file as frame 1: /a");
  EXPECT_EQ(standing(job), "- - 1 2 -");
}

TEST_F(QueueSharing, AFileThatWasFoundIsItsFramesAlone) {
  NewJob entry = jobOf("2");
  entry.found = runsOf("1");
  entry.foundFiles = {fileOf("/a", 1)};
  const JobId job = queue.submit(entry);
  const std::optional<Outcome> corrected = settle(good(take().attempt), {fileOf("/a", 2)});
  EXPECT_EQ(corrected.value_or(Outcome()).reason, "Frame 2 has the same file as frame 1: /a");
  EXPECT_EQ(standing(job), "- - 1 2 -");
}

TEST_F(QueueSharing, AFrameMayHaveItsOwnFileAgainAndThatOfAnotherJob) {
  queue.submit(jobOf("1,2"));
  settle(good(take().attempt), {fileOf("/a", 1)});
  settle(good(take().attempt), {fileOf("/b", 2)});
  const JobId job = queue.submit(jobOf("1,2"));
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/b", 1)}));
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/a", 2)}));
  queue.retry(job, setOf("1"));
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/b", 1)}));
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(QueueSharing, AFrameThatHasAnotherFileByNowHoldsItsOldOneNoMore) {
  const JobId job = queue.submit(jobOf("1,2"));
  settle(good(take().attempt), {fileOf("/a", 1)});
  EXPECT_TRUE(settle(good(take().attempt), {fileOf("/a", 2)}));
  queue.retry(job, setOf("1"));
  settle(good(take().attempt), {fileOf("/b", 1)});
  queue.retry(job, setOf("2"));
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/a", 2)}));
  EXPECT_EQ(stateOf(job), JobState::Good);
}

TEST_F(QueueSharing, WhatIsBadOrOfABadFrameIsNobodys) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  settle(failed(take().attempt), {fileOf("/a", 1)});
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/a", 2), fileOf("/b", 2, "Empty file")}));
  EXPECT_FALSE(settle(good(take().attempt), {fileOf("/b", 3)}));
  EXPECT_EQ(standing(job), "- - 2-3 1 -");
}

TEST_F(QueueSharing, TheClustersFramesAreToldAlike) {
  NewJob entry = jobOf("1,2");
  entry.runOn = RunOn::Cluster;
  entry.folder = directory.file("folder");
  const JobId job = queue.submit(entry);
  const ArrayRecord array = queue.addArray(job, 1, arrayWorks(queue, job));
  Outcome outcome;
  outcome.files = {fileOf("/a", 1)};
  queue.settleArrayWork(array.id, 0, Moment(), outcome);
  outcome.files = {fileOf("/a", 2)};
  queue.settleArrayWork(array.id, 1, Moment(), outcome);
  EXPECT_EQ(standing(job), "- - 1 2 -");
  EXPECT_EQ(noteOf(job), "Frame 2 has the same file as frame 1: /a");
}

} // namespace
} // namespace trovik
