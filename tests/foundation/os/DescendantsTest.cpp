#include "host/foundation/Process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

// Real programs that try to get away. The shell is what wrapper scripts are
// written in.

namespace {

constexpr int k_EndPatienceMs = 60000;

// This process adopts from its first test on, as the program does.
class DescendantsTest : public testing::Test {
protected:
  DescendantsTest() { AdoptDescendants(); }
};

// Of this process alone: the same tests may run at the same time.
String MarkOf(const String& name) {
  return name.empty() ? name : name + "-" + std::to_string(getpid());
}

ProcessStart ShellStart(const String& script, const String& mark) {
  ProcessStart start;
  start.Arguments = {"/bin/sh", "-c", script};
  start.Mark = MarkOf(mark);
  return start;
}

ProcessExit EndOf(Process& process) {
  ProcessExit exit;
  EXPECT_TRUE(process.Wait(exit, true));
  return exit;
}

// Waits for the end of all that is left, as an owner does.
bool Ends(Process& process) {
  for (;;) {
    if (process.Remaining().empty()) {
      return true;
    }
    pollfd exit{process.ExitDescriptor(), POLLIN, 0};
    if (poll(&exit, 1, k_EndPatienceMs) != 1) {
      return false;
    }
  }
}

std::string ReadUntilLine(Process& process) {
  std::string text;
  char letter = 0;
  while (letter != '\n') {
    pollfd output{process.OutputDescriptor(), POLLIN, 0};
    if (process.ReadOutput(&letter, 1) == 1) {
      text += letter;
    } else if (poll(&output, 1, k_EndPatienceMs) != 1) {
      break;
    }
  }
  return text;
}

struct Escape {
  const char* Name;
  const char* Script; // prints a line when it has got away, and leaves a "sleep"
};

void PrintTo(const Escape& escape, std::ostream* stream) {
  *stream << escape.Name;
}

class EscapeTest : public DescendantsTest, public testing::WithParamInterface<Escape> {};

TEST_P(EscapeTest, IsSeenAfterTheProgramAndKilled) {
  Process process(ShellStart(GetParam().Script, "seen"));
  ReadUntilLine(process);
  EndOf(process);
  ASSERT_FALSE(process.Remaining().empty());
  const pid_t left = process.Remaining().front();
  EXPECT_TRUE(CarriesMark(left, MarkOf("seen")));
  EXPECT_FALSE(CarriesMark(left, MarkOf("another")));
  process.Kill();
  EXPECT_TRUE(Ends(process));
  EXPECT_NE(kill(left, 0), 0);
}

TEST_P(EscapeTest, IsKilledWithTheProgram) {
  Process process(ShellStart(GetParam().Script + String("\nwhile :; do sleep 1; done"), "with"));
  ReadUntilLine(process);
  process.Kill();
  EndOf(process);
  process.Kill(); // what was between two parents
  EXPECT_TRUE(Ends(process));
}

TEST_P(EscapeTest, IsNotTakenForThatOfAnother) {
  Process first(ShellStart(GetParam().Script, "first"));
  ReadUntilLine(first);
  Process second(ShellStart("exit 3", "second"));
  EXPECT_EQ(EndOf(second).Code, 3);
  EXPECT_TRUE(second.Remaining().empty());
  EndOf(first);
  EXPECT_FALSE(first.Remaining().empty());
  first.Kill();
  EXPECT_TRUE(Ends(first));
}

INSTANTIATE_TEST_SUITE_P(
    , EscapeTest,
    testing::Values(Escape{"Session", "setsid sh -c 'echo; exec sleep 1000' &"},
                    Escape{"Daemon", "setsid sh -c '(exec sleep 1000) & echo' &\nwait"},
                    Escape{"CleanEnvironment", "env -i setsid sh -c 'echo; exec sleep 1000' &"},
                    Escape{"CleanDaemon",
                           "env -i setsid sh -c '(trap \"\" TERM; exec sleep 1000) & echo' &\nwait"},
                    Escape{"GroupOfTimeout", "timeout 1000 sh -c 'echo; exec sleep 1000' &"},
                    Escape{"ClosedOutput", "setsid sh -c 'echo; exec sleep 1000 >/dev/null 2>&1' &"}),
    [](const auto& escape) { return std::string(escape.param.Name); });

TEST_F(DescendantsTest, TerminateReachesThem) {
  Process process(ShellStart("trap 'exit 7' TERM\n"
                             "setsid sh -c 'trap \"exit 0\" TERM; echo; while :; do sleep 0.05; done' &\n"
                             "while :; do sleep 0.05; done",
                             "asked"));
  ReadUntilLine(process);
  process.Terminate();
  EXPECT_EQ(EndOf(process).Code, 7);
  EXPECT_TRUE(Ends(process));
}

TEST_F(DescendantsTest, WhoeverIgnoresTermIsKilled) {
  Process process(ShellStart("env -i setsid sh -c 'trap \"\" TERM; echo; exec sleep 1000' &", "stubborn"));
  ReadUntilLine(process);
  EndOf(process);
  process.Terminate();
  ASSERT_FALSE(process.Remaining().empty());
  process.Kill();
  EXPECT_TRUE(Ends(process));
}

TEST_F(DescendantsTest, ProgramOfASupervisorThatWasKilledIsEndedToo) {
  // The one in the middle starts something with a mark of its own, as an engine
  // that runs inside another one's work does.
  Process process(ShellStart("prlimit --pid $$ --rttime=4611686018427387999: ; "
                             "setsid sh -c 'echo $$; exec sleep 1000' &",
                             "outer"));
  const pid_t left = std::atoi(ReadUntilLine(process).c_str());
  ASSERT_GT(left, 1);
  EndOf(process);
  for (int turn = 0; turn < k_EndPatienceMs && kill(left, 0) == 0; ++turn) {
    EXPECT_TRUE(process.Remaining().empty()); // it is another's, but nobody's any more
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_NE(kill(left, 0), 0);
}

TEST_F(DescendantsTest, OneThatWasForkedClosesNoFileThatIsNotItsOwn) {
  const pid_t forked = fork();
  ASSERT_GE(forked, 0);
  if (forked == 0) {
    // As a process does that keeps nothing of what it has inherited.
    close_range(STDERR_FILENO + 1, ~0U, 0);
    constexpr int files = 64;
    for (int file = STDERR_FILENO + 1; file < files; ++file) {
      dup2(STDERR_FILENO, file);
    }
    AdoptDescendants();
    int closed = 0;
    for (int file = STDERR_FILENO + 1; file < files; ++file) {
      closed += fcntl(file, F_GETFD) < 0 ? 1 : 0;
    }
    _exit(closed);
  }
  int status = -1;
  EXPECT_EQ(waitpid(forked, &status, 0), forked);
  EXPECT_EQ(status, 0);
}

// What an engine within another one's work starts, held at the worst moment.
TEST_F(DescendantsTest, OneThatStartsAProgramIsNotTakenForTheProgram) {
  std::array<int, 2> ends{};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const pid_t engine = fork();
  ASSERT_GE(engine, 0);
  if (engine == 0) {
    close(ends[0]);
    const rlimit carried = CarryingLimit(MarkOf("inner"));
    setrlimit(RLIMIT_RTTIME, &carried);
    char byte = 'r';
    while (write(ends[1], &byte, 1) == 1 && read(ends[1], &byte, 1) == 1) {
    }
    _exit(0);
  }
  close(ends[1]);
  char byte = 0;
  EXPECT_EQ(read(ends[0], &byte, 1), 1);
  ReapAdopted();
  EXPECT_FALSE(CarriesMark(engine, MarkOf("inner"))); // who looks for the programs of a dead one kills those
  EXPECT_EQ(send(ends[0], "?", 1, MSG_NOSIGNAL), 1);
  EXPECT_EQ(read(ends[0], &byte, 1), 1) << "it was killed";
  close(ends[0]);
  EXPECT_EQ(waitpid(engine, nullptr, 0), engine);
}

TEST_F(DescendantsTest, AdoptedOnesThatEndAreReapedWhileTheProgramRuns) {
  Process process(ShellStart("setsid sh -c '(sleep 0.01; echo $$) & echo $!' & wait; sleep 1000", "busy"));
  const pid_t orphan = std::atoi(ReadUntilLine(process).c_str());
  ASSERT_GT(orphan, 1);
  ReadUntilLine(process);
  for (int turn = 0; turn < k_EndPatienceMs && kill(orphan, 0) == 0; ++turn) {
    ReapAdopted();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_NE(kill(orphan, 0), 0);
  ProcessExit exit;
  EXPECT_FALSE(process.Wait(exit, false));
}

TEST_F(DescendantsTest, ProgramsWithoutAMarkKeepWhatThisProcessHad) {
  const auto run = [](const String& mark) {
    Process process(ShellStart("exit 0", mark));
    EndOf(process);
  };
  run("");
  rlimit before{};
  getrlimit(RLIMIT_RTTIME, &before);
  run("marked");
  Process plain(
      ShellStart("ulimit -R 2>/dev/null || prlimit --pid $$ --rttime -o SOFT --noheadings --raw", ""));
  const std::string said = ReadUntilLine(plain);
  EndOf(plain);
  rlimit after{};
  getrlimit(RLIMIT_RTTIME, &after);
  EXPECT_EQ(after.rlim_cur, before.rlim_cur);
  EXPECT_EQ(said.find("46116860"), std::string::npos) << said;
}

// The one that was listed is gone when it is asked, and has left another.
TEST_F(DescendantsTest, OneThatStartsAnotherAndEndsDoesNotHideIt) {
  std::array<int, 2> ask{};
  std::array<int, 2> answer{};
  ASSERT_EQ(pipe(ask.data()), 0);
  ASSERT_EQ(pipe(answer.data()), 0);
  const pid_t listed = fork();
  ASSERT_GE(listed, 0);
  if (listed == 0) {
    char go = 0;
    if (read(ask[0], &go, 1) == 1) {
      const pid_t left = fork();
      if (left == 0) {
        pause();
        _exit(0);
      }
      if (write(answer[1], &left, sizeof left) != sizeof left) {
        kill(left, SIGKILL);
      }
    }
    _exit(0);
  }
  pid_t left = 0;
  const auto isOne = [&](pid_t process) {
    if (process == listed && left == 0) {
      EXPECT_EQ(write(ask[1], "g", 1), 1);
      EXPECT_EQ(read(answer[0], &left, sizeof left), static_cast<ssize_t>(sizeof left));
      EXPECT_EQ(waitpid(listed, nullptr, 0), listed);
    }
    return left != 0 && (process == listed || process == left);
  };
  const std::vector<pid_t> found = SignalProcesses(isOne, SIGKILL);
  EXPECT_EQ(found, std::vector<pid_t>{left});
  kill(left, SIGKILL);
  EXPECT_EQ(waitpid(left, nullptr, 0), left); // it was adopted
  for (const int descriptor : {ask[0], ask[1], answer[0], answer[1]}) {
    close(descriptor);
  }
}

} // namespace
