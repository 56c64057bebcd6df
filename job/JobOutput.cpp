// What a job makes of its program's output: image lines, the success line, and
// the verdict.

#include "host/application/jobs/PlainLines.h"
#include "host/foundation/StringTokenizer.h"
#include "job/TessivarJob.h"

#include <algorithm>
#include <cstdint>
#include <typeinfo>

namespace {

constexpr std::int32_t k_NotFound = -1;

// Places in a line are 32-bit numbers throughout.
std::int32_t ToPlace(std::size_t found) {
  return static_cast<std::int32_t>(found);
}

// Where a text of a list stands in a line, and which it is.
struct FoundText {
  std::int32_t Place = k_NotFound;
  std::int32_t Length = 0;
  std::size_t Index = 0;
};

// The place of the first text, by the list's order, that the line holds; none
// stands before `from`.
FoundText FindStart(const String& lowered, const std::vector<String>& texts, std::size_t from) {
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::int32_t place = ToPlace(lowered.find(texts[i], from));
    if (place != k_NotFound) {
      return {place, ToPlace(texts[i].size()), i};
    }
  }
  return {};
}

// The last place of the first text that the line holds; the line's length
// where there are no texts to hold.
FoundText FindEnd(const String& lowered, const std::vector<String>& texts) {
  if (texts.empty()) {
    return {ToPlace(lowered.size())};
  }
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::int32_t place = ToPlace(lowered.rfind(texts[i]));
    if (place != k_NotFound) {
      return {place, ToPlace(texts[i].size()), i};
    }
  }
  return {};
}

} // namespace

void TessivarJob::ParseTexts(const char* name, std::vector<String>& texts) const {
  texts.clear();
  for (const String& piece : StringTokenizer::Split(GetParameterOrOption(name, true, true), ';')) {
    texts.push_back(m_Lower.Lower(Path(piece).Dequote().Text()));
  }
}

void TessivarJob::ParseImageTexts() {
  if (m_TextsParsed) {
    return;
  }
  ParseTexts(p_ImageStartText, m_StartTexts);
  ParseTexts(p_ImageEndText, m_EndTexts);
  ParseTexts(p_ImageNotEndText, m_NotEndTexts);
  ParseTexts(p_SuccessTexts, m_SuccessTextList);
  m_StartFilter.Build(m_StartTexts, m_Lower);
  m_LongestStart = 0;
  for (const String& text : m_StartTexts) {
    m_LongestStart = std::max(m_LongestStart, text.size());
  }
  m_TextsParsed = true;
  DeclareTexts();
}

// What ProcessLine looks for: without it, a line is the host's.
void TessivarJob::DeclareTexts() {
  if (typeid(*this) == typeid(TessivarJob)) {
    WantLinesWith({m_StartTexts, m_SuccessSeen ? std::vector<String>() : m_SuccessTextList, m_Lower});
  }
}

void TessivarJob::ProcessLine(const String& line) {
  // A line is lower-cased by the global locale of its own time, the lists by
  // that of theirs.
  if (m_Lower.Follow()) {
    m_StartFilter.Build(m_StartTexts, m_Lower);
    DeclareTexts();
  }
  ParseImageTexts();
  if (const std::size_t place = m_StartFilter.Find(line); place != TextFilter::k_Nowhere) {
    ProcessImageLine(line, place);
    return;
  }
  const auto begins = [this, &line](const String& text) { return m_Lower.BeginsWith(line, text); };
  const auto success = [this, &begins] {
    return std::find_if(m_SuccessTextList.begin(), m_SuccessTextList.end(), begins);
  };
  if (!m_SuccessSeen) {
    if (const auto text = success(); text != m_SuccessTextList.end()) {
      m_SuccessSeen = true;
      DeclareTexts();
      AccountForText(LineAccount::Fate::Success, p_SuccessTexts,
                     static_cast<std::size_t>(text - m_SuccessTextList.begin()));
      return;
    }
  }
  ProcessJob::ProcessLine(line);
  // Later success lines are the host's, which may find them to be errors.
  if (AccountToFill() != nullptr && AccountToFill()->What == LineAccount::Fate::Ordinary) {
    if (const auto text = success(); text != m_SuccessTextList.end()) {
      AccountForText(LineAccount::Fate::Success, p_SuccessTexts,
                     static_cast<std::size_t>(text - m_SuccessTextList.begin()));
    }
  }
}

// The text as the list has it: the job itself keeps only its lower case.
String TessivarJob::WrittenText(const char* list, std::size_t index) const {
  const std::vector<String> texts = StringTokenizer::Split(GetParameterOrOption(list, true, true), ';');
  return index < texts.size() ? Path(texts[index]).Dequote().Text() : String::Null;
}

void TessivarJob::AccountForText(LineAccount::Fate fate, const char* list, std::size_t index) {
  if (LineAccount* account = AccountToFill(); account != nullptr) {
    account->What = fate;
    account->List = list;
    account->Text = WrittenText(list, index);
  }
}

// The filter has met the first of the start texts at `place`, which may be any of
// that text's bytes.
void TessivarJob::ProcessImageLine(const String& line, std::size_t place) {
  m_Lower.Lower(line, m_Lowered);
  const String& lowered = m_Lowered;
  const FoundText start = FindStart(lowered, m_StartTexts, place - std::min(place, m_LongestStart));
  AccountForText(LineAccount::Fate::Dropped, p_ImageStartText, start.Index);
  const auto endsLine = [&lowered](const String& text) { return lowered.ends_with(text); };
  const auto notEnd = std::find_if(m_NotEndTexts.begin(), m_NotEndTexts.end(), endsLine);
  if (notEnd != m_NotEndTexts.end()) {
    AccountForText(LineAccount::Fate::Dropped, p_ImageNotEndText,
                   static_cast<std::size_t>(notEnd - m_NotEndTexts.begin()));
    return;
  }
  const FoundText end = FindEnd(lowered, m_EndTexts);
  if (end.Place == k_NotFound) {
    return;
  }
  const std::int64_t nameStart = std::int64_t{start.Place} + start.Length;
  String name;
  bool ended = false;
  if (nameStart >= 0 && nameStart < static_cast<std::int64_t>(line.size())) {
    // An end that stands before the name does not end it.
    ended = end.Place >= nameStart;
    const std::size_t count = ended ? static_cast<std::size_t>(end.Place - nameStart) : String::npos;
    name = line.substr(static_cast<std::size_t>(nameStart), count);
  }
  name.Trim();
  if (LineAccount* account = AccountToFill(); account != nullptr && !name.empty()) {
    account->What = LineAccount::Fate::Image;
    account->Other = ended && !m_EndTexts.empty() ? WrittenText(p_ImageEndText, end.Index) : String::Null;
    account->Image = name;
  }
  ProcessNewFilename(Path(std::move(name)));
}

int TessivarJob::CheckResult(int exitCode) {
  if (m_SuccessTextList.empty()) {
    return RenderJob::CheckResult(exitCode);
  }
  if (m_SuccessSeen) {
    return k_StatusFinished;
  }
  Set(p_Note, "Did not see a required success line");
  DoWorkParameterChange(p_Note, Get(p_Note, true));
  return k_StatusFailed;
}
