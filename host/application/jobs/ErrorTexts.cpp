#include "host/application/jobs/ErrorTexts.h"

#include "host/foundation/StringTokenizer.h"

#include <algorithm>
#include <locale>

namespace {

std::vector<String> ReadTexts(const String& list) {
  std::vector<String> texts = StringTokenizer::Split(list, ';');
  std::erase_if(texts, [](const String& text) { return text.empty(); });
  return texts;
}

std::vector<String> Lowered(const std::vector<String>& texts, const LowerTable& lower) {
  std::vector<String> lowered;
  lowered.reserve(texts.size());
  for (const String& text : texts) {
    lowered.push_back(lower.Lower(text));
  }
  return lowered;
}

} // namespace

ErrorTexts::ErrorTexts(const String& errors, const String& ignores, bool anywhere)
    : m_Lower(std::locale::classic()), m_WrittenErrors(ReadTexts(errors)),
      m_WrittenIgnores(ReadTexts(ignores)), m_Errors(Lowered(m_WrittenErrors, m_Lower)),
      m_Anywhere(anywhere) {
  m_ErrorFilter.Build(m_Errors, m_Lower);
  m_IgnoreFilter.Build(Lowered(m_WrittenIgnores, m_Lower), m_Lower);
}

bool ErrorTexts::Begins(std::string_view line) const {
  return std::any_of(m_Errors.begin(), m_Errors.end(),
                     [this, line](const String& text) { return m_Lower.BeginsWith(line, text); });
}

void ErrorTexts::AddToFilter(TextFilter& filter) const {
  for (const String& text : m_Errors) {
    filter.Add(text, m_Lower, m_Anywhere ? TextFilter::Where::Anywhere : TextFilter::Where::LineStart);
  }
}

ErrorTexts::Match ErrorTexts::Find(std::string_view line) const {
  Match match;
  if (!HoldsError(line)) {
    return match;
  }
  const String lowered = m_Lower.Lower(line);
  const auto matches = [this, &lowered](const String& text) {
    return m_Anywhere ? lowered.find(text) != String::npos : lowered.starts_with(text);
  };
  const auto error = std::find_if(m_Errors.begin(), m_Errors.end(), matches);
  if (error != m_Errors.end()) {
    match.Error = m_WrittenErrors[static_cast<std::size_t>(error - m_Errors.begin())];
  }
  for (const String& text : m_WrittenIgnores) {
    if (lowered.find(m_Lower.Lower(text)) != String::npos) {
      match.Ignore = text;
      break;
    }
  }
  return match;
}
