// A program for the tests of Process: its first argument says what to do.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using Arguments = char**;

void Say(const std::string& text) {
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = write(STDOUT_FILENO, text.data() + written, text.size() - written);
    if (count < 0) {
      std::_Exit(99);
    }
    written += static_cast<std::size_t>(count);
  }
}

[[noreturn]] void PauseForever() {
  for (;;) {
    pause();
  }
}

std::string LinkOf(int descriptor) {
  return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
}

// The arguments, each followed by a zero byte.
int SayArguments(Arguments arguments) {
  for (; *arguments != nullptr; ++arguments) {
    Say(std::string(*arguments) + '\0');
  }
  return 0;
}

// The numbers of the open descriptors.
int SayDescriptors(Arguments) {
  for (int number = 0; number < 1024; ++number) {
    if (fcntl(number, F_GETFD) >= 0) {
      Say(std::to_string(number) + "\n");
    }
  }
  return 0;
}

int SayInput(Arguments) {
  char byte = 0;
  Say(LinkOf(STDIN_FILENO) + " " + std::to_string(read(STDIN_FILENO, &byte, 1)) + "\n");
  return 0;
}

int SayEnvironment(Arguments names) {
  for (; *names != nullptr; ++names) {
    const char* value = std::getenv(*names);
    Say(std::string(*names) + (value == nullptr ? " is unset" : "=" + std::string(value)) + "\n");
  }
  return 0;
}

// The signals that are blocked or ignored. The two that the C library keeps for
// itself (32 and 33) are not told.
int SaySignals(Arguments) {
  sigset_t blocked;
  sigprocmask(SIG_SETMASK, nullptr, &blocked);
  for (int number = 1; number <= SIGRTMAX; ++number) {
    struct sigaction action {};
    if (sigismember(&blocked, number) == 1) {
      Say("blocked " + std::to_string(number) + "\n");
    }
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
      Say("ignored " + std::to_string(number) + "\n");
    }
  }
  Say("that is all\n");
  return 0;
}

int SayGroup(Arguments) {
  Say(getpgrp() == getpid() ? "leads its group\n" : "is in another's group\n");
  return 0;
}

int SayDirectory(Arguments) {
  Say(std::filesystem::current_path().string());
  return 0;
}

int SayOnBoth(Arguments) {
  Say("one\n");
  if (write(STDERR_FILENO, "two\n", 4) != 4) {
    return 99;
  }
  Say("three\n");
  return 0;
}

int Exit(Arguments arguments) {
  return std::atoi(arguments[0]);
}

int Die(Arguments arguments) {
  raise(std::atoi(arguments[0]));
  return 99;
}

// Holds so many megabytes, and keeps a processor busy for so many milliseconds.
int Use(Arguments arguments) {
  const std::vector<char> memory(static_cast<std::size_t>(std::atoi(arguments[0])) * 1'000'000, 'x');
  const clock_t end = clock() + static_cast<clock_t>(std::atoi(arguments[1])) * (CLOCKS_PER_SEC / 1000);
  while (clock() < end) {
  }
  return memory.back() == 'x' ? 0 : 1;
}

// The same, in a program that this one starts and waits for.
int UseBelow(Arguments arguments) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(Use(arguments));
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

int WaitForSignal(Arguments) {
  Say("ready\n");
  PauseForever();
}

int Ignore(Arguments) {
  std::signal(SIGTERM, SIG_IGN);
  Say("ready\n");
  PauseForever();
}

// Says so and ends with code 3 when it is asked to end.
int EndPolitely(Arguments) {
  struct sigaction action {};
  action.sa_handler = [](int) {
    Say("asked to end\n");
    std::_Exit(3);
  };
  sigaction(SIGTERM, &action, nullptr);
  Say("ready\n");
  PauseForever();
}

int Stop(Arguments) {
  std::signal(SIGTERM, SIG_DFL);
  raise(SIGSTOP);
  PauseForever();
}

// Leaves a child behind that ignores requests to end, tells its number, and
// ends ("leave") or stays ("keep").
int Parent(Arguments arguments) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return 99;
  }
  const pid_t child = fork();
  if (child == 0) {
    std::signal(SIGTERM, SIG_IGN);
    if (write(ends[1], "x", 1) != 1) {
      std::_Exit(99);
    }
    PauseForever();
  }
  char byte = 0;
  if (read(ends[0], &byte, 1) != 1) {
    return 99;
  }
  Say(std::to_string(child) + "\n");
  if (std::strcmp(arguments[0], "keep") == 0) {
    PauseForever();
  }
  return 0;
}

int Flood(Arguments arguments) {
  const std::string block(65536, 'x');
  for (long left = std::atol(arguments[0]); left > 0; left -= 65536) {
    Say(block);
  }
  return 0;
}

// Writes into a named pipe how it was started.
int Report(Arguments arguments) {
  const std::string report = std::string(getsid(0) == getpid() ? "own session" : "another's session") + " " +
                             LinkOf(0) + " " + LinkOf(1) + " " + LinkOf(2) + "\n";
  const int pipe = open(arguments[0], O_WRONLY | O_CLOEXEC);
  return pipe >= 0 && write(pipe, report.data(), report.size()) > 0 ? 0 : 99;
}

} // namespace

int main(int count, char** arguments) {
  const std::map<std::string, int (*)(Arguments)> verbs = {
      {"arguments", SayArguments},
      {"descriptors", SayDescriptors},
      {"input", SayInput},
      {"environment", SayEnvironment},
      {"signals", SaySignals},
      {"group", SayGroup},
      {"directory", SayDirectory},
      {"both", SayOnBoth},
      {"exit", Exit},
      {"die", Die},
      {"use", Use},
      {"use-below", UseBelow},
      {"wait", WaitForSignal},
      {"ignore", Ignore},
      {"polite", EndPolitely},
      {"stop", Stop},
      {"parent", Parent},
      {"flood", Flood},
      {"report", Report},
  };
  const auto verb = count > 1 ? verbs.find(arguments[1]) : verbs.end();
  return verb == verbs.end() ? 98 : verb->second(arguments + 2);
}
