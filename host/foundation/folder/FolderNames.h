#pragma once

#include "host/foundation/String.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The names of a folder that was read whole; see FileFinder.cpp.

/// A name cut around its last number; all is empty where it has none.
struct NumberedName {
  explicit NumberedName(std::string_view name);

  /// The name with a number so much higher, of as many digits or more; empty
  /// where there is none, or one below 0 or of more than nine digits.
  String Beside(std::int64_t distance) const;

  std::string_view Head;
  std::string_view Digits;
  std::string_view Tail;
};

/// The files of one numbered sequence, a bit each. A name belongs to it that has
/// the model's text before and after its last number, and as many digits or more
/// without a leading zero; so a number stands for one name only.
class SequenceBits {
public:
  explicit SequenceBits(std::string_view model) {
    const NumberedName name(model);
    m_Head = name.Head;
    m_Tail = name.Tail;
    m_Width = name.Digits.size();
  }

  /// False when the name is none of the sequence.
  bool Add(std::string_view name) {
    std::uint32_t number = 0;
    if (!IsOfSequence(name, number)) {
      return false;
    }
    if (number / 64 >= m_Bits.size()) {
      m_Bits.resize(std::max(k_FewestWords, std::size_t{number} / 32)); // twice what is needed now
    }
    m_Bits[number / 64] |= std::uint64_t{1} << (number % 64);
    return true;
  }

  bool Contains(std::string_view name) const {
    std::uint32_t number = 0;
    return IsOfSequence(name, number) && Has(number);
  }

  /// The numbers around that of a name, all of which are there; false where that
  /// of the name is not, or names have another number of digits.
  bool RunAround(std::string_view name, std::size_t digits, std::pair<int, int>& run) const {
    std::uint32_t number = 0;
    if (digits != m_Width || !IsOfSequence(name, number) || !Has(number)) {
      return false;
    }
    std::uint32_t low = number;
    while (low > 0 && Has(low - 1)) {
      low -= low % 64 == 0 && m_Bits[low / 64 - 1] == k_AllBits ? 64U : 1U;
    }
    std::uint32_t high = number + 1; // behind the last
    while (Has(high)) {
      high += high % 64 == 0 && m_Bits[high / 64] == k_AllBits ? 64U : 1U;
    }
    run = {static_cast<int>(low), static_cast<int>(high - 1)};
    return true;
  }

private:
  static constexpr std::uint64_t k_AllBits = ~std::uint64_t{0};
  static constexpr std::size_t k_MostDigits = 9;
  static constexpr std::size_t k_FewestWords = 64;
  static constexpr std::uint32_t k_NumberLimit = 1 << 26; // eight megabytes of bits

  bool IsOfSequence(std::string_view name, std::uint32_t& number) const {
    const std::size_t around = m_Head.size() + m_Tail.size();
    if (m_Width == 0 || name.size() < around + m_Width || name.size() > around + k_MostDigits) {
      return false;
    }
    const std::string_view digits = name.substr(m_Head.size(), name.size() - around);
    if (digits.size() > m_Width && digits.front() == '0') {
      return false;
    }
    number = 0;
    for (const char digit : digits) {
      if (digit < '0' || digit > '9') {
        return false;
      }
      number = 10 * number + static_cast<std::uint32_t>(digit - '0');
    }
    return number < k_NumberLimit && name.starts_with(m_Head) && name.ends_with(m_Tail);
  }

  bool Has(std::uint32_t number) const {
    return number / 64 < m_Bits.size() && (m_Bits[number / 64] >> (number % 64) & 1) != 0;
  }

  std::string m_Head;
  std::string m_Tail;
  std::size_t m_Width = 0;
  std::vector<std::uint64_t> m_Bits;
};

/// The names of a directory's files. Each stands in one block of bytes behind a
/// head of two bytes: its length, and a bit when only the system knows what the
/// name stands for.
class NameTable {
public:
  enum class Answer { No, Yes, Ask };

  NameTable();

  /// False, and nothing kept, when the directory cannot be read or is too
  /// large. Names like the model are kept as bits.
  bool Read(int directory, std::string_view model);

  Answer Find(std::string_view name) const;

  const SequenceBits& Sequence() const { return m_Sequence; }

private:
  static constexpr std::size_t k_NamesLimit = std::size_t{64} << 20; // bytes; three million names
  static constexpr unsigned int k_AskBit = 0x8000;
  static constexpr std::uint32_t k_Free = 0xffffffff;

  unsigned int Head(std::uint32_t place) const;
  std::string_view Name(std::uint32_t place, unsigned int head) const {
    return {m_Names.data() + place + sizeof(std::uint16_t), head & ~k_AskBit};
  }
  void FillSlots();

  SequenceBits m_Sequence{{}};
  std::uint64_t m_Seed;
  std::string m_Names;
  std::vector<std::uint32_t> m_Slots;
  std::size_t m_Mask = 0;
  std::size_t m_Count = 0;
};
