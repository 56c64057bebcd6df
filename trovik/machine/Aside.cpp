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

} // namespace

bool endsWithin(pid_t child, Duration limit) {
  const Clock::time_point end = Clock::now() + limit;
  // By its number: the C library's declaration of 2.36 lacks the C linkage.
  const Descriptor watched(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
  while (watched.IsOpen()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(std::max(end - Clock::now(), Duration::zero()));
    pollfd exit{watched.Number(), POLLIN, 0};
    const int ready = poll(&exit, 1, static_cast<int>(left.count()));
    if (ready > 0 || (ready == 0 && left == std::chrono::milliseconds::zero())) {
      return ready > 0;
    }
    if (ready < 0 && errno != EINTR) {
      break;
    }
  }
  return false;
}

bool runAside(const std::function<void()>& action, Duration limit) {
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
  const bool ended = endsWithin(process, limit);
  if (!ended) {
    kill(process, SIGKILL);
  }
  int status = 0;
  const bool reaped = waitpid(process, &status, ended ? 0 : WNOHANG) == process;
  return ended && reaped && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace trovik
