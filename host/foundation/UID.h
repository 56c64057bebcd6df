#pragma once

#include "host/foundation/Format.h"
#include "host/foundation/String.h"

#include <array>
#include <bit>
#include <compare>
#include <cstdint>
#include <cstring>

/// A unique identifier of 16 bytes. Its text has 36 characters in lower case,
/// "00000000-0000-0000-0000-000000000000" for the null ID.
class UID {
public:
  /// The null ID, or a fresh random one (version 4) when `generate` is true.
  explicit UID(bool generate = false);

  /// Sets the ID from its text, in either case. Raises Exception* for any
  /// other text and leaves the ID as it was. A format's conversions such as
  /// "%n" and "%s" are harmless here and malformed.
  void FromString(FormatString text);

  /// The text form; made on the first call and kept, so the first call must
  /// not run in two threads at once.
  const String& GenString() const;

  bool IsNull() const;
  const std::array<unsigned char, 16>& Bytes() const { return m_Bytes; }
  void SetBytes(const std::array<unsigned char, 16>& bytes);

  /// The order of the bytes, which is also the order of the texts.
  bool operator<(const UID& other) const {
    const std::uint64_t mine = Half(0);
    const std::uint64_t its = other.Half(0);
    return mine != its ? mine < its : Half(1) < other.Half(1);
  }
  bool operator==(const UID& other) const { return m_Bytes == other.m_Bytes; }

private:
  // Eight bytes as a number that is ordered as they are: registries compare IDs
  // ten times for each of a thousand types.
  std::uint64_t Half(std::size_t half) const {
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, m_Bytes.data() + half * sizeof(bytes), sizeof(bytes));
    return __builtin_bswap64(bytes);
  }

  std::array<unsigned char, 16> m_Bytes{};
  mutable String m_Text;
};
