#include "TestJob.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>

namespace {

class FileCheck : public JobTest {
protected:
  TestJob& Started() {
    TestJob& job = NewJob();
    job.SetParameter(p_Executable, "sh");
    job.SetParameter(p_StartDirectory, m_Directory.Text());
    ProcessStart start;
    EXPECT_TRUE(job.PrepareWork(start)) << job.Note();
    return job;
  }

  static void SetAge(const Path& file, time_t seconds) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::array<timespec, 2> stamps = {{{now.tv_sec - seconds, 0}, {now.tv_sec - seconds, 0}}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), stamps.data(), 0), 0);
  }
};

TEST_F(FileCheck, GoodFilePasses) {
  TestJob& job = Started();
  EXPECT_EQ(job.DoCheckFile(Write("a.png", "image"), 7), 7);
  EXPECT_EQ(job.Note(), "");
}

TEST_F(FileCheck, EachFlawHasItsNote) {
  TestJob& job = Started();
  EXPECT_EQ(job.DoCheckFile(In("a.png"), 7), 5);
  EXPECT_EQ(job.Note(), "Missing file: " + In("a.png").Text());
  EXPECT_EQ(job.DoCheckFile(Write("empty.png", ""), 7), 5);
  EXPECT_EQ(job.Note(), "Empty file: " + In("empty.png").Text());
  EXPECT_EQ(job.DoCheckFile(m_Directory, 7), 5);
  EXPECT_EQ(job.Note(), "Not a regular file: " + m_Directory.Text());
  const Path old = Write("old.png", "image");
  SetAge(old, 60);
  EXPECT_EQ(job.DoCheckFile(old, 7), 5);
  EXPECT_EQ(job.Note(), "File is older than the work: " + old.Text());
  EXPECT_EQ(job.DoCheckFile(In("old.png/below"), 7), 5);
  EXPECT_EQ(job.Note(), "Missing file: " + In("old.png/below").Text());
  EXPECT_EQ(job.DoCheckFile("/" + String(300, 'x'), 7), 5);
  EXPECT_EQ(job.Note(), "Cannot check file (File name too long): /" + String(300, 'x'));
}

TEST_F(FileCheck, ControlCharactersOfAFileNameDoNotReachTheNote) {
  TestJob& job = Started();
  job.DoCheckFile(In("a\x1B[2J.png"), 7);
  EXPECT_EQ(job.Note(), "Missing file: " + In("a?[2J.png").Text());
}

TEST_F(FileCheck, BadResultStaysBadWithoutALook) {
  TestJob& job = Started();
  EXPECT_EQ(job.DoCheckFile(Write("a.png", "image"), 5), 5);
  job.SetParameter(p_ExpectedFiles, "nothing.png");
  EXPECT_EQ(job.CheckFiles(5), 5);
  EXPECT_EQ(job.Note(), "");
}

TEST_F(FileCheck, LinkCountsAsTheFileBehindIt) {
  TestJob& job = Started();
  Write("a.png", "image");
  std::filesystem::create_symlink("a.png", In("link.png").c_str());
  std::filesystem::create_symlink("nothing", In("broken.png").c_str());
  EXPECT_EQ(job.DoCheckFile(In("link.png"), 7), 7);
  EXPECT_EQ(job.DoCheckFile(In("broken.png"), 7), 5);
  EXPECT_EQ(job.Note(), "Missing file: " + In("broken.png").Text());
}

TEST_F(FileCheck, EveryImageAndEveryExpectedFileIsLookedAt) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "1-2");
  job.SetParameter(p_ExpectedFiles, "x$(Frame).png");
  for (const char* name : {"i.png", "x1.png", "x2.png"}) {
    Write(name, "image");
  }
  job.ProcessNewFilename("i.png");
  job.Calls.clear();
  EXPECT_EQ(job.CheckFiles(7), 7);
  EXPECT_EQ(job.Calls, (std::vector<String>{"CheckFiles 7", "DoCheckFile i.png", "DoCheckFile x1.png",
                                            "DoCheckFile x2.png"}));
}

TEST_F(FileCheck, AnnouncedImageThatWasNotWrittenFailsTheWork) {
  TestJob& job = Started();
  job.SetParameter("ImageStartText", "Saved: ");
  job.WorkLine("Saved: out/a.png");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Missing file: " + In("out/a.png").Text());
}

TEST_F(FileCheck, TypeThatFindsImagesMustFindOne) {
  TestJob& job = Started();
  EXPECT_FALSE(job.FindsImages());
  EXPECT_EQ(job.CheckFiles(7), 7);
  job.SetParameter("ImageStartText", "Saved: ");
  EXPECT_TRUE(job.FindsImages());
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "No program output named an image");
  job.SetParameter(p_ExpectedFiles, "a.png");
  Write("a.png", "image");
  EXPECT_EQ(job.CheckFiles(7), 7);
}

TEST_F(FileCheck, TypesDefaultDecidesWhetherImagesAreFound) {
  m_Info->GetParam("ImageStartText")->Default = "Saved: ";
  EXPECT_TRUE(NewJob().FindsImages());
}

TEST_F(FileCheck, ImagesAreAbsoluteAndListedOnce) {
  TestJob& job = Started();
  job.ProcessNewFilename("b.png");
  job.ProcessNewFilename("");
  job.ProcessNewFilename("./b.png");
  job.ProcessNewFilename("/elsewhere/a.png");
  job.ProcessNewFilename(In("b.png"));
  const std::vector<Path> expected = {In("b.png"), "/elsewhere/a.png"};
  EXPECT_EQ(job.Images(), expected);
  EXPECT_EQ(m_Recorder.Images, expected);
}

TEST_F(FileCheck, NewAttemptForgetsTheImagesOfTheOneBefore) {
  TestJob& job = Started();
  job.ProcessNewFilename("a.png");
  ProcessStart start;
  EXPECT_TRUE(job.PrepareWork(start));
  EXPECT_TRUE(job.Images().empty());
  job.ProcessNewFilename("a.png");
  EXPECT_EQ(job.Images(), std::vector<Path>{In("a.png")});
}

TEST_F(FileCheck, NameThatNoFileCanHaveFailsTheWork) {
  TestJob& job = Started();
  job.ProcessNewFilename(String(100000, 'x'));
  ASSERT_EQ(job.Images().size(), 1U);
  EXPECT_EQ(job.Images()[0].Text().size(), 4096U);
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "Cannot check file (File name too long): " + job.Images()[0].Text());
}

TEST_F(FileCheck, FloodOfImageNamesIsBoundedAndFailsTheWork) {
  TestJob& job = Started();
  job.SetObserver(nullptr);
  String name = In("").Text() + String(4000 - In("").Text().size(), 'x');
  std::size_t bytes = 0;
  for (int i = 0; i < 20000; ++i) {
    job.ProcessNewFilename(name + std::to_string(i));
  }
  for (const Path& image : job.Images()) {
    bytes += image.Text().size();
  }
  EXPECT_LE(bytes, std::size_t{64} << 20);
  EXPECT_GT(bytes, std::size_t{63} << 20);
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "The program named more images than can be checked");
}

TEST_F(FileCheck, ExpectedFilesAreExpandedForEachFrame) {
  TestJob& job = Started();
  job.SetParameter(p_Scene, "/s/teapot.pov");
  job.SetParameter(p_SubRange, "9-11");
  job.SetParameter(p_OutputFolder, In("out").Text());
  job.SetParameter(p_ExpectedFiles,
                   "$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(4)).png; all.log ;$(SubRange).txt");
  const std::vector<Path> expected = {
      In("out/teapot_0009.png"), In("all.log"),  In("9-9.txt"), In("out/teapot_0010.png"), In("10-10.txt"),
      In("out/teapot_0011.png"), In("11-11.txt")};
  EXPECT_EQ(job.ExpectedFiles(), expected);
  String range;
  EXPECT_TRUE(job.GetParameter(p_SubRange, range));
  EXPECT_EQ(range, "9-11"); // the job stands for its whole work again
}

TEST_F(FileCheck, ExpectedFilesOfAWorkWithoutFramesAreExpandedOnce) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "movie$(Frame).mp4");
  EXPECT_EQ(job.ExpectedFiles(), std::vector<Path>{In("movie.mp4")});
}

TEST_F(FileCheck, ExpectedFilesKeepSemicolonsAndReferencesOfPickedNames) {
  TestJob& job = Started();
  job.SetParameter(p_Scene, "/s/a;$(CPUs).pov");
  job.SetParameter(p_ExpectedFiles, "$(Scene.Base).png;\"x;y.png\"");
  EXPECT_EQ(job.ExpectedFiles(), (std::vector<Path>{In("a;$(CPUs).png"), In("x;y.png")}));
}

TEST_F(FileCheck, ExpectedFilesWorkAtTheEndsOf32Bits) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "$(Frame).png");
  job.SetParameter(p_SubRange, "2147483646-2147483647");
  EXPECT_EQ(job.ExpectedFiles(), (std::vector<Path>{In("2147483646.png"), In("2147483647.png")}));
  job.SetParameter(p_SubRange, "-2147483648--2147483647");
  EXPECT_EQ(job.ExpectedFiles(), (std::vector<Path>{In("-2147483648.png"), In("-2147483647.png")}));
  job.SetParameter(p_SubRange, "-2147483648-2147483647");
  EXPECT_EQ(RaisedText([&job] { job.ExpectedFiles(); }),
            "ExpectedFiles: the sub-range -2147483648-2147483647 has more frames than a job can have");
}

TEST_F(FileCheck, MistakeInATemplateLeavesTheJobWhole) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "9-11");
  job.SetParameter(p_ExpectedFiles, "$(Nothing)");
  EXPECT_EQ(RaisedText([&job] { job.ExpectedFiles(); }),
            "ExpectedFiles:1: nobody answers $(Nothing)\n    1 | $(Nothing)\n      | ^");
  String range;
  EXPECT_TRUE(job.GetParameter(p_SubRange, range));
  EXPECT_EQ(range, "9-11");
}

TEST_F(FileCheck, ExpectedFilesOfAnUnpreparedJobCountFromWhereItWouldStart) {
  TestJob& job = NewJob();
  job.SetParameter(p_Scene, In("scenes/a.pov").Text());
  job.SetParameter(p_ExpectedFiles, "a.png");
  EXPECT_EQ(job.ExpectedFiles(), std::vector<Path>{In("scenes/a.png")});
}

} // namespace
