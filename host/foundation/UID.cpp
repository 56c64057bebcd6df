#include "host/foundation/UID.h"

#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr std::size_t k_TextLength = 36;

bool IsDash(std::size_t position) {
  return position == 8 || position == 13 || position == 18 || position == 23;
}

// The value of a hexadecimal digit, or -1.
int HexValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return -1;
}

bool ParseText(std::string_view text, std::array<unsigned char, 16>& bytes) {
  if (text.size() != k_TextLength) {
    return false;
  }
  std::size_t digits = 0;
  bytes = {};
  for (std::size_t i = 0; i < k_TextLength; ++i) {
    if (IsDash(i)) {
      if (text[i] != '-') {
        return false;
      }
      continue;
    }
    const int value = HexValue(text[i]);
    if (value < 0) {
      return false;
    }
    bytes[digits / 2] = static_cast<unsigned char>(bytes[digits / 2] * 16 + value);
    ++digits;
  }
  return true;
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
