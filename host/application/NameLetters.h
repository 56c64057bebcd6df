#pragma once

#include "host/foundation/String.h"

#include <bitset>
#include <string_view>

/// Letters that a program refuses in names, as a type file lists them: words
/// with blanks between. "NonASCII", "NonUTF8", "Control" and "Blank" (in any
/// case) stand for kinds of letters, and every character of a word of signs, such
/// as "\"%", stands for itself.
class NameLetters {
public:
  NameLetters() = default;
  /// Raises Exception* "WHERE:COLUMN: ..." for any other word.
  NameLetters(const String& text, const String& where);

  bool empty() const { return m_Bytes.none() && !m_NonUTF8; }

  /// Where the first of these letters stands in a name; npos where none does.
  std::size_t FindIn(std::string_view name) const;

  /// What stands at such a place, as the object of a sentence: "\"ß\", a letter
  /// beyond ASCII", "a quotation mark".
  static String Describe(std::string_view name, std::size_t place);

private:
  std::bitset<256> m_Bytes;
  bool m_NonUTF8 = false; ///< bytes that are part of no character
};
