#include "host/application/Excerpt.h"

#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Format.h"

#include <algorithm>

namespace {

constexpr std::size_t k_Before = 70; // bytes of a long line before the place
constexpr std::size_t k_After = 40;  // and behind it
constexpr std::size_t k_Word = 80;   // bytes of a word within a message

// Cuts between characters of UTF-8, not within one.
std::size_t CharacterStart(const String& text, std::size_t position) {
  std::size_t start = std::min(position, text.size());
  while (start > 0 && start < text.size() && position - start < 3 && IsContinuation(text[start])) {
    --start;
  }
  return start;
}

String Printable(String text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; },
      '?');
  return text;
}

} // namespace

String CaretExcerpt(const String& text, std::size_t position) {
  position = std::min(position, text.size());
  const std::size_t feed = position == 0 ? String::npos : text.rfind('\n', position - 1);
  const std::size_t lineStart = feed == String::npos ? 0 : feed + 1;
  const std::size_t lineEnd = std::min(text.find('\n', position), text.size());
  const auto number =
      1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(lineStart), '\n');

  const std::size_t from =
      position - lineStart <= k_Before ? lineStart : CharacterStart(text, position - k_Before);
  const std::size_t to = lineEnd - position <= k_After ? lineEnd : CharacterStart(text, position + k_After);
  const String before = (from > lineStart ? "..." : "") + text.substr(from, position - from);
  const String behind = text.substr(position, to - position) + (to < lineEnd ? "..." : "");
  const auto columns = static_cast<std::size_t>(
      std::count_if(before.begin(), before.end(), [](char c) { return !IsContinuation(c); }));
  return SFormat("\n%5d | ", number) + Printable(before + behind) + "\n      | " + String(columns, ' ') + "^";
}

String Shown(const String& text) {
  if (text.size() <= k_Word) {
    return Printable(text);
  }
  return Printable(text.substr(0, CharacterStart(text, k_Word))) + "...";
}

void RaisePlaced(const char* function, int code, const String& where, const String& message,
                 const String& text, std::size_t position) {
  RaiseException(function, code, where + ": " + message + CaretExcerpt(text, position));
}
