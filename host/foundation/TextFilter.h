#pragma once

#include "host/foundation/String.h"

#include <array>
#include <locale>
#include <string_view>
#include <vector>

/// Lower case as a locale has it, one table look-up a byte.
class LowerTable {
public:
  /// The global locale of this moment unless another is given.
  explicit LowerTable(const std::locale& locale = std::locale());

  /// Takes over the global locale of now; true when it is another one.
  bool Follow();

  char Lower(char byte) const { return m_Lower[static_cast<unsigned char>(byte)]; }
  String Lower(std::string_view text) const;

  /// Whether the lower-cased line begins with a text.
  bool BeginsWith(std::string_view line, std::string_view text) const;

private:
  void Read(const std::locale& locale);

  std::locale m_Locale;
  std::array<char, 256> m_Lower{};
};

/// Answers in one pass over a line whether its lower-cased form holds any of a
/// set of texts, without making that form. See TextFilter.cpp.
class TextFilter {
public:
  /// Takes over the texts, which are in lower case already.
  void Build(const std::vector<String>& texts, const LowerTable& lower);

  /// `lower` must be the table that the filter was built with.
  bool Occurs(std::string_view line, const LowerTable& lower) const;

  /// The same answer byte by byte, for machines without AVX2.
  bool OccursBytewise(std::string_view line, const LowerTable& lower) const;

private:
  /// The bytes of a text that the pass looks at.
  static constexpr std::size_t k_Prefix = 3;

  /// For one byte of the prefix: the buckets of texts that a byte may belong
  /// to, by its whole value and by its two halves.
  struct Position {
    std::array<unsigned char, 256> Byte{};
    std::array<unsigned char, 16> Low{};
    std::array<unsigned char, 16> High{};
  };

  bool IsAt(std::string_view line, std::size_t place, unsigned int buckets, const LowerTable& lower) const;
  bool OccursInVectors(std::string_view line, const LowerTable& lower) const;

  std::vector<String> m_Texts;
  bool m_HasEmpty = false;
  std::array<Position, k_Prefix> m_Positions;
};
