#include "trovik/cluster/TaskGuard.h"

#include "host/foundation/Log.h"
#include "trovik/machine/Machine.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

constexpr int huntPause = 20; // milliseconds between two searches for what was killed
constexpr std::chrono::seconds longestPatience{3600};
constexpr int slices = 8; // of the patience

/// What the guarding process does.
class Guarding {
public:
  explicit Guarding(int pipe) : pipe_(pipe) {}

  void run() {
    // The patience is waited for in slices: a cluster may suspend all of a
    // job's processes, and then only one slice has passed when they go on.
    for (int passed = 0;;) {
      pollfd entry{pipe_, POLLIN, 0};
      const auto slice = std::chrono::milliseconds(patience_).count() / slices;
      const int ready = poll(&entry, 1, mark_.empty() ? -1 : static_cast<int>(slice));
      if (ready == 0) {
        if (++passed == slices) {
          hunt(); // the task may come back to life, and begin another program
          passed = 0;
        }
        continue;
      }
      char buffer[4096];
      const ssize_t got = ready < 0 ? -1 : read(pipe_, buffer, sizeof buffer);
      if (got > 0) {
        passed = 0;
        take(std::string_view(buffer, static_cast<std::size_t>(got)));
      } else if (got == 0) {
        hunt();
        return;
      } else if (errno != EINTR) {
        return;
      }
    }
  }

private:
  /// "+SECONDS MARK" a program begins, "-" it has ended, "." alive.
  void take(std::string_view bytes) {
    text_ += bytes;
    for (std::size_t end = 0; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1)) {
      const std::string line = text_.substr(0, end);
      const std::size_t blank = line.find(' ');
      if (line.starts_with('+') && blank != std::string::npos) {
        long long seconds = 0;
        std::from_chars(line.data() + 1, line.data() + blank, seconds);
        patience_ = std::clamp(std::chrono::seconds(seconds), std::chrono::seconds(1), longestPatience);
        mark_ = line.substr(blank + 1);
      } else if (line == "-") {
        mark_.clear();
      }
    }
  }

  void hunt() {
    LocalMachine machine;
    while (!mark_.empty() && !machine.killOrphans({mark_, 0, {}}).empty()) {
      poll(nullptr, 0, huntPause);
    }
    mark_.clear();
  }

  int pipe_;
  std::string text_;
  std::string mark_;
  std::chrono::seconds patience_{longestPatience};
};

[[noreturn]] void guard(int pipe) {
  // The cluster asks all processes of a job to end; this one goes last.
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
    std::signal(number, SIG_IGN);
  }
  setpgid(0, 0);
  constexpr int kept = 3;
  dup2(pipe, kept);
  close_range(kept + 1, ~0U, 0);
  const int nothing = open("/dev/null", O_RDWR);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    dup2(nothing, standard);
  }
  close(nothing);
  Guarding(kept).run();
  _exit(0);
}

} // namespace

TaskGuard::TaskGuard() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    LogWarning("no guard for the programs of this task: " +
               std::error_code(errno, std::generic_category()).message());
    return;
  }
  process_ = fork();
  if (process_ == 0) {
    close(ends[1]);
    guard(ends[0]);
  }
  const int reason = errno;
  close(ends[0]);
  pipe_.Reset(ends[1]);
  if (process_ < 0) {
    LogWarning("no guard for the programs of this task: " +
               std::error_code(reason, std::generic_category()).message());
    pipe_.Reset();
    return;
  }
  fcntl(pipe_.Number(), F_SETFL, O_NONBLOCK);
}

TaskGuard::~TaskGuard() {
  pipe_.Reset();
  if (process_ > 0) {
    while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
}

void TaskGuard::begin(const std::string& mark, std::chrono::seconds patience) {
  tell("+" + std::to_string(patience.count()) + ' ' + mark + '\n');
}

void TaskGuard::beat() {
  tell(".\n");
}

void TaskGuard::end() {
  tell("-\n");
}

void TaskGuard::tell(const std::string& line) {
  // Lines are far below what a pipe takes at once. A guard that was stopped
  // and whose pipe is full has nothing to learn from one beat more.
  if (pipe_.IsOpen() && write(pipe_.Number(), line.data(), line.size()) < 0 && errno == EPIPE) {
    LogWarning("the guard of this task's programs has died");
    pipe_.Reset();
  }
}

} // namespace trovik
