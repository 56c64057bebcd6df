#include "tests/application/jobs/TestJob.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <future>
#include <thread>

namespace {

constexpr int k_Patience = 60000; // milliseconds; generous, since machines may be busy

class Execute : public JobTest {
protected:
  /// Waits until a process is gone or only a zombie is left of it.
  static bool HasEnded(pid_t id) {
    const int watch = static_cast<int>(syscall(SYS_pidfd_open, id, 0U));
    if (watch < 0) {
      return errno == ESRCH;
    }
    pollfd ended{watch, POLLIN, 0};
    const bool result = poll(&ended, 1, k_Patience) == 1;
    close(watch);
    return result;
  }

  static long PeakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  }
};

using Lines = std::vector<String>;

TEST_F(Execute, ProgramRunsAndItsLinesAreJudgedInOrder) {
  TestJob& job = ShellJob("echo one; echo two >&2; printf 'three\\rfour\\r\\nfive'");
  job.Calls.clear();
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  EXPECT_EQ(job.Calls, (Lines{"PreExecute", "GetLatestExecutable", "CreateCommandLine",
                              "DetermineStartDirectory", "ValidateResources", "OnProcessSpawned",
                              "ProcessLine one", "ProcessLine two", "ProcessLine three", "ProcessLine four",
                              "ProcessLine five", "CheckResult 0", "CheckFiles 7"}));
  EXPECT_GT(job.ProcessId(), 0);
}

TEST_F(Execute, StartDirectoryAndEnvironmentReachTheProgram) {
  TestJob& job = ShellJob("pwd; echo \"$SHOT,$LC_ALL,${HOME-no home}\"");
  job.SetParameter(p_Environment, "SHOT=a b;HOME");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  EXPECT_EQ(job.Lines, (Lines{m_Directory.Text(), "a b,C.UTF-8,no home"}));
}

// Asked of the environment itself: a shell corrects a PWD that is not true.
TEST_F(Execute, ProgramFindsItsStartDirectoryInPwd) {
  TestJob& job = ShellJob("tr '\\0' '\\n' </proc/$$/environ | grep ^PWD=");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  EXPECT_EQ(job.Lines, (Lines{"PWD=" + m_Directory.Text()}));
}

TEST_F(Execute, NothingInAValueReachesAShell) {
  TestJob& job = NewJob();
  const Path program = WriteProgram("print", "#!/bin/sh\nfor i; do echo \"[$i]\"; done\n");
  const Path scene = Write("a; touch hit #$(touch hit) `touch hit` | touch hit > hit 'x' \"y\".pov", "scene");
  job.SetParameter(p_Executable, program.Text());
  job.SetParameter(p_Scene, scene.Text());
  job.SetParameter("CommandString", "$(Scene.Enquote) ; touch hit");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  EXPECT_EQ(job.Lines, (Lines{"[" + scene.Text() + "]", "[;]", "[touch]", "[hit]"}));
  EXPECT_NE(access(In("hit").c_str(), F_OK), 0);
}

TEST_F(Execute, ExitCodeAndLastLineMakeTheNote) {
  TestJob& job = ShellJob("echo reading; echo 'no such scene' >&2; exit 42");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 42; last line: no such scene");
}

TEST_F(Execute, SignalMakesTheNote) {
  TestJob& job = ShellJob("echo tile 3; kill -SEGV $$");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Killed by signal 11 (Segmentation fault); last line: tile 3");
}

TEST_F(Execute, ErrorLineMakesTheNote) {
  TestJob& job = ShellJob("echo 'ERROR: no texture'; exit 0");
  job.SetParameter(p_ErrorStarts, "error:");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Error line: ERROR: no texture");
}

TEST_F(Execute, ImagesAndExpectedFilesAreChecked) {
  TestJob& job = ShellJob("echo image > a.0001.png; echo 'Saved: a.0001.png'; echo image > b.png");
  job.SetParameter("ImageStartText", "Saved: ");
  job.SetParameter(p_ExpectedFiles, "b.png");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  EXPECT_EQ(job.Images(), std::vector<Path>{In("a.0001.png")});
  EXPECT_EQ(m_Recorder.Images, std::vector<Path>{In("a.0001.png")});
}

TEST_F(Execute, ProgramThatPrintsNothingAndNamesNoImageHasFailed) {
  TestJob& job = ShellJob("exit 0");
  job.SetParameter("ImageStartText", "Saved: ");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "No program output named an image");
}

TEST_F(Execute, CrashOnTheWayOutIsForgivenWhenAllIsThere) {
  TestJob& job = ShellJob("echo image > a.png; echo 'render done'; kill -ABRT $$");
  job.SetParameter("SuccessTexts", "render done");
  job.SetParameter(p_ExpectedFiles, "a.png");
  EXPECT_EQ(job.Execute(), k_StatusFinished);
  EXPECT_EQ(job.Note(), "Killed by signal 6 (Aborted) after the success text, and every file is good");
}

TEST_F(Execute, ProgramThatCannotStartIsToldWithTheReason) {
  TestJob& job = NewJob();
  const Path program = WriteProgram("render", "#!/no/such/interpreter\n");
  job.SetParameter(p_Executable, program.Text());
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "cannot start \"" + program.Text() +
                            "\": the interpreter or loader that the file names: No such file or directory");
}

TEST_F(Execute, NulByteInAnArgumentIsRefused) {
  TestJob& job = NewJob();
  job.SetParameter(p_Executable, "sh");
  job.SetParameter("Quality", String("a\0b", 3));
  job.SetParameter("CommandString", "-c true $(Quality)");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "cannot start \"sh\": argument 3 holds a NUL byte");
}

TEST_F(Execute, BinaryOutputIsOnlyOutput) {
  TestJob& job = ShellJob("printf 'a\\000bad\\377\\n\\200\\033[31m\\001end\\n'; exit 3");
  job.SetParameter(p_ErrorStarts, "bad");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Lines, (Lines{String("a\0bad\xFF", 6), "\x80\x01"
                                                       "end"}));
  EXPECT_EQ(job.Note(), "Exit code 3; last line: \x80?end");
}

TEST_F(Execute, EndlessLineCostsNoMemory) {
  TestJob& job = ShellJob("head -c 100000000 /dev/zero | tr '\\0' 'a'; echo error");
  job.SetParameter(p_ErrorStarts, "error");
  job.SetParameter(p_ErrorDetectPosition, "1");
  job.KeepLines = false;
  std::size_t bytes = 0;
  job.OnLine = [&bytes](const String& line) { bytes += line.size(); };
  const long before = PeakKilobytes();
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(bytes, 100000005U);
  EXPECT_EQ(job.ErrorLine(), String(65536, 'a'));
  EXPECT_EQ(job.Note(), "Error line: " + String(300, 'a') + "…");
  EXPECT_LT(PeakKilobytes() - before, 64 * 1024);
}

TEST_F(Execute, InterruptFromTheWorksOwnThreadCancels) {
  TestJob& job = ShellJob("echo ready; exec sleep 600");
  job.OnLine = [&job](const String& line) {
    if (line == "ready") {
      job.Interrupt(0);
    }
  };
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
  EXPECT_EQ(job.Note(), "Canceled");
}

TEST_F(Execute, InterruptFromAnotherThreadWakesASilentWork) {
  TestJob& job = ShellJob("echo ready; exec sleep 600");
  std::promise<void> ready;
  job.OnLine = [&ready](const String& line) {
    if (line == "ready") {
      ready.set_value();
    }
  };
  std::thread other([&job, started = ready.get_future()]() mutable {
    started.wait();
    job.Interrupt(0);
  });
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
  other.join();
  EXPECT_EQ(job.Note(), "Canceled");
}

TestJob* g_JobOfHandler = nullptr; // a signal handler has no other way to reach it

TEST_F(Execute, InterruptFromASignalHandlerCancels) {
  TestJob& job = ShellJob("echo ready; exec sleep 600");
  g_JobOfHandler = &job;
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int /*number*/) { g_JobOfHandler->Interrupt(0); };
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  job.OnLine = [](const String& line) {
    if (line == "ready") {
      raise(SIGUSR1);
    }
  };
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
  EXPECT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
  EXPECT_EQ(job.Note(), "Canceled");
}

TEST_F(Execute, InterruptBeforeTheStartStartsNothing) {
  TestJob& job = ShellJob("touch started");
  EXPECT_TRUE(job.ProcessCommand("Interrupt", nullptr));
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
  EXPECT_EQ(job.Note(), "Canceled");
  EXPECT_NE(access(In("started").c_str(), F_OK), 0);
}

TEST_F(Execute, ProgramIsAskedPolitelyAndMayCleanUp) {
  TestJob& job = NewJob(std::chrono::milliseconds(k_Patience));
  job.SetParameter(p_Executable, "/bin/sh");
  job.SetParameter(
      "CommandString",
      "-c " + EnquoteWord("trap 'echo cleaned; exit 0' TERM; echo ready; while :; do sleep 0.01; done"));
  job.OnLine = [&job](const String& line) {
    if (line == "ready") {
      job.Interrupt(0);
    }
  };
  EXPECT_EQ(job.Execute(), k_StatusCanceled); // although it exits with 0
  EXPECT_EQ(job.Lines.back(), "cleaned");
}

TEST_F(Execute, ProgramThatIgnoresTheRequestIsKilledAfterTheGrace) {
  TestJob& job = ShellJob("trap '' TERM; echo $$; while :; do sleep 0.01; done");
  pid_t program = 0;
  job.OnLine = [&job, &program](const String& line) {
    program = std::atoi(line.c_str());
    job.Interrupt(0);
  };
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
  ASSERT_GT(program, 0);
  EXPECT_TRUE(HasEnded(program));
}

TEST_F(Execute, KillDoesNotWaitForTheGrace) {
  TestJob& job = NewJob(std::chrono::hours(24));
  job.SetParameter(p_Executable, "/bin/sh");
  job.SetParameter("CommandString",
                   "-c " + EnquoteWord("trap '' TERM; echo ready; while :; do sleep 0.01; done"));
  job.OnLine = [&job](const String& line) {
    if (line == "ready") {
      job.Interrupt(0);
      EXPECT_TRUE(job.ProcessCommand("Kill", nullptr));
    }
  };
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
}

TEST_F(Execute, GrandchildrenEndWithTheWork) {
  TestJob& job = ShellJob("(trap '' TERM; exec sleep 600) & echo $!; wait");
  pid_t grandchild = 0;
  job.OnLine = [&job, &grandchild](const String& line) {
    grandchild = std::atoi(line.c_str());
    job.Interrupt(0);
  };
  EXPECT_EQ(job.Execute(), k_StatusCanceled);
  ASSERT_GT(grandchild, 0);
  EXPECT_TRUE(HasEnded(grandchild));
}

TEST_F(Execute, GrandchildrenThatAreLeftBehindEndWithTheLeader) {
  TestJob& job = ShellJob("sleep 600 & echo $!; exit 0");
  pid_t grandchild = 0;
  job.OnLine = [&grandchild](const String& line) { grandchild = std::atoi(line.c_str()); };
  EXPECT_EQ(job.Execute(), k_StatusFinished);
  ASSERT_GT(grandchild, 0);
  EXPECT_TRUE(HasEnded(grandchild));
}

TEST_F(Execute, StrayThatLeftTheGroupAndHoldsThePipeIsNotWaitedFor) {
  // The leader goes only when the stray is in a session of its own.
  TestJob& job = ShellJob("setsid sh -c 'echo $$; touch away; exec sleep 600' & "
                          "while [ ! -e away ]; do sleep 0.01; done; echo bye");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  ASSERT_EQ(job.Lines.size(), 2U);
  EXPECT_EQ(job.Lines[1], "bye");
  const pid_t stray = std::atoi(job.Lines[0].c_str());
  ASSERT_GT(stray, 0);
  EXPECT_EQ(kill(stray, 0), 0); // else the test has shown nothing
  kill(stray, SIGKILL);
}

TEST_F(Execute, StrayThatNeverStopsPrintingIsNotReadForEver) {
  TestJob& job = ShellJob("setsid sh -c 'echo $$ > stray; mv stray away; exec yes' & "
                          "while [ ! -e away ]; do sleep 0.01; done");
  job.KeepLines = false;
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  FILE* file = fopen(In("away").c_str(), "r");
  ASSERT_NE(file, nullptr);
  int stray = 0;
  EXPECT_EQ(fscanf(file, "%d", &stray), 1);
  fclose(file);
  EXPECT_TRUE(HasEnded(stray)); // by SIGPIPE, once its output is read no more
}

TEST_F(Execute, OutputThatWaitsAtTheEndIsReadWhole) {
  TestJob& job = ShellJob("i=0; while [ $i -lt 20000 ]; do echo line $i; i=$((i+1)); done");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
  ASSERT_EQ(job.Lines.size(), 20000U);
  EXPECT_EQ(job.Lines.back(), "line 19999");
}

TEST_F(Execute, ProgramThatClosesItsOutputIsWaitedFor) {
  TestJob& job = ShellJob("exec >/dev/null 2>&1; sleep 0.05; exit 6");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Exit code 6");
}

TEST_F(Execute, RunTimeLimitEndsTheWork) {
  TestJob& job = ShellJob("while :; do echo tick; sleep 0.01; done");
  job.SetParameter(p_RunTimeLimit, "0.1");
  job.SetParameter(p_SilenceLimit, "10h");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Run-time limit of 0.1 s reached");
}

TEST_F(Execute, RunTimeLimitHoldsForAProgramThatFloodsItsOutput) {
  TestJob& job = ShellJob("exec yes");
  job.KeepLines = false;
  job.SetParameter(p_RunTimeLimit, "0.1");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "Run-time limit of 0.1 s reached");
}

TEST_F(Execute, SilenceLimitEndsTheWork) {
  TestJob& job = ShellJob("echo one; exec sleep 600");
  job.SetParameter(p_RunTimeLimit, "10h");
  job.SetParameter(p_SilenceLimit, "0.1s");
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "No output for 0.1 s (silence limit)");
}

TEST_F(Execute, LimitThatNoClockCanHoldIsNoTrouble) {
  TestJob& job = ShellJob("exit 0");
  job.SetParameter(p_RunTimeLimit, "99999999999999999999d");
  job.SetParameter(p_SilenceLimit, "99999999999999999999d");
  EXPECT_EQ(job.Execute(), k_StatusFinished) << job.Note();
}

TEST_F(Execute, WhatAModuleRaisesOnALineEndsTheProgramAndFailsTheWork) {
  TestJob& job = ShellJob("echo $$; exec sleep 600");
  pid_t program = 0;
  job.OnLine = [&program](const String& line) {
    program = std::atoi(line.c_str());
    RaiseException("Module", k_ErrorSyntax, "the moon is full");
  };
  EXPECT_EQ(job.Execute(), k_StatusFailed);
  EXPECT_EQ(job.Note(), "The module of the type \"Test type\" failed in ProcessLine: the moon is full");
  ASSERT_GT(program, 0);
  EXPECT_TRUE(HasEnded(program));
}

TEST_F(Execute, JobsInSeveralThreadsDoNotDisturbEachOther) {
  std::vector<TestJob*> jobs;
  for (int i = 0; i < 4; ++i) {
    jobs.push_back(&ShellJob("echo " + std::to_string(i) + "; exit " + std::to_string(i)));
    jobs.back()->SetObserver(nullptr);
  }
  std::vector<std::thread> threads;
  threads.reserve(jobs.size());
  for (TestJob* job : jobs) {
    threads.emplace_back([job] { job->Execute(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(jobs[0]->Status(), k_StatusFinished);
  EXPECT_EQ(jobs[3]->Note(), "Exit code 3; last line: 3");
}

} // namespace
