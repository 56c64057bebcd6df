#include "trovik/text/Console.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

constexpr const char* clearLine = "\r\x1b[K";

std::string inColour(bool enabled, Colour colour, std::string_view text) {
  const char* code = "";
  switch (colour) {
  case Colour::Plain:
    break;
  case Colour::Red:
    code = "\x1b[31m";
    break;
  case Colour::Green:
    code = "\x1b[32m";
    break;
  case Colour::Yellow:
    code = "\x1b[33m";
    break;
  case Colour::Bold:
    code = "\x1b[1m";
    break;
  case Colour::Faint:
    code = "\x1b[2m";
    break;
  }
  if (!enabled || colour == Colour::Plain || text.empty()) {
    return std::string(text);
  }
  return code + std::string(text) + "\x1b[0m";
}

} // namespace

Console::Console(Writer out, Writer error, ConsoleTraits traits, std::function<std::size_t()> width)
    : out_(std::move(out)), error_(std::move(error)), traits_(traits), width_(std::move(width)) {}

Console::~Console() {
  setLive({});
}

void Console::print(std::string_view text) {
  if (live_.empty()) {
    out_(text);
  } else {
    out_(clearLine + std::string(text) + live_);
  }
}

void Console::printError(std::string_view text) {
  if (live_.empty()) {
    error_(text);
    return;
  }
  out_(clearLine);
  error_(text);
  out_(live_);
}

void Console::setLive(const std::string& line) {
  if (!traits_.terminal) {
    return;
  }
  const std::size_t columns = width();
  std::string next = cutToWidth(line, columns > 1 ? columns - 1 : 0);
  if (next == live_) {
    return;
  }
  live_ = std::move(next);
  out_(clearLine + live_);
}

std::string Console::shown(std::string_view text) const {
  return printable(text, traits_.terminal ? OddBytes::Show : OddBytes::Keep);
}

std::string Console::shownError(std::string_view text) const {
  return printable(text, traits_.errorTerminal ? OddBytes::Show : OddBytes::Keep);
}

std::string Console::coloured(Colour colour, std::string_view text) const {
  return inColour(traits_.colour, colour, text);
}

std::string Console::colouredError(Colour colour, std::string_view text) const {
  return inColour(traits_.errorColour, colour, text);
}

Console::Writer descriptorWriter(int descriptor, int* error) {
  auto closed = std::make_shared<bool>(false);
  return [descriptor, error, closed](std::string_view bytes) {
    while (!bytes.empty() && !*closed) {
      const ssize_t written = write(descriptor, bytes.data(), bytes.size());
      if (written >= 0) {
        bytes.remove_prefix(static_cast<std::size_t>(written));
      } else if (errno == EAGAIN) {
        pollfd wait{descriptor, POLLOUT, 0};
        poll(&wait, 1, -1);
      } else if (errno != EINTR) {
        *closed = true;
        if (error != nullptr && errno != EPIPE) {
          *error = errno;
        }
      }
    }
  };
}

ConsoleTraits standardTraits(ColourChoice choice) {
  const char* term = std::getenv("TERM");
  const bool capable = term != nullptr && *term != '\0' && std::string_view(term) != "dumb";
  const char* refusal = std::getenv("NO_COLOR");
  const bool refused = refusal != nullptr && *refusal != '\0';
  const auto colours = [&](bool terminal) {
    return choice == ColourChoice::Always || (choice == ColourChoice::Auto && terminal && !refused);
  };
  ConsoleTraits traits;
  traits.terminal = capable && isatty(STDOUT_FILENO) == 1;
  traits.errorTerminal = capable && isatty(STDERR_FILENO) == 1;
  traits.colour = colours(traits.terminal);
  traits.errorColour = colours(traits.errorTerminal);
  return traits;
}

std::size_t standardWidth() {
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    return size.ws_col;
  }
  if (const char* columns = std::getenv("COLUMNS"); columns != nullptr) {
    const long value = std::strtol(columns, nullptr, 10);
    if (value > 0 && value < 10000) {
      return static_cast<std::size_t>(value);
    }
  }
  return 80;
}

std::string messageText(const Console& console, Colour colour, const std::string& head,
                        const std::string& text) {
  std::string out = console.colouredError(colour, head);
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    out += (begin == 0 ? " " : "") + console.shownError(text.substr(begin, end - begin)) + '\n';
    begin = end + 1;
  }
  return out;
}

namespace {

void printWithHint(Console& console, Colour colour, const std::string& head, const UsageError& error) {
  std::string text = messageText(console, colour, head, error.message);
  if (!error.hint.empty()) {
    text += messageText(console, Colour::Plain, "hint:", error.hint);
  }
  console.printError(text);
}

} // namespace

void printWarning(Console& console, const UsageError& warning) {
  printWithHint(console, Colour::Yellow, "trovik: warning:", warning);
}

void printRefusal(Console& console, const UsageError& error) {
  printWithHint(console, Colour::Red, "trovik: error:", error);
}

} // namespace trovik
