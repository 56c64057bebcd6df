#include "trovik/check/DiagnosticText.h"

#include "trovik/text/Text.h"

#include <algorithm>

namespace trovik {
namespace {

/// One character of a line as it is shown.
struct Cell {
  std::string text;
  std::size_t width = 0;
};

/// The length of the character at the front of a text; a byte that is not
/// UTF-8 is one by itself.
std::size_t characterLength(std::string_view text) {
  for (std::size_t length = 1; length <= std::min<std::size_t>(4, text.size()); ++length) {
    if (isUtf8(text.substr(0, length))) {
      return length;
    }
  }
  return 1;
}

std::vector<Cell> cellsOf(const Console& console, std::string_view text) {
  std::vector<Cell> cells;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    const std::string shown = console.shown(text.substr(0, length));
    cells.push_back({shown, displayWidth(shown)});
    text.remove_prefix(length);
  }
  return cells;
}

std::size_t widthOf(const std::vector<Cell>& cells) {
  std::size_t width = 0;
  for (const Cell& cell : cells) {
    width += cell.width;
  }
  return width;
}

std::string textOf(const std::vector<Cell>& cells) {
  std::string text;
  for (const Cell& cell : cells) {
    text += cell.text;
  }
  return text;
}

const Cell dots{"...", 3};

/// Takes cells away behind the first `width` columns.
void cutBehind(std::vector<Cell>& cells, std::size_t width) {
  std::size_t used = widthOf(cells);
  if (used <= width) {
    return;
  }
  while (!cells.empty() && used + dots.width > width) {
    used -= cells.back().width;
    cells.pop_back();
  }
  if (used + dots.width <= width) {
    cells.push_back(dots);
  }
}

void cutBefore(std::vector<Cell>& cells, std::size_t width) {
  std::reverse(cells.begin(), cells.end());
  cutBehind(cells, width);
  std::reverse(cells.begin(), cells.end());
}

/// The start of a character of UTF-8 at or before a place.
std::size_t characterStart(std::string_view text, std::size_t place) {
  std::size_t start = place;
  while (start > 0 && start < text.size() && place - start < 3 &&
         (static_cast<unsigned char>(text[start]) & 0xC0U) == 0x80U) {
    --start;
  }
  return start;
}

/// The line, and the marks below the place. Of a line that may have any length
/// only a few screens around the place are read.
std::string excerpt(const Console& console, std::string_view line, const Diagnostic& diagnostic,
                    std::size_t width) {
  const std::size_t begin =
      std::min<std::size_t>(std::max<std::size_t>(diagnostic.column, 1) - 1, line.size());
  const std::size_t end =
      std::clamp<std::size_t>(std::max<std::size_t>(diagnostic.endColumn, 1) - 1, begin, line.size());
  const std::size_t reach = 8 * width;
  const std::size_t from = begin > reach ? characterStart(line, begin - reach) : 0;
  const std::size_t markedEnd = std::min(end, begin + reach);
  std::vector<Cell> before = cellsOf(console, line.substr(from, begin - from));
  std::vector<Cell> marked = cellsOf(console, line.substr(begin, markedEnd - begin));
  std::vector<Cell> behind = cellsOf(console, line.substr(markedEnd, reach));
  if (from > 0) {
    before.insert(before.begin(), dots);
  }

  const std::string number = std::to_string(diagnostic.line);
  const std::string head = std::string(number.size() < 5 ? 5 - number.size() : 0, ' ') + number;
  const std::size_t room = std::max<std::size_t>(width, 40) - head.size() - 4;
  cutBehind(marked, room - std::min<std::size_t>(widthOf(before), room / 4));
  const std::size_t rest = room - widthOf(marked);
  // The place stays in sight with as much behind it as there is room.
  const std::size_t least = std::min<std::size_t>(widthOf(behind), rest / 4);
  cutBefore(before, rest - least);
  cutBehind(behind, rest - std::min(rest, widthOf(before)));

  const std::string marks(std::max<std::size_t>(widthOf(marked), 1), '^');
  std::string shown = textOf(before) + textOf(marked) + textOf(behind);
  shown.erase(shown.find_last_not_of(' ') + 1);
  return head + " |" + (shown.empty() ? "" : " ") + shown + '\n' + std::string(head.size(), ' ') + " | " +
         std::string(widthOf(before), ' ') +
         console.coloured(diagnostic.severity == Severity::Error ? Colour::Red : Colour::Yellow, marks) +
         '\n';
}

} // namespace

std::string diagnosticText(const Console& console, const TypeSource& source, const Diagnostic& diagnostic,
                           std::size_t width) {
  const bool error = diagnostic.severity == Severity::Error;
  std::string place = console.shown(source.shown()) + ':';
  if (diagnostic.line != 0) {
    place += std::to_string(diagnostic.line) + ':' + std::to_string(diagnostic.column) + ':';
  }
  std::string text = console.coloured(Colour::Bold, place) + ' ' +
                     console.coloured(error ? Colour::Red : Colour::Yellow, error ? "error:" : "warning:") +
                     ' ' + console.shown(diagnostic.message) + '\n';
  if (diagnostic.line != 0) {
    text += excerpt(console, source.line(diagnostic.line), diagnostic, width);
  }
  if (!diagnostic.hint.empty()) {
    text += "hint: " + console.shown(diagnostic.hint) + '\n';
  }
  return text;
}

} // namespace trovik
