// Texts that the output must hold, and programs that say nothing.

#include "host/application/jobs/RequiredTexts.h"
#include "tests/application/jobs/TestJob.h"

#include <csignal>

namespace {

using Rule = ProcessJob::Rule;

bool IsSeen(const String& text, const String& line) {
  RequiredTexts texts({text});
  const String* seen = texts.See(line);
  EXPECT_EQ(seen == nullptr, texts.Missing() != nullptr);
  return seen != nullptr;
}

TEST(RequiredTextsTest, CountAnywhereInALineAndInAnyCase) {
  EXPECT_TRUE(IsSeen("All Frames", "[12:01] all frames rendered"));
  EXPECT_TRUE(IsSeen("done", "done"));
  EXPECT_FALSE(IsSeen("done", "don"));
  EXPECT_FALSE(IsSeen("done", ""));
}

TEST(RequiredTextsTest, NumbersAtTheirEndsAreWhole) {
  EXPECT_TRUE(IsSeen("frame 10", "frame 10, percentage 9"));
  EXPECT_FALSE(IsSeen("frame 10", "frame 100"));
  EXPECT_TRUE(IsSeen("frame 10", "frame 100 after frame 10"));
  EXPECT_FALSE(IsSeen("0 errors", "10 errors"));
  EXPECT_TRUE(IsSeen("0 errors", "10 frames, 0 errors"));
  EXPECT_TRUE(IsSeen("frame", "frame1"));
  EXPECT_TRUE(IsSeen("12", "a12b"));
  EXPECT_FALSE(IsSeen("11", "111"));
}

TEST(RequiredTextsTest, EachMustBeSeenAndEachIsNewOnce) {
  RequiredTexts texts({"one", "", "two", "three"});
  ASSERT_NE(texts.Missing(), nullptr);
  EXPECT_EQ(*texts.Missing(), "one");
  EXPECT_EQ(texts.See("nothing"), nullptr);
  const String* seen = texts.See("TWO and one");
  ASSERT_NE(seen, nullptr);
  EXPECT_EQ(*seen, "two");
  EXPECT_EQ(texts.See("one two"), nullptr);
  EXPECT_EQ(*texts.Missing(), "three");
  EXPECT_NE(texts.See("three"), nullptr);
  EXPECT_EQ(texts.Missing(), nullptr);
  EXPECT_EQ(texts.See("three"), nullptr);
  EXPECT_TRUE(RequiredTexts({"", ""}).empty());
  EXPECT_EQ(RequiredTexts({}).Missing(), nullptr);
}

class RequiredTextsVerdict : public JobTest {
protected:
  TestJob& Started(const String& required) {
    TestJob& job = NewJob();
    job.SetParameter(p_Executable, "sh");
    job.SetParameter(p_StartDirectory, m_Directory.Text());
    job.SetParameter(p_SubRange, "1-100");
    job.SetParameter(p_FileCheck, "None");
    job.SetParameter(p_RequiredTexts, required);
    ProcessStart start;
    EXPECT_TRUE(job.PrepareWork(start)) << job.Note();
    return job;
  }
};

TEST_F(RequiredTextsVerdict, LastFrameOfTheWorkTellsAStopHalfWay) {
  TestJob& job = Started("frame $(SubRange.End)");
  job.WorkLine("12:01 frame 10");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Did not see the required text \"frame 100\"; last line: 12:01 frame 10");
  EXPECT_EQ(job.DecidedBy(), Rule::Result);
  EXPECT_TRUE(job.IsWorthRepeating());

  TestJob& other = Started("frame $(SubRange.End)");
  other.WorkLine("12:01 frame 100");
  EXPECT_EQ(other.FinishWork({0, 0}), k_StatusFinished);
  EXPECT_EQ(other.Note(), "");
}

TEST_F(RequiredTextsVerdict, EveryTextIsRequiredAndEveryKindOfLineCounts) {
  TestJob& job = Started("a_0100.png;all done;closed");
  job.SetParameter("ImageStartText", "Saved: ");
  job.SetParameter("SuccessTexts", "all done");
  job.WorkLine("Saved: a_0100.png");
  job.WorkLine("all done");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note().substr(0, 38), "Did not see the required text \"closed\"");
  job.WorkLine("file closed");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFinished);
}

TEST_F(RequiredTextsVerdict, NoTextMakesABadEndGood) {
  TestJob& job = Started("done");
  job.WorkLine("done");
  EXPECT_EQ(job.FinishWork({1, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 1; last line: done");
  EXPECT_EQ(job.FinishWork({128 + SIGSEGV, SIGSEGV}), k_StatusFailed); // no file proves it
}

TEST_F(RequiredTextsVerdict, ACrashBehindTheTextWithGoodFilesIsGood) {
  for (const bool seen : {true, false}) {
    TestJob& job = NewJob();
    job.SetParameter(p_Executable, "sh");
    job.SetParameter(p_StartDirectory, m_Directory.Text());
    job.SetParameter(p_RequiredTexts, "all frames");
    job.SetParameter(p_ExpectedFiles, "a.png");
    ProcessStart start;
    ASSERT_TRUE(job.PrepareWork(start));
    Write("a.png", "image");
    job.WorkLine(seen ? "wrote all frames" : "wrote a frame");
    EXPECT_EQ(job.FinishWork({128 + SIGSEGV, SIGSEGV}), seen ? k_StatusFinished : k_StatusFailed);
  }
}

TEST_F(RequiredTextsVerdict, SilentProgramIsBadWhereAnyTextIsDeclared) {
  TestJob& job = Started("done");
  EXPECT_EQ(job.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Did not see the required text \"done\": the program printed nothing");

  // A class that builds its lists with the first line has none to judge by.
  class Lazy : public TestJob {
  public:
    // NOLINTNEXTLINE(bugprone-parent-virtual-call): without what TestJob judges by
    int CheckResult(int exitCode) override { return RenderJob::CheckResult(exitCode); }
  };
  Lazy lazy;
  lazy.SetType(m_Type);
  lazy.SetParameter("SuccessTexts", "done");
  EXPECT_EQ(lazy.FinishWork({0, 0}), k_StatusFailed);
  EXPECT_EQ(lazy.Note(), "Did not see a required success line: the program printed nothing");
  EXPECT_EQ(lazy.DecidedBy(), Rule::Result);

  TestJob& plain = Started("");
  EXPECT_EQ(plain.FinishWork({0, 0}), k_StatusFinished);
}

TEST_F(RequiredTextsVerdict, MistakeInATextShowsBeforeTheProgramStarts) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_RequiredTexts, "frame $(SubRange.Ende)");
  ProcessStart start;
  EXPECT_FALSE(job.PrepareWork(start));
  EXPECT_EQ(job.Note().substr(0, 70),
            "RequiredTexts:18: unknown parameter command \"Ende\"; did you mean \"End\"");
}

TEST_F(RequiredTextsVerdict, LineWithATextIsToldToWhoAsks) {
  TestJob& job = Started("frame $(SubRange.End)");
  job.AccountForLines();
  job.WorkLine("frame 1");
  EXPECT_EQ(job.Account()->What, LineAccount::Fate::Ordinary);
  job.WorkLine("frame 100");
  EXPECT_EQ(job.Account()->What, LineAccount::Fate::Success);
  EXPECT_STREQ(job.Account()->List, p_RequiredTexts);
  EXPECT_EQ(job.Account()->Text, "frame 100");
  job.WorkLine("frame 100");
  EXPECT_EQ(job.Account()->What, LineAccount::Fate::Ordinary);
}

} // namespace
