#pragma once

#include "host/foundation/String.h"

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

/// Several texts that are looked for in lines together, without regard to the
/// case of ASCII letters. Empty texts are left out: they would match anything.
class TextSet {
public:
  TextSet() = default;
  explicit TextSet(const std::vector<String>& texts);

  bool empty() const { return m_Texts.empty(); }
  /// Whether a line begins with one of the texts.
  bool Begins(std::string_view line) const;
  /// Whether a line holds one of them anywhere.
  bool Occurs(std::string_view line) const;

private:
  using ByteTable = std::array<std::uint8_t, 256>;

  bool MatchesAt(std::string_view rest) const;

  std::vector<String> m_Texts; // in lower case
  // One bit for each group of texts: whether a text of the group has the byte,
  // in either case, at its first and at its second place.
  ByteTable m_First{};
  ByteTable m_Second{};
};

/// What makes a line of output an error line: it begins with an error text (or
/// holds one anywhere) and holds no ignore text.
class ErrorTexts {
public:
  /// Both lists are texts joined with ";" as list parameters hold them.
  ErrorTexts(const String& errors, const String& ignores, bool anywhere);

  bool IsError(std::string_view line) const {
    return (m_Anywhere ? m_Errors.Occurs(line) : m_Errors.Begins(line)) && !m_Ignores.Occurs(line);
  }

private:
  TextSet m_Errors;
  TextSet m_Ignores;
  bool m_Anywhere;
};
