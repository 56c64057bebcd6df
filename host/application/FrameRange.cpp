#include "host/application/FrameRange.h"

#include "host/application/Excerpt.h"
#include "host/foundation/Characters.h"
#include "host/foundation/Exception.h"
#include "host/foundation/WholeNumber.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>

// A range text is a list of items "first", "first-last" or "first-last" with
// one of x, y, : and a step. The reader keeps its place, so that every refusal
// points at the byte in question. Frames are counted in 64 bits until they are
// stored: 32-bit ends stay exact.

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

class RangeReader {
public:
  explicit RangeReader(const String& text) : m_Text(text) {}

  std::vector<int> Read() {
    SkipBlanks();
    if (AtEnd()) {
      return {};
    }
    ReadItem();
    while (!AtEnd()) {
      if (Current() != ',') {
        FailAtCurrent();
      }
      ++m_Position;
      SkipBlanks();
      if (AtEnd() || Current() == ',') {
        Fail(m_Position, "a frame is missing after \",\"");
      }
      ReadItem();
      m_SeveralItems = true;
    }
    if (m_SeveralItems) {
      DropRepeated();
    }
    return std::move(m_Frames);
  }

private:
  [[noreturn]] void Fail(std::size_t position, const String& message,
                         const String& hint = String::Null) const {
    RaiseException("FrameSet::Parse", k_ErrorSyntax,
                   "frame range:1:" + std::to_string(position + 1) + ": " + message +
                       CaretExcerpt(m_Text, position) + (hint.empty() ? "" : "\nhint: " + hint));
  }

  // The text cannot go on as it does.
  [[noreturn]] void FailAtCurrent() const {
    const char c = Current();
    if (IsDigit(c)) {
      Fail(m_Position, "a comma is missing between two frames", "write lists as in 1,4,9-12");
    }
    std::size_t end = m_Position + 1; // of the whole character in UTF-8
    while (end < m_Text.size() && end < m_Position + 4 &&
           (static_cast<unsigned char>(m_Text[end]) & 0xC0U) == 0x80U) {
      ++end;
    }
    const String character = m_Text.substr(m_Position, end - m_Position);
    const String shown = "\"" + Shown(character) + "\" does not belong in a frame range";
    if (character == "\u2013" || character == "\u2212") { // what word processors make of a minus
      Fail(m_Position, shown, "write a plain \"-\", as in 1-100");
    }
    if (c == '.') {
      Fail(m_Position, shown, "frames are whole numbers; write ranges as in 1-100");
    }
    if (c == ';') {
      Fail(m_Position, shown, "write lists with commas, as in 1,4,9-12");
    }
    if (c == 'x' || c == 'X' || c == 'y' || c == 'Y' || c == ':') {
      Fail(m_Position, "a step needs one range before it", "write steps as in 1-100x5");
    }
    Fail(m_Position, shown, "ranges look like 1-100, 1-100x5, 1-100y5, 1-100:4 or 1,4,9-12");
  }

  bool AtEnd() const { return m_Position >= m_Text.size(); }
  char Current() const { return m_Text[m_Position]; }

  void SkipBlanks() {
    while (!AtEnd() && IsBlank(Current())) {
      ++m_Position;
    }
  }

  // Reads a number and the blanks behind it.
  std::int64_t ReadNumber(const char* missingAfter) {
    SkipBlanks();
    const std::size_t start = m_Position;
    std::size_t end = start;
    if (end < m_Text.size() && m_Text[end] == '-') {
      ++end;
    }
    const std::size_t digits = end;
    while (end < m_Text.size() && IsDigit(m_Text[end])) {
      ++end;
    }
    if (end == digits) {
      const bool nothing = end >= m_Text.size() || m_Text[end] == ',';
      if (missingAfter == nullptr && end == start && !nothing) {
        FailAtCurrent();
      }
      Fail(end,
           "a number is missing" + (missingAfter == nullptr ? (end > start ? " after \"-\"" : String::Null)
                                                            : String(" after \"") + missingAfter + "\""));
    }
    const auto value = ReadWholeNumber<int>(std::string_view(m_Text).substr(start, end - start));
    if (!value) {
      Fail(start, Shown(m_Text.substr(start, end - start)) + " is beyond 32 bits");
    }
    m_Position = end;
    SkipBlanks();
    return *value;
  }

  void ReadItem() {
    const std::size_t start = m_Position;
    const std::int64_t first = ReadNumber(nullptr);
    if (AtEnd() || Current() != '-') {
      Reserve(start, 1);
      m_Frames.push_back(static_cast<int>(first));
      return;
    }
    ++m_Position;
    const std::int64_t last = ReadNumber("-");
    const char mode = AtEnd() || Current() == ',' ? '\0' : Current();
    std::int64_t step = 1;
    if (mode != '\0') {
      if (mode != 'x' && mode != 'X' && mode != 'y' && mode != 'Y' && mode != ':') {
        FailAtCurrent();
      }
      const char sign[2] = {mode, '\0'};
      ++m_Position;
      SkipBlanks();
      const std::size_t stepStart = m_Position;
      step = ReadNumber(sign);
      if (step == 0 || (step < 0 && first < last)) {
        Fail(stepStart, "a step is 1 or more", "write a descending range with its ends, as in 10-1x3");
      }
      step = std::abs(step);
    }
    Expand(start, first, last, mode, step);
  }

  void Reserve(std::size_t start, std::int64_t count) {
    if (count > FrameSet::k_CountLimit - static_cast<std::int64_t>(m_Frames.size())) {
      Fail(start, "this makes more than " + std::to_string(FrameSet::k_CountLimit) + " frames");
    }
  }

  void Expand(std::size_t start, std::int64_t first, std::int64_t last, char mode, std::int64_t step) {
    const std::int64_t span = std::max(first, last) - std::min(first, last);
    const std::int64_t direction = first <= last ? 1 : -1;
    const auto add = [&](std::int64_t offset) {
      m_Frames.push_back(static_cast<int>(first + direction * offset));
    };
    const std::int64_t everyStep = span / step + 1;
    switch (mode) {
    case 'y':
    case 'Y':
      Reserve(start, span + 1 - everyStep);
      if (span + 1 == everyStep) {
        Fail(start, "this range leaves out all of its frames",
             "1-10y2 takes 1 to 10 without 1, 3, 5, 7 and 9");
      }
      for (std::int64_t offset = 0; offset <= span; ++offset) {
        if (offset % step != 0) {
          add(offset);
        }
      }
      break;
    case ':': {
      Reserve(start, span + 1);
      std::vector<bool> taken(static_cast<std::size_t>(span + 1));
      // A pass with a larger step would give the first frame alone.
      for (std::int64_t pass = std::min(step, span + 1); pass >= 1; --pass) {
        for (std::int64_t offset = 0; offset <= span; offset += pass) {
          if (!taken[static_cast<std::size_t>(offset)]) {
            taken[static_cast<std::size_t>(offset)] = true;
            add(offset);
          }
        }
      }
      break;
    }
    default:
      Reserve(start, everyStep);
      for (std::int64_t offset = 0; offset <= span; offset += step) {
        add(offset);
      }
    }
  }

  // Keeps the first of equal frames. Sorting needs a bounded amount of memory
  // whatever the frames are; a table of all of them would not.
  void DropRepeated() {
    std::vector<std::uint64_t> order; // the frame, then its position
    order.reserve(m_Frames.size());
    for (std::size_t i = 0; i < m_Frames.size(); ++i) {
      order.push_back(std::uint64_t{static_cast<std::uint32_t>(m_Frames[i])} << 32U | i);
    }
    std::sort(order.begin(), order.end());
    std::vector<bool> repeated(m_Frames.size());
    for (std::size_t i = 1; i < order.size(); ++i) {
      if (order[i] >> 32U == order[i - 1] >> 32U) {
        repeated[order[i] & 0xFFFFFFFFU] = true;
      }
    }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < m_Frames.size(); ++i) {
      if (!repeated[i]) {
        m_Frames[kept++] = m_Frames[i];
      }
    }
    m_Frames.resize(kept);
  }

  const String& m_Text;
  std::size_t m_Position = 0;
  bool m_SeveralItems = false;
  std::vector<int> m_Frames;
};

// Reads one number with its sign off the front of a text.
bool TakeNumber(std::string_view& text, int& number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
  return result.ec == std::errc();
}

} // namespace

String FrameRun::Text() const {
  return std::to_string(First) + "-" + std::to_string(Last);
}

FrameSet FrameSet::Parse(const String& text) {
  FrameSet set;
  set.m_Frames = RangeReader(text).Read();
  return set;
}

std::vector<FrameRun> FrameSet::Split(int packet) const {
  const std::size_t limit = packet < 1 ? 1 : static_cast<std::size_t>(packet);
  std::vector<FrameRun> runs;
  std::size_t start = 0;
  while (start < m_Frames.size()) {
    // A run may go up or down; it is always written upwards.
    std::size_t end = start + 1;
    std::int64_t direction = 0;
    while (end < m_Frames.size() && end - start < limit) {
      const std::int64_t step = std::int64_t{m_Frames[end]} - m_Frames[end - 1];
      if ((step != 1 && step != -1) || (direction != 0 && step != direction)) {
        break;
      }
      direction = step;
      ++end;
    }
    const auto ends = std::minmax(m_Frames[start], m_Frames[end - 1]);
    runs.push_back({ends.first, ends.second});
    start = end;
  }
  return runs;
}

String FrameSet::Text() const {
  std::vector<int> frames = m_Frames;
  std::sort(frames.begin(), frames.end());
  String text;
  std::size_t start = 0;
  while (start < frames.size()) {
    // The longest row of equal steps from here, if it is shorter to write.
    std::size_t end = start + 1;
    std::int64_t step = 0;
    for (; end < frames.size(); ++end) {
      const std::int64_t next = std::int64_t{frames[end]} - frames[end - 1];
      if (step != 0 && next != step) {
        break;
      }
      step = next;
    }
    const String first = std::to_string(frames[start]);
    String item =
        first + "-" + std::to_string(frames[end - 1]) + (step > 1 ? "x" + std::to_string(step) : "");
    std::size_t listed = 0; // the length of the same frames one by one
    for (std::size_t i = start; i < end && listed <= item.size(); ++i) {
      listed += std::to_string(frames[i]).size() + (i > start ? 1 : 0);
    }
    if (end == start + 1 || (step > 1 && listed <= item.size())) {
      item = first;
      end = start + 1;
    }
    text += (text.empty() ? "" : ",") + item;
    start = end;
  }
  return text;
}

bool ParseRun(const String& text, FrameRun& run) {
  std::string_view rest = text;
  FrameRun read;
  if (!TakeNumber(rest, read.First)) {
    return false;
  }
  read.Last = read.First;
  if (!rest.empty()) {
    if (rest[0] != '-') {
      return false;
    }
    rest.remove_prefix(1);
    if (!TakeNumber(rest, read.Last) || !rest.empty() || read.Last < read.First) {
      return false;
    }
  }
  run = read;
  return true;
}

std::vector<FramePart> CutFrames(const FrameRun& run, std::span<const FrameRun> set) {
  std::vector<FramePart> parts;
  std::int64_t at = run.First; // the first frame that no part has yet
  const auto add = [&](std::int64_t last, bool inside) {
    if (last >= at) {
      parts.push_back({{static_cast<int>(at), static_cast<int>(last)}, inside});
      at = last + 1;
    }
  };
  auto next = std::lower_bound(set.begin(), set.end(), run.First,
                               [](const FrameRun& one, int first) { return one.Last < first; });
  for (; next != set.end() && next->First <= run.Last; ++next) {
    add(std::int64_t{next->First} - 1, false);
    add(std::min(next->Last, run.Last), true);
  }
  add(run.Last, false);
  return parts;
}

std::vector<FrameRun> FramesOutside(const FrameRun& run, std::span<const FrameRun> set) {
  std::vector<FrameRun> outside;
  for (const FramePart& part : CutFrames(run, set)) {
    if (!part.Inside) {
      outside.push_back(part.Run);
    }
  }
  return outside;
}
