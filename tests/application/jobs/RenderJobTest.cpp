#include "tests/application/jobs/TestJob.h"

namespace {

class RenderJobs : public JobTest {
protected:
  static String Value(const Job& job, const String& name) {
    String value = "untouched";
    return job.GetParameter(name, value) ? value : String("not answered");
  }

  static std::vector<String> Works(RenderJob& job) {
    std::vector<String> works;
    const std::unique_ptr<Distributor> distributor = job.DoGetDistributor();
    FrameRun run;
    bool hasFrames = false;
    while (distributor->Next(run, hasFrames)) {
      works.push_back(hasFrames ? run.Text() : String("whole"));
    }
    EXPECT_EQ(works.size(), distributor->Count());
    EXPECT_FALSE(distributor->Next(run, hasFrames));
    return works;
  }

  SmartHandle<const Job> Child(const String& frames, int status, const String& note = String::Null) {
    auto* child = new TestJob;
    child->SetParameter(p_SubRange, frames);
    child->SetParameter(p_Note, note);
    child->SetStatus(status);
    return SmartHandle<const Job>(SmartHandle<Job>(static_cast<Job*>(child)));
  }
};

TEST_F(RenderJobs, AnswerEveryStandardParameterOfTheirType) {
  TestJob& job = NewJob();
  JobTypeInfo info;
  RenderJob::FillJobTypeInfo(&info, true);
  for (unsigned long i = 0; i < info.ParamCount(); ++i) {
    const bool heading = info.GetParam(i)->Type() == ParameterInfo::k_Heading;
    EXPECT_EQ(Value(job, info.GetParam(i)->Name), heading ? "not answered" : "") << info.GetParam(i)->Name;
  }
}

TEST_F(RenderJobs, KnowNamesInAnyCaseAndKeepThemInTheHostsSpelling) {
  TestJob& job = NewJob();
  EXPECT_TRUE(job.SetParameter("OUTPUTfolder", "/out"));
  EXPECT_EQ(Value(job, "outputFOLDER"), "/out");
  OutStream packed;
  job.PackObject(packed);
  EXPECT_NE(packed.Bytes().find("OutputFolder"), std::string::npos);
  EXPECT_EQ(packed.Bytes().find("OUTPUTfolder"), std::string::npos);
}

TEST_F(RenderJobs, RefuseNamesThatNobodyKnows) {
  TestJob& job = NewJob();
  EXPECT_FALSE(job.SetParameter("Nothing", "x"));
  EXPECT_EQ(Value(job, "Nothing"), "not answered");
}

TEST_F(RenderJobs, FrameIsTheFirstOfTheSubRangeAndCannotBeSet) {
  TestJob& job = NewJob();
  EXPECT_EQ(Value(job, "Frame"), "");
  EXPECT_EQ(Value(job, "SubRange"), "");
  EXPECT_TRUE(job.SetParameter("subrange", "7-9"));
  EXPECT_EQ(Value(job, "SubRange"), "7-9");
  EXPECT_EQ(Value(job, "Frame"), "7");
  EXPECT_FALSE(job.SetParameter("Frame", "3"));
  EXPECT_EQ(Value(job, "Frame"), "7");
  job.SetParameter(p_SubRange, "-5--3");
  EXPECT_EQ(Value(job, "Frame"), "-5");
  job.SetParameter(p_SubRange, "nonsense");
  EXPECT_EQ(Value(job, "Frame"), "");
}

TEST_F(RenderJobs, WithoutStandardParametersOnlyStoredOnesAreAnswered) {
  class NotStandard : public RenderJob {
  public:
    NotStandard() : RenderJob(false) { Set("Own", "1"); }
  };
  NotStandard job;
  EXPECT_EQ(Value(job, p_Scene), "not answered");
  EXPECT_EQ(Value(job, p_Frame), "not answered");
  EXPECT_EQ(Value(job, "Own"), "1");
  EXPECT_FALSE(job.SetParameter(p_Scene, "x"));
}

TEST_F(RenderJobs, BaseCommandLineIsTheEnquotedProgramAndABlank) {
  TestJob& job = NewJob();
  Path executable = "before";
  EXPECT_EQ(job.RenderJob::CreateCommandLine(executable), "");
  EXPECT_EQ(executable, Path());
  job.SetParameter(p_Executable, "/opt/my render");
  EXPECT_EQ(job.RenderJob::CreateCommandLine(executable), "\"/opt/my render\" ");
  EXPECT_EQ(executable, Path("/opt/my render"));
  EXPECT_EQ(job.RenderJob::GetLatestExecutable(), Path());
}

TEST_F(RenderJobs, WithoutARangeThereIsOneWorkWithoutFrames) {
  TestJob& job = NewJob();
  EXPECT_EQ(Works(job), std::vector<String>{"whole"});
}

TEST_F(RenderJobs, RangeIsCutIntoPackets) {
  TestJob& job = NewJob();
  job.SetParameter(p_Range, "1-5");
  EXPECT_EQ(Works(job), (std::vector<String>{"1-1", "2-2", "3-3", "4-4", "5-5"}));
  job.SetParameter(p_PacketSize, "2");
  EXPECT_EQ(Works(job), (std::vector<String>{"1-2", "3-4", "5-5"}));
  job.SetParameter(p_Range, "1-10x3");
  EXPECT_EQ(Works(job), (std::vector<String>{"1-1", "4-4", "7-7", "10-10"}));
}

TEST_F(RenderJobs, RangeAndPacketMayReferToOtherParameters) {
  TestJob& job = NewJob();
  job.SetParameter("Quality", "3");
  job.SetParameter(p_Range, "1-$(Quality)");
  job.SetParameter(p_PacketSize, "$(Quality)");
  EXPECT_EQ(Works(job), std::vector<String>{"1-3"});
}

TEST_F(RenderJobs, MalformedRangeOrPacketIsAnError) {
  TestJob& job = NewJob();
  job.SetParameter(p_PacketSize, "two");
  EXPECT_EQ(RaisedText([&job] { job.DoGetDistributor(); }),
            "PacketSize: \"two\" is no number of frames; write a whole number from 1, or auto");
  job.SetParameter(p_PacketSize, "0");
  EXPECT_EQ(RaisedText([&job] { job.DoGetDistributor(); }),
            "PacketSize: \"0\" is no number of frames; write a whole number from 1, or auto");
  job.SetParameter(p_PacketSize, "99999999999");
  EXPECT_EQ(RaisedText([&job] { job.DoGetDistributor(); }),
            "PacketSize: \"99999999999\" is no number of frames; write a whole number from 1, or auto");
  job.SetParameter(p_PacketSize, "1");
  job.SetParameter(p_Range, "1-");
  EXPECT_NE(RaisedText([&job] { job.DoGetDistributor(); }).find("frame range:1:3: "), std::string::npos);
}

TEST_F(RenderJobs, OwnCommandsAreHandledAndNoOthers) {
  TestJob& job = NewJob();
  EXPECT_FALSE(job.ProcessCommand("Preview", nullptr));
  EXPECT_FALSE(job.ProcessCommand("", nullptr));
  EXPECT_TRUE(job.ProcessCommand("interrupt", nullptr));
  EXPECT_TRUE(job.ProcessCommand("Kill", nullptr));
}

TEST_F(RenderJobs, StatusFollowsTheWorks) {
  TestJob& job = NewJob();
  job.SetParameter(p_Range, "1-3");
  const auto tell = [this, &job](const String& frames, int status, const String& text) {
    job.OnChildChange(Child(frames, status), "Status", text);
    return job.Status();
  };
  EXPECT_EQ(tell("1-1", k_StatusReady, "1"), k_StatusReady);
  EXPECT_EQ(tell("1-1", k_StatusRunning, "2"), k_StatusRunning);
  EXPECT_EQ(tell("1-1", k_StatusFinished, "Finished"), k_StatusRunning); // two have not begun
  EXPECT_EQ(tell("2-2", k_StatusPaused, "paused"), k_StatusPaused);
  EXPECT_EQ(tell("2-2", k_StatusRunning, "2"), k_StatusRunning);
  EXPECT_EQ(job.ChildCount(k_StatusFinished), 1);
  EXPECT_EQ(job.ChildCount(k_StatusRunning), 1);
  EXPECT_EQ(tell("2-2", k_StatusFailed, "5"), k_StatusRunning);
  EXPECT_EQ(tell("3-3", k_StatusCanceled, "6"), k_StatusFailed); // all ended; the worst counts
  EXPECT_EQ(tell("2-2", k_StatusRunning, "2"), k_StatusRunning); // a further attempt
  EXPECT_EQ(tell("2-2", k_StatusFinished, "7"), k_StatusCanceled);
  EXPECT_EQ(tell("3-3", k_StatusFinished, "7"), k_StatusFinished);
  EXPECT_EQ(job.ChildCount(k_StatusFinished), 3);
}

TEST_F(RenderJobs, WorksMayBeCutWhileTheJobGoesOn) {
  TestJob& job = NewJob();
  job.SetParameter(p_Range, "1-10,21-30");
  job.SetParameter(p_PacketSize, "10");
  const auto tell = [this, &job](const String& frames, int status) {
    job.OnChildChange(Child(frames, status), "Status", std::to_string(status));
    return job.Status();
  };
  EXPECT_EQ(tell("1-10", k_StatusRunning), k_StatusRunning);
  EXPECT_EQ(tell("1-10", k_StatusFailed), k_StatusRunning); // half of the frames have not begun
  EXPECT_EQ(tell("1-4", k_StatusFinished), k_StatusRunning);
  EXPECT_EQ(tell("21-30", k_StatusFinished), k_StatusFailed);
  EXPECT_EQ(job.ChildCount(k_StatusFinished), 14);
  EXPECT_EQ(job.ChildCount(k_StatusFailed), 6);
  EXPECT_EQ(tell("5-10", k_StatusRunning), k_StatusRunning);
  EXPECT_EQ(tell("5-10", k_StatusFinished), k_StatusFinished);
  EXPECT_EQ(job.ChildCount(k_StatusFailed), 0);
}

TEST_F(RenderJobs, NoteOfAWorkThatWasToldToHaveFailedIsTaken) {
  TestJob& job = NewJob();
  job.SetParameter(p_Range, "1-9");
  job.OnChildChange(Child("3-4", k_StatusRunning), "Status", "5");
  job.OnChildChange(Child("3-4", k_StatusRunning), p_Note, "Exit code 3");
  EXPECT_EQ(job.Note(), "frames 3-4: Exit code 3");
  job.OnChildChange(Child("5-5", k_StatusRunning), p_Note, "not his");
  EXPECT_EQ(job.Note(), "frames 3-4: Exit code 3");
}

TEST_F(RenderJobs, OtherChangesOfAWorkDoNotChangeTheStatus) {
  TestJob& job = NewJob();
  job.SetStatus(k_StatusReady);
  job.OnChildChange(Child("1-1", k_StatusRunning), "Status", "99");
  job.OnChildChange(Child("1-1", k_StatusRunning), "Status", "");
  job.OnChildChange(Child("1-1", k_StatusRunning), "Quality", "2");
  job.OnChildChange(SmartHandle<const Job>(), "Status", "2");
  EXPECT_EQ(job.Status(), k_StatusReady);
  EXPECT_EQ(job.ChildCount(k_StatusRunning), 0);
}

TEST_F(RenderJobs, NoteOfAFailedWorkBecomesTheJobsWithItsFrames) {
  TestJob& job = NewJob();
  job.SetParameter(p_Range, "1-9");
  job.OnChildChange(Child("3-4", k_StatusRunning), p_Note, "half way");
  EXPECT_EQ(job.Note(), "");
  job.OnChildChange(Child("3-4", k_StatusFailed), p_Note, "Exit code 3");
  EXPECT_EQ(job.Note(), "frames 3-4: Exit code 3");
  job.OnChildChange(Child("5-6", k_StatusFailed, "Missing file: x"), "Status", "5");
  EXPECT_EQ(job.Note(), "frames 5-6: Missing file: x");
  job.OnChildChange(Child("", k_StatusFailed), p_Note, "Exit code 1");
  EXPECT_EQ(job.Note(), "Exit code 1");
  EXPECT_TRUE(m_Recorder.Changes.empty()); // no work of its own changed
}

TEST_F(RenderJobs, JobWithoutARangeEndsWithItsOneWork) {
  TestJob& job = NewJob();
  job.OnChildChange(Child("", k_StatusRunning), "Status", "2");
  EXPECT_EQ(job.Status(), k_StatusRunning);
  job.OnChildChange(Child("", k_StatusFinished), "Status", "7");
  EXPECT_EQ(job.Status(), k_StatusFinished);
}

TEST(SuccessExitCodes, NumbersAndRangesCount) {
  EXPECT_TRUE(IsSuccessExitCode("0", 0));
  EXPECT_FALSE(IsSuccessExitCode("0", 1));
  EXPECT_TRUE(IsSuccessExitCode(" 0 , 2 - 4 ,255", 3));
  EXPECT_TRUE(IsSuccessExitCode("0,2-4,255", 255));
  EXPECT_FALSE(IsSuccessExitCode("0,2-4,255", 1));
  EXPECT_FALSE(IsSuccessExitCode("0,2-4", 5));
}

TEST(SuccessExitCodes, EmptyListMeansZero) {
  EXPECT_TRUE(IsSuccessExitCode("", 0));
  EXPECT_FALSE(IsSuccessExitCode(" ", 1));
}

TEST(SuccessExitCodes, MistakesAreToldWithTheirPlace) {
  const auto expect = [](const String& codes, int column, const String& why) {
    EXPECT_EQ(RaisedText([&codes] { IsSuccessExitCode(codes, 0); }),
              "SuccessExitCodes:" + std::to_string(column) + ": " + why +
                  "; write exit codes from 0 to 255 and ranges, as in 0,2-4\n    1 | " + codes +
                  "\n      | " + std::string(static_cast<std::size_t>(column) - 1, ' ') + "^");
  };
  expect("0,x", 3, "a number is missing");
  expect("256", 1, "no program can give this exit code");
  expect("99999999999", 1, "no program can give this exit code");
  expect("4-2", 3, "the range ends before it begins");
  expect("0,", 3, "a number is missing");
  expect(",", 1, "a number is missing");
  expect("0 1", 3, "a comma or \"-\" is expected here");
  expect("-1", 1, "a number is missing");
}

} // namespace
