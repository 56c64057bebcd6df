#include "host/application/jobs/OutputTail.h"

#include "host/foundation/Characters.h"
#include "host/foundation/LineSplitter.h"

#include <algorithm>

// What programs say when they fail was read from the logs of some twenty of
// them. A word alone misleads: "0 decoder errors", "EGL Error" and "cannot open
// the user configuration file" stand in the logs of good runs. So a line tells
// when the word is followed by what happened, as in "error: no such camera", or
// when it is a whole phrase that means nothing else. The first such line is the
// cause of the others. Milder words count only at the end of the output, and
// there the last one does.

namespace {

constexpr std::size_t k_ReadBytes = 400; // of a line, for what it tells
constexpr std::size_t k_MildLines = 8;   // at the end of the output

constexpr std::array<std::string_view, 17> k_Phrases = {"invalid option",
                                                        "illegal option",
                                                        "unknown option",
                                                        "unrecognized option",
                                                        "unrecognised option",
                                                        "unknown argument",
                                                        "unrecognized argument",
                                                        "unrecognised argument",
                                                        "unknown command",
                                                        "unrecognized command",
                                                        "unrecognised command",
                                                        "command not found",
                                                        "no space left on device",
                                                        "disk quota exceeded",
                                                        "out of memory",
                                                        "cannot allocate memory",
                                                        "[error]"};

constexpr std::array<std::string_view, 12> k_MildPhrases = {
    "cannot ",   "can't ",       "could not ",        "couldn't ",      "unable to ",     "failed to ",
    "not found", "no such file", "permission denied", "does not exist", "not recognized", "unsupported"};

template <std::size_t Count>
bool HoldsAny(const String& line, const std::array<std::string_view, Count>& phrases) {
  return std::any_of(phrases.begin(), phrases.end(),
                     [&line](std::string_view phrase) { return line.find(phrase) != String::npos; });
}

// "error: no such camera", but neither "error:" alone nor "mean error: 0.02".
bool NamesError(const String& line) {
  for (const std::string_view word : {"error", "fatal", "exception"}) {
    for (std::size_t at = line.find(word); at != String::npos; at = line.find(word, at + 1)) {
      std::size_t behind = std::min(line.find_first_not_of(' ', at + word.size()), line.size());
      if (at == 0 && behind > word.size() && behind < line.size()) {
        return true; // "fatal error in parser"
      }
      if (behind == line.size() || line[behind] != ':') {
        continue;
      }
      behind = line.find_first_not_of(": ", behind);
      if (behind != String::npos && !IsDigit(line[behind])) {
        return true;
      }
    }
  }
  return false;
}

String LoweredStart(const String& line) {
  const std::size_t begin = std::min(line.find_first_not_of(" \t"), line.size());
  return String(line.substr(begin, k_ReadBytes)).Lower();
}

bool IsWarning(const String& line) {
  return line.find("warning") != String::npos;
}

} // namespace

void OutputTail::Add(std::string_view line) {
  if (m_First.size() < k_First) {
    m_First.emplace_back(line.substr(0, k_KeptLine));
  }
  Cut();
  Keep(line);
}

void OutputTail::Keep(std::string_view line) const {
  m_Ring[m_Count++ % k_Last].assign(line, 0, k_KeptLine);
}

void OutputTail::Cut() const {
  m_Uncut.Cut([this](std::string_view line) { Keep(line); });
}

void OutputTail::AddLines(std::string_view lines) {
  while (m_First.size() < k_First && !lines.empty()) {
    const std::string_view line = TakeFirstLine(lines);
    if (line.find_first_not_of(" \t") != std::string_view::npos) {
      Add(line);
    }
  }
  m_Uncut.Add(lines, [this](std::string_view line) { Keep(line); });
}

const String& OutputTail::Last() const {
  Cut();
  return m_Count == 0 ? String::Null : m_Ring[(m_Count - 1) % k_Last];
}

std::vector<const String*> OutputTail::Lines() const {
  Cut();
  std::vector<const String*> lines;
  const std::size_t begin = m_Count - std::min(m_Count, k_Last);
  for (std::size_t i = 0; i < std::min(begin, m_First.size()); ++i) {
    lines.push_back(&m_First[i]);
  }
  for (std::size_t i = begin; i < m_Count; ++i) {
    lines.push_back(&m_Ring[i % k_Last]);
  }
  return lines;
}

String OutputTail::Telling() const {
  const std::vector<const String*> lines = Lines();
  for (const String* line : lines) {
    const String text = LoweredStart(*line);
    // The cause stands below the calls that led to it.
    const bool heading = text.find("traceback (most recent call last)") != String::npos;
    if (!IsWarning(text) && !heading && (HoldsAny(text, k_Phrases) || NamesError(text))) {
      return *line;
    }
  }
  for (std::size_t i = lines.size(); i > lines.size() - std::min(lines.size(), k_MildLines); --i) {
    const String text = LoweredStart(*lines[i - 1]);
    if (!IsWarning(text) && HoldsAny(text, k_MildPhrases)) {
      return *lines[i - 1];
    }
  }
  return String::Null;
}
