#include "tests/application/jobs/TestJob.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

class Prepare : public JobTest {
protected:
  /// Prepares a work that must be ready.
  ProcessStart Ready(TestJob& job) {
    ProcessStart start;
    EXPECT_TRUE(job.PrepareWork(start)) << job.Note();
    return start;
  }

  /// Prepares a work that must be refused; its note.
  String Refused(TestJob& job) {
    ProcessStart start;
    EXPECT_FALSE(job.PrepareWork(start));
    EXPECT_EQ(job.Status(), k_StatusFailed);
    return job.Note();
  }
};

using Words = std::vector<String>;

TEST_F(Prepare, VirtualOperationsComeInTheirOrder) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, WriteProgram("render").Text());
  job.Calls.clear();
  Ready(job);
  EXPECT_EQ(job.Calls, (Words{"PreExecute", "GetLatestExecutable", "CreateCommandLine",
                              "DetermineStartDirectory", "ValidateResources"}));
}

TEST_F(Prepare, ProgramComesFirstAndTheRestIsExpandedAndSplit) {
  TestJob& job = NewJob();
  const Path program = WriteProgram("render");
  job.SetParameter(p_Executable, program.Text());
  job.SetParameter(p_SubRange, "3-7");
  job.SetParameter("CommandString", "-f $(SubRange.Start) 'two words' --cpus=$(CPUs) $(Frame)");
  EXPECT_EQ(Ready(job).Arguments, (Words{program.Text(), "-f", "3", "two words", "--cpus=1", "3"}));
}

TEST_F(Prepare, ProgramWithBlanksQuotesAndReferencesIsOneWordAsItIs) {
  TestJob& job = NewJob();
  const Path program = WriteProgram("my $(CPUs) \"render\"; `x` \\");
  job.SetParameter(p_Executable, program.Text());
  job.SetParameter("CommandString", "-x");
  EXPECT_EQ(Ready(job).Arguments, (Words{program.Text(), "-x"}));
}

TEST_F(Prepare, SceneNameIsNeverExpanded) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, WriteProgram("render").Text());
  const Path scene = Write("$(rm -r x); $(CPUs) `y` 'z'.pov", "scene");
  job.SetParameter(p_Scene, scene.Text());
  job.SetParameter("CommandString", "$(Scene.Enquote) end");
  const ProcessStart start = Ready(job);
  ASSERT_EQ(start.Arguments.size(), 3U);
  EXPECT_EQ(start.Arguments[1], scene.Text());
  EXPECT_EQ(start.Arguments[2], "end");
}

TEST_F(Prepare, WithoutProgramTheFirstWordIsTheProgram) {
  TestJob& job = NewJob();
  job.SetParameter("CommandString", "sh -c 'exit 0'");
  EXPECT_EQ(Ready(job).Arguments, (Words{"sh", "-c", "exit 0"}));
}

TEST_F(Prepare, WithoutAnyWordTheNoteSaysWhatToSet) {
  TestJob& job = NewJob();
  const String expected =
      "No program to start: set the parameter \"Executable\", or begin the command line with one";
  EXPECT_EQ(Refused(job), expected);
  job.SetParameter("CommandString", "  \t ");
  EXPECT_EQ(Refused(job), expected);
  job.SetParameter("CommandString", "\"\" -x");
  EXPECT_EQ(Refused(job), expected);
}

TEST_F(Prepare, NewestProgramStandsInForAMissingOne) {
  TestJob& job = NewJob();
  job.Latest = WriteProgram("new $(x)/render");
  job.SetParameter("CommandString", "-x");
  EXPECT_EQ(Ready(job).Arguments, (Words{job.Latest.Text(), "-x"}));
}

TEST_F(Prepare, NewestProgramWinsOverTheTypesDefault) {
  const Path standard = WriteProgram("standard/render");
  m_Info->GetParam(p_Executable)->Default = standard.Text();
  TestJob& job = NewJob();
  job.SetParameter("CommandString", "-x");
  EXPECT_EQ(Ready(job).Arguments, (Words{standard.Text(), "-x"}));
  job.Latest = WriteProgram("new/render");
  EXPECT_EQ(Ready(job).Arguments, (Words{job.Latest.Text(), "-x"}));
}

TEST_F(Prepare, NewestProgramYieldsToTheJobsAndTheEnginesChoice) {
  const Path ofEngine = WriteProgram("engine/render");
  const Path ofJob = WriteProgram("job/render");
  m_Info->GetParam(p_Executable)->Default = WriteProgram("standard/render").Text();
  SetOption(p_Executable, ofEngine.Text());
  TestJob& job = NewJob();
  job.Latest = WriteProgram("new/render");
  EXPECT_EQ(Ready(job).Arguments, Words{ofEngine.Text()});
  job.SetParameter(p_Executable, ofJob.Text());
  EXPECT_EQ(Ready(job).Arguments, Words{ofJob.Text()});
}

TEST_F(Prepare, RelativeProgramCountsFromTheCallersDirectory) {
  TestJob& job = NewJob();
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  job.SetParameter(p_Executable, "./bin/render");
  const String absolute = std::filesystem::current_path().string() + "/bin/render";
  EXPECT_EQ(Refused(job), "Program \"" + absolute + "\" does not exist");
  EXPECT_EQ(job.DescribeWork().Arguments, Words{absolute});
}

TEST_F(Prepare, BareProgramIsLookedUpAlongThePath) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  EXPECT_EQ(Ready(job).Arguments, Words{"sh"});
  job.SetParameter(p_Executable, "no_such_renderer");
  EXPECT_EQ(Refused(job), "Program \"no_such_renderer\" not found along PATH");
}

TEST_F(Prepare, UnusableProgramsAreToldApart) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, Write("plain", "x").Text());
  EXPECT_EQ(Refused(job), "Program \"" + In("plain").Text() + "\" is not executable");
  job.SetParameter(p_Executable, m_Directory.Text());
  EXPECT_EQ(Refused(job), "Program \"" + m_Directory.Text() + "\" is a folder");
  job.SetParameter(p_Executable, In("plain/below").Text());
  EXPECT_EQ(Refused(job), "Program \"" + In("plain/below").Text() + "\" does not exist");
  job.SetParameter(p_Executable, "/" + String(300, 'x'));
  EXPECT_EQ(Refused(job), "Program \"/" + String(300, 'x') + "\" cannot be reached: File name too long");
}

TEST_F(Prepare, StartDirectoryIsTheScenesFolderUnlessSet) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  EXPECT_EQ(Ready(job).StartDirectory, Path());
  job.SetParameter(p_Scene, Write("scenes/a.pov", "x").Text());
  EXPECT_EQ(Ready(job).StartDirectory, In("scenes"));
  job.SetParameter(p_StartDirectory, "$(Scene.Branch)/..");
  EXPECT_EQ(Ready(job).StartDirectory, In("scenes/.."));
  job.SetParameter(p_StartDirectory, Path());
  job.SetParameter(p_Scene, "a.pov");
  EXPECT_EQ(Ready(job).StartDirectory, Path(std::filesystem::current_path().string()));
}

TEST_F(Prepare, UnusableStartDirectoriesAreToldApart) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_StartDirectory, In("nowhere").Text());
  EXPECT_EQ(Refused(job), "Start directory \"" + In("nowhere").Text() + "\" does not exist");
  job.SetParameter(p_StartDirectory, Write("file", "x").Text());
  EXPECT_EQ(Refused(job), "Start directory \"" + In("file").Text() + "\" is not a folder");
}

TEST_F(Prepare, EnvironmentSetsAndRemovesVariables) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_SubRange, "3-3");
  job.SetParameter("Quality", "a;b=c");
  job.SetParameter(p_Environment, "FRAME=$(Frame); GONE ;EMPTY=;\"SEMI=x;y\";Q=$(Quality);;");
  const auto changes = Ready(job).Environment;
  const std::vector<std::pair<String, std::optional<String>>> expected = {
      {"FRAME", "3"}, {"GONE", std::nullopt}, {"EMPTY", ""}, {"SEMI", "x;y"}, {"Q", "a;b=c"}};
  EXPECT_EQ(changes, expected);
}

TEST_F(Prepare, EnvironmentEntryWithoutNameIsRefused) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_Environment, "A=1;=2");
  EXPECT_EQ(Refused(job),
            "Environment: \"=2\" names no variable; write NAME=VALUE, or NAME alone to remove one");
}

TEST_F(Prepare, OutputFolderIsMadeWithItsParents) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_Scene, Write("scenes/a.pov", "x").Text());
  job.SetParameter(p_OutputFolder, "$(Scene.Branch)/images/$(Scene.Base)");
  Ready(job);
  EXPECT_TRUE(std::filesystem::is_directory(In("scenes/images/a").c_str()));
  Ready(job); // that it exists already is fine
  job.SetParameter(p_OutputFolder, "relative/to start");
  Ready(job);
  EXPECT_TRUE(std::filesystem::is_directory(In("scenes/relative/to start").c_str()));
}

TEST_F(Prepare, OutputFolderThatCannotBeMadeIsToldWithTheReason) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  Write("file", "x");
  job.SetParameter(p_OutputFolder, In("file").Text());
  EXPECT_EQ(Refused(job), "Cannot create folder \"" + In("file").Text() + "\": Not a directory");
  job.SetParameter(p_OutputFolder, In("file/below").Text());
  EXPECT_EQ(Refused(job), "Cannot create folder \"" + In("file/below").Text() + "\": Not a directory");
  job.SetParameter(p_OutputFolder, "/proc/nothing");
  EXPECT_EQ(Refused(job), "Cannot create folder \"/proc/nothing\": No such file or directory");
}

TEST_F(Prepare, NothingElseHappensAfterAFailedBeginning) {
  TestJob& job = NewJob();
  Write("file", "x");
  job.SetParameter(p_OutputFolder, In("file").Text());
  job.Calls.clear();
  Refused(job);
  EXPECT_EQ(job.Calls, Words{"PreExecute"});
}

TEST_F(Prepare, UnknownReferenceInTheCommandLineIsToldWithASuggestion) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter("CommandString", "-q $(Qualty)");
  EXPECT_EQ(Refused(job), "command line:4: nobody answers $(Qualty); did you mean \"Quality\"?\n    1 | -q "
                          "$(Qualty)\n      |    ^");
}

TEST_F(Prepare, MistakesInParametersAreToldUnderTheirNames) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_OutputFolder, "/tmp/$(Nothing)");
  EXPECT_EQ(Refused(job),
            "OutputFolder:6: nobody answers $(Nothing)\n    1 | /tmp/$(Nothing)\n      |      ^");
  job.SetParameter(p_OutputFolder, "");
  job.SetParameter(p_ExpectedFiles, "a.png;$(Frme).png");
  EXPECT_EQ(
      Refused(job),
      "ExpectedFiles:1: nobody answers $(Frme); did you mean \"Frame\"?\n    1 | $(Frme).png\n      | ^");
  job.SetParameter(p_ExpectedFiles, "");
  job.SetParameter(p_RunTimeLimit, "an hour");
  EXPECT_EQ(Refused(job),
            "RunTimeLimit: \"an hour\" is no duration; write seconds, or a number with s, m, h or d");
  job.SetParameter(p_RunTimeLimit, "");
  job.SetParameter(p_SilenceLimit, "-3");
  EXPECT_EQ(Refused(job),
            "SilenceLimit: \"-3\" is no duration; write seconds, or a number with s, m, h or d");
  job.SetParameter(p_SilenceLimit, "");
  job.SetParameter(p_SuccessExitCodes, "0,x");
  EXPECT_EQ(Refused(job), "SuccessExitCodes:3: a number is missing; write exit codes from 0 to 255 and "
                          "ranges, as in 0,2-4\n    1 | 0,x\n      |   ^");
  job.SetParameter(p_SuccessExitCodes, "");
  EXPECT_EQ(Ready(job).Arguments, Words{"sh"});
}

TEST_F(Prepare, SceneWhoseNameTheProgramRefusesIsTold) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter(p_Scene, In("r\xC3\xABnder/a b.pov").Text());
  job.SetParameter(p_RefusedInSceneName, "NonASCII \"");
  job.SetParameter(p_StartDirectory, m_Directory.Text());
  Ready(job); // what the folders are called does not matter
  job.SetParameter(p_RefusedInSceneName, "Blank");
  job.SetParameter(p_OutputFolder, In("images").Text());
  EXPECT_EQ(Refused(job), "The program does not take the scene file's name, which holds a blank: " +
                              In("r\xC3\xABnder/a b.pov").Text());
  EXPECT_NE(access(In("images").c_str(), F_OK), 0);
  job.SetParameter(p_RefusedInSceneName, "blanks");
  EXPECT_EQ(Refused(job).substr(0, 21), "RefusedInSceneName:1:");
}

TEST_F(Prepare, UnclosedQuoteIsToldWithItsColumn) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter("CommandString", "-c 'exit 0");
  EXPECT_EQ(Refused(job),
            "command line:4: the quote ' is never closed; close it, or write a backslash before it "
            "where it is meant as it stands");
}

TEST_F(Prepare, CommandLineThatDoesNotBeginWithTheProgramStandsWhole) {
  class Wrapped : public TestJob {
  public:
    String CreateCommandLine(Path& executable) override {
      executable = "/opt/render";
      return "nice -n 5 sh";
    }
  };
  Wrapped job;
  job.SetType(m_Type);
  EXPECT_EQ(Ready(job).Arguments, (Words{"nice", "-n", "5", "sh"}));
}

TEST_F(Prepare, OldNoteIsForgottenAndFailureIsToldToTheObserverOnce) {
  TestJob& job = NewJob();
  job.SetParameter(p_Note, "of the night before");
  job.SetParameter(p_Executable, "sh");
  Ready(job);
  EXPECT_EQ(job.Note(), "");
  EXPECT_TRUE(m_Recorder.Changes.empty());
  job.SetParameter(p_Executable, "no_such_renderer");
  Refused(job);
  const std::vector<std::pair<String, String>> expected = {
      {"Note", "Program \"no_such_renderer\" not found along PATH"}};
  EXPECT_EQ(m_Recorder.Changes, expected);
}

TEST_F(Prepare, WhatAModuleRaisesBecomesTheNote) {
  class Raising : public TestJob {
  public:
    Path GetLatestExecutable() override { RaiseException("Raising", k_ErrorSyntax, "the moon is full"); }
  };
  class Throwing : public TestJob {
  public:
    Path GetLatestExecutable() override { throw std::runtime_error("out of luck"); }
  };
  Raising raising;
  EXPECT_EQ(Refused(raising), "the moon is full");
  Throwing throwing;
  EXPECT_EQ(Refused(throwing), "out of luck");
}

TEST_F(Prepare, RefusalWithoutAReasonStillHasANote) {
  class Silent : public TestJob {
  public:
    bool PreExecute() override { return false; }
  };
  Silent job;
  EXPECT_EQ(Refused(job), "The work could not be prepared");
}

TEST_F(Prepare, DescribingLeavesTheDiskAlone) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "/opt/nothing/render");
  job.SetParameter(p_OutputFolder, In("made").Text());
  job.SetParameter(p_StartDirectory, In("start").Text());
  job.SetParameter(p_Environment, "A=1");
  job.SetParameter("CommandString", "-o $(OutputFolder.Enquote)");
  job.Calls.clear();
  const ProcessStart start = job.DescribeWork();
  EXPECT_EQ(start.Arguments, (Words{"/opt/nothing/render", "-o", In("made").Text()}));
  EXPECT_EQ(start.StartDirectory, In("start"));
  EXPECT_EQ(start.Environment.size(), 1U);
  EXPECT_FALSE(std::filesystem::exists(In("made").c_str()));
  EXPECT_EQ(job.Calls, (Words{"GetLatestExecutable", "CreateCommandLine", "DetermineStartDirectory"}));
  job.SetParameter("CommandString", "$(Nothing)");
  EXPECT_NE(RaisedText([&job] { job.DescribeWork(); }), "");
  EXPECT_EQ(job.Note(), "");
}

} // namespace
