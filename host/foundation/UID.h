#pragma once

#include "host/foundation/Format.h"
#include "host/foundation/String.h"

#include <array>
#include <compare>

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
  bool operator<(const UID& other) const { return m_Bytes < other.m_Bytes; }
  bool operator==(const UID& other) const { return m_Bytes == other.m_Bytes; }

private:
  std::array<unsigned char, 16> m_Bytes{};
  mutable String m_Text;
};
