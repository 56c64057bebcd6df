#include "trovik/page/JobCells.h"

#include "tests/trovik/FakeMachine.h"
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
    FileStates states(inspector);
    states.begin(Clock::now(), Clock::time_point::max());
    return cellsOf(queue, view(job), states, Clock::now());
  }
  static Outcome broken(AttemptId attempt) { return failed(attempt); }

  FakeInspector inspector;
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
  FileStates states(inspector, std::chrono::seconds(10));
  FileRecord record = left(1, "1.png");
  record.id = 1;
  const Clock::time_point now = Clock::now();
  EXPECT_EQ(states.of(record, now).state, FileStates::State::There);
  std::filesystem::remove(record.path);
  EXPECT_EQ(states.of(record, now + std::chrono::seconds(9)).state, FileStates::State::There);
  EXPECT_EQ(states.of(record, now + std::chrono::seconds(10)).state, FileStates::State::Gone);
  std::filesystem::create_directory(record.path);
  states.begin(now + std::chrono::seconds(20), now);
  EXPECT_EQ(states.of(record, now + std::chrono::seconds(20)).state, FileStates::State::Damaged);
}

TEST_F(JobCellsTest, AFileThatWasChangedSinceIsCheckedOnce) {
  const JobId id = queue.submit(jobOf("1,2,3"));
  for (int frame = 1; frame <= 3; ++frame) {
    FileRecord record = left(frame, std::to_string(frame) + ".png", "whole");
    struct stat facts {};
    ASSERT_EQ(stat(record.path.c_str(), &facts), 0);
    record.size = facts.st_size;
    record.modified = identityOf(facts).modified;
    settle(good, {record});
  }
  EXPECT_EQ(cells(id).states, "ggg");
  EXPECT_TRUE(inspector.asked.empty());
  // Cut short, and written anew by somebody who knows how.
  inspector.problems[directory.write("1.png", "wh")] = "Truncated";
  directory.write("3.png", "another");
  const JobCells now = cells(id);
  EXPECT_EQ(now.states, "dgg");
  EXPECT_EQ(now.problems, (std::map<std::size_t, std::string>{{0, "Truncated"}}));
  EXPECT_EQ(inspector.asked, (std::vector<std::string>{directory.file("1.png"), directory.file("3.png")}));

  FileStates states(inspector, Duration::zero());
  const auto statesNow = [&](Clock::time_point until) {
    states.begin(Clock::now(), until);
    return cellsOf(queue, view(id), states, Clock::now()).states;
  };
  EXPECT_EQ(statesNow(Clock::time_point()), "ggg"); // there was no time for it
  EXPECT_EQ(statesNow(Clock::time_point::max()), "dgg");
  inspector.asked.clear();
  EXPECT_EQ(statesNow(Clock::time_point::max()), "dgg");
  EXPECT_TRUE(inspector.asked.empty());
  directory.write("1.png", "who");
  EXPECT_EQ(statesNow(Clock::time_point::max()), "dgg");
  EXPECT_EQ(inspector.asked, std::vector<std::string>{directory.file("1.png")});
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
