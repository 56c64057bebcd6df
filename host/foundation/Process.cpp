#include "host/foundation/Process.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/process/Spawn.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <future>
#include <string_view>
#include <thread>

// The number of a process, and of its group, stays taken until the process is
// reaped. All that must not hit a stranger therefore happens before that: Wait
// first looks whether the leader has ended without reaping it (WNOWAIT), then
// kills what is left of its group, so that no orphaned renderer goes on
// writing files of a work that may already run again, and reaps only then.
// What leaves the group on purpose is known by its mark.
//
// A detached program has no owner that could reap it, so a thread is started
// with it that does nothing but wait for that one process. The thread starts
// the program itself: if no thread can be had, nothing has been started.

namespace {

constexpr const char* k_Function = "Process";
// It halves what reading costs, and to make it costs as much as a short program.
constexpr int k_PipeSize = 1 << 20;
constexpr ssize_t k_MuchOutput = 4096;
constexpr int k_SignalBase = 128;
constexpr int k_ExitPatience = 1000; // milliseconds, with one that was killed and cannot end

String StartMessage(const ProcessStart& start) {
  return "cannot start \"" + start.Arguments[0] + "\"";
}

bool HoldsNul(const String& text) {
  return text.find('\0') != String::npos;
}

[[noreturn]] void RaiseNul(const String& prefix, const String& what) {
  RaiseException(k_Function, k_ErrorSyntax, prefix + ": " + what + " holds a NUL byte");
}

void RequirePassable(const ProcessStart& start) {
  if (start.Arguments.empty() || start.Arguments[0].empty()) {
    RaiseException(k_Function, k_ErrorSyntax, "cannot start a program: no program is named");
  }
  if (HoldsNul(start.Arguments[0])) {
    RaiseNul("cannot start a program", "its name");
  }
  for (std::size_t i = 1; i < start.Arguments.size(); ++i) {
    if (HoldsNul(start.Arguments[i])) {
      RaiseNul(StartMessage(start), "argument " + std::to_string(i));
    }
  }
  if (HoldsNul(start.StartDirectory.Text())) {
    RaiseNul(StartMessage(start), "the start directory");
  }
}

// Spawn gives one number for everything that goes wrong between the system
// call and the program's first instruction; say what it was about.
[[noreturn]] void RaiseStartError(const ProcessStart& start, int number) {
  const String& program = start.Arguments[0];
  const Path& directory = start.StartDirectory;
  if (!directory.empty()) {
    if (!IsDirectory(directory)) {
      const bool exists = access(directory.c_str(), F_OK) == 0;
      const int why = exists ? ENOTDIR : errno;
      RaiseException(k_Function, k_ErrorSystem,
                     StartMessage(start) + ": start directory \"" + directory.Text() + "\"", why);
    }
    if (number == EACCES && access(directory.c_str(), X_OK) != 0) {
      RaiseException(k_Function, k_ErrorSystem,
                     StartMessage(start) + ": start directory \"" + directory.Text() + "\"", number);
    }
  }
  if (number == ENOENT && program.find('/') != String::npos) {
    Path file = program;
    if (!file.IsAbsolute() && !directory.empty()) {
      file = directory;
      file /= program;
    }
    if (access(file.c_str(), F_OK) == 0) {
      RaiseException(k_Function, k_ErrorSystem,
                     StartMessage(start) + ": the interpreter or loader that the file names", number);
    }
  }
  RaiseException(k_Function, k_ErrorSystem, StartMessage(start), number);
}

// Programs such as Blender read relative names by PWD, as a shell's "cd" leaves
// it, and not by where they are.
Environment EnvironmentOf(const ProcessStart& start) {
  Environment::Changes changes;
  if (start.StartDirectory.IsAbsolute()) {
    changes.emplace_back("PWD", start.StartDirectory.Text());
  }
  changes.insert(changes.end(), start.Environment.begin(), start.Environment.end());
  if (!start.Mark.empty()) {
    changes.emplace_back(k_MarkVariable, start.Mark);
  }
  return Environment(changes);
}

// Starts the program; returns an error number.
int StartProgram(const ProcessStart& start, const Environment& environment, int output, bool ownSession,
                 pid_t& id) {
  const std::vector<char*> arguments = PointersTo(start.Arguments);
  SpawnPlan plan;
  plan.Program = start.Arguments[0];
  plan.Arguments = arguments.data();
  plan.Variables = environment.Pointers();
  plan.Directory = start.StartDirectory;
  plan.Output = output;
  plan.OwnSession = ownSession;
  rlimit carried{};
  if (!start.Mark.empty()) {
    carried = CarryingLimit(start.Mark);
    plan.RealTime = &carried;
  }
  return Spawn(plan, id);
}

// waitid without the interruptions. False when nothing has ended yet.
bool WaitFor(pid_t id, int options, siginfo_t& info) {
  for (;;) {
    info = siginfo_t{};
    if (waitid(P_PID, static_cast<id_t>(id), &info, options) == 0) {
      return info.si_pid == id;
    }
    if (errno != EINTR) {
      RaiseException(k_Function, k_ErrorSystem, "cannot wait for process " + std::to_string(id), errno);
    }
  }
}

ProcessExit ExitOf(const siginfo_t& info) {
  if (info.si_code == CLD_EXITED) {
    return {info.si_status, 0};
  }
  return {k_SignalBase + info.si_status, info.si_status};
}

std::int64_t Microseconds(const timeval& time) {
  return std::int64_t{time.tv_sec} * 1'000'000 + time.tv_usec;
}

// Whether this kernel counts what programs read and write.
bool CountsTransfers() {
  static const bool s_Counts = access("/proc/self/io", F_OK) == 0;
  return s_Counts;
}

// Takes the end of a process that has ended, with what it has used. Its account
// in /proc/PID/io tells the same bytes, but to open it takes as long as all else
// that is done for the end of a short program.
ProcessUsage Reap(pid_t id) {
  constexpr std::int64_t k_Block = 512; // bytes, in which the kernel tells them here
  rusage used{};
  while (wait4(id, nullptr, 0, &used) < 0) {
    if (errno != EINTR) {
      RaiseException(k_Function, k_ErrorSystem, "cannot wait for process " + std::to_string(id), errno);
    }
  }
  ProcessUsage usage;
  usage.UserTime = Microseconds(used.ru_utime);
  usage.SystemTime = Microseconds(used.ru_stime);
  usage.PeakMemory = std::int64_t{used.ru_maxrss} * 1024;
  if (CountsTransfers()) {
    usage.BytesRead = used.ru_inblock * k_Block;
    usage.BytesWritten = used.ru_oublock * k_Block;
  }
  return usage;
}

pid_t SpawnDetached(const ProcessStart& start, const Environment& environment) {
  std::promise<std::pair<int, pid_t>> promise;
  std::future<std::pair<int, pid_t>> started = promise.get_future();
  // The host's signals are for its own threads.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  int threadError = 0;
  try {
    std::thread([&start, &environment, promise = std::move(promise)]() mutable {
      pid_t id = -1;
      const int error = StartProgram(start, environment, -1, true, id);
      promise.set_value({error, id}); // from here on the caller's objects are gone
      int status = 0;
      while (error == 0 && waitpid(id, &status, 0) < 0 && errno == EINTR) {
      }
    }).detach();
  } catch (const std::system_error& failure) {
    threadError = failure.code().value();
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (threadError != 0) {
    RaiseException(k_Function, k_ErrorSystem, StartMessage(start), threadError);
  }
  const auto [error, id] = started.get();
  if (error != 0) {
    RaiseStartError(start, error);
  }
  return id;
}

ProcessStart StartOfLine(const String& commandLine, const Path& startDirectory) {
  ProcessStart start;
  start.Arguments = SplitCommandLine(commandLine);
  start.StartDirectory = startDirectory;
  if (start.Arguments.empty()) {
    RaiseException(k_Function, k_ErrorSyntax, "cannot start a program: the command line is empty");
  }
  return start;
}

} // namespace

std::vector<char*> PointersTo(const std::vector<String>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const String& text : texts) {
    pointers.push_back(const_cast<char*>(text.c_str())); // exec only reads them
  }
  pointers.push_back(nullptr);
  return pointers;
}

Process::Process(const String& commandLine, unsigned int flags, const Path& startDirectory)
    : m_Detached((flags & k_Detached) != 0) {
  Start(StartOfLine(commandLine, startDirectory));
}

Process::Process(const ProcessStart& start) {
  Start(start);
}

void Process::Start(const ProcessStart& start) {
  RequirePassable(start);
  const Environment environment = EnvironmentOf(start);
  if (m_Detached) {
    m_Id = SpawnDetached(start, environment);
    return;
  }
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    RaiseException(k_Function, k_ErrorSystem, StartMessage(start) + ": no pipe for its output", errno);
  }
  Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  // Only the reading end: the program's own writes must block.
  fcntl(reader.Number(), F_SETFL, O_NONBLOCK);
  const int error = StartProgram(start, environment, writer.Number(), false, m_Id);
  if (error != 0) {
    RaiseStartError(start, error);
  }
  if (!start.Mark.empty()) {
    m_Descendants.emplace(start.Mark, m_Id);
  }
  Watch(m_Id);
  if (m_ExitWatch < 0) {
    const int number = errno;
    siginfo_t info;
    SignalGroup(SIGKILL);
    WaitFor(m_Id, WEXITED, info);
    RaiseException(k_Function, k_ErrorSystem,
                   StartMessage(start) + ": its end cannot be watched (pidfd_open, Linux 5.3 or newer)",
                   number);
  }
  m_Output = reader.Release();
}

Process::~Process() {
  if (!m_Detached && !m_Gone && !Remaining().empty()) {
    Kill();
    // One that waits for a disk or the network ends only when that answers.
    pollfd exit{m_ExitWatch, POLLIN, 0};
    poll(&exit, 1, k_ExitPatience);
    try {
      ProcessExit ignored;
      Wait(ignored, false);
    } catch (Exception* exception) {
      delete exception; // a host that ignores SIGCHLD has nothing to reap
    }
  }
  for (const int descriptor : {m_Output, m_ExitWatch}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
}

ssize_t Process::ReadOutput(char* buffer, std::size_t size) {
  while (m_Output >= 0) {
    const ssize_t count = read(m_Output, buffer, size);
    if (count > 0) {
      if (!m_Enlarged && count >= k_MuchOutput) {
        m_Enlarged = true;
        fcntl(m_Output, F_SETPIPE_SZ, k_PipeSize); // a wish: unprivileged users have a common limit
      }
      return count;
    }
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0 && errno == EAGAIN) {
      return -1;
    }
    close(std::exchange(m_Output, -1));
  }
  return 0;
}

bool Process::Wait(ProcessExit& result, bool block) {
  if (m_Detached) {
    return false;
  }
  if (!m_Reaped) {
    siginfo_t info;
    if (!WaitFor(m_Id, WEXITED | WNOWAIT | (block ? 0 : WNOHANG), info)) {
      return false;
    }
    SignalGroup(SIGKILL);
    m_Exit = ExitOf(info);
    m_Exit.Usage = Reap(m_Id);
    m_Reaped = true;
    close(std::exchange(m_ExitWatch, -1));
  }
  result = m_Exit;
  return true;
}

std::vector<pid_t> Process::Remaining() {
  if (m_Detached) {
    return {};
  }
  if (!m_Reaped) {
    return {m_Id};
  }
  if (!m_Descendants.has_value()) {
    return {};
  }
  if (m_ExitWatch >= 0) {
    close(std::exchange(m_ExitWatch, -1));
  }
  std::vector<pid_t> left = m_Descendants->Adopted();
  if (!left.empty()) {
    Watch(left.front()); // our child until we reap it: the number is its own
  }
  m_Gone = left.empty(); // and nobody is there to start another one
  return left;
}

void Process::Watch(pid_t process) {
  // By its number: the C library's declaration of 2.36 lacks the C linkage.
  m_ExitWatch = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

void Process::Terminate() {
  Signal(SIGTERM);
  Signal(SIGCONT);
}

void Process::Kill() {
  Signal(SIGKILL);
}

void Process::Signal(int number) {
  SignalGroup(number);
  if (m_Descendants.has_value()) {
    m_Descendants->Signal(number);
  }
}

void Process::SignalGroup(int number) {
  if (m_Id > 0 && !m_Reaped && !m_Detached) {
    kill(-m_Id, number);
  }
}

Environment::Environment(const Changes& changes) {
  static const Changes s_Always = {{"LC_ALL", "C.UTF-8"}, {"LANGUAGE", std::nullopt}};
  char** end = environ;
  while (end != nullptr && *end != nullptr) {
    ++end;
  }
  const std::size_t most = s_Always.size() + changes.size();
  m_Entries.reserve(static_cast<std::size_t>(end - environ) + most + 1);
  m_Entries.assign(environ, end);
  m_Own.reserve(most);
  for (const auto& [name, value] : s_Always) {
    Apply(name, value);
  }
  const auto prefixOf = [](const String& name) { return "environment variable \"" + name + "\""; };
  for (const auto& [name, value] : changes) {
    if (HoldsNul(name)) {
      RaiseNul(prefixOf(name), "the name");
    }
    if (name.empty() || name.find('=') != String::npos) {
      RaiseException("Environment", k_ErrorSyntax,
                     prefixOf(name) + ": a name is at least one character and holds no \"=\"");
    }
    if (value.has_value() && HoldsNul(*value)) {
      RaiseNul(prefixOf(name), "the value");
    }
    Apply(name, value);
  }
  m_Entries.push_back(nullptr);
}

void Environment::Apply(const String& name, const std::optional<String>& value) {
  const auto named = [&name](const char* entry) {
    return *entry == name.front() && std::strncmp(entry, name.c_str(), name.size()) == 0 &&
           entry[name.size()] == '=';
  };
  auto place = std::find_if(m_Entries.begin(), m_Entries.end(), named);
  if (value.has_value()) {
    String& entry = m_Own.emplace_back(name);
    entry.reserve(name.size() + 1 + value->size());
    entry.append("=").append(*value);
    if (place == m_Entries.end()) {
      m_Entries.push_back(entry.data());
      return;
    }
    *place++ = entry.data();
  }
  m_Entries.erase(std::remove_if(place, m_Entries.end(), named), m_Entries.end());
}
