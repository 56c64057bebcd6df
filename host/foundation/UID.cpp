#include "host/foundation/UID.h"

#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

namespace {

constexpr std::size_t k_TextLength = 36;

bool IsDash(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

// The values of hexadecimal digits; all else has a bit above them.
constexpr unsigned int k_NoDigit = 0x100;
constexpr std::array<std::uint16_t, 256> k_HexValues = [] {
  std::array<std::uint16_t, 256> values{};
  values.fill(k_NoDigit);
  for (unsigned int value = 0; value < 10; ++value) {
    values['0' + value] = static_cast<std::uint16_t>(value);
  }
  for (unsigned int value = 10; value < 16; ++value) {
    values['a' + value - 10] = values['A' + value - 10] = static_cast<std::uint16_t>(value);
  }
  return values;
}();

// Pairs of digits, with dashes between some: no dash stands within a pair.
bool ParseText(std::string_view text, std::array<unsigned char, 16>& bytes) {
  if (text.size() != k_TextLength) {
    return false;
  }
  const auto valueAt = [text](std::size_t place) -> unsigned int {
    return k_HexValues[static_cast<unsigned char>(text[place])];
  };
  unsigned int seen = 0;
  std::size_t place = 0;
  for (unsigned char& byte : bytes) {
    if (IsDash(place)) {
      seen |= text[place] == '-' ? 0 : k_NoDigit;
      ++place;
    }
    const unsigned int value = valueAt(place) << 4 | valueAt(place + 1);
    seen |= value | valueAt(place + 1);
    byte = static_cast<unsigned char>(value);
    place += 2;
  }
  return seen < k_NoDigit;
}

} // namespace

UID::UID(bool generate) {
  if (!generate) {
    return;
  }
  if (getrandom(m_Bytes.data(), m_Bytes.size(), 0) != static_cast<ssize_t>(m_Bytes.size())) {
    RaiseException("UID::UID", k_ErrorSystem, "the system gives no random numbers for a new ID", errno);
  }
  m_Bytes[6] = static_cast<unsigned char>((m_Bytes[6] & 0x0FU) | 0x40U); // version 4
  m_Bytes[8] = static_cast<unsigned char>((m_Bytes[8] & 0x3FU) | 0x80U); // variant of RFC 4122
}

void UID::FromString(FormatString text) {
  // No valid text holds a "%", so the format's text is judged as it stands:
  // formatted first, an ID with a "%n" in it would lose it and pass.
  std::array<unsigned char, 16> bytes{};
  if (!ParseText(text.Text(), bytes)) {
    RaiseException("UID::FromString", k_ErrorSyntax,
                   "\"" + String(text.Text().substr(0, 80)) +
                       "\" is no ID; write 36 characters like \"0123abcd-4567-89ab-cdef-0123456789ab\"");
  }
  SetBytes(bytes);
}

const String& UID::GenString() const {
  if (m_Text.empty()) {
    String text;
    for (const unsigned char byte : m_Bytes) {
      if (IsDash(text.size())) {
        text.push_back('-');
      }
      AppendHex(text, static_cast<char>(byte));
    }
    m_Text = std::move(text);
  }
  return m_Text;
}

bool UID::IsNull() const {
  return std::all_of(m_Bytes.begin(), m_Bytes.end(), [](unsigned char byte) { return byte == 0; });
}

void UID::SetBytes(const std::array<unsigned char, 16>& bytes) {
  m_Bytes = bytes;
  m_Text.clear();
}
