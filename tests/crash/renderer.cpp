// A renderer for the crash tests: writes one small PPM image a frame, slowly
// enough to be killed in the middle, and keeps a journal of what it does.
//
//   crash_renderer FIRST LAST FOLDER JOURNAL MILLISECONDS [MANNER [REPORT]]
//
// Journal lines: "begin F", "done F", and "twice F" when another renderer is
// at the same frame: the lock of a frame is free as soon as its holder is dead.
// "late F" is of one that outlived the end of its program, and spoils the frame.
//
// MANNER is how the program makes it hard to end it:
//
//   Plain         it does not
//   Wrapped       by a program that gives it a process group of its own
//   Deaf          does not listen to signals that ask it to end
//   Session       a child in a session of its own renders
//   Daemon        a grandchild in a session of its own renders
//   CleanDaemon   the same, with an empty environment
//   Straggler     leaves a child in a session of its own, which comes too late
//
// REPORT is a descriptor: one byte is written to it at a good end.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

void note(const std::string& journal, const std::string& line) {
  const int file = open(journal.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  const std::string text = line + '\n';
  if (file < 0 || write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    _exit(70);
  }
  close(file);
}

bool writeAll(int file, const std::string& bytes) {
  return write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

struct Wanted {
  int first = 0;
  int last = 0;
  std::string folder;
  std::string journal;
  std::chrono::milliseconds pause{};
};

std::string fileOf(const Wanted& wanted, int frame) {
  return wanted.folder + "/f_" + std::to_string(frame) + ".ppm";
}

int render(const Wanted& wanted) {
  const std::string half(16 * 16 * 3 / 2, 'x');
  for (int frame = wanted.first; frame <= wanted.last; ++frame) {
    const std::string number = std::to_string(frame);
    const int lock =
        open((wanted.journal + "." + number + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) {
      note(wanted.journal, "twice " + number);
      return 71;
    }
    note(wanted.journal, "begin " + number);
    const std::string name = fileOf(wanted, frame);
    const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0 || !writeAll(file, "P6\n16 16\n255\n" + half)) {
      std::puts("fatal: cannot write");
      return 72;
    }
    std::this_thread::sleep_for(wanted.pause); // what a frame costs; it may be killed here
    if (!writeAll(file, half)) {
      std::puts("fatal: cannot write");
      return 72;
    }
    close(file);
    note(wanted.journal, "done " + number);
    std::printf("saved: %s\n", name.c_str());
    std::fflush(stdout);
    close(lock);
  }
  return 0;
}

/// A process of a session of its own; in the calling one, its number.
pid_t forkAway() {
  const pid_t child = fork();
  if (child < 0) {
    std::puts("fatal: no process");
    std::exit(73);
  }
  if (child == 0) {
    setsid();
  }
  return child;
}

/// Comes when its program has long ended, and spoils what that has rendered.
void comeLate(const Wanted& wanted) {
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  note(wanted.journal, "late " + std::to_string(wanted.last));
  const int file = open(fileOf(wanted, wanted.last).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (file >= 0) {
    close(file);
  }
  std::this_thread::sleep_for(std::chrono::minutes(10));
  _exit(0);
}

[[noreturn]] void become(const char* program, std::vector<std::string> words, bool clean) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  if (clean) {
    char* nothing = nullptr;
    execve(program, pointers.data(), &nothing);
  } else {
    execvp(program, pointers.data());
  }
  std::puts("fatal: cannot start");
  _exit(74);
}

/// A grandchild renders; this waits for it.
int renderByDaemon(std::vector<std::string> words, bool clean) {
  int report[2];
  if (pipe(report) != 0) {
    return 75;
  }
  const pid_t child = forkAway();
  if (child == 0) {
    close(report[0]);
    if (forkAway() != 0) {
      _exit(0);
    }
    words[6] = "Plain";
    words.push_back(std::to_string(report[1]));
    const std::string program = words[0];
    become(program.c_str(), std::move(words), clean);
  }
  close(report[1]);
  waitpid(child, nullptr, 0);
  char byte = 0;
  return read(report[0], &byte, 1) == 1 ? 0 : 76;
}

} // namespace

int main(int count, char** arguments) {
  std::vector<std::string> words(arguments, arguments + count);
  if (count < 6 || count > 8) {
    return 64;
  }
  // Many renderers go on when nobody reads what they print: only an engine that
  // ends them makes room for the next attempt.
  std::signal(SIGPIPE, SIG_IGN);
  const Wanted wanted = {std::atoi(arguments[1]), std::atoi(arguments[2]), arguments[3], arguments[4],
                         std::chrono::milliseconds(std::atoi(arguments[5]))};
  const std::string manner = count > 6 ? arguments[6] : "Plain";
  if (manner == "Wrapped") {
    words[6] = "Plain";
    words.insert(words.begin(), {"timeout", "600"});
    become("timeout", std::move(words), false);
  }
  if (manner == "Daemon" || manner == "CleanDaemon") {
    return renderByDaemon(std::move(words), manner == "CleanDaemon");
  }
  if (manner == "Session") {
    const pid_t child = forkAway();
    if (child != 0) {
      int status = 0;
      waitpid(child, &status, 0);
      return WIFEXITED(status) ? WEXITSTATUS(status) : 77;
    }
  }
  if (manner == "Deaf") {
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
  }
  const int code = render(wanted);
  if (code == 0 && manner == "Straggler" && forkAway() == 0) {
    comeLate(wanted);
  }
  if (code == 0 && count > 7 && write(std::atoi(arguments[7]), "g", 1) != 1) {
    return 78;
  }
  return code;
}
