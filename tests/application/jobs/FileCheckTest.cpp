#include "host/application/jobs/FilesBefore.h"
#include "tests/application/jobs/TestJob.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <sstream>
#include <string>

namespace {

class FileCheck : public JobTest {
protected:
  TestJob& Started() {
    TestJob& job = NewJob();
    job.SetParameter(p_Executable, "sh");
    job.SetParameter(p_StartDirectory, m_Directory.Text());
    Start(job);
    return job;
  }
  // What is there now was there before the program.
  static void Start(TestJob& job, bool followsAnother = false) {
    ProcessStart start;
    EXPECT_TRUE(job.PrepareWork(start)) << job.Note();
    job.NoteFilesBefore(followsAnother);
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
  job.SetParameter(p_ExpectedFiles, "old.png");
  Start(job);
  EXPECT_EQ(job.DoCheckFile(old, 7), 5);
  EXPECT_EQ(job.Note(), "File was there before and is not of this attempt: " + old.Text());
  EXPECT_EQ(job.DoCheckFile(In("old.png/below"), 7), 5);
  EXPECT_EQ(job.Note(), "Missing file: " + In("old.png/below").Text());
  EXPECT_EQ(job.DoCheckFile("/" + String(300, 'x'), 7), 5);
  EXPECT_EQ(job.Note(), "Cannot check file (File name too long): /" + String(300, 'x'));
}

TEST_F(FileCheck, NameWithAZeroByteIsNoFileWhateverStandsBeforeIt) {
  TestJob& job = Started();
  Write("a.png", "image");
  job.ProcessNewFilename(Path(String(In("a.png").Text() + String("\0junk", 5))));
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "No file's name has a zero byte: " + In("a.png").Text() + "?junk");
  ASSERT_EQ(job.CheckedFiles().size(), 1U);
  EXPECT_EQ(job.CheckedFiles()[0].Size, 0);
}

TEST_F(FileCheck, ControlCharactersOfAFileNameDoNotReachTheNote) {
  TestJob& job = Started();
  job.DoCheckFile(In("a\x1B[2J.png"), 7);
  EXPECT_EQ(job.Note(), "Missing file: " + In("a?[2J.png").Text());
}

TEST_F(FileCheck, BadResultAndItsNoteStayButEveryFileIsLookedAt) {
  TestJob& job = Started();
  EXPECT_EQ(job.DoCheckFile(Write("a.png", "image"), 5), 5);
  job.SetParameter(p_ExpectedFiles, "nothing.png;a.png");
  job.SetNote("Exit code 3");
  for (const int result : {k_StatusFailed, k_StatusCanceled}) {
    EXPECT_EQ(job.CheckFiles(result), result);
    EXPECT_EQ(job.Note(), "Exit code 3");
    ASSERT_EQ(job.CheckedFiles().size(), 2U);
    EXPECT_EQ(job.CheckedFiles()[0].Problem, "Missing file");
    EXPECT_EQ(job.CheckedFiles()[1].Problem, "");
  }
}

TEST_F(FileCheck, WhatIsFoundIsKeptForEachFile) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "8701-8702");
  job.SetParameter(p_ExpectedFiles, "x$(Frame).png;all.log");
  m_Recorder.Look = [](const Path& file) {
    return file.Leaf(true) == "i_8702.png" ? String("Truncated image (\a1 of 2 rows)") : String::Null;
  };
  Write("x8701.png", "i");
  Start(job);
  job.ProcessNewFilename(Write("i_8701.png", "image"));
  job.ProcessNewFilename(Write("i_8702.png", "imag"));
  job.ProcessNewFilename(In("x8702.png"));
  job.ProcessNewFilename(Write("other.png", ""));
  Write("all.log", "done");
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "Truncated image (?1 of 2 rows): " + In("i_8702.png").Text());
  struct stat status {};
  ASSERT_EQ(stat(In("i_8701.png").c_str(), &status), 0);
  const std::vector<RenderJob::WorkFile>& files = job.CheckedFiles();
  ASSERT_EQ(files.size(), 6U);
  const auto text = [](const RenderJob::WorkFile& file) {
    return file.File.Leaf(true) + " of " + (file.Frame ? std::to_string(*file.Frame) : "none") +
           (file.Expected ? " expected" : "") + ", " + std::to_string(file.Size) + " bytes: " + file.Problem;
  };
  EXPECT_EQ(text(files[0]), "i_8701.png of 8701, 5 bytes: ");
  EXPECT_EQ(text(files[1]), "i_8702.png of 8702, 4 bytes: Truncated image (?1 of 2 rows)");
  EXPECT_EQ(text(files[2]), "x8702.png of 8702 expected, 0 bytes: Missing file");
  EXPECT_EQ(text(files[3]), "other.png of none, 0 bytes: Empty file");
  EXPECT_EQ(text(files[4]),
            "x8701.png of 8701 expected, 1 bytes: File was there before and is not of this attempt");
  EXPECT_EQ(text(files[5]), "all.log of none expected, 4 bytes: ");
  EXPECT_EQ(files[0].Modified, std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec);
  EXPECT_EQ(files[2].Modified, 0);
}

TEST_F(FileCheck, OnlyFilesWithSomethingInThemAreLookedInto) {
  TestJob& job = Started();
  std::vector<String> looked;
  m_Recorder.Look = [&looked](const Path& file) {
    looked.push_back(file.Leaf(true));
    return String::Null;
  };
  job.SetParameter(p_ExpectedFiles, "missing.png;empty.png;.;old.png;good.png");
  Write("old.png", "image");
  Start(job);
  Write("empty.png", "");
  Write("good.png", "image");
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(looked, std::vector<String>{"good.png"});
}

TEST_F(FileCheck, FileOfAFailedAttemptAMomentAgoIsNotThisOnes) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter(p_ExpectedFiles, "a.png");
  for (int round = 0; round < 50; ++round) {
    const Path file = Write("a.png", "image");
    const Path named = Write("named.png", "image");
    Start(job, true);
    EXPECT_EQ(job.DoCheckFile(file, 7), 5);
    EXPECT_EQ(job.DoCheckFile(named, 7), 5);
    // Written anew at once, with the same contents: nothing but its stamps tells.
    Write("a.png", "image");
    EXPECT_EQ(job.DoCheckFile(file, 7), 7) << round;
  }
}

TEST_F(FileCheck, StampsThatAProgramSetsProveNothing) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter(p_ExpectedFiles, "old.png;ahead.png");
  SetAge(Write("ahead.png", "image"), -3600);
  Start(job);
  EXPECT_EQ(job.DoCheckFile(In("ahead.png"), 7), 5);
  SetAge(Write("old.png", "image"), 3600);
  EXPECT_EQ(job.DoCheckFile(In("old.png"), 7), 7);
}

TEST_F(FileCheck, AnotherMachinesNumbersOfFilesAndFileSystemsProveNothing) {
  TestJob& job = NewJob();
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter(p_ExpectedFiles, "old.png");
  Write("old.png", "image");
  job.NoteFilesBefore(true);
  // The same files, with all numbers that another machine may give otherwise.
  std::string elsewhere;
  std::istringstream lines(job.FilesBeforeText());
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string word;
    std::string number;
    std::string rest;
    fields >> word >> number;
    std::getline(fields, rest);
    // As if its clock went an hour ahead of the file server's.
    if (word == "now") {
      elsewhere += "now " + std::to_string(std::stoll(number) + 3'600'000'000'000) + '\n';
    } else {
      elsewhere.append(word).append(" 4711").append(rest).append("\n");
    }
  }
  job.CheckFilesAgainst(elsewhere, false);
  EXPECT_EQ(job.DoCheckFile(In("old.png"), 7), 5);
  EXPECT_EQ(job.Note(), "File was there before and is not of this attempt: " + In("old.png").Text());
  Write("new.png", "image");
  EXPECT_EQ(job.DoCheckFile(In("new.png"), 7), 7);
  Write("old.png", "image, rendered anew");
  EXPECT_EQ(job.DoCheckFile(In("old.png"), 7), 7);
}

TEST_F(FileCheck, ModulesOwnJudgeOfAFileIsHeard) {
  class Strict : public TestJob {
  public:
    int DoCheckFile(const Path& file, int result) override {
      if (file.Leaf(true) == "silent.png") {
        return k_StatusFailed;
      }
      if (file.Leaf(true) == "ugly.png") {
        Set(p_Note, "I do not like it");
        return k_StatusFailed;
      }
      return TestJob::DoCheckFile(file, result);
    }
  };
  Strict job;
  job.SetType(m_Type);
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter(p_ExpectedFiles, "good.png;ugly.png;silent.png");
  Write("good.png", "image");
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "I do not like it");
  EXPECT_EQ(job.CheckedFiles()[0].Problem, "");
  EXPECT_EQ(job.CheckedFiles()[1].Problem, "I do not like it");
  EXPECT_EQ(job.CheckedFiles()[2].Problem, "Not good");
}

TEST_F(FileCheck, FilesThatCouldNotAllBeLookedAtAreNoneAtAll) {
  class Raising : public TestJob {
  public:
    int DoCheckFile(const Path& file, int result) override {
      if (file.Leaf(true) == "b.png") {
        RaiseException("Raising", k_ErrorSyntax, "the moon is full");
      }
      return TestJob::DoCheckFile(file, result);
    }
  };
  Raising job;
  job.SetType(m_Type);
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter(p_SubRange, "1-2");
  job.SetParameter(p_ExpectedFiles, "a.png;b.png");
  Write("a.png", "image");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "the moon is full");
  EXPECT_EQ(job.DecidedBy(), ProcessJob::Rule::Files);
  EXPECT_TRUE(job.CheckedFiles().empty());
  EXPECT_TRUE(job.GoodFrames().empty());
  EXPECT_EQ(job.FinishWork({3, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 3");
}

TEST_F(FileCheck, EveryFrameOfAWorkMustHaveAFile) {
  TestJob& job = Started();
  job.SetParameter("ImageStartText", "Saved: ");
  job.SetParameter(p_SubRange, "1-12");
  for (const char* frame : {"1", "2", "3", "4", "5", "6", "8", "9", "11", "12"}) {
    job.ProcessNewFilename(Write("a_" + String(frame) + ".png", "image"));
  }
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "No file for frames 7,10");
  job.ProcessNewFilename(Write("a_10.png", "image"));
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "No file for frame 7");
  job.ProcessNewFilename(Write("a_7.png", "image"));
  EXPECT_EQ(job.CheckFiles(7), 7);
  job.SetParameter(p_SubRange, "1-15");
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "No file for frames 13-15");
}

TEST_F(FileCheck, BadFileIsToldBeforeAMissingFrame) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "1-3");
  job.ProcessNewFilename(Write("a_1.png", "image"));
  job.ProcessNewFilename(In("a_3.png"));
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "Missing file: " + In("a_3.png").Text());
}

TEST_F(FileCheck, NumbersOfTheFoldersOfAllFramesAreNone) {
  TestJob& job = Started();
  job.SetParameter(p_StartDirectory, MakeFolder("s3").Text());
  job.SetParameter(p_OutputFolder, "../v4");
  job.SetParameter(p_SubRange, "3-6");
  ProcessStart start;
  ASSERT_TRUE(job.PrepareWork(start)) << job.Note();
  EXPECT_EQ(job.FrameOf(In("s3/movie.mov")), std::nullopt);
  EXPECT_EQ(job.FrameOf(In("s3/../v4/movie.mov")), std::nullopt);
  EXPECT_EQ(job.FrameOf(In("v4/movie.mov")), 4); // another folder by its name
  job.SetParameter(p_OutputFolder, In("v4").Text());
  EXPECT_EQ(job.FrameOf(In("v4/movie.mov")), std::nullopt);
  EXPECT_EQ(job.FrameOf(In("v4/5/left.png")), 5);
  EXPECT_EQ(job.FrameOf(In("v4_5/left.png")), 5);
}

TEST_F(FileCheck, ManyHolesAreNotAllListed) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "1-2000000");
  for (int frame = 2; frame <= 40; frame += 2) {
    job.ProcessNewFilename(Write("a_" + std::to_string(frame) + ".png", "image"));
  }
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "No file for frames 1,3,5,7,9,11,13,15,17,19 and 1999970 more");
}

TEST_F(FileCheck, OneFileForManyFramesNeedsItsOwnRule) {
  TestJob& job = Started();
  job.SetParameter("ImageStartText", "Saved: ");
  job.SetParameter(p_SubRange, "8701-8800");
  job.ProcessNewFilename(Write("movie.mp4", "film"));
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(
      job.Note(),
      "No file for frames 8701-8800: no file's name tells its frame; where one file holds them all, set "
      "FileCheck=Work");
  job.SetParameter(p_FileCheck, "work");
  EXPECT_EQ(job.CheckFiles(7), 7);
  Write("movie.mp4", "");
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(), "Empty file: " + In("movie.mp4").Text());
}

TEST_F(FileCheck, FileThatIsExpectedForSeveralFramesIsNoneOfTheirOwn) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "1-2");
  job.SetParameter(p_ExpectedFiles, "movie1.mp4");
  Write("movie1.mp4", "film");
  EXPECT_EQ(job.CheckFiles(7), 5);
  EXPECT_EQ(job.Note(),
            "No file for frames 1-2: no file's name tells its frame; where one file holds them all, set "
            "FileCheck=Work");
  job.SetParameter(p_SubRange, "2-2");
  EXPECT_EQ(job.CheckFiles(7), 7);
}

TEST_F(FileCheck, TypeWithoutFilesNeedsNoneForItsFrames) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "1-100");
  EXPECT_EQ(job.CheckFiles(7), 7);
}

TEST_F(FileCheck, WorkWithoutFramesNeedsNoFrames) {
  TestJob& job = Started();
  job.SetParameter("ImageStartText", "Saved: ");
  job.ProcessNewFilename(Write("a.png", "image"));
  EXPECT_EQ(job.CheckFiles(7), 7);
  EXPECT_EQ(job.FrameOf(In("a_0001.png")), std::nullopt);
}

TEST_F(FileCheck, SwitchedOffItLooksAtNothing) {
  TestJob& job = Started();
  job.SetParameter("ImageStartText", "Saved: ");
  job.SetParameter(p_FileCheck, "None");
  job.SetParameter(p_ExpectedFiles, "nothing.png");
  job.SetParameter(p_SubRange, "1-2");
  job.Calls.clear();
  EXPECT_EQ(job.CheckFiles(7), 7);
  job.ProcessNewFilename(In("a_0001.png"));
  EXPECT_EQ(job.CheckFiles(7), 7);
  EXPECT_TRUE(job.FilesToCheck().empty());
  EXPECT_TRUE(job.CheckedFiles().empty());
  EXPECT_EQ(job.Calls, (std::vector<String>{"CheckFiles 7", "CheckFiles 7"}));
}

TEST_F(FileCheck, UnknownRuleIsToldBeforeTheWorkStarts) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_FileCheck, "Some");
  ProcessStart start;
  EXPECT_FALSE(job.PrepareWork(start));
  EXPECT_EQ(job.Note(), "FileCheck: \"Some\" is no way to check files; write EveryFrame, Work or None");
  m_Info->GetParam(p_FileCheck)->Default = "";
  job.SetParameter(p_FileCheck, "");
  EXPECT_TRUE(job.PrepareWork(start));
}

TEST_F(FileCheck, FramesOfImagesAreToldWhileTheProgramRuns) {
  TestJob& job = Started();
  job.SetParameter(p_SubRange, "8701-8709");
  job.SetParameter(p_ExpectedFiles, "$(Frame)_8707.exr");
  EXPECT_EQ(job.FrameOf(In("v8701.8702.png")), 8701); // alone it is the first frame
  job.ProcessNewFilename("v8701.8701.png");
  job.ProcessNewFilename("v8701.8702.png");
  EXPECT_EQ(job.FrameOf(In("v8701.8702.png")), 8702);
  EXPECT_EQ(job.FrameOf(In("8703_8707.exr")), 8703); // as declared
  EXPECT_EQ(job.FrameOf(In("8703_8708.exr")), 8708); // as the name looks
  job.SetParameter(p_SubRange, "5-5");
  EXPECT_EQ(job.FrameOf(In("v8701.8702.png")), 5);
  job.SetParameter(p_SubRange, "8701-8709");
  job.SetParameter(p_FileCheck, "Work");
  EXPECT_EQ(job.FrameOf(In("v8701.8702.png")), std::nullopt);
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
  job.ProcessNewFilename("x2.png"); // expected as well
  job.Calls.clear();
  EXPECT_EQ(job.CheckFiles(7), 7);
  EXPECT_EQ(job.Calls, (std::vector<String>{"CheckFiles 7", "DoCheckFile i.png", "DoCheckFile x2.png",
                                            "DoCheckFile x1.png"}));
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

// What one process noted, another one judges by.
TEST_F(FileCheck, WhatWasThereBeforeCanBeKept) {
  const std::string name = "a b\n\xff.png";
  const std::vector<Path> files = {Write("same.png", "x"), Write(String(name), "x"), In("new.png")};
  FilesBefore before;
  before.Note(files, {}, true);
  FilesBefore read;
  read.FromText(before.Text());
  const auto isWritten = [&read](const Path& file) {
    struct stat status {};
    EXPECT_EQ(stat(file.c_str(), &status), 0);
    return read.IsWritten(file, status);
  };
  EXPECT_EQ(read.Text(), before.Text());
  EXPECT_FALSE(isWritten(files[0]));
  EXPECT_FALSE(isWritten(files[1]));
  EXPECT_TRUE(isWritten(Write("new.png", "x")));
  EXPECT_TRUE(isWritten(Write(String(name), "xy")));
  const std::string text = before.Text();
  for (const std::string& other :
       {std::string(), text + "x", text.substr(0, text.size() - 1), "now\n" + text, std::string("now 1 2\n"),
        std::string("now x\n"), std::string("file 1 2 3 4\n"), std::string("file 1 2 3 4 zz\n"),
        std::string("file 1 2 3 99999999999999999999 00\n"), std::string("\n"), std::string(" \n")}) {
    read.FromText(other);
    EXPECT_FALSE(isWritten(In("new.png"))) << other;
  }
}

} // namespace
