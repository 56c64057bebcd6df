#include "trovik/works/FilesNow.h"

#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/queue/QueueTest.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace trovik {
namespace {

class FilesNowTest : public QueueTest {
protected:
  /// A file of the directory as an attempt found it.
  FileRecord left(std::optional<int> frame, const std::string& name, const std::string& problem = "") {
    FileRecord record = file(directory.file(name), problem);
    record.frame = frame;
    struct stat status {};
    if (stat(record.path.c_str(), &status) == 0) {
      record.size = status.st_size;
      record.modified = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    }
    return record;
  }
  FileRecord made(std::optional<int> frame, const std::string& name, const std::string& text = "x") {
    directory.write(name, text);
    return left(frame, name);
  }

  void settle(Outcome outcome, const std::vector<FileRecord>& files) {
    outcome.files = files;
    queue.settle(outcome);
  }

  FilesNow now(JobId job, Decode decode = Decode::Changed) {
    return filesNow(queue, viewOf(queue, queue.job(job).value()), decode, inspector);
  }

  /// The files that are good, and what is wrong with the others: "a.png b.png: Missing file".
  static std::string textOf(const FilesNow& found) {
    std::string text;
    for (const JobFile& file : found.files) {
      text += (text.empty() ? "" : "; ") + file.path.substr(file.path.rfind('/') + 1) +
              (file.problem.empty() ? "" : ": " + file.problem);
    }
    return text;
  }

  FakeInspector inspector;
};

TEST_F(FilesNowTest, WhatIsAsItWasIsNotDecodedUnlessThatIsAsked) {
  const JobId job = queue.submit(jobOf("1"));
  settle(good(take().attempt), {made(1, "a.png")});
  EXPECT_EQ(textOf(now(job)), "a.png");
  EXPECT_TRUE(inspector.asked.empty());
  inspector.problems[directory.file("a.png")] = "Truncated";
  const FilesNow all = now(job, Decode::All);
  EXPECT_EQ(textOf(all), "a.png: Truncated");
  EXPECT_EQ(all.missing.text(), "1");
}

TEST_F(FilesNowTest, ATimeInWholeSecondsIsDoubtful) {
  const JobId job = queue.submit(jobOf("1,2"));
  for (const int frame : {1, 2}) {
    const std::string name = frame == 1 ? "a.png" : "b.png";
    directory.write(name, "x");
    const std::array<timespec, 2> times = {timespec{1'000'000'000, frame - 1},
                                           timespec{1'000'000'000, frame - 1}};
    ASSERT_EQ(utimensat(AT_FDCWD, directory.file(name).c_str(), times.data(), 0), 0);
    settle(good(take().attempt), {left(frame, name)});
  }
  EXPECT_EQ(textOf(now(job)), "a.png; b.png");
  EXPECT_TRUE(inspector.asked.empty());
  EXPECT_EQ(textOf(now(job, Decode::Doubtful)), "a.png; b.png");
  EXPECT_EQ(inspector.asked, std::vector<std::string>{directory.file("a.png")});
}

TEST_F(FilesNowTest, AFileThatWasCutSinceIsDecoded) {
  const JobId job = queue.submit(jobOf("1,2"));
  settle(good(take().attempt), {made(1, "a.png", "whole")});
  settle(good(take().attempt), {made(2, "b.png", "whole")});
  std::filesystem::resize_file(directory.file("a.png"), 2);
  std::filesystem::resize_file(directory.file("b.png"), 2);
  inspector.problems[directory.file("a.png")] = "Truncated";
  const FilesNow found = now(job);
  EXPECT_EQ(textOf(found), "a.png: Truncated; b.png");
  EXPECT_EQ(found.missing.text(), "1");
}

TEST_F(FilesNowTest, FilesThatAreGoneOrEmptyAreMissing) {
  const JobId job = queue.submit(jobOf("1,2,3"));
  settle(good(take().attempt), {made(1, "a.png")});
  settle(good(take().attempt), {made(2, "b.png")});
  settle(good(take().attempt), {made(3, "c.png")});
  directory.write("a.png", "");
  std::filesystem::remove(directory.file("b.png"));
  std::filesystem::remove(directory.file("c.png"));
  directory.makeDirectory("c.png");
  const FilesNow found = now(job);
  EXPECT_EQ(textOf(found), "a.png: Empty file; b.png: Missing file; c.png: Not a regular file");
  EXPECT_EQ(found.missing.text(), "1-3");
}

TEST_F(FilesNowTest, AGoodFileOfAFailedFrameIsNone) {
  const JobId job = queue.submit(jobOf("1"));
  settle(failed(take().attempt), {made(1, "a.png")});
  const FilesNow found = now(job);
  EXPECT_EQ(textOf(found), "a.png: Its frame is not good");
  EXPECT_EQ(found.missing.text(), "1");
  EXPECT_EQ(queue.summary(job).imageCount(), 0U);
}

TEST_F(FilesNowTest, WhatAnotherFrameHasOverwrittenIsNotGood) {
  const JobId job = queue.submit(jobOf("1,2"));
  settle(good(take().attempt), {made(1, "a.png", "one")});
  settle(good(take().attempt), {made(2, "a.png", "two and more")});
  const FilesNow found = now(job);
  EXPECT_EQ(textOf(found), "a.png: Frame 2 has overwritten it; a.png: It is the file of frame 1");
  EXPECT_EQ(found.missing.text(), "1-2");
  EXPECT_EQ(queue.summary(job).imageCount(), 0U);
}

TEST_F(FilesNowTest, OnlyTheFilesOfTheAttemptThatMadeAFrameGoodCount) {
  const JobId job = queue.submit(jobOf("1"));
  settle(good(take().attempt), {made(1, "old.png")});
  queue.retry(job, setOf("1"));
  settle(good(take().attempt), {made(1, "new.png")});
  std::filesystem::remove(directory.file("old.png"));
  const FilesNow found = now(job);
  EXPECT_EQ(textOf(found), "old.png: Its frame is good by a later attempt; new.png");
  EXPECT_TRUE(found.missing.empty());
  EXPECT_EQ(queue.summary(job).imageCount(), 1U);
}

TEST_F(FilesNowTest, AMovieThatIsGoneIsMissingForAllOfItsFrames) {
  const JobId job = queue.submit(jobOf("1-3,4-6"));
  settle(good(take().attempt), {made(std::nullopt, "a.mp4")});
  settle(good(take().attempt), {made(std::nullopt, "b.mp4")});
  std::filesystem::remove(directory.file("b.mp4"));
  EXPECT_EQ(now(job).missing.text(), "4-6");
}

TEST_F(FilesNowTest, FilesThatWereFoundCountUntilTheFrameIsRenderedAnew) {
  NewJob entry = jobOf("2");
  entry.found = runsOf("1");
  entry.foundFiles = {made(1, "a.png")};
  const JobId job = queue.submit(entry);
  EXPECT_EQ(textOf(now(job)), "a.png");
  std::filesystem::remove(directory.file("a.png"));
  EXPECT_EQ(now(job).missing.text(), "1-2");
}

TEST_F(FilesNowTest, OfAClustersJobAFolderThatIsNotSeenSaysNothing) {
  NewJob entry = jobOf("2");
  entry.found = runsOf("1");
  entry.foundFiles = {left(1, "elsewhere/a.png"), left(1, "b.png")};
  entry.runOn = RunOn::Cluster;
  entry.folder = directory.file("folder");
  const FilesNow found = now(queue.submit(entry));
  EXPECT_EQ(textOf(found), "a.png; b.png: Missing file");
}

} // namespace
} // namespace trovik
