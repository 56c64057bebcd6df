// What a job makes of its program's output: image lines, the success line, and
// the verdict.

#include "host/foundation/StringTokenizer.h"
#include "job/TessivarJob.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr std::int32_t k_NotFound = -1;

// Places in a line are 32-bit numbers throughout.
std::int32_t ToPlace(std::size_t found) {
  return static_cast<std::int32_t>(found);
}

// The place of the first text, by the list's order, that the line holds.
std::int32_t FindStart(const String& lowered, const std::vector<String>& texts, std::int32_t& length) {
  for (const String& text : texts) {
    const std::int32_t place = ToPlace(lowered.find(text));
    if (place != k_NotFound) {
      length = ToPlace(text.size());
      return place;
    }
  }
  return k_NotFound;
}

// The last place of the first text that the line holds; the line's length
// where there are no texts to hold.
std::int32_t FindEnd(const String& lowered, const std::vector<String>& texts) {
  if (texts.empty()) {
    return ToPlace(lowered.size());
  }
  for (const String& text : texts) {
    const std::int32_t place = ToPlace(lowered.rfind(text));
    if (place != k_NotFound) {
      return place;
    }
  }
  return k_NotFound;
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
  m_TextsParsed = true;
}

void TessivarJob::ProcessLine(const String& line) {
  // A line is lower-cased by the global locale of its own time, the lists by
  // that of theirs.
  if (m_Lower.Follow()) {
    m_StartFilter.Build(m_StartTexts, m_Lower);
  }
  ParseImageTexts();
  if (m_StartFilter.Occurs(line, m_Lower)) {
    ProcessImageLine(line);
    return;
  }
  if (!m_SuccessSeen) {
    const auto begins = [this, &line](const String& text) { return m_Lower.BeginsWith(line, text); };
    if (std::any_of(m_SuccessTextList.begin(), m_SuccessTextList.end(), begins)) {
      m_SuccessSeen = true;
      return;
    }
  }
  ProcessJob::ProcessLine(line);
}

void TessivarJob::ProcessImageLine(const String& line) {
  const String lowered = m_Lower.Lower(line);
  std::int32_t length = 0;
  const std::int32_t start = FindStart(lowered, m_StartTexts, length);
  const auto endsLine = [&lowered](const String& text) { return lowered.ends_with(text); };
  if (std::any_of(m_NotEndTexts.begin(), m_NotEndTexts.end(), endsLine)) {
    return;
  }
  const std::int32_t end = FindEnd(lowered, m_EndTexts);
  if (end == k_NotFound) {
    return;
  }
  const std::int64_t nameStart = std::int64_t{start} + length;
  String name;
  if (nameStart >= 0 && nameStart < static_cast<std::int64_t>(line.size())) {
    // An end that stands before the name does not end it.
    const std::size_t count = end < nameStart ? String::npos : static_cast<std::size_t>(end - nameStart);
    name = line.substr(static_cast<std::size_t>(nameStart), count);
  }
  ProcessNewFilename(Path(name.Trim()));
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
