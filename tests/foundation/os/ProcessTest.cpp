#include "host/foundation/Process.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Quoting.h"
#include "tests/foundation/os/TestDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

extern const char* const TEST_PROGRAM;

namespace {

using namespace std::string_literals;
using Clock = std::chrono::steady_clock;
constexpr auto k_Patience = std::chrono::seconds(120);
constexpr int k_PatienceMs = 120'000;

ProcessStart StartOf(const std::vector<String>& arguments) {
  ProcessStart start;
  start.Arguments = {TEST_PROGRAM};
  start.Arguments.insert(start.Arguments.end(), arguments.begin(), arguments.end());
  return start;
}

bool BecomesReadable(int descriptor) {
  pollfd wait{descriptor, POLLIN, 0};
  return poll(&wait, 1, k_PatienceMs) == 1;
}

// Everything up to the end of the output.
std::string ReadAll(Process& process) {
  std::string output;
  char buffer[65536];
  for (;;) {
    const ssize_t count = process.ReadOutput(buffer, sizeof(buffer));
    if (count > 0) {
      output.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0 || !BecomesReadable(process.OutputDescriptor())) {
      return output;
    }
  }
}

std::string ReadLine(Process& process) {
  std::string line;
  char byte = 0;
  while (byte != '\n') {
    const ssize_t count = process.ReadOutput(&byte, 1);
    if (count > 0) {
      line.push_back(byte);
    } else if (count == 0 || !BecomesReadable(process.OutputDescriptor())) {
      break;
    }
  }
  return line;
}

std::string OutputOf(const ProcessStart& start) {
  Process process(start);
  return ReadAll(process);
}

ProcessExit ExitOf(const ProcessStart& start) {
  Process process(start);
  ProcessExit result;
  EXPECT_TRUE(process.Wait(result, true));
  return result;
}

String ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    return owned->Text();
  }
  return "nothing was raised";
}

String StartErrorOf(const ProcessStart& start) {
  return ErrorOf([&start] { Process process(start); });
}

// Watches a process that is not ours to reap.
class Watch {
public:
  explicit Watch(pid_t id) : m_Descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0))) {}
  bool IsAlive() const {
    pollfd wait{m_Descriptor.Number(), POLLIN, 0};
    return m_Descriptor.IsOpen() && poll(&wait, 1, 0) == 0;
  }
  bool Ends() const { return m_Descriptor.IsOpen() && BecomesReadable(m_Descriptor.Number()); }

private:
  Descriptor m_Descriptor;
};

TEST(ProcessTest, ExitCodeIsReported) {
  const ProcessExit result = ExitOf(StartOf({"exit", "42"}));
  EXPECT_EQ(result.Code, 42);
  EXPECT_EQ(result.Signal, 0);
}

TEST(ProcessTest, DeathBySignalIs128PlusSignal) {
  const ProcessExit result = ExitOf(StartOf({"die", std::to_string(SIGKILL)}));
  EXPECT_EQ(result.Code, 137);
  EXPECT_EQ(result.Signal, 9);
}

TEST(ProcessTest, WhatAProgramHasUsedIsKnownWhenItHasEnded) {
  for (const char* verb : {"use", "use-below"}) {
    const ProcessExit result = ExitOf(StartOf({verb, "200", "300"}));
    EXPECT_EQ(result.Code, 0);
    ASSERT_TRUE(result.Usage.has_value());
    EXPECT_GE(result.Usage->UserTime + result.Usage->SystemTime, 300'000) << verb;
    EXPECT_GE(result.Usage->PeakMemory, 200'000'000) << verb;
    EXPECT_TRUE(result.Usage->BytesRead.has_value()) << verb;
    EXPECT_TRUE(result.Usage->BytesWritten.has_value()) << verb;
  }
}

// The number behind a name in what the kernel tells of a process.
std::int64_t AccountOf(pid_t process, const std::string& name) {
  std::ifstream account("/proc/" + std::to_string(process) + "/io");
  for (std::string word; account >> word;) {
    if (std::int64_t number = 0; word == name + ":" && account >> number) {
      return number;
    }
  }
  return -1;
}

TEST(ProcessTest, WhatWasReadAndWrittenIsWhatTheKernelsAccountTells) {
  const std::string file = "/var/tmp/trovik-test-" + std::to_string(getpid());
  for (const std::string& line : {"dd if=/dev/zero of='" + file + "' bs=4096 count=700 conv=fsync",
                                  "(dd if=/dev/zero of='" + file + "' bs=4096 count=300); true"}) {
    ProcessStart start;
    start.Arguments = {"/bin/sh", "-c", line};
    Process process(start);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process.Id()), &info, WEXITED | WNOWAIT), 0);
    const std::int64_t read = AccountOf(process.Id(), "read_bytes");
    const std::int64_t written = AccountOf(process.Id(), "write_bytes");
    ProcessExit result;
    ASSERT_TRUE(process.Wait(result, true));
    ASSERT_TRUE(result.Usage.has_value());
    EXPECT_EQ(result.Usage->BytesRead, read) << line;
    EXPECT_EQ(result.Usage->BytesWritten, written) << line;
    EXPECT_GE(read, 0) << line;
    EXPECT_GE(written, 0) << line;
  }
  std::filesystem::remove(file);
}

TEST(ProcessTest, WhatAKilledProgramHasUsedIsKnown) {
  const ProcessExit result = ExitOf(StartOf({"die", std::to_string(SIGKILL)}));
  ASSERT_TRUE(result.Usage.has_value());
  EXPECT_GT(result.Usage->PeakMemory, 0);
}

TEST(ProcessTest, OutputAndErrorsComeThroughOnePipeInTheirOrder) {
  EXPECT_EQ(OutputOf(StartOf({"both"})), "one\ntwo\nthree\n");
}

TEST(ProcessTest, ReadingTellsWaitingFromEnded) {
  Process process(StartOf({"wait"}));
  EXPECT_EQ(ReadLine(process), "ready\n");
  char byte = 0;
  EXPECT_EQ(process.ReadOutput(&byte, 1), -1);
  EXPECT_GE(process.OutputDescriptor(), 0);
  process.Kill();
  ASSERT_TRUE(BecomesReadable(process.OutputDescriptor()));
  EXPECT_EQ(process.ReadOutput(&byte, 1), 0);
  EXPECT_EQ(process.OutputDescriptor(), -1);
  EXPECT_EQ(process.ReadOutput(&byte, 1), 0);
}

TEST(ProcessTest, MoreOutputThanThePipeHoldsArrivesWhole) {
  EXPECT_EQ(OutputOf(StartOf({"flood", "6553600"})), std::string(6553600, 'x'));
}

TEST(ProcessTest, ThePipeIsEnlargedWhereThereIsMuchOutputOnly) {
  const auto sizeAfter = [](const std::vector<String>& arguments) {
    Process process(StartOf(arguments));
    EXPECT_TRUE(BecomesReadable(process.OutputDescriptor()));
    char buffer[65536];
    EXPECT_GT(process.ReadOutput(buffer, sizeof(buffer)), 0);
    return fcntl(process.OutputDescriptor(), F_GETPIPE_SZ);
  };
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  const int usual = fcntl(reader.Number(), F_GETPIPE_SZ);
  EXPECT_EQ(sizeAfter({"both"}), usual);
  // Not every user may have larger pipes; then all of them are as usual.
  const bool mayBeLarger = fcntl(reader.Number(), F_SETPIPE_SZ, 1 << 20) >= 0;
  const int enlarged = sizeAfter({"flood", "6553600"});
  if (mayBeLarger) {
    EXPECT_GT(enlarged, usual);
  } else {
    EXPECT_EQ(enlarged, usual);
  }
}

TEST(ProcessTest, ExitDescriptorTellsTheEndAndGoesWithReaping) {
  Process process(StartOf({"exit", "0"}));
  ASSERT_TRUE(BecomesReadable(process.ExitDescriptor()));
  ProcessExit result;
  EXPECT_TRUE(process.Wait(result, false));
  EXPECT_EQ(process.ExitDescriptor(), -1);
}

TEST(ProcessTest, WaitWithoutBlockingTellsThatItStillRuns) {
  Process process(StartOf({"wait"}));
  ProcessExit result{77, 77};
  EXPECT_FALSE(process.Wait(result, false));
  EXPECT_EQ(result.Code, 77);
  process.Kill();
  EXPECT_TRUE(process.Wait(result, true));
  EXPECT_EQ(result.Code, 137);
}

TEST(ProcessTest, LaterWaitsRepeatTheResult) {
  Process process(StartOf({"exit", "5"}));
  ProcessExit first;
  ProcessExit second;
  EXPECT_TRUE(process.Wait(first, true));
  process.Kill();
  process.Terminate();
  EXPECT_TRUE(process.Wait(second, false));
  EXPECT_EQ(second.Code, 5);
}

TEST(ProcessTest, ReapingLeavesNoZombie) {
  Process process(StartOf({"exit", "0"}));
  ProcessExit result;
  ASSERT_TRUE(process.Wait(result, true));
  siginfo_t info{};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(process.Id()), &info, WEXITED | WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(ProcessTest, EveryByteReachesTheProgramUnchanged) {
  String every;
  for (int byte = 1; byte < 256; ++byte) {
    every.push_back(static_cast<char>(byte));
  }
  const std::vector<String> arguments = {"arguments",  every,         "",           " ",           "a b",
                                         "$(touch x)", "; ls",        "*?[a]",      "\xff\xfe",    "-n",
                                         "\"quoted'",  "back\\slash", "line\nfeed", "b\xc3\xa4ume"};
  std::string expected;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    expected += arguments[i] + '\0';
  }
  EXPECT_EQ(OutputOf(StartOf(arguments)), expected);

  std::vector<String> words = {TEST_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  Process process(JoinCommandLine(words), 0, Path());
  EXPECT_EQ(ReadAll(process), expected);
}

TEST(ProcessTest, CommandLineIsSplitWithoutAnyShell) {
  const TestDirectory directory;
  Process process(EnquoteWord(TEST_PROGRAM) + " arguments a; touch $(echo b) > 'c d' | *", 0,
                  Path(directory.Text()));
  EXPECT_EQ(ReadAll(process), "a;\0touch\0$(echo\0b)\0>\0c d\0|\0*\0"s);
  EXPECT_TRUE(std::filesystem::is_empty(directory.Text()));
}

TEST(ProcessTest, BareNameIsLookedUpAlongPath) {
  ProcessStart start;
  start.Arguments = {"true"};
  EXPECT_EQ(ExitOf(start).Code, 0);
}

TEST(ProcessTest, StandardInputIsEmpty) {
  EXPECT_EQ(OutputOf(StartOf({"input"})), "/dev/null 0\n");
}

TEST(ProcessTest, NoOtherDescriptorReachesTheProgram) {
  // Without close-on-exec, as another library of the host might open them.
  const Descriptor low(open("/dev/null", O_RDONLY)); // NOLINT(android-cloexec-open)
  const Descriptor high(fcntl(low.Number(), F_DUPFD, 500));
  ASSERT_TRUE(high.IsOpen());
  EXPECT_EQ(OutputOf(StartOf({"descriptors"})), "0\n1\n2\n");
}

TEST(ProcessTest, SignalsOfTheHostDoNotReachIntoTheProgram) {
  sigset_t some;
  sigset_t before;
  sigemptyset(&some);
  sigaddset(&some, SIGUSR1);
  sigaddset(&some, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &some, &before);
  const auto pipeBefore = std::signal(SIGPIPE, SIG_IGN);
  const auto interruptBefore = std::signal(SIGINT, SIG_IGN);
  const std::string output = OutputOf(StartOf({"signals"}));
  std::signal(SIGPIPE, pipeBefore);
  std::signal(SIGINT, interruptBefore);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(output, "that is all\n");
}

TEST(ProcessTest, ProgramLeadsAGroupOfItsOwn) {
  EXPECT_EQ(OutputOf(StartOf({"group"})), "leads its group\n");
}

TEST(ProcessTest, MessagesAreInEnglishUnlessTheJobSaysOtherwise) {
  setenv("LC_ALL", "de_DE.UTF-8", 1);
  setenv("LANGUAGE", "de", 1);
  setenv("TROVIK_TEST_KEPT", "kept", 1);
  ProcessStart start = StartOf({"environment", "LC_ALL", "LANGUAGE", "TROVIK_TEST_KEPT"});
  EXPECT_EQ(OutputOf(start), "LC_ALL=C.UTF-8\nLANGUAGE is unset\nTROVIK_TEST_KEPT=kept\n");
  start.Environment = {{"LC_ALL", "C"}, {"LANGUAGE", "fr"}, {"TROVIK_TEST_KEPT", std::nullopt}};
  EXPECT_EQ(OutputOf(start), "LC_ALL=C\nLANGUAGE=fr\nTROVIK_TEST_KEPT is unset\n");
  unsetenv("LC_ALL");
  unsetenv("LANGUAGE");
  unsetenv("TROVIK_TEST_KEPT");
}

TEST(ProcessTest, EnvironmentChangesApplyInTheirOrder) {
  ProcessStart start = StartOf({"environment", "A", "AB", "B"});
  start.Environment = {{"AB", "longer"}, {"A", "1"}, {"A", std::nullopt},
                       {"A", "2=3"},     {"B", "x"}, {"B", std::nullopt}};
  EXPECT_EQ(OutputOf(start), "A=2=3\nAB=longer\nB is unset\n");
}

TEST(ProcessTest, ImpossibleEnvironmentIsRefusedByName) {
  const auto error = [](const String& name, const String& value) {
    return ErrorOf([&] { const Environment environment({{name, value}}); });
  };
  EXPECT_EQ(error("A=B", "x"),
            "environment variable \"A=B\": a name is at least one character and holds no \"=\"");
  EXPECT_EQ(error("", "x"), "environment variable \"\": a name is at least one character and holds no \"=\"");
  EXPECT_EQ(error("A", String("x\0y", 3)), "environment variable \"A\": the value holds a NUL byte");
}

TEST(ProcessTest, ProgramStartsInTheStartDirectory) {
  const TestDirectory directory;
  directory.MakeDirectory("a b");
  ProcessStart start = StartOf({"directory"});
  start.StartDirectory = directory.File("a b");
  EXPECT_EQ(OutputOf(start), std::filesystem::canonical(directory.File("a b")).string());
}

TEST(ProcessTest, RelativeProgramCountsFromTheStartDirectory) {
  const TestDirectory directory;
  directory.Link("program", TEST_PROGRAM);
  ProcessStart start = StartOf({"exit", "7"});
  start.Arguments[0] = "./program";
  start.StartDirectory = directory.Text();
  EXPECT_EQ(ExitOf(start).Code, 7);
}

TEST(ProcessTest, MissingProgramIsNamed) {
  ProcessStart start;
  start.Arguments = {"no-such-program-anywhere"};
  EXPECT_EQ(StartErrorOf(start), "cannot start \"no-such-program-anywhere\": No such file or directory");
  start.Arguments = {"/no/such/program", "argument"};
  EXPECT_EQ(StartErrorOf(start), "cannot start \"/no/such/program\": No such file or directory");
}

TEST(ProcessTest, MissingStartDirectoryIsToldFromMissingProgram) {
  const TestDirectory directory;
  directory.Write("file");
  ProcessStart start = StartOf({"exit", "0"});
  start.StartDirectory = directory.File("gone");
  EXPECT_EQ(StartErrorOf(start), "cannot start \"" + std::string(TEST_PROGRAM) + "\": start directory \"" +
                                     directory.File("gone") + "\": No such file or directory");
  start.StartDirectory = directory.File("file");
  EXPECT_EQ(StartErrorOf(start), "cannot start \"" + std::string(TEST_PROGRAM) + "\": start directory \"" +
                                     directory.File("file") + "\": Not a directory");
  start.Arguments = {"/no/such/program"};
  start.StartDirectory = directory.Text();
  EXPECT_EQ(StartErrorOf(start), "cannot start \"/no/such/program\": No such file or directory");
}

TEST(ProcessTest, FileThatIsNoProgramIsRefusedAndNoShellReadsIt) {
  const TestDirectory directory;
  directory.Write("plain", "echo shell\n");
  ProcessStart start;
  start.Arguments = {directory.File("plain")};
  EXPECT_EQ(StartErrorOf(start), "cannot start \"" + directory.File("plain") + "\": Permission denied");
  chmod(directory.File("plain").c_str(), 0755);
  EXPECT_EQ(StartErrorOf(start), "cannot start \"" + directory.File("plain") + "\": Exec format error");
  start.Arguments = {directory.Text()};
  EXPECT_EQ(StartErrorOf(start), "cannot start \"" + directory.Text() + "\": Permission denied");
}

TEST(ProcessTest, MissingInterpreterIsToldFromMissingProgram) {
  const TestDirectory directory;
  directory.Write("script", "#!/no/such/interpreter\n");
  chmod(directory.File("script").c_str(), 0755);
  const String text = ": the interpreter or loader that the file names: No such file or directory";
  ProcessStart start;
  start.Arguments = {directory.File("script")};
  EXPECT_EQ(StartErrorOf(start), "cannot start \"" + directory.File("script") + "\"" + text);
  start.Arguments = {"./script"};
  start.StartDirectory = directory.Text();
  EXPECT_EQ(StartErrorOf(start), "cannot start \"./script\"" + text);
}

TEST(ProcessTest, TooLongArgumentsAreRefused) {
  EXPECT_EQ(StartErrorOf(StartOf({"exit", String(16 << 20, 'x')})),
            "cannot start \"" + std::string(TEST_PROGRAM) + "\": Argument list too long");
}

TEST(ProcessTest, ZeroBytesAreRefusedByName) {
  const String zero("a\0b", 3);
  EXPECT_EQ(StartErrorOf(StartOf({"arguments", zero})),
            "cannot start \"" + std::string(TEST_PROGRAM) + "\": argument 2 holds a NUL byte");
  ProcessStart start;
  start.Arguments = {zero};
  EXPECT_EQ(StartErrorOf(start), "cannot start a program: its name holds a NUL byte");
  start = StartOf({"exit", "0"});
  start.StartDirectory = zero;
  EXPECT_EQ(StartErrorOf(start),
            "cannot start \"" + std::string(TEST_PROGRAM) + "\": the start directory holds a NUL byte");
  start = StartOf({"exit", "0"});
  start.Environment = {{zero, "x"}};
  EXPECT_EQ(StartErrorOf(start), "environment variable \"" + zero + "\": the name holds a NUL byte");
}

TEST(ProcessTest, EmptyAndMalformedCommandLinesAreRefused) {
  const auto error = [](const String& line) { return ErrorOf([&] { Process process(line, 0, Path()); }); };
  EXPECT_EQ(error("  "), "cannot start a program: the command line is empty");
  EXPECT_EQ(error("\"\" x"), "cannot start a program: no program is named");
  EXPECT_EQ(error("a 'b"),
            "command line:3: the quote ' is never closed; close it, or write a backslash before it "
            "where it is meant as it stands");
}

TEST(ProcessTest, FailedStartsLeaveNoDescriptorOpen) {
  const auto count = [] {
    const std::filesystem::directory_iterator numbers("/proc/self/fd");
    return std::distance(begin(numbers), end(numbers));
  };
  ProcessStart start;
  start.Arguments = {"/no/such/program"};
  const auto before = count();
  for (int i = 0; i < 10; ++i) {
    StartErrorOf(start);
    ExitOf(StartOf({"exit", "0"}));
  }
  EXPECT_EQ(count(), before);
}

TEST(ProcessTest, TerminateLetsTheProgramEndByItself) {
  Process process(StartOf({"polite"}));
  EXPECT_EQ(ReadLine(process), "ready\n");
  process.Terminate();
  EXPECT_EQ(ReadAll(process), "asked to end\n");
  ProcessExit result;
  EXPECT_TRUE(process.Wait(result, true));
  EXPECT_EQ(result.Code, 3);
}

TEST(ProcessTest, KillEndsAProgramThatIgnoresRequests) {
  Process process(StartOf({"ignore"}));
  EXPECT_EQ(ReadLine(process), "ready\n");
  process.Terminate();
  ProcessExit result;
  EXPECT_FALSE(process.Wait(result, false));
  process.Kill();
  EXPECT_TRUE(process.Wait(result, true));
  EXPECT_EQ(result.Signal, SIGKILL);
}

TEST(ProcessTest, StoppedProgramDiesOfTerminate) {
  Process process(StartOf({"stop"}));
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process.Id()), &info, WSTOPPED), 0);
  process.Terminate();
  ProcessExit result;
  EXPECT_TRUE(process.Wait(result, true));
  EXPECT_EQ(result.Signal, SIGTERM);
}

TEST(ProcessTest, KillReachesTheWholeGroup) {
  Process process(StartOf({"parent", "keep"}));
  const Watch grandchild(std::stoi(ReadLine(process)));
  ASSERT_TRUE(grandchild.IsAlive());
  process.Kill();
  EXPECT_TRUE(grandchild.Ends());
}

TEST(ProcessTest, GroupCanBeKilledAfterItsLeaderEnded) {
  Process process(StartOf({"parent", "leave"}));
  const Watch grandchild(std::stoi(ReadLine(process)));
  ASSERT_TRUE(BecomesReadable(process.ExitDescriptor()));
  ASSERT_TRUE(grandchild.IsAlive());
  process.Kill();
  EXPECT_TRUE(grandchild.Ends());
  ProcessExit result;
  EXPECT_TRUE(process.Wait(result, false));
  EXPECT_EQ(result.Code, 0);
}

TEST(ProcessTest, WaitKillsWhatTheLeaderLeftBehind) {
  Process process(StartOf({"parent", "leave"}));
  const Watch grandchild(std::stoi(ReadLine(process)));
  ProcessExit result;
  ASSERT_TRUE(process.Wait(result, true));
  EXPECT_EQ(result.Code, 0);
  EXPECT_TRUE(grandchild.Ends());
  EXPECT_EQ(ReadAll(process), "");
}

TEST(ProcessTest, DestructorKillsTheGroupAndReaps) {
  auto process = std::make_unique<Process>(StartOf({"parent", "keep"}));
  const Watch grandchild(std::stoi(ReadLine(*process)));
  const pid_t id = process->Id();
  process.reset();
  EXPECT_TRUE(grandchild.Ends());
  siginfo_t info{};
  EXPECT_EQ(waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(ProcessTest, DetachedProgramHasItsOwnSessionAndNoTies) {
  const TestDirectory directory;
  const std::string pipe = directory.File("report pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const Descriptor reader(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
  pid_t id = -1;
  {
    Process process(JoinCommandLine({TEST_PROGRAM, "report", pipe}), Process::k_Detached, Path());
    id = process.Id();
    EXPECT_EQ(process.OutputDescriptor(), -1);
    EXPECT_EQ(process.ExitDescriptor(), -1);
    ProcessExit result;
    EXPECT_FALSE(process.Wait(result, true));
    process.Kill();
  }
  ASSERT_TRUE(BecomesReadable(reader.Number()));
  char report[256] = {};
  ASSERT_GT(read(reader.Number(), report, sizeof(report) - 1), 0);
  EXPECT_STREQ(report, "own session /dev/null /dev/null /dev/null\n");

  // Neither running nor a zombie of ours.
  const auto deadline = Clock::now() + k_Patience;
  siginfo_t info{};
  int answer = 0;
  do {
    answer = waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT | WNOHANG);
    poll(nullptr, 0, 1);
  } while (answer == 0 && Clock::now() < deadline);
  EXPECT_EQ(answer, -1);
}

TEST(ProcessTest, DetachedProgramThatCannotStartIsRefused) {
  EXPECT_EQ(ErrorOf([] { Process process("/no/such/program", Process::k_Detached, Path()); }),
            "cannot start \"/no/such/program\": No such file or directory");
}

} // namespace
