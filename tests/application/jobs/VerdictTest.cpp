#include "host/application/jobs/PlainLines.h"
#include "host/foundation/Bytes.h"
#include "tests/application/jobs/TestJob.h"

#include <csignal>
#include <filesystem>
#include <stdexcept>

namespace {

using Ended = ProcessJob::Ended;
using Rule = ProcessJob::Rule;

class Verdict : public JobTest {
protected:
  TestJob& Started() {
    TestJob& job = NewJob();
    job.SetParameter(p_Executable, "sh");
    job.SetParameter(p_StartDirectory, m_Directory.Text());
    ProcessStart start;
    EXPECT_TRUE(job.PrepareWork(start)) << job.Note();
    job.WorkSpawned(4711);
    EXPECT_EQ(job.Status(), k_StatusRunning);
    EXPECT_EQ(job.ProcessId(), 4711);
    job.Calls.clear();
    return job;
  }

  static ProcessExit Exit(int code) { return {code, 0}; }
  static ProcessExit Killed(int signal) { return {128 + signal, signal}; }
};

TEST_F(Verdict, ExitCodeZeroIsGoodAndLeavesNoNote) {
  TestJob& job = Started();
  job.WorkLine("rendering");
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFinished);
  EXPECT_EQ(job.Status(), k_StatusFinished);
  EXPECT_EQ(job.Note(), "");
  EXPECT_TRUE(m_Recorder.Changes.empty());
  EXPECT_EQ(job.Calls, (std::vector<String>{"ProcessLine rendering", "CheckResult 0", "CheckFiles 7"}));
}

TEST_F(Verdict, BadExitCodeQuotesTheLastLine) {
  TestJob& job = Started();
  job.WorkLine("reading scene");
  job.WorkLine("cannot open bricks.png");
  job.WorkLine("");
  job.WorkLine(" \t");
  EXPECT_EQ(job.FinishWork(Exit(3)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 3; last line: cannot open bricks.png");
  const std::vector<std::pair<String, String>> expected = {
      {"Note", "Exit code 3; last line: cannot open bricks.png"}};
  EXPECT_EQ(m_Recorder.Changes, expected);
}

TEST_F(Verdict, AModuleThatFailsAtALineFailsTheWork) {
  TestJob& job = Started();
  job.OnLine = [](const String& line) {
    if (line == "bad") {
      throw std::runtime_error("no such key");
    }
    if (line == "worse") {
      throw 7;
    }
  };
  const LogSink before = SetLogSink([](LogLevel, const String&) {});
  job.WorkLine("reading scene");
  job.WorkLine("bad");
  job.WorkLine("worse"); // not judged any more
  SetLogSink(before);
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "The module of the type \"" + m_Info->Name + "\" failed in ProcessLine: no such key");
  EXPECT_EQ(job.DecidedBy(), Rule::Result);
  EXPECT_EQ(job.Lines, (std::vector<String>{"reading scene", "bad"}));
}

TEST_F(Verdict, AClassThatDeclaresNoTextsSeesEveryLineOfABlock) {
  TestJob& job = Started();
  WorkLines lines(job);
  LineSplitter splitter(lines);
  splitter.Feed("one\ntwo\r\nthree\r\n\nfo");
  splitter.Feed("ur\nfive");
  splitter.Finish();
  EXPECT_EQ(job.Lines, (std::vector<String>{"one", "two", "three", "", "four", "five"}));
}

/// Declares that of its lines only those with "image" matter.
class SparingJob : public TestJob {
public:
  using ProcessJob::WantEveryLine;
  using ProcessJob::WantLinesWith;
};

TEST_F(Verdict, AClassThatDeclaresTextsSeesTheirLinesAndThoseOfTheHost) {
  SparingJob job;
  job.SetType(m_Type);
  job.SetParameter(p_ErrorStarts, "Error");
  job.SetParameter(p_RequiredTexts, "bye");
  WorkLines lines(job);
  LineSplitter splitter(lines);
  splitter.Feed("one\n");
  job.WantLinesWith({{"image"}, {"done"}, LowerTable()});
  splitter.Feed("two\nan IMAGE\nnot done\nDone\nno Error\nError 1\nError 2\nGood Bye\nbye\nlast\n");
  EXPECT_EQ(job.Lines, (std::vector<String>{"one", "an IMAGE", "Done", "Error 1", "Good Bye"}));
  EXPECT_EQ(job.ErrorLine(), "Error 1");
  EXPECT_EQ(job.LastLine(), "last");
  job.WantEveryLine();
  splitter.Feed("more\n");
  EXPECT_EQ(job.Lines.back(), "more");
}

TEST_F(Verdict, BadExitCodeWithoutOutputSaysJustThat) {
  TestJob& job = Started();
  EXPECT_EQ(job.FinishWork(Exit(3)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 3");
}

TEST_F(Verdict, LongAndDirtyLastLineIsCutAndCleaned) {
  TestJob& job = Started();
  job.WorkLine("\a" + String(1000, 'x'));
  job.FinishWork(Exit(1));
  EXPECT_EQ(job.Note(), "Exit code 1; last line: ?" + String(299, 'x') + "…");
  EXPECT_EQ(job.LastLine().size(), 1001U);
}

TEST_F(Verdict, KeptLinesAreBounded) {
  TestJob& job = NewJob();
  job.SetParameter(p_ErrorStarts, "error");
  job.WorkLine("error " + String(1 << 20, 'x'));
  EXPECT_EQ(job.ErrorLine().size(), 65536U);
  EXPECT_EQ(job.LastLine().size(), 65536U);
}

TEST_F(Verdict, SuccessExitCodesOfTheJobCount) {
  TestJob& job = Started();
  job.SetParameter(p_SuccessExitCodes, "2-4");
  EXPECT_EQ(job.FinishWork(Exit(3)), k_StatusFinished);
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 0");
}

TEST_F(Verdict, ErrorLineFailsAWorkThatExitsWell) {
  TestJob& job = Started();
  job.SetParameter(p_ErrorStarts, "Error:;Fatal");
  job.WorkLine("Loading");
  job.WorkLine("ERROR: texture missing");
  job.WorkLine("Fatal: and more");
  EXPECT_EQ(job.ErrorLine(), "ERROR: texture missing");
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Error line: ERROR: texture missing");
}

TEST_F(Verdict, ErrorLineIsStrongerThanASignal) {
  TestJob& job = Started();
  job.SetParameter(p_ErrorStarts, "Error:");
  job.WorkLine("Error: texture missing");
  EXPECT_EQ(job.FinishWork(Killed(SIGSEGV)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Error line: Error: texture missing");
}

TEST_F(Verdict, ErrorPositionAndIgnoresComeFromOptionAndDefaultToo) {
  m_Info->GetParam(p_ErrorStarts)->Default = "error";
  m_Info->GetParam(p_ErrorIgnores)->Default = "harmless";
  SetOption(p_ErrorDetectPosition, "1");
  TestJob& job = Started();
  job.WorkLine("12:00 error, harmless");
  EXPECT_EQ(job.ErrorLine(), "");
  job.WorkLine("12:01 error, severe");
  EXPECT_EQ(job.ErrorLine(), "12:01 error, severe");
}

TEST_F(Verdict, ErrorTextsAreThoseOfTheFirstLine) {
  TestJob& job = Started();
  job.SetParameter(p_ErrorStarts, "one");
  job.WorkLine("nothing");
  job.SetParameter(p_ErrorStarts, "two");
  job.WorkLine("two");
  EXPECT_EQ(job.ErrorLine(), "");
  job.WorkLine("one");
  EXPECT_EQ(job.ErrorLine(), "one");
}

TEST_F(Verdict, SignalIsNamedWithTheLastLine) {
  TestJob& job = Started();
  job.WorkLine("rendering tile 12");
  EXPECT_EQ(job.FinishWork(Killed(SIGSEGV)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 11 (Segmentation fault); last line: rendering tile 12");
}

TEST_F(Verdict, SignalWithoutANameHasItsNumber) {
  TestJob& job = Started();
  EXPECT_EQ(job.FinishWork(Killed(SIGRTMIN + 6)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 40");
}

TEST_F(Verdict, SignalIsStrongerThanSuccessExitCodes) {
  TestJob& job = Started();
  job.SetParameter(p_SuccessExitCodes, "0-255");
  EXPECT_EQ(job.FinishWork(Killed(SIGKILL)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 9 (Killed)");
}

TEST_F(Verdict, KillOfAProgramThatHeldMostOfTheMemoryTellsIt) {
  const std::int64_t group = GroupMemoryLimit();
  const bool isGroup = group > 0 && group < MachineMemory();
  const std::int64_t machine = isGroup ? group : MachineMemory();
  const auto noteOf = [this](int signal, std::int64_t memory) {
    TestJob& job = Started();
    job.WorkLine("tile 3");
    ProcessExit exit = Killed(signal);
    exit.Usage = ProcessUsage{0, 0, memory};
    EXPECT_EQ(job.FinishWork(exit), k_StatusFailed);
    return job.Note();
  };
  EXPECT_EQ(noteOf(SIGKILL, machine / 4 * 3),
            "Killed by signal 9 (Killed) after " + BytesText(machine / 4 * 3) + " of memory; " +
                (isGroup ? "its control group may hold " : "the machine has ") + BytesText(machine) +
                "; last line: tile 3");
  EXPECT_EQ(noteOf(SIGKILL, machine / 4), "Killed by signal 9 (Killed); last line: tile 3");
  EXPECT_EQ(noteOf(SIGSEGV, machine), "Killed by signal 11 (Segmentation fault); last line: tile 3");
}

TEST_F(Verdict, CrashAfterASuccessTextAndAGoodFileIsForgiven) {
  TestJob& job = Started();
  job.SetParameter("SuccessTexts", "done");
  job.SetParameter(p_ExpectedFiles, "a.png");
  Write("a.png", "image");
  job.WorkLine("done in 3 s");
  EXPECT_EQ(job.FinishWork(Killed(SIGSEGV)), k_StatusFinished);
  EXPECT_EQ(job.Note(),
            "Killed by signal 11 (Segmentation fault) after the success text, and every file is good");
}

TEST_F(Verdict, CrashIsNotForgivenWithoutAFileToProveIt) {
  TestJob& job = Started();
  job.SetParameter("SuccessTexts", "done");
  job.WorkLine("done in 3 s");
  EXPECT_EQ(job.FinishWork(Killed(SIGSEGV)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 11 (Segmentation fault)");
}

TEST_F(Verdict, CrashIsNotForgivenWhenAFileIsMissing) {
  TestJob& job = Started();
  job.SetParameter("SuccessTexts", "done");
  job.SetParameter(p_ExpectedFiles, "a.png;b.png");
  Write("a.png", "image");
  job.WorkLine("done in 3 s");
  EXPECT_EQ(job.FinishWork(Killed(SIGABRT)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 6 (Aborted)");
}

TEST_F(Verdict, CrashOfAPacketIsForgivenWithAGoodFileForEachFrameOnly) {
  const auto judged = [this](const std::vector<String>& images, const char* fileCheck) -> TestJob& {
    TestJob& job = Started();
    job.SetParameter("SuccessTexts", "done");
    job.SetParameter("ImageStartText", "Saved: ");
    job.SetParameter(p_SubRange, "1-3");
    job.SetParameter(p_FileCheck, fileCheck);
    for (const String& image : images) {
      Write(image, "image");
      job.WorkLine("Saved: " + image);
    }
    job.WorkLine("done in 3 s");
    job.FinishWork(Killed(SIGSEGV));
    return job;
  };
  const String forgiven =
      "Killed by signal 11 (Segmentation fault) after the success text, and every file is good";
  TestJob& whole = judged({"a1.png", "a2.png", "a3.png"}, "");
  EXPECT_EQ(whole.Note(), forgiven);
  EXPECT_EQ(whole.Status(), k_StatusFinished);
  EXPECT_EQ(whole.DecidedBy(), Rule::Result);
  TestJob& broken = judged({"a1.png", "a2.png"}, "");
  EXPECT_EQ(broken.Note(), "Killed by signal 11 (Segmentation fault)");
  EXPECT_EQ(broken.DecidedBy(), Rule::Signal);
  EXPECT_EQ(broken.GoodFrames(), (std::vector<FrameRun>{{1, 2}}));
  EXPECT_EQ(judged({"movie.mov"}, "Work").Note(), forgiven);
  EXPECT_EQ(judged({"a1.png", "a2.png", "a3.png"}, "None").Note(),
            "Killed by signal 11 (Segmentation fault)"); // nothing proves it
}

TEST_F(Verdict, CrashIsNotForgivenBeforeTheSuccessText) {
  TestJob& job = Started();
  job.SetParameter("SuccessTexts", "done");
  job.SetParameter(p_ExpectedFiles, "a.png");
  Write("a.png", "image");
  job.WorkLine("nearly there");
  EXPECT_EQ(job.FinishWork(Killed(SIGSEGV)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 11 (Segmentation fault); last line: nearly there");
}

TEST_F(Verdict, CrashIsNotForgivenWithoutDeclaredSuccessTexts) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "a.png");
  job.SetParameter(p_SuccessExitCodes, "139");
  Write("a.png", "image");
  EXPECT_EQ(job.FinishWork(Killed(SIGSEGV)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 11 (Segmentation fault)");
}

TEST_F(Verdict, NoteOfCheckResultStaysAsItIs) {
  TestJob& job = Started();
  job.SetParameter("SuccessTexts", "done");
  job.WorkLine("nearly there");
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Did not see a required success line");
  EXPECT_EQ(job.Calls, (std::vector<String>{"ProcessLine nearly there", "CheckResult 0", "CheckFiles 5"}));
  EXPECT_EQ(job.DecidedBy(), Rule::Result);
}

TEST_F(Verdict, SuccessTextIsStrongerThanTheExitCode) {
  TestJob& job = Started();
  job.SetParameter("SuccessTexts", "done");
  job.WorkLine("done");
  EXPECT_EQ(job.FinishWork(Exit(9)), k_StatusFinished);
  EXPECT_EQ(job.Note(), "");
}

TEST_F(Verdict, BadFileFailsAWorkThatExitsWell) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "a.png");
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Missing file: " + In("a.png").Text());
}

TEST_F(Verdict, GoodFilesDoNotMendABadExitCode) {
  TestJob& job = Started();
  job.SetParameter(p_ExpectedFiles, "a.png");
  Write("a.png", "image");
  EXPECT_EQ(job.FinishWork(Exit(1)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 1");
}

TEST_F(Verdict, CheckFilesCannotTurnBadIntoGood) {
  class Generous : public TestJob {
  public:
    int CheckFiles(int /*result*/) override { return k_StatusFinished; }
  };
  Generous job;
  job.SetType(m_Type);
  EXPECT_EQ(job.FinishWork(Exit(1)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 1");
}

TEST_F(Verdict, CheckFilesWithoutANoteStillGivesOne) {
  class Sulking : public TestJob {
  public:
    int CheckFiles(int /*result*/) override { return k_StatusFailed; }
  };
  Sulking job;
  job.SetType(m_Type);
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "A file that the work must leave is not good");
}

// Everything is wrong at once; then, from the strongest on, one thing less.
TEST_F(Verdict, StrongestRuleSpeaksAndSaysSo) {
  struct Case {
    Ended HowEnded;
    bool ErrorLine;
    bool Signal;
    bool BadResult;
    bool MissingFile;
    int Status;
    Rule DecidedBy;
    String Note;
  };
  const String missing = "Missing file: " + In("a.png").Text();
  const std::vector<Case> cases = {
      {Ended::Canceled, true, true, true, true, k_StatusCanceled, Rule::Ended, "Canceled"},
      {Ended::TimedOut, true, true, true, true, k_StatusFailed, Rule::Ended,
       "Run-time limit of 90 s reached"},
      {Ended::Silent, true, true, true, true, k_StatusFailed, Rule::Ended,
       "No output for 30 s (silence limit)"},
      {Ended::Lost, true, true, true, true, k_StatusFailed, Rule::Ended, "Its engine died"},
      {Ended::Lost, false, false, false, false, k_StatusFailed, Rule::Ended, "Its engine died"},
      {Ended::ByItself, true, true, true, true, k_StatusFailed, Rule::ErrorLine,
       "Error line: Error: no bricks"},
      {Ended::ByItself, true, false, false, false, k_StatusFailed, Rule::ErrorLine,
       "Error line: Error: no bricks"},
      {Ended::ByItself, false, true, true, true, k_StatusFailed, Rule::Signal,
       "Killed by signal 11 (Segmentation fault); last line: still here"},
      {Ended::ByItself, false, true, false, true, k_StatusFailed, Rule::Signal,
       "Killed by signal 11 (Segmentation fault); last line: still here"},
      {Ended::ByItself, false, true, false, false, k_StatusFinished, Rule::Result,
       "Killed by signal 11 (Segmentation fault) after the success text, and every file is good"},
      {Ended::ByItself, false, false, true, true, k_StatusFailed, Rule::Result,
       "Did not see a required success line"},
      {Ended::ByItself, false, false, true, false, k_StatusFailed, Rule::Result,
       "Did not see a required success line"},
      {Ended::ByItself, false, false, false, true, k_StatusFailed, Rule::Files, missing},
      {Ended::ByItself, false, false, false, false, k_StatusFinished, Rule::Result, ""},
  };
  for (const Case& one : cases) {
    TestJob& job = Started();
    job.SetParameter(p_ErrorStarts, "Error:");
    job.SetParameter(p_RunTimeLimit, "1.5m");
    job.SetParameter(p_SilenceLimit, "30");
    job.SetParameter("SuccessTexts", "done");
    job.SetParameter(p_ExpectedFiles, "a.png");
    if (one.MissingFile) {
      std::filesystem::remove(In("a.png").c_str());
    } else {
      Write("a.png", "image");
    }
    job.WorkLine("still here");
    if (one.ErrorLine) {
      job.WorkLine("Error: no bricks");
    }
    if (!one.BadResult) {
      job.WorkLine("done");
    }
    EXPECT_EQ(job.DecidedBy(), Rule::None);
    EXPECT_EQ(job.FinishWork(one.Signal ? Killed(SIGSEGV) : Exit(0), one.HowEnded), one.Status) << one.Note;
    EXPECT_EQ(job.Note(), one.Note);
    EXPECT_EQ(job.DecidedBy(), one.DecidedBy) << one.Note;
    // Whatever was decided, what is there is known.
    ASSERT_EQ(job.CheckedFiles().size(), 1U) << one.Note;
    EXPECT_EQ(job.CheckedFiles()[0].Problem, one.MissingFile ? "Missing file" : "") << one.Note;
  }
}

TEST_F(Verdict, FilesOfOneWorkAreLookedAtOnce) {
  for (const bool done : {false, true}) {
    TestJob& job = Started();
    job.SetParameter("SuccessTexts", "done");
    job.SetParameter(p_ExpectedFiles, "missing.png");
    job.WorkLine(done ? "done" : "nearly there");
    job.Calls.clear();
    job.FinishWork(Killed(SIGSEGV));
    EXPECT_EQ(job.Calls, (std::vector<String>{"CheckResult 139", done ? "CheckFiles 7" : "CheckFiles 5",
                                              "DoCheckFile missing.png"}));
  }
}

TEST_F(Verdict, WorkThatNeverRanIsDecidedByItsStart) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "/nowhere/render");
  ProcessStart start;
  EXPECT_FALSE(job.PrepareWork(start));
  EXPECT_EQ(job.DecidedBy(), Rule::Start);
  EXPECT_FALSE(job.IsWorthRepeating());
  TestJob& other = Started();
  EXPECT_EQ(other.FailWork("cannot start: no more processes"), k_StatusFailed);
  EXPECT_EQ(other.DecidedBy(), Rule::Start);
  EXPECT_TRUE(other.IsWorthRepeating());
}

TEST_F(Verdict, TroubleWithTheFilesOfAFailedWorkIsNoNews) {
  class Raising : public TestJob {
  public:
    int CheckFiles(int /*result*/) override {
      Set(p_Note, "half way");
      RaiseException("Raising", k_ErrorSyntax, "the moon is full");
    }
  };
  Raising job;
  job.SetType(m_Type);
  job.SetObserver(&m_Recorder);
  EXPECT_EQ(job.FinishWork(Exit(3)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 3");
  EXPECT_EQ(job.FinishWork(Exit(0), Ended::Canceled), k_StatusCanceled);
  EXPECT_EQ(job.Note(), "Canceled");
  const std::vector<std::pair<String, String>> told = {{"Note", "Exit code 3"}, {"Note", "Canceled"}};
  EXPECT_EQ(m_Recorder.Changes, told);
}

TEST_F(Verdict, LineWithATextThatForbidsItMakesFurtherAttemptsPointless) {
  TestJob& job = Started();
  job.SetParameter(p_NoRetryTexts, "no license;\"cannot open; giving up\"");
  job.WorkLine("12:01 looking for a licence");
  EXPECT_TRUE(job.IsWorthRepeating());
  job.WorkLine("12:02 NO LICENSE found");
  EXPECT_FALSE(job.IsWorthRepeating());
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFinished); // the text alone is no failure
}

TEST_F(Verdict, EveryKindOfLineMayForbidFurtherAttempts) {
  for (const char* line : {"Saved: nothing (no license)", "done with no license", "Error: no license"}) {
    TestJob& job = Started();
    job.SetParameter(p_NoRetryTexts, "no license");
    job.SetParameter(p_ErrorStarts, "Error:");
    job.SetParameter("ImageStartText", "Saved: ");
    job.SetParameter("SuccessTexts", "done");
    job.WorkLine(line);
    EXPECT_FALSE(job.IsWorthRepeating()) << line;
  }
}

TEST_F(Verdict, NoteWithATextThatForbidsItMakesFurtherAttemptsPointless) {
  m_Info->GetParam(p_NoRetryTexts)->Default = "exit code 77;run-time limit";
  for (const int code : {77, 78}) {
    TestJob& job = Started();
    job.WorkLine("nothing special");
    EXPECT_EQ(job.FinishWork(Exit(code)), k_StatusFailed);
    EXPECT_EQ(job.IsWorthRepeating(), code != 77);
  }
  TestJob& job = Started();
  job.FinishWork(Exit(0), Ended::TimedOut);
  EXPECT_FALSE(job.IsWorthRepeating());
}

TEST_F(Verdict, EndFromOutsideIsTheStrongest) {
  TestJob& job = Started();
  job.SetParameter(p_ErrorStarts, "error");
  job.SetParameter(p_RunTimeLimit, "1.5m");
  job.SetParameter(p_SilenceLimit, "30");
  job.WorkLine("error: interrupted");
  EXPECT_EQ(job.FinishWork(Killed(SIGTERM), Ended::Canceled), k_StatusCanceled);
  EXPECT_EQ(job.Note(), "Canceled");
  EXPECT_EQ(job.FinishWork(Killed(SIGTERM), Ended::TimedOut), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Run-time limit of 90 s reached");
  EXPECT_EQ(job.FinishWork(Exit(0), Ended::Silent), k_StatusFailed);
  EXPECT_EQ(job.Note(), "No output for 30 s (silence limit)");
}

TEST_F(Verdict, LimitsWithFractionsAreShownWithThem) {
  TestJob& job = Started();
  job.SetParameter(p_RunTimeLimit, "1.25");
  job.FinishWork(Exit(0), Ended::TimedOut);
  EXPECT_EQ(job.Note(), "Run-time limit of 1.25 s reached");
  job.SetParameter(p_RunTimeLimit, "0.05s");
  job.FinishWork(Exit(0), Ended::TimedOut);
  EXPECT_EQ(job.Note(), "Run-time limit of 0.05 s reached");
}

TEST_F(Verdict, LimitsAreReadInSecondsAndEmptyIsNone) {
  TestJob& job = NewJob();
  EXPECT_EQ(job.RunTimeLimit(), 0);
  EXPECT_EQ(job.SilenceLimit(), 0);
  job.SetParameter(p_RunTimeLimit, " 2h ");
  job.SetParameter("Quality", "7");
  job.SetParameter(p_SilenceLimit, "$(Quality)m");
  EXPECT_EQ(job.RunTimeLimit(), 7200);
  EXPECT_EQ(job.SilenceLimit(), 420);
}

TEST_F(Verdict, WhatAModuleRaisesWhileJudgingFailsTheWork) {
  class Raising : public TestJob {
  public:
    int CheckResult(int /*exitCode*/) override {
      RaiseException("Raising", k_ErrorSyntax, "the moon is full");
    }
  };
  Raising job;
  job.SetType(m_Type);
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "the moon is full");
}

TEST_F(Verdict, ExceptionWithoutATextStillFailsTheWork) {
  class Raising : public TestJob {
  public:
    int CheckFiles(int /*result*/) override { RaiseException("Raising", k_ErrorSyntax, ""); }
  };
  Raising job;
  job.SetType(m_Type);
  EXPECT_EQ(job.FinishWork(Exit(0)), k_StatusFailed);
  EXPECT_EQ(job.Note(), "An error without a text");
}

TEST_F(Verdict, StatusIsFailedByTheTimeTheNoteIsTold) {
  class Listener : public WorkObserver {
  public:
    void OnWorkParameter(const Job& job, const String& /*name*/, const String& /*value*/) override {
      Status = job.Status();
    }
    void OnImage(const Job& /*job*/, const Path& /*file*/) override {}
    int Status = -1;
  };
  Listener listener;
  TestJob& job = Started();
  job.SetObserver(&listener);
  job.FinishWork(Exit(1));
  EXPECT_EQ(listener.Status, k_StatusFailed);
}

} // namespace
