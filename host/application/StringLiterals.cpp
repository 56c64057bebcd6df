#include "host/application/StringLiterals.h"

#include "host/foundation/Characters.h"

namespace {

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < 0x20U || c == '\x7F';
}

// Writes a text between quotes; `escape` writes control characters, and bytes
// that belong to no character of UTF-8.
template <typename Escape> String Literal(const String& text, char quote, Escape escape) {
  String literal(1, quote);
  for (std::size_t place = 0; place < text.size();) {
    const char c = text[place];
    const std::size_t length = Utf8Length(text, place);
    if (c == quote || c == '\\') {
      literal.push_back('\\');
      literal.push_back(c);
    } else if (IsControl(c) || (length == 1 && static_cast<unsigned char>(c) >= 0x80U)) {
      escape(literal, c);
    } else {
      literal.append(text, place, length);
    }
    place += length;
  }
  literal.push_back(quote);
  return literal;
}

} // namespace

String PythonLiteral(const String& text) {
  return Literal(text, '\'', [](String& literal, char c) {
    literal += IsControl(c) ? "\\x" : "\\udc";
    AppendHex(literal, c);
  });
}

String LispLiteral(const String& text) {
  return Literal(text, '"', [](String& literal, char c) { literal.push_back(c); });
}

std::optional<String> JsonLiteral(const String& text) {
  bool isText = true;
  String literal = Literal(text, '"', [&isText](String& written, char c) {
    isText = isText && IsControl(c);
    written += "\\u00";
    AppendHex(written, c);
  });
  return isText ? std::optional(std::move(literal)) : std::nullopt;
}
