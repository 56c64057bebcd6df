#pragma once

#include "host/foundation/String.h"

#include <array>
#include <cstdint>
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

  /// Whether the global locale is still the one that was read.
  bool IsCurrent() const { return m_Locale == std::locale(); }

  char Lower(char byte) const { return m_Lower[static_cast<unsigned char>(byte)]; }
  String Lower(std::string_view text) const;

  /// The same into a text that is there, for its memory.
  void Lower(std::string_view text, String& lowered) const;

  /// Whether the lower-cased line begins with a text.
  bool BeginsWith(std::string_view line, std::string_view text) const;

  /// Whether both lower every byte alike, whatever their locales are called.
  bool LowersAs(const LowerTable& other) const { return m_Lower == other.m_Lower; }

private:
  void Read(const std::locale& locale);

  std::locale m_Locale;
  std::array<char, 256> m_Lower{};
  bool m_OfAscii = true; // alters only the letters A to Z
};

/// Finds out in one pass over a line, or over many at once, whether their
/// lower-cased form holds any of a set of texts, without making that form. See
/// TextFilter.cpp.
class TextFilter {
public:
  static constexpr std::size_t k_Nowhere = std::string_view::npos;

  /// Where in a line a text counts.
  enum class Where { Anywhere, LineStart };

  /// `vectors` false takes the way for machines without AVX2.
  explicit TextFilter(bool vectors = HasVectors()) : m_Vectors(vectors) {}

  /// Takes over the texts, which are in lower case already; they count
  /// anywhere.
  void Build(const std::vector<String>& texts, const LowerTable& lower);

  /// The same for texts of several kinds: Clear, Add for each, then Finish.
  void Clear();
  void Add(const String& text, const LowerTable& lower, Where where = Where::Anywhere);
  void Finish();

  /// Whether there is an empty text, which every line holds.
  bool HasEmpty() const { return m_HasEmpty; }

  /// A place inside the first of the texts that stand in the bytes; the first
  /// that the pass meets, where they overlap. Lines begin with the bytes, and
  /// behind "\n", "\r" and a backspace.
  std::size_t Find(std::string_view bytes) const;

  bool Occurs(std::string_view line) const { return Find(line) != k_Nowhere; }

private:
  /// The bytes of a text that the pass looks at: its window.
  static constexpr std::size_t k_Window = 3;
  static constexpr std::size_t k_Buckets = 8;

  struct Text {
    String Bytes;
    std::size_t Offset; ///< of the window
    std::size_t Table;  ///< in m_Lowers
    Where Place;
  };

  /// For one byte of the window: the buckets of texts that a byte may belong
  /// to, by its whole value and by its two halves.
  struct Position {
    std::array<unsigned char, 256> Byte{};
    std::array<unsigned char, 16> Low{};
    std::array<unsigned char, 16> High{};
  };

  static bool HasVectors();
  void FillBucket(std::size_t bucket, std::size_t begin, std::size_t end);
  bool Stands(std::string_view bytes, std::size_t place, const Text& text) const;
  bool IsAt(std::string_view bytes, std::size_t place, unsigned int buckets) const;
  std::size_t FindBytewise(std::string_view bytes) const;
  std::size_t FindInVectors(std::string_view bytes) const;

  bool m_Vectors;
  bool m_HasEmpty = false;
  std::vector<LowerTable> m_Lowers;
  std::vector<Text> m_Texts;                         // in the order of the buckets
  std::array<std::size_t, k_Buckets + 1> m_Bounds{}; // of the buckets in it
  std::array<Position, k_Window> m_Positions;
};
