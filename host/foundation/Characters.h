#pragma once

// The kinds of bytes that readers of names and texts tell apart, whatever the
// locale.

inline bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

inline bool IsAsciiLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// A letter, or a part of any character beyond ASCII.
inline bool IsLetter(char c) {
  return IsAsciiLetter(c) || static_cast<unsigned char>(c) >= 0x80U;
}

/// A byte that continues a character of UTF-8.
inline bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}
