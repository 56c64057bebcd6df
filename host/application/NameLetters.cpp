#include "host/application/NameLetters.h"

#include "host/application/Excerpt.h"
#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Format.h"

#include <algorithm>
#include <array>

namespace {

struct Kind {
  const char* Name;
  bool (*Holds)(unsigned char byte);
};

constexpr const char* k_NonUTF8 = "NonUTF8";

constexpr std::array<Kind, 3> k_Kinds = {{
    {"NonASCII", [](unsigned char byte) { return byte >= 0x80U; }},
    {"Control", [](unsigned char byte) { return byte < 0x20U || byte == 0x7FU; }},
    {"Blank", [](unsigned char byte) { return byte == ' ' || byte == '\t'; }},
}};

// No name of a file holds a "/", and to list letters or digits would be a slip.
bool IsSign(char c) {
  return c > ' ' && c < '\x7F' && c != '/' && (c < '0' || c > '9') && (c < 'A' || c > 'Z') &&
         (c < 'a' || c > 'z');
}

} // namespace

NameLetters::NameLetters(const String& text, const String& where) {
  constexpr const char* blanks = " \t";
  for (std::size_t begin = text.find_first_not_of(blanks); begin != String::npos;) {
    const std::size_t end = std::min(text.find_first_of(blanks, begin), text.size());
    const String word = text.substr(begin, end - begin);
    const auto* kind = std::find_if(k_Kinds.begin(), k_Kinds.end(), [&word](const Kind& known) {
      return String::EqualNoCase(word, known.Name);
    });
    if (kind != k_Kinds.end()) {
      for (unsigned int byte = 1; byte < m_Bytes.size(); ++byte) {
        m_Bytes[byte] = m_Bytes[byte] || kind->Holds(static_cast<unsigned char>(byte));
      }
    } else if (String::EqualNoCase(word, k_NonUTF8)) {
      m_NonUTF8 = true;
    } else if (std::all_of(word.begin(), word.end(), IsSign)) {
      for (const char sign : word) {
        m_Bytes.set(static_cast<unsigned char>(sign));
      }
    } else {
      RaisePlaced("NameLetters", k_ErrorSyntax, where + ":" + std::to_string(begin + 1),
                  "\"" + Shown(word) +
                      "\" names no letters; write NonASCII, NonUTF8, Control, Blank or the signs themselves, "
                      "with blanks between",
                  text, begin);
    }
    begin = text.find_first_not_of(blanks, end);
  }
}

std::size_t NameLetters::FindIn(std::string_view name) const {
  for (std::size_t place = 0; place < name.size();) {
    const auto byte = static_cast<unsigned char>(name[place]);
    const std::size_t length = byte < 0x80U ? 1 : Utf8Length(name, place);
    if (m_Bytes[byte] || (m_NonUTF8 && byte >= 0x80U && length == 1)) {
      return place;
    }
    place += length;
  }
  return std::string_view::npos;
}

String NameLetters::Describe(std::string_view name, std::size_t place) {
  const auto byte = static_cast<unsigned char>(name[place]);
  if (byte >= 0x80U) {
    const std::size_t length = Utf8Length(name, place);
    return length == 1 ? SFormat("the byte \\x%02x, which is no letter of UTF-8", static_cast<int>(byte))
                       : "\"" + String(name.substr(place, length)) + "\", a letter beyond ASCII";
  }
  if (byte == ' ') {
    return "a blank";
  }
  if (byte < 0x20U || byte == 0x7FU) {
    return SFormat("the control character \\x%02x", static_cast<int>(byte));
  }
  return byte == '"' ? String("a quotation mark") : "\"" + String(1, name[place]) + "\"";
}
