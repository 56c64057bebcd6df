#include "host/application/ErrorTexts.h"

#include "host/foundation/StringTokenizer.h"

#include <algorithm>
#include <locale>

namespace {

std::vector<String> ReadTexts(const String& list, const LowerTable& lower) {
  std::vector<String> texts;
  for (const String& text : StringTokenizer::Split(list, ';')) {
    if (!text.empty()) {
      texts.push_back(lower.Lower(text));
    }
  }
  return texts;
}

} // namespace

ErrorTexts::ErrorTexts(const String& errors, const String& ignores, bool anywhere)
    : m_Lower(std::locale::classic()), m_Errors(ReadTexts(errors, m_Lower)), m_Anywhere(anywhere) {
  m_ErrorFilter.Build(m_Errors, m_Lower);
  m_IgnoreFilter.Build(ReadTexts(ignores, m_Lower), m_Lower);
}

bool ErrorTexts::Begins(std::string_view line) const {
  return std::any_of(m_Errors.begin(), m_Errors.end(),
                     [this, line](const String& text) { return m_Lower.BeginsWith(line, text); });
}
