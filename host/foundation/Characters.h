#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// The kinds of bytes that readers of names and texts tell apart, whatever the
// locale, and the two digits by which texts write any byte.

inline bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

inline bool IsAsciiLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

inline char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// What ends a line of a program's output: a progress bar goes back to write anew.
inline bool EndsLine(char c) {
  return c == '\n' || c == '\r' || c == '\b';
}

/// A letter, or a part of any character beyond ASCII.
inline bool IsLetter(char c) {
  return IsAsciiLetter(c) || static_cast<unsigned char>(c) >= 0x80U;
}

/// A byte that continues a character of UTF-8.
inline bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// The bytes of the UTF-8 character there; 1 for a byte that begins none.
inline std::size_t Utf8Length(std::string_view text, std::size_t place) {
  const auto first = static_cast<unsigned char>(text[place]);
  const std::size_t length = first >= 0xC2U && first < 0xE0U   ? 2
                             : first >= 0xE0U && first < 0xF0U ? 3
                             : first >= 0xF0U && first < 0xF5U ? 4
                                                               : 1;
  for (std::size_t i = 1; i < length; ++i) {
    if (place + i >= text.size() || !IsContinuation(text[place + i])) {
      return 1;
    }
  }
  // Neither longer than it must be, nor half of a pair, nor beyond the last.
  const auto second = static_cast<unsigned char>(length > 2 ? text[place + 1] : '\0');
  const bool none = (first == 0xE0U && second < 0xA0U) || (first == 0xEDU && second > 0x9FU) ||
                    (first == 0xF0U && second < 0x90U) || (first == 0xF4U && second > 0x8FU);
  return none ? 1 : length;
}

/// Appends a byte as two lower-case hexadecimal digits.
inline void AppendHex(std::string& text, char byte) {
  static constexpr std::string_view k_Digits = "0123456789abcdef";
  text.push_back(k_Digits[static_cast<unsigned char>(byte) >> 4U]);
  text.push_back(k_Digits[static_cast<unsigned char>(byte) & 0x0FU]);
}

/// The reverse; -1 for anything but a lower-case hexadecimal digit.
inline int HexDigit(char c) {
  return IsDigit(c) ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

inline std::string HexOf(std::string_view bytes) {
  std::string text;
  text.reserve(2 * bytes.size());
  for (const char byte : bytes) {
    AppendHex(text, byte);
  }
  return text;
}

/// The bytes of such a text; nothing for any other.
inline std::optional<std::string> BytesOfHex(std::string_view text) {
  if (text.size() % 2 != 0) {
    return std::nullopt;
  }
  std::string bytes;
  bytes.reserve(text.size() / 2);
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = HexDigit(text[i]);
    const int low = HexDigit(text[i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}
