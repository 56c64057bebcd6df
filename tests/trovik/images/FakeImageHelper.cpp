// Stands for trovik-image in tests: what it does is told by the names of the
// files that it is asked about.

#include "trovik/images/ImageProtocol.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace trovik;

namespace {

void say(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

bool names(const std::string& file, const char* what) {
  return file.find(what) != std::string::npos;
}

/// Ends or hangs where the name says so.
void misbehave(const std::string& file) {
  if (names(file, "crash-once")) {
    if (mkdir((file + ".met").c_str(), 0700) == 0) {
      raise(SIGKILL);
    }
  } else if (names(file, "crash")) {
    raise(SIGKILL);
  } else if (names(file, "exit")) {
    std::exit(3);
  } else if (names(file, "hang")) {
    mkdir((file + ".met").c_str(), 0700);
    for (;;) {
      pause();
    }
  } else if (names(file, "gate")) {
    close(open(file.c_str(), O_RDONLY)); // a named pipe: until somebody opens its other end
  } else if (names(file, "stop")) {
    raise(SIGSTOP);
  } else if (names(file, "garbage")) {
    say("error while loading shared libraries: libpicture.so\n");
  } else if (names(file, "flood")) {
    for (;;) {
      say(std::string(4096, 'x'));
    }
  }
}

int check() {
  for (std::string line; std::getline(std::cin, line);) {
    const auto request = requestFrom(line);
    const std::string file = request ? request->file : "crash";
    misbehave(file);
    say(answerLine({request->refuseFlat ? "flat " + file : file, true, static_cast<int>(getpid()), 0}));
  }
  return 0;
}

int sheet() {
  std::string line;
  std::getline(std::cin, line);
  const auto plan = planFrom(line);
  SheetReport report;
  for (std::size_t i = 0; plan && i < plan->cells.size(); ++i) {
    if (plan->cells[i].state == CellState::Good) {
      say(reportLine({SheetReport::Kind::Opens, i, CellState::Good, {}, 0, 0}));
      misbehave(plan->cells[i].file);
    }
    say(reportLine({SheetReport::Kind::Cell, i, plan->cells[i].state, plan->cells[i].note, 0, 0}));
  }
  report.kind = SheetReport::Kind::Done;
  report.width = 640;
  report.height = 480;
  say(reportLine(report));
  return 0;
}

} // namespace

int main(int count, char** arguments) {
  return count > 1 && std::string(arguments[1]) == "sheet" ? sheet() : check();
}
