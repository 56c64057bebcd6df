#include "job/SequencePattern.h"

#include "host/foundation/Format.h"
#include "host/foundation/Quoting.h"
#include "host/foundation/WholeNumber.h"

#include <charconv>

SequencePattern::SequencePattern(std::string_view head, int digits, std::string_view tail)
    : m_Head(head), m_Digits(static_cast<std::size_t>(digits)), m_Tail(tail),
      // A wider field is cut by SFormat, which then has the say.
      m_Plain(digits <= k_FormatWidthLimit && head.find('%') == std::string_view::npos &&
              tail.find('%') == std::string_view::npos) {
  m_Text.append(head).append("%0").append(std::to_string(digits)).append("d").append(tail);
}

std::optional<SequencePattern> SequencePattern::Read(std::string_view text) {
  const std::size_t percent = text.find('%');
  const std::size_t letter = text.find('d', percent == std::string_view::npos ? text.size() : percent);
  if (letter == std::string_view::npos || letter < percent + 3 || text[percent + 1] != '0') {
    return std::nullopt;
  }
  const auto digits = ReadWholeNumber<int>(text.substr(percent + 2, letter - percent - 2));
  SequencePattern pattern(text.substr(0, percent), digits.value_or(0), text.substr(letter + 1));
  return pattern.m_Plain && pattern.m_Text == text && *digits > 0 ? std::optional(std::move(pattern))
                                                                  : std::nullopt;
}

SequencePattern SequencePattern::Enquoted() const {
  SequencePattern any = *this;
  const String name = any.Name(0); // digits and a sign need no quotes
  if (EnquoteWord(name) == name) {
    return any;
  }
  // Between the quotes each byte is written by itself. A blank has some made,
  // whatever stands behind it.
  const auto written = [](const String& part) {
    const String word = EnquoteWord(" " + part);
    return word.substr(2, word.size() - 3);
  };
  return {"\"" + written(m_Head), static_cast<int>(m_Digits), written(m_Tail) + "\""};
}

void SequencePattern::AppendName(int frame, String& text) const {
  char number[16];
  const char* first = number;
  const char* last = std::to_chars(number, number + sizeof(number), frame).ptr;
  const auto length = static_cast<std::size_t>(last - first);
  text.append(m_Head);
  // The sign counts for the width and stands before the zeros.
  if (frame < 0) {
    text += '-';
    ++first;
  }
  if (length < m_Digits) {
    text.append(m_Digits - length, '0');
  }
  text.append(first, last).append(m_Tail);
}

const String& SequencePattern::Name(int frame) {
  if (m_Plain) {
    m_Name.clear();
    AppendName(frame, m_Name);
  } else {
    m_Name = SFormat(m_Text, frame);
  }
  return m_Name;
}
