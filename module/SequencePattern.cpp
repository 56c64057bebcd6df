#include "module/SequencePattern.h"

#include "host/foundation/Format.h"

#include <charconv>

SequencePattern::SequencePattern(std::string_view head, int digits, std::string_view tail)
    : m_HeadLength(head.size()), m_Digits(static_cast<std::size_t>(digits)), m_Tail(tail),
      // A wider field is cut by SFormat, which then has the say.
      m_Plain(digits <= k_FormatWidthLimit && head.find('%') == std::string_view::npos &&
              tail.find('%') == std::string_view::npos),
      m_Name(head) {
  m_Text.append(head).append("%0").append(std::to_string(digits)).append("d").append(tail);
}

const String& SequencePattern::Name(int frame) {
  if (!m_Plain) {
    m_Name = SFormat(m_Text, frame);
    return m_Name;
  }
  char number[16];
  const char* first = number;
  const char* last = std::to_chars(number, number + sizeof(number), frame).ptr;
  const auto length = static_cast<std::size_t>(last - first);
  m_Name.resize(m_HeadLength);
  // The sign counts for the width and stands before the zeros.
  if (frame < 0) {
    m_Name += '-';
    ++first;
  }
  if (length < m_Digits) {
    m_Name.append(m_Digits - length, '0');
  }
  m_Name.append(first, last).append(m_Tail);
  return m_Name;
}
