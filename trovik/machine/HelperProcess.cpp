#include "trovik/machine/HelperProcess.h"

#include "host/foundation/Process.h"
#include "trovik/machine/Aside.h"
#include "trovik/text/Text.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>

namespace trovik {
namespace {

constexpr std::size_t lineLimit = 1 << 20;                 // no line of a helper is that long
constexpr Duration exitPatience = std::chrono::seconds(1); // with one that is about to end

class SpawnRecords {
public:
  explicit SpawnRecords(int socket) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    add(posix_spawnattr_setflags(&attributes_,
                                 POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP));
    add(posix_spawnattr_setsigdefault(&attributes_, &all));
    add(posix_spawnattr_setsigmask(&attributes_, &none));
    add(posix_spawnattr_setpgroup(&attributes_, 0));
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      add(posix_spawn_file_actions_adddup2(&actions_, socket, descriptor));
    }
    add(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
  }
  ~SpawnRecords() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnRecords(const SpawnRecords&) = delete;
  SpawnRecords& operator=(const SpawnRecords&) = delete;

  /// Returns an error number.
  int spawn(pid_t& id, char* const* arguments, char* const* environment) const {
    return error_ != 0 ? error_
                       : posix_spawn(&id, arguments[0], &actions_, &attributes_, arguments, environment);
  }

private:
  void add(int error) {
    if (error_ == 0) {
      error_ = error;
    }
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
  int error_ = 0;
};

} // namespace

HelperProcess::HelperProcess(const std::vector<String>& arguments, Cores cores) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::system_category());
  }
  socket_.Reset(ends[0]);
  const Descriptor theirs(ends[1]);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  const Environment environment({});
  const int error = SpawnRecords(ends[1]).spawn(id_, PointersTo(arguments).data(), environment.Pointers());
  if (error != 0) {
    id_ = -1;
    throw std::system_error(error, std::system_category());
  }
  if (cores == Cores::Idle) {
    const sched_param none{};
    if (sched_setscheduler(id_, SCHED_IDLE, &none) != 0) {
      setpriority(PRIO_PROCESS, static_cast<id_t>(id_), 19); // the next best
    }
  }
}

HelperProcess::~HelperProcess() {
  end();
}

void HelperProcess::send(std::string_view text) {
  pending_ += text;
  flush();
}

void HelperProcess::endInput() {
  inputEnds_ = true;
  flush();
}

void HelperProcess::flush() {
  while (!pending_.empty() && socket_.IsOpen()) {
    const ssize_t sent = ::send(socket_.Number(), pending_.data(), pending_.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) {
      continue;
    }
    if (sent < 0) {
      if (errno != EAGAIN) {
        pending_.clear(); // nobody reads any more; its end is seen when reading
      }
      break;
    }
    pending_.erase(0, static_cast<std::size_t>(sent));
  }
  if (pending_.empty() && inputEnds_ && socket_.IsOpen()) {
    shutdown(socket_.Number(), SHUT_WR);
  }
}

bool HelperProcess::advance() {
  flush();
  std::array<char, 16384> buffer{};
  while (socket_.IsOpen() && received_.size() <= lineLimit) {
    const ssize_t got = recv(socket_.Number(), buffer.data(), buffer.size(), 0);
    if (got > 0) {
      received_.append(buffer.data(), static_cast<std::size_t>(got));
      continue;
    }
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got < 0 && errno == EAGAIN) {
      return true;
    }
    socket_.Reset();
  }
  return socket_.IsOpen() && received_.find('\n') != std::string::npos;
}

std::optional<std::string> HelperProcess::line() {
  const std::size_t feed = received_.find('\n');
  if (feed == std::string::npos) {
    return std::nullopt;
  }
  std::string text = received_.substr(0, feed);
  received_.erase(0, feed + 1);
  return text;
}

std::string HelperProcess::bytes(std::size_t most) {
  std::string taken = received_.substr(0, most);
  received_.erase(0, taken.size());
  return taken;
}

void HelperProcess::wake() const {
  if (id_ > 0) {
    ::kill(-id_, SIGCONT);
  }
}

HelperProcess::End HelperProcess::end() {
  End end;
  if (id_ < 0) {
    return end;
  }
  // One that closed its output is on its way out; one that did not is stopped.
  if (!socket_.IsOpen()) {
    endsWithin(id_, exitPatience);
  }
  socket_.Reset();
  ::kill(-id_, SIGKILL); // and whatever it left behind
  const bool ended = endsWithin(id_, exitPatience);
  siginfo_t info{};
  while (ended && waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED) != 0 && errno == EINTR) {
  }
  id_ = -1;
  if (info.si_code == CLD_EXITED) {
    end.code = info.si_status;
    end.text = "ended with exit code " + std::to_string(end.code);
    if (const std::string words = received_.substr(0, received_.find('\n')); !words.empty()) {
      end.text += ": " + cutToWidth(printable(words, OddBytes::Show), 300);
    }
  } else {
    end.signal = ended ? info.si_status : SIGKILL;
    end.text = "was killed by signal " + std::to_string(end.signal) + " (" + strsignal(end.signal) + ')';
  }
  return end;
}

} // namespace trovik
