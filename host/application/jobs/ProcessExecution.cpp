#include "host/application/jobs/PlainLines.h"
#include "host/application/jobs/ProgramRun.h"
#include "host/application/jobs/RenderJob.h"

#include "host/foundation/Exception.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <optional>

// Running one work here: a loop that sleeps until output waits, the program
// has ended, Interrupt was called or a limit is reached, and never wakes for
// anything else.
//
// Interrupt may come from a signal handler, so it only stores a number and
// writes to an eventfd. Execute makes the eventfd before it looks at the number
// for the first time; whichever of the two comes first, none is missed.

namespace {

using Moment = ProgramRun::Moment;

// Milliseconds for poll, rounded up so that the deadline is over afterwards.
int TimeoutUntil(const std::optional<Moment>& deadline) {
  if (!deadline.has_value()) {
    return -1;
  }
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*deadline - ProgramRun::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

void SleepOver(const ProgramRun& run, int wake) {
  std::array<pollfd, 3> watched = {
      {{run.OutputDescriptor(), POLLIN, 0}, {run.ExitDescriptor(), POLLIN, 0}, {wake, POLLIN, 0}}};
  if (poll(watched.data(), watched.size(), TimeoutUntil(run.Deadline())) < 0 && errno != EINTR) {
    RaiseException("ProcessJob::Execute", k_ErrorSystem, "cannot wait for the program", errno);
  }
  std::uint64_t calls = 0;
  while (read(wake, &calls, sizeof calls) < 0 && errno == EINTR) {
  }
}

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
  if (auto* render = dynamic_cast<RenderJob*>(this)) {
    render->NoteFilesBefore(false);
  }
  if (m_Interrupt.load() >= 0) {
    return FinishWork(ProcessExit(), Ended::Canceled);
  }
  WorkLines judge(*this);
  LineSplitter lines(judge);
  ProgramRun run(std::make_unique<Process>(start), {RunTimeLimit(), SilenceLimit(), m_Grace},
                 ProgramRun::Clock::now(), [&lines](std::string_view text) { lines.Feed(text); });
  WorkSpawned(run.Id());
  for (int obeyed = -1; !run.IsOver(); run.Advance(ProgramRun::Clock::now())) {
    if (const int asked = m_Interrupt.load(); asked > obeyed) {
      obeyed = asked;
      run.Cancel(ProgramRun::Clock::now(), asked > 0);
    }
    if (HasModuleFailed()) {
      run.Dismiss(ProgramRun::Clock::now());
    }
    SleepOver(run, m_Wake.load());
    run.ReadOutput(ProgramRun::Clock::now());
  }
  lines.Finish();
  return FinishWork(run.Exit(), run.HowEnded());
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
