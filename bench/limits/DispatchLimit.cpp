#include "bench/limits/Limits.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

struct Slot {
  pid_t process = -1;
  int output = -1;
};

bool start(Slot& slot, char* const* words) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
  posix_spawn_file_actions_adddup2(&actions, ends[1], 2);
  const int error = posix_spawn(&slot.process, words[0], &actions, nullptr, words, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  slot.output = ends[0];
  return error == 0;
}

} // namespace

int dispatchLimit(int count, int slots, char* const* words) {
  std::vector<Slot> running(static_cast<std::size_t>(slots));
  std::vector<pollfd> waits(running.size());
  static char buffer[65536];
  int left = count;
  int failed = 0;
  int active = 0;
  const auto next = [&](Slot& slot) {
    if (left > 0) {
      --left;
      ++active;
      failed += start(slot, words) ? 0 : 1;
    }
  };
  for (Slot& slot : running) {
    next(slot);
  }
  while (active > 0) {
    for (std::size_t i = 0; i < running.size(); ++i) {
      waits[i] = {running[i].output, POLLIN, 0};
    }
    poll(waits.data(), waits.size(), -1);
    for (std::size_t i = 0; i < running.size(); ++i) {
      Slot& slot = running[i];
      if (waits[i].revents == 0 || read(slot.output, buffer, sizeof(buffer)) > 0) {
        continue;
      }
      int status = 0;
      close(slot.output);
      waitpid(slot.process, &status, 0);
      failed += status == 0 ? 0 : 1;
      slot = Slot();
      --active;
      next(slot);
    }
  }
  return failed == 0 ? 0 : 1;
}

} // namespace bench
