#include "host/application/jobs/RequiredTexts.h"

#include "host/foundation/Characters.h"

#include <algorithm>
#include <locale>

namespace {

bool HoldsWhole(const String& line, const String& text) {
  for (std::size_t at = line.find(text); at != String::npos; at = line.find(text, at + 1)) {
    const std::size_t end = at + text.size();
    const bool cutsBefore = at > 0 && IsDigit(line[at - 1]) && IsDigit(text.front());
    const bool cutsBehind = end < line.size() && IsDigit(line[end]) && IsDigit(text.back());
    if (!cutsBefore && !cutsBehind) {
      return true;
    }
  }
  return false;
}

// Of the letters A to Z alone.
const LowerTable& Lowers() {
  static const LowerTable s_Table(std::locale::classic());
  return s_Table;
}

} // namespace

RequiredTexts::RequiredTexts(const std::vector<String>& texts) {
  for (const String& text : texts) {
    if (!text.empty()) {
      m_Texts.push_back({text, Lowers().Lower(text)});
    }
  }
  m_Unseen = m_Texts.size();
  if (m_Unseen > 0) {
    BuildFilter();
  }
}

void RequiredTexts::BuildFilter() {
  m_Filter.Clear();
  AddToFilter(m_Filter);
  m_Filter.Finish();
}

void RequiredTexts::AddToFilter(TextFilter& filter) const {
  for (const Text& text : m_Texts) {
    if (!text.Seen) {
      filter.Add(text.Lowered, Lowers());
    }
  }
}

const String* RequiredTexts::See(std::string_view line) {
  if (m_Unseen == 0 || !m_Filter.Occurs(line)) {
    return nullptr;
  }
  const String lowered = Lowers().Lower(line);
  const String* last = nullptr;
  for (Text& text : m_Texts) {
    if (!text.Seen && HoldsWhole(lowered, text.Lowered)) {
      text.Seen = true;
      last = &text.Written;
      --m_Unseen;
    }
  }
  if (last != nullptr) {
    BuildFilter();
  }
  return last;
}

const String* RequiredTexts::Missing() const {
  const auto found =
      std::find_if(m_Texts.begin(), m_Texts.end(), [](const Text& text) { return !text.Seen; });
  return found == m_Texts.end() ? nullptr : &found->Written;
}
