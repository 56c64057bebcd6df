#include "trovik/machine/Aside.h"

#include "host/foundation/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace trovik {
namespace {

constexpr int failedCode = 1;

/// Whether a process has ended at that time.
bool endsUntil(const Descriptor& watched, Clock::time_point end) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(std::max(end - Clock::now(), Duration::zero()));
    pollfd exit{watched.Number(), POLLIN, 0};
    const int ready = poll(&exit, 1, static_cast<int>(left.count()));
    if (ready > 0 || (ready == 0 && left == std::chrono::milliseconds::zero())) {
      return ready > 0;
    }
    if (ready < 0 && errno != EINTR) {
      return false;
    }
  }
}

} // namespace

bool runAside(const std::function<void()>& action, Duration limit) {
  const Clock::time_point end = Clock::now() + limit;
  const pid_t starter = getpid();
  const pid_t process = fork();
  if (process < 0) {
    return false;
  }
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != starter) {
      _exit(failedCode);
    }
    action();
    _exit(0);
  }
  const Descriptor watched(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
  const bool ended = watched.IsOpen() && endsUntil(watched, end);
  if (!ended) {
    kill(process, SIGKILL);
  }
  int status = 0;
  const bool reaped = waitpid(process, &status, ended ? 0 : WNOHANG) == process;
  return ended && reaped && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace trovik
