#include "trovik/text/Messages.h"

#include <algorithm>

namespace trovik {

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
