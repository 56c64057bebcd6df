#include "trovik/machine/Interrupts.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace trovik {
namespace {

constexpr std::array<int, 3> signals = {SIGINT, SIGTERM, SIGHUP};

// What the handler writes to; a handler can reach nothing but globals.
std::atomic<int> wakeDescriptor{-1};
std::array<struct sigaction, signals.size()> previous;
std::array<bool, signals.size()> handled;
std::atomic<int> wishes{0};
std::atomic<int> lastWish{0};

int askedBy = 0; // the first signal that this process is to end by

void onSignal(int number) {
  const int saved = errno;
  const int descriptor = wakeDescriptor.load();
  if (descriptor >= 0) {
    const char byte = static_cast<char>(number);
    // A full pipe holds enough wishes already.
    [[maybe_unused]] const ssize_t written = write(descriptor, &byte, 1);
  }
  lastWish = number;
  if (++wishes == 2) {
    alarm(1);
  }
  errno = saved;
}

/// Whatever this process hangs in, the second wish to stop is obeyed.
void onAlarm(int /*number*/) {
  std::signal(lastWish, SIG_DFL);
  raise(lastWish);
}

void onFailedWrite(int /*number*/) {}

} // namespace

SignalInterrupts::SignalInterrupts(Ending ending) : ending_(ending) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    return;
  }
  read_.Reset(ends[0]);
  write_.Reset(ends[1]);
  wishes = 0;
  wakeDescriptor = write_.Number();
  std::signal(SIGALRM, onAlarm);
  for (std::size_t i = 0; i < signals.size(); ++i) {
    struct sigaction action {};
    sigaction(signals[i], nullptr, &previous[i]);
    handled[i] = previous[i].sa_handler != SIG_IGN;
    if (handled[i]) {
      action.sa_handler = onSignal;
      action.sa_flags = SA_RESTART;
      sigaction(signals[i], &action, nullptr);
    }
  }
}

SignalInterrupts::~SignalInterrupts() {
  if (!read_.IsOpen()) {
    return;
  }
  for (std::size_t i = 0; i < signals.size(); ++i) {
    if (handled[i]) {
      sigaction(signals[i], &previous[i], nullptr);
    }
  }
  wakeDescriptor = -1;
  alarm(0);
  std::signal(SIGALRM, SIG_DFL);
}

int SignalInterrupts::take() {
  int count = 0;
  char buffer[64];
  ssize_t got = 0;
  while ((got = read(read_.Number(), buffer, sizeof buffer)) > 0) {
    count += static_cast<int>(got);
    if (askedBy == 0 && ending_ == Ending::BySignal) {
      askedBy = static_cast<unsigned char>(buffer[0]);
    }
    byUser_ = byUser_ || std::find(buffer, buffer + got, static_cast<char>(SIGINT)) != buffer + got;
  }
  return count;
}

void endAsAsked() {
  if (askedBy != 0) {
    std::signal(askedBy, SIG_DFL);
    std::raise(askedBy);
  }
}

void surviveFailedWrites() {
  struct sigaction action {};
  action.sa_handler = onFailedWrite;
  action.sa_flags = SA_RESTART;
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);
  for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(number, F_GETFD) < 0) {
      // The lowest number that is free is this one. Writing to it is an error.
      static_cast<void>(open("/dev/null", O_RDONLY));
    }
  }
}

} // namespace trovik
