#include "trovik/text/Text.h"

#include "host/foundation/Characters.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <locale.h> // NOLINT(modernize-deprecated-headers): newlocale and uselocale are POSIX

namespace trovik {
namespace {

struct Character {
  char32_t value = 0;
  std::size_t length = 1;
  bool valid = false;
};

/// The character of a text that begins at a position; an invalid byte is one
/// by itself.
Character characterAt(std::string_view text, std::size_t position) {
  const auto byteAt = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  const unsigned char first = byteAt(position);
  if (first < 0x80) {
    return {first, 1, true};
  }
  std::size_t length = 0;
  char32_t value = 0;
  char32_t smallest = 0;
  if (first >= 0xc2 && first < 0xe0) {
    length = 2;
    value = first & 0x1fU;
    smallest = 0x80;
  } else if (first >= 0xe0 && first < 0xf0) {
    length = 3;
    value = first & 0x0fU;
    smallest = 0x800;
  } else if (first >= 0xf0 && first < 0xf5) {
    length = 4;
    value = first & 0x07U;
    smallest = 0x10000;
  }
  if (length == 0 || position + length > text.size()) {
    return {first, 1, false};
  }
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = byteAt(position + i);
    if ((next & 0xc0U) != 0x80U) {
      return {first, 1, false};
    }
    value = (value << 6U) | (next & 0x3fU);
  }
  if (value < smallest || value > 0x10ffff || (value >= 0xd800 && value < 0xe000)) {
    return {first, 1, false};
  }
  return {value, length, true};
}

/// Characters beyond ASCII that terminals obey or that reorder their line.
bool steersTerminals(char32_t value) {
  return (value >= 0x80 && value < 0xa0) || value == 0x061c || value == 0x200e || value == 0x200f ||
         (value >= 0x2028 && value <= 0x202e) || (value >= 0x2066 && value <= 0x2069) || value == 0xfeff;
}

void appendControl(std::string& out, unsigned char byte) {
  switch (byte) {
  case '\n':
    out += "\\n";
    break;
  case '\r':
    out += "\\r";
    break;
  case '\t':
    out += "\\t";
    break;
  default:
    out += "\\x";
    AppendHex(out, static_cast<char>(byte));
  }
}

/// Makes the UTF-8 character classes known to wcwidth in this thread, whatever
/// the locale of the environment is.
class Utf8Locale {
public:
  Utf8Locale() : previous_(uselocale(known())) {}
  ~Utf8Locale() { uselocale(previous_); }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
  static locale_t known() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale; // null leaves the thread's locale as it is
  }
  locale_t previous_;
};

std::size_t widthOf(const Character& character) {
  if (character.value < 0x80) {
    return 1;
  }
  const int width = character.valid ? wcwidth(static_cast<wchar_t>(character.value)) : 1;
  return width < 0 ? 1 : static_cast<std::size_t>(width);
}

} // namespace

std::string printable(std::string_view text, OddBytes odd) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    const auto byte = static_cast<unsigned char>(text[position]);
    const bool isControl = byte < 0x20 || byte == 0x7f;
    if (isControl || (odd == OddBytes::Show && !character.valid)) {
      appendControl(out, byte);
    } else if (odd == OddBytes::Show && steersTerminals(character.value)) {
      char buffer[16];
      std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned int>(character.value));
      out += buffer;
    } else {
      out.append(text, position, character.length);
    }
    position += character.length;
  }
  return out;
}

std::string_view trimmed(std::string_view line) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t begin = line.find_first_not_of(blanks);
  return begin == std::string_view::npos ? std::string_view()
                                         : line.substr(begin, line.find_last_not_of(blanks) + 1 - begin);
}

bool isUtf8(std::string_view text) {
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    if (!character.valid) {
      return false;
    }
    position += character.length;
  }
  return true;
}

std::u32string charactersOf(std::string_view text) {
  std::u32string characters;
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    characters += character.valid ? character.value : U'\xfffd';
    position += character.length;
  }
  return characters;
}

std::string inQuotes(std::string_view text) {
  return '"' + printable(text, OddBytes::Show) + '"';
}

std::size_t displayWidth(std::string_view text) {
  const Utf8Locale locale;
  std::size_t width = 0;
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    width += widthOf(character);
    position += character.length;
  }
  return width;
}

std::string cutToWidth(std::string_view text, std::size_t width) {
  if (displayWidth(text) <= width) {
    return std::string(text);
  }
  if (width == 0) {
    return {};
  }
  const Utf8Locale locale;
  std::size_t used = 0;
  std::size_t position = 0;
  while (position < text.size()) {
    const Character character = characterAt(text, position);
    const std::size_t next = used + widthOf(character);
    if (next > width - 1) {
      break;
    }
    used = next;
    position += character.length;
  }
  return std::string(text.substr(0, position)) + "…";
}

std::string padded(std::string_view text, std::size_t width) {
  const std::size_t used = displayWidth(text);
  return std::string(text) + std::string(used < width ? width - used : 0, ' ');
}

std::string wrapped(std::string_view text, std::size_t width, std::size_t indent) {
  const std::string margin(indent, ' ');
  const std::size_t room = width > indent + 20 ? width - indent : 20;
  std::string out;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view paragraph = text.substr(begin, end - begin);
    std::string line;
    std::size_t lineWidth = 0;
    std::size_t position = 0;
    while (true) {
      position = paragraph.find_first_not_of(' ', position);
      if (position == std::string_view::npos) {
        break;
      }
      const std::size_t wordEnd = std::min(paragraph.find(' ', position), paragraph.size());
      const std::string_view word = paragraph.substr(position, wordEnd - position);
      const std::size_t wordWidth = displayWidth(word);
      if (!line.empty() && lineWidth + 1 + wordWidth > room) {
        out += margin + line + '\n';
        line.clear();
        lineWidth = 0;
      }
      if (!line.empty()) {
        line += ' ';
        ++lineWidth;
      }
      line += word;
      lineWidth += wordWidth;
      position = wordEnd;
    }
    out += line.empty() ? "\n" : margin + line + '\n';
    begin = end + 1;
  }
  return out;
}

std::string durationText(std::chrono::nanoseconds duration) {
  const double seconds = std::max(0.0, std::chrono::duration<double>(duration).count());
  char buffer[64];
  if (seconds < 9.95) {
    std::snprintf(buffer, sizeof buffer, "%.1f s", seconds);
    return buffer;
  }
  const auto whole = std::llround(seconds);
  if (whole < 60) {
    std::snprintf(buffer, sizeof buffer, "%lld s", whole);
  } else if (whole < 3600) {
    std::snprintf(buffer, sizeof buffer, "%lld min %02lld s", whole / 60, whole % 60);
  } else {
    std::snprintf(buffer, sizeof buffer, "%lld h %02lld min", whole / 3600, whole % 3600 / 60);
  }
  return buffer;
}

std::string roughText(std::chrono::nanoseconds duration) {
  return duration < std::chrono::seconds(10)
             ? std::to_string(std::chrono::ceil<std::chrono::seconds>(duration).count()) + " s"
             : durationText(duration);
}

std::string counted(std::size_t count, std::string_view noun) {
  return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string out;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i != 0) {
      out += separator;
    }
    out += texts[i];
  }
  return out;
}

} // namespace trovik
