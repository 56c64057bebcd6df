#include "host/application/ProcessJob.h"

#include "host/foundation/Exception.h"
#include "host/foundation/LineSplitter.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <limits>
#include <optional>

// Running one work here: a loop that sleeps until output waits, the program
// has ended, Interrupt was called or a limit is reached, and never wakes for
// anything else.
//
// Interrupt may come from a signal handler, so it only stores a number and
// writes to an eventfd. Execute makes the eventfd before it looks at the number
// for the first time; whichever of the two comes first, none is missed.
//
// After the program has ended, its pipe may still be held by a process that
// left its group, perhaps for ever. What is in the pipe by then is read, up to
// the most that a pipe holds, but nobody is waited for longer than a second.

namespace {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;

constexpr std::size_t k_BufferSize = std::size_t{256} << 10;
constexpr std::size_t k_PipeSize = std::size_t{1} << 20;
constexpr std::chrono::seconds k_StrayPatience{1};
constexpr double k_LongestLimit = 1e8; // three years: none that a clock could overflow with

std::optional<Moment> After(Moment start, double seconds) {
  if (seconds <= 0) {
    return std::nullopt;
  }
  return start + std::chrono::duration_cast<Clock::duration>(
                     std::chrono::duration<double>(std::min(seconds, k_LongestLimit)));
}

bool IsOver(const std::optional<Moment>& deadline, Moment now) {
  return deadline.has_value() && now >= *deadline;
}

// A running program and when to lose patience with it.
class WorkRun {
public:
  using Ended = ProcessJob::Ended;

  WorkRun(ProcessJob& job, const ProcessStart& start, const std::atomic<int>& interrupt, int wake,
          std::chrono::milliseconds grace)
      : m_RunTime(job.RunTimeLimit()), m_Silence(job.SilenceLimit()), m_Interrupt(interrupt), m_Wake(wake),
        m_Grace(grace), m_Lines([&job](std::string_view line) { job.WorkLine(line); }), m_Process(start),
        m_Start(Clock::now()), m_LastOutput(m_Start), m_Buffer(k_BufferSize, '\0') {}

  pid_t Id() const { return m_Process.Id(); }
  Ended HowEnded() const { return m_Ended; }

  ProcessExit Run() {
    ProcessExit exit;
    while (!m_Process.Wait(exit, false)) {
      EnforceLimits(Clock::now());
      Sleep();
      ReadSome();
    }
    ReadRest();
    m_Lines.Finish();
    return exit;
  }

private:
  void End(Ended why) {
    if (m_Ended == Ended::ByItself) {
      m_Ended = why; // the first reason is the reason
    }
    if (!m_KillAt.has_value()) {
      m_KillAt = Clock::now() + m_Grace;
      m_Process.Terminate();
    }
  }

  void EnforceLimits(Moment now) {
    const int interrupt = m_Interrupt.load();
    if (interrupt >= 0) {
      End(Ended::Canceled);
    }
    if (IsOver(After(m_Start, m_RunTime), now)) {
      End(Ended::TimedOut);
    } else if (IsOver(After(m_LastOutput, m_Silence), now)) {
      End(Ended::Silent);
    }
    if (!m_Killed && (interrupt > 0 || IsOver(m_KillAt, now))) {
      m_Killed = true;
      m_Process.Kill();
    }
  }

  std::optional<Moment> NextDeadline() const {
    if (m_Killed) {
      return std::nullopt;
    }
    if (m_KillAt.has_value()) {
      return m_KillAt;
    }
    const std::optional<Moment> runTime = After(m_Start, m_RunTime);
    const std::optional<Moment> silence = After(m_LastOutput, m_Silence);
    return runTime.has_value() && silence.has_value() ? std::min(runTime, silence)
           : runTime.has_value()                      ? runTime
                                                      : silence;
  }

  void Sleep() {
    std::array<pollfd, 3> watched = {{{m_Process.OutputDescriptor(), POLLIN, 0},
                                      {m_Process.ExitDescriptor(), POLLIN, 0},
                                      {m_Wake, POLLIN, 0}}};
    const int count = poll(watched.data(), watched.size(), Timeout(NextDeadline()));
    if (count < 0 && errno != EINTR) {
      RaiseException("ProcessJob::Execute", k_ErrorSystem, "cannot wait for the program", errno);
    }
    std::uint64_t calls = 0;
    while (read(m_Wake, &calls, sizeof calls) < 0 && errno == EINTR) {
    }
  }

  // Milliseconds for poll, rounded up so that the deadline is over afterwards.
  static int Timeout(const std::optional<Moment>& deadline) {
    if (!deadline.has_value()) {
      return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
  }

  // Reads what waits, but no more than a pipe holds: a program that never
  // stops printing must not keep the limits from being looked at. Returns the
  // number of bytes.
  std::size_t ReadSome() {
    std::size_t total = 0;
    while (total < k_PipeSize) {
      const ssize_t count = m_Process.ReadOutput(m_Buffer.data(), m_Buffer.size());
      if (count <= 0) {
        break;
      }
      total += static_cast<std::size_t>(count);
      m_Lines.Feed(std::string_view(m_Buffer).substr(0, static_cast<std::size_t>(count)));
    }
    if (total > 0) {
      m_LastOutput = Clock::now();
    }
    return total;
  }

  void ReadRest() {
    const Moment deadline = Clock::now() + k_StrayPatience;
    std::size_t total = ReadSome();
    while (m_Process.OutputDescriptor() >= 0 && (total < k_PipeSize || Clock::now() < deadline)) {
      pollfd output{m_Process.OutputDescriptor(), POLLIN, 0};
      if (poll(&output, 1, Timeout(deadline)) == 0) {
        break;
      }
      total += ReadSome();
    }
  }

  const double m_RunTime;
  const double m_Silence;
  const std::atomic<int>& m_Interrupt;
  const int m_Wake;
  const std::chrono::milliseconds m_Grace;
  LineSplitter m_Lines;
  Process m_Process;
  const Moment m_Start;
  Moment m_LastOutput;
  std::string m_Buffer;
  Ended m_Ended = Ended::ByItself;
  std::optional<Moment> m_KillAt;
  bool m_Killed = false;
};

} // namespace

void ProcessJob::Interrupt(int how) {
  const int before = errno; // of the code that a signal interrupted
  int stored = m_Interrupt.load();
  while (stored < how && !m_Interrupt.compare_exchange_weak(stored, how)) {
  }
  const int wake = m_Wake.load();
  if (wake >= 0) {
    const std::uint64_t one = 1;
    while (write(wake, &one, sizeof one) < 0 && errno == EINTR) {
    }
  }
  errno = before;
}

int ProcessJob::RunWork() {
  if (m_Wake.load() < 0) {
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) {
      RaiseException("ProcessJob::Execute", k_ErrorSystem, "no descriptor to be interrupted by", errno);
    }
    m_Wake.store(wake);
  }
  ProcessStart start;
  if (!PrepareWork(start)) {
    return Status();
  }
  if (m_Interrupt.load() >= 0) {
    return FinishWork(ProcessExit(), Ended::Canceled);
  }
  WorkRun run(*this, start, m_Interrupt, m_Wake.load(), m_Grace);
  WorkSpawned(run.Id());
  const ProcessExit exit = run.Run();
  return FinishWork(exit, run.HowEnded());
}

int ProcessJob::Execute() {
  try {
    return RunWork();
  } catch (Exception* exception) {
    const std::unique_ptr<Exception> owned(exception);
    return FailWork(owned->Text());
  } catch (const std::exception& failure) {
    return FailWork(failure.what());
  }
}
