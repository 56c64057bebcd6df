// A renderer for the crash tests: writes one small PPM image a frame, slowly
// enough to be killed in the middle, and keeps a journal of what it does.
//
//   crash_renderer FIRST LAST FOLDER JOURNAL MILLISECONDS
//
// Journal lines: "begin F", "done F", and "twice F" when another renderer is
// at the same frame: the lock of a frame is free as soon as its holder is dead.

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

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

} // namespace

int main(int count, char** arguments) {
  if (count != 6) {
    return 64;
  }
  // Many renderers go on when nobody reads what they print: only an engine that
  // ends them makes room for the next attempt.
  std::signal(SIGPIPE, SIG_IGN);
  const int first = std::atoi(arguments[1]);
  const int last = std::atoi(arguments[2]);
  const std::string folder = arguments[3];
  const std::string journal = arguments[4];
  const std::chrono::milliseconds pause(std::atoi(arguments[5]));
  const std::string half(16 * 16 * 3 / 2, 'x');
  for (int frame = first; frame <= last; ++frame) {
    const std::string number = std::to_string(frame);
    const int lock = open((journal + "." + number + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) {
      note(journal, "twice " + number);
      return 71;
    }
    note(journal, "begin " + number);
    const std::string name = folder + "/f_" + number + ".ppm";
    const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (file < 0 || !writeAll(file, "P6\n16 16\n255\n" + half)) {
      std::puts("fatal: cannot write");
      return 72;
    }
    std::this_thread::sleep_for(pause); // what a frame costs; it may be killed here
    if (!writeAll(file, half)) {
      std::puts("fatal: cannot write");
      return 72;
    }
    close(file);
    note(journal, "done " + number);
    std::printf("saved: %s\n", name.c_str());
    std::fflush(stdout);
    close(lock);
  }
  return 0;
}
