#include "tests/application/jobs/TestJob.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <csignal>

namespace {

using Ended = ProcessJob::Ended;
using Rule = ProcessJob::Rule;

/// A work of the frames 1 to 4 whose program names its images.
class GoodFrames : public JobTest {
protected:
  TestJob& Started(const String& frames = "1-4") {
    TestJob& job = NewJob();
    job.SetParameter(p_Executable, "sh");
    job.SetParameter(p_StartDirectory, m_Directory.Text());
    job.SetParameter("ImageStartText", "Saved: ");
    job.SetParameter(p_ErrorStarts, "Error:");
    job.SetParameter(p_SubRange, frames);
    ProcessStart start;
    EXPECT_TRUE(job.PrepareWork(start)) << job.Note();
    job.WorkSpawned(4711);
    return job;
  }

  void Save(TestJob& job, const String& name, const String& text = "image") const {
    Write(name, text);
    job.WorkLine("Saved: " + name);
  }

  static String Text(const std::vector<FrameRun>& runs) {
    String text;
    for (const FrameRun& run : runs) {
      text += (text.empty() ? "" : ",") + run.Text();
    }
    return text;
  }
};

TEST_F(GoodFrames, AreAllOfAWorkThatEndedWell) {
  TestJob& job = Started("1-2");
  Save(job, "a_1.png");
  Save(job, "a_2.png");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFinished);
  EXPECT_EQ(Text(job.GoodFrames()), "1-2");
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-2");
}

TEST_F(GoodFrames, AreThoseBeforeACrash) {
  TestJob& job = Started();
  Save(job, "a_1.png");
  Save(job, "a_2.png");
  EXPECT_EQ(job.FinishWork({139, SIGSEGV}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "1-2");
}

TEST_F(GoodFrames, LeaveOutBadFilesWhateverTheVerdict) {
  for (const Ended ended : {Ended::ByItself, Ended::Canceled, Ended::TimedOut, Ended::Silent, Ended::Lost}) {
    TestJob& job = Started();
    Save(job, "a_1.png");
    Save(job, "a_2.png", "");
    Save(job, "a_3.png");
    job.WorkLine("Saved: a_4.png");
    EXPECT_NE(job.FinishWork({3, 0}, ended), k_StatusFinished);
    EXPECT_EQ(Text(job.GoodFrames()), "1-1,3-3");
    EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-1,3-3");
  }
}

TEST_F(GoodFrames, OfAWorkWithHolesAreTheOthers) {
  TestJob& job = Started();
  Save(job, "a_1.png");
  Save(job, "a_3.png");
  Save(job, "a_4.png");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "No file for frame 2");
  EXPECT_EQ(Text(job.GoodFrames()), "1-1,3-4");
}

TEST_F(GoodFrames, LeaveOutTheLastWhereEachHasItsFile) {
  TestJob& job = Started();
  for (const char* name : {"a_1.png", "a_2.png", "a_3.png", "a_4.png"}) {
    Save(job, name);
  }
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-4");
  EXPECT_EQ(Text(job.GoodFrames()), "1-3");
}

TEST_F(GoodFrames, AreNoneOfAWorkOfOneFrameThatFailed) {
  TestJob& job = Started("7-7");
  Save(job, "a.png");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "7-7");
  EXPECT_EQ(Text(job.GoodFrames()), "");
}

TEST_F(GoodFrames, HaveAllOfTheirFiles) {
  TestJob& job = Started();
  for (const char* name : {"left_1.png", "right_1.png", "left_2.png", "right_2.png", "left_3.png"}) {
    Save(job, name);
  }
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-3");
  EXPECT_EQ(Text(job.GoodFrames()), "1-2"); // the program died before right_3.png
}

TEST_F(GoodFrames, AreNotThoseThatAreOnlyLikely) {
  TestJob& job = Started();
  for (const char* name : {"cam1_0001.png", "cam2_0001.png", "cam3_0001.png"}) {
    Save(job, name);
  }
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "1-1");
  TestJob& other = Started();
  for (const char* name : {"cam1_0001.png", "cam2_0001.png", "cam3_0001.png"}) {
    Save(other, name);
  }
  Save(other, "cam4_0001.png", "");
  EXPECT_EQ(other.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(other.GoodFrames()), "");
}

TEST_F(GoodFrames, AfterAnErrorLineAreThoseNamedBefore) {
  TestJob& job = Started();
  Save(job, "a_1.png");
  Save(job, "a_2.png");
  job.WorkLine("Error: no memory");
  Save(job, "a_3.png");
  Save(job, "a_4.png");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.DecidedBy(), Rule::ErrorLine);
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-4");
  EXPECT_EQ(Text(job.GoodFrames()), "1-2");
}

TEST_F(GoodFrames, AfterAnErrorLineAreNoneWithAFileFromAfterIt) {
  TestJob& job = Started();
  Save(job, "left_1.png");
  Save(job, "left_2.png");
  Save(job, "right_1.png");
  job.WorkLine("Error: no memory");
  Save(job, "right_2.png");
  // The program had named this one before it wrote it.
  timespec later{};
  clock_gettime(CLOCK_REALTIME, &later);
  const std::array<timespec, 2> stamps = {{{later.tv_sec + 60, 0}, {later.tv_sec + 60, 0}}};
  ASSERT_EQ(utimensat(AT_FDCWD, In("right_1.png").c_str(), stamps.data(), 0), 0);
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-2");
  EXPECT_EQ(Text(job.GoodFrames()), "");
}

TEST_F(GoodFrames, AfterAnErrorLineAreNoneWhoseFilesNobodyNamed) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "a_$(Frame).png");
  Save(job, "a_1.png");
  Write("a_2.png", "image");
  job.WorkLine("Error: no memory");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.FramesWithGoodFiles()), "1-2");
  EXPECT_EQ(Text(job.GoodFrames()), "1-1");
}

TEST_F(GoodFrames, CountErrorLinesAlsoWhereTheTimeLimitDecides) {
  TestJob& job = Started();
  Save(job, "a_1.png");
  job.WorkLine("Error: no memory");
  Save(job, "a_2.png");
  EXPECT_EQ(job.FinishWork({143, SIGTERM}, Ended::TimedOut), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "1-1");
}

TEST_F(GoodFrames, HaveEveryExpectedFile) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "a_$(Frame).png;b_$(Frame).png");
  for (const char* name : {"a_1.png", "b_1.png", "a_2.png", "b_3.png", "a_4.png", "b_4.png"}) {
    Write(name, "image");
  }
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "1-1,4-4");
  job.SetParameter(p_ExpectedFiles, "a_$(Frame).png;b_$(Frame).png;all.log");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), ""); // each frame expects it
  Write("all.log", "text");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "1-1,4-4");
}

TEST_F(GoodFrames, AreNoneWhereFilesDoNotStandForFrames) {
  for (const char* rule : {"Work", "None"}) {
    TestJob& job = Started();
    job.SetParameter(p_FileCheck, rule);
    Save(job, "a_1.png");
    Save(job, "a_2.png");
    EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
    EXPECT_EQ(Text(job.GoodFrames()), "") << rule;
    EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFinished) << job.Note();
    EXPECT_EQ(Text(job.GoodFrames()), "1-4") << rule;
  }
}

TEST_F(GoodFrames, AreNoneOfAWorkWithoutFrames) {
  TestJob& job = Started("");
  Save(job, "a_1.png");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFinished);
  EXPECT_TRUE(job.GoodFrames().empty());
}

TEST_F(GoodFrames, AreNoneOfAWorkThatCouldNotStart) {
  TestJob& job = Started();
  Save(job, "a_1.png");
  Save(job, "a_2.png");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "1-2");
  job.SetParameter(p_Executable, "/nowhere/sh");
  ProcessStart start;
  EXPECT_FALSE(job.PrepareWork(start));
  EXPECT_EQ(Text(job.GoodFrames()), "");
  EXPECT_EQ(job.FailWork("No more processes"), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "");
}

// As an engine does that finds an attempt of one that died.
TEST_F(GoodFrames, OfALostWorkAreToldFromTheNamesAlone) {
  TestJob& job = NewJob();
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter("ImageStartText", "Saved: ");
  job.SetParameter(p_SubRange, "1-4");
  job.NoteFilesBefore(true);
  const std::string before = job.FilesBeforeText();
  for (const char* name : {"a_1.png", "a_2.png"}) {
    job.ProcessNewFilename(Write(name, "image"));
  }
  job.CheckFilesAgainst(before);
  EXPECT_EQ(job.FinishWork(ProcessExit(), Ended::Lost), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Its engine died");
  EXPECT_EQ(job.DecidedBy(), Rule::Ended);
  EXPECT_EQ(Text(job.GoodFrames()), "1-2");
}

TEST_F(GoodFrames, OfTheWidestRunsAreFoundAtOnce) {
  TestJob& job = Started("-2147483648-2147483647");
  Save(job, "a_2147483646.png");
  Save(job, "a_2147483647.png");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(Text(job.GoodFrames()), "2147483646-2147483647");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "No file for frames -2147483648-2147483645");
}

} // namespace
