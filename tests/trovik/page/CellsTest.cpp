#include "trovik/page/JobCells.h"

#include "tests/trovik/queue/QueueTest.h"

#include <filesystem>
#include <functional>

namespace trovik {
namespace {

class JobCellsTest : public QueueTest {
protected:
  FileRecord left(std::optional<int> frame, const std::string& name, const std::string& text = "x") {
    FileRecord record = file(directory.write(name, text));
    record.frame = frame;
    return record;
  }
  AttemptId settle(const std::function<Outcome(AttemptId)>& outcomeOf, const std::vector<FileRecord>& files) {
    const AttemptId attempt = take().attempt;
    Outcome outcome = outcomeOf(attempt);
    outcome.files = files;
    outcome.duration = std::chrono::seconds(6);
    queue.settle(outcome);
    return attempt;
  }
  JobView view(JobId job) { return viewOf(queue, queue.job(job).value()); }
  JobCells cells(JobId job) {
    FileStates states;
    return cellsOf(queue, view(job), states, Clock::now());
  }
  static Outcome broken(AttemptId attempt) { return failed(attempt); }
};

TEST_F(JobCellsTest, ALetterTellsEachFrame) {
  NewJob job = jobOf("1-2,3,4,5,6");
  const JobId id = queue.submit(job);
  settle(good, {left(1, "1.png"), left(2, "2.png")});
  settle(broken, {});
  settle(good, {left(4, "4.png")});
  take();
  EXPECT_EQ(cells(id).states, "ggfgrw");
  EXPECT_EQ(cells(id).frames, (std::vector<int>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(cells(id).seconds, (std::vector<double>{3, 3, 0, 6, 0, 0}));
  EXPECT_EQ(stripOf(view(id), 400), "ggfgrw");
  queue.cancel(id);
  EXPECT_EQ(stripOf(view(id), 400), "ggfgrc");
}

TEST_F(JobCellsTest, AFrameIsShownByItsFile) {
  const JobId id = queue.submit(jobOf("1,2"));
  settle(good, {left(1, "1.png")});
  const std::int64_t file = queue.files(id).at(0).id;
  EXPECT_EQ(cells(id).files, (std::vector<std::int64_t>{file, 0}));
}

TEST_F(JobCellsTest, GoodFramesWhoseFilesAreGoneOrEmptyAreNotGoodAnyMore) {
  const JobId id = queue.submit(jobOf("1,2,3"));
  settle(good, {left(1, "1.png")});
  settle(good, {left(2, "2.png")});
  settle(good, {left(3, "3.png")});
  std::filesystem::remove(directory.file("1.png"));
  directory.write("3.png", "");
  EXPECT_EQ(cells(id).states, "mgd");
  EXPECT_EQ(missingFrames(cells(id)).text(), "1,3");
  EXPECT_EQ(stripOf(view(id), 400), "ggg");
}

TEST_F(JobCellsTest, WhatACallToldOfAFileIsKeptForAWhile) {
  FileStates states(std::chrono::seconds(10));
  FileRecord record = left(1, "1.png");
  record.id = 1;
  const Clock::time_point now = Clock::now();
  EXPECT_EQ(states.of(record, now), FileStates::State::There);
  std::filesystem::remove(record.path);
  EXPECT_EQ(states.of(record, now + std::chrono::seconds(9)), FileStates::State::There);
  EXPECT_EQ(states.of(record, now + std::chrono::seconds(10)), FileStates::State::Gone);
  std::filesystem::create_directory(record.path);
  states.forget(now + std::chrono::seconds(20));
  EXPECT_EQ(states.of(record, now + std::chrono::seconds(20)), FileStates::State::Damaged);
}

TEST_F(JobCellsTest, AFrameOfARunningPacketThatNamedItsFileIsToldApart) {
  const JobId id = queue.submit(jobOf("1-3"));
  const Claim claim = take();
  FileRecord record = left(2, "2.png");
  queue.noteFile(claim.attempt, record);
  EXPECT_EQ(cells(id).states, "rRr");
  EXPECT_NE(cells(id).files[1], 0);
}

TEST_F(JobCellsTest, OneFileOfManyFramesIsNoPictureOfThem) {
  const JobId id = queue.submit(jobOf("1-3"));
  settle(good, {left(std::nullopt, "all.avi")});
  EXPECT_EQ(cells(id).states, "ggg");
  EXPECT_EQ(cells(id).files, (std::vector<std::int64_t>{0, 0, 0}));
  std::filesystem::remove(directory.file("all.avi"));
  EXPECT_EQ(cells(id).states, "mmm");
}

TEST_F(JobCellsTest, AJobWithoutFramesIsOneCell) {
  NewJob job = jobOf("1");
  job.hasFrames = false;
  const JobId id = queue.submit(job);
  EXPECT_EQ(cells(id).states, "w");
  EXPECT_TRUE(cells(id).frames.empty());
  settle(good, {left(std::nullopt, "a.png")});
  EXPECT_EQ(cells(id).states, "g");
  EXPECT_EQ(cells(id).files, std::vector<std::int64_t>{queue.files(id).at(0).id});
  EXPECT_EQ(cells(id).seconds, std::vector<double>{6});
  EXPECT_EQ(stripOf(view(id), 400), "g");
}

TEST_F(JobCellsTest, ALongStripShowsWhatMattersMost) {
  NewJob job = jobOf("1-5000,5001,5002-1000000");
  const JobId id = queue.submit(job);
  settle(good, {});
  settle(broken, {});
  const std::string strip = stripOf(view(id), 400);
  ASSERT_EQ(strip.size(), 400U);
  EXPECT_EQ(strip.substr(0, 5), "ggfww");
  EXPECT_EQ(strip.find_first_not_of('w', 3), std::string::npos);
  EXPECT_EQ(stripOf(view(id), 1), "f");
}

TEST_F(JobCellsTest, FramesMayBeFarApartAndBelowZero) {
  const JobId id = queue.submit(jobOf("-5--3,100,2147483647"));
  settle(good, {});
  EXPECT_EQ(cells(id).frames, (std::vector<int>{-5, -4, -3, 100, 2147483647}));
  EXPECT_EQ(cells(id).states, "gggww");
}

} // namespace
} // namespace trovik
