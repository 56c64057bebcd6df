#include "trovik/reports/SheetCells.h"

#include "tests/trovik/queue/QueueTest.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

FileRecord fileOf(int frame, const std::string& path, const std::string& problem = "") {
  FileRecord record = file(path, problem);
  record.frame = frame;
  return record;
}

class SheetCellsTest : public QueueTest {
protected:
  SheetPlan plan(JobId job, const std::string& frames = "") {
    std::optional<RunSet> only;
    if (!frames.empty()) {
      only = setOf(frames);
    }
    const JobView view = viewOf(queue, queue.job(job).value());
    return sheetPlan(queue, view, filesOf(queue, view), only);
  }

  /// The cells of a plan: "1 good /a.png; 2 failed (why)".
  static std::string textOf(const SheetPlan& plan) {
    std::string text;
    for (const SheetCell& cell : plan.cells) {
      text += (text.empty() ? "" : "; ") + cell.label + ' ' + nameOf(cell.state) +
              (cell.file.empty() ? "" : ' ' + cell.file) + (cell.note.empty() ? "" : " (" + cell.note + ')');
    }
    return text;
  }

  void finish(const std::vector<FileRecord>& files) {
    Outcome outcome = good(take().attempt);
    outcome.files = files;
    queue.settle(outcome);
  }
};

TEST_F(SheetCellsTest, EachFrameShowsItsFileOrWhatBecameOfIt) {
  NewJob job = jobOf("1-2,3,4,5");
  job.name = "shot";
  job.typeName = "POV-Ray";
  const JobId id = queue.submit(job);
  finish({fileOf(1, "/a1.png"), fileOf(2, "/a2.png")});
  queue.settle(failed(take().attempt, "Error line: boom"));
  take();
  const SheetPlan sheet = plan(id);
  EXPECT_EQ(sheet.title, "shot");
  EXPECT_EQ(sheet.subtitle, "POV-Ray");
  EXPECT_EQ(sheet.noun, "frame");
  EXPECT_EQ(textOf(sheet),
            "1 good /a1.png; 2 good /a2.png; 3 failed (Error line: boom); 4 running; 5 waiting");
  EXPECT_EQ(textOf(plan(id, "2-3")), "2 good /a2.png; 3 failed (Error line: boom)");
}

TEST_F(SheetCellsTest, OfSeveralFilesTheFirstGoodOneOfTheNewestAttemptIsShown) {
  const JobId id = queue.submit(jobOf("1"));
  finish({fileOf(1, "/old.png"), fileOf(1, "/old-depth.png")});
  queue.retry(id, setOf("1"));
  finish({fileOf(1, "/bad.png", "Is empty"), fileOf(1, "/new.png"), fileOf(1, "/new-depth.png")});
  EXPECT_EQ(textOf(plan(id)), "1 good /new.png");
}

TEST_F(SheetCellsTest, AGoodFrameWithoutAFileIsLeftToTheLookAtIt) {
  const JobId id = queue.submit(jobOf("1,2"));
  finish({fileOf(1, "/a1.png")});
  finish({});
  EXPECT_EQ(textOf(plan(id)), "1 good /a1.png; 2 good");
}

TEST_F(SheetCellsTest, AJobWithoutFramesHasACellForEachFile) {
  NewJob job = jobOf("1");
  job.hasFrames = false;
  const JobId id = queue.submit(job);
  const Refusal none = refusalOf([&] { plan(id); });
  EXPECT_EQ(none.message, "job 1 has no files yet");
  finish({file("/out/b.png"), file("/out/a.png", "Is empty")});
  const SheetPlan sheet = plan(id);
  EXPECT_EQ(sheet.noun, "file");
  EXPECT_EQ(textOf(sheet), "a.png good /out/a.png; b.png good /out/b.png");
}

TEST_F(SheetCellsTest, FilesThatBelongToNoFrameHaveACellEach) {
  const JobId id = queue.submit(jobOf("1-3"));
  finish({file("/out/movie.mp4")});
  EXPECT_EQ(textOf(plan(id)), "movie.mp4 good /out/movie.mp4");
  const Refusal refusal = refusalOf([&] { plan(id, "1"); });
  EXPECT_EQ(refusal.message, "the files of job 1 belong to no frames");
  EXPECT_EQ(refusal.hint, "leave out --frames");
}

TEST_F(SheetCellsTest, WhatCannotBeShownIsRefused) {
  const JobId id = queue.submit(jobOf("1-3"));
  const Refusal unknown = refusalOf([&] { plan(id, "3-5"); });
  EXPECT_EQ(unknown.message, "job 1 has no frame 4");
  EXPECT_EQ(unknown.hint, "its frames are 1-3");
  finish({});
  const Refusal none = refusalOf([&] { plan(id); });
  EXPECT_EQ(none.message, "job 1 has left no files");
  EXPECT_EQ(none.hint, "\"trovik show 1\" tells what became of it");
}

TEST_F(SheetCellsTest, TooManyFramesAreRefusedWithAWayOut) {
  const JobId id = queue.submit(jobOf("1-10001"));
  const Refusal refusal = refusalOf([&] { plan(id); });
  EXPECT_EQ(refusal.message, "a sheet holds at most 10000 images, and there are 10001 frames");
  EXPECT_EQ(refusal.hint, "name some of them: --frames 1-100");
  EXPECT_EQ(plan(id, "1-10000").cells.size(), 10000U);
}

} // namespace
} // namespace trovik
