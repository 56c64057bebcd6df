#include "host/foundation/LineSplitter.h"

#include "host/foundation/Characters.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

// A render writes gigabytes of progress lines, so a line must cost little more
// than looking at its bytes once. The scan below marks, 64 bytes at a time, the
// four bytes that mean something (line feed, carriage return, backspace, escape)
// and the code visits only the marks. A line that lies within one block is delivered
// where it stands; only one that spans blocks is copied. Because the scan sees
// escapes anyway, lines without one never pay for the removal of sequences.
//
// Even so, a call for each line is what costs most, when nothing in the line
// matters. So a judge of lines may name what does: then the filter passes over
// all whole lines of a block at once, without cutting them, and only around the
// places that it finds are line ends looked for. What a line is, is not a matter
// of which way it takes: the first line of a block, begun in an earlier one, and
// the last, which is not ended, take the way of all lines.

namespace {

constexpr char k_Escape = '\x1b';
constexpr char k_Bell = '\a';
constexpr char k_Backspace = '\b';
constexpr std::string_view k_ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t k_BlockSize = 64;
constexpr std::size_t k_PartSize = 16; // of a block

// What is judged at once: less than a line may have, so that no line in it is
// too long.
constexpr std::size_t k_JudgedSize = std::size_t{256} << 10;
static_assert(k_JudgedSize < LineSplitter::k_LineLimit);

// How much a judge that wants every line gets before it is asked again.
constexpr std::size_t k_CutSize = 4096;

// A line feed and a backspace differ in one bit, which is left out of both.
static_assert((k_Backspace ^ '\n') == 2);

// Bit i is set where byte i of the 16 is a line feed, backspace, carriage return
// or escape.
std::uint64_t MarkPart(const char* part) {
  const __m128i allButOne = _mm_set1_epi8(~2);
  const __m128i backspace = _mm_set1_epi8(k_Backspace);
  const __m128i carriageReturn = _mm_set1_epi8('\r');
  const __m128i escape = _mm_set1_epi8(k_Escape);
  __m128i bytes;
  std::memcpy(&bytes, part, sizeof(bytes));
  const __m128i found = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(_mm_and_si128(bytes, allButOne), backspace),
                                                  _mm_cmpeq_epi8(bytes, carriageReturn)),
                                     _mm_cmpeq_epi8(bytes, escape));
  return static_cast<std::uint32_t>(_mm_movemask_epi8(found));
}

// The same for 64 bytes.
std::uint64_t MarkBlock(const char* block) {
  std::uint64_t marks = 0;
  for (std::size_t part = 0; part < k_BlockSize; part += k_PartSize) {
    marks |= MarkPart(block + part) << part;
  }
  return marks;
}

// The same for fewer bytes. The last 16 overlap what was looked at before: a copy
// of so few bytes would take longer than to look at them.
std::uint64_t MarkTail(const char* tail, std::size_t size) {
  if (size < k_PartSize) {
    char part[k_PartSize] = {};
    std::memcpy(part, tail, size);
    return MarkPart(part);
  }
  std::uint64_t marks = 0;
  for (std::size_t part = 0; part + k_PartSize <= size; part += k_PartSize) {
    marks |= MarkPart(tail + part) << part;
  }
  return marks | MarkPart(tail + size - k_PartSize) << (size - k_PartSize);
}

// The index of the first line end at or behind `from`; the size if there is none.
std::size_t FindLineEnd(std::string_view text, std::size_t from) {
  for (; from < text.size(); from += k_BlockSize) {
    const std::size_t size = std::min(k_BlockSize, text.size() - from);
    std::uint64_t marks =
        size == k_BlockSize ? MarkBlock(text.data() + from) : MarkTail(text.data() + from, size);
    for (; marks != 0; marks &= marks - 1) {
      const std::size_t mark = from + static_cast<std::size_t>(std::countr_zero(marks));
      if (EndsLine(text[mark])) {
        return mark;
      }
    }
  }
  return text.size();
}

// The index behind the last line end before `end`; 0 if there is none.
std::size_t FindLineBegin(std::string_view text, std::size_t end) {
  while (end > 0) {
    const std::size_t size = std::min(k_BlockSize, end);
    const std::size_t block = end - size;
    std::uint64_t marks =
        size == k_BlockSize ? MarkBlock(text.data() + block) : MarkTail(text.data() + block, size);
    for (; marks != 0; marks &= ~std::bit_floor(marks)) {
      const std::size_t mark = block + static_cast<std::size_t>(std::bit_width(marks)) - 1;
      if (EndsLine(text[mark])) {
        return mark + 1;
      }
    }
    end = block;
  }
  return 0;
}

bool IsBetween(char c, int first, int last) {
  const int byte = static_cast<unsigned char>(c);
  return byte >= first && byte <= last;
}

// The index behind the string that begins at `start` (OSC, DCS, SOS, PM, APC),
// or npos when it is not ended: nothing but the terminator may hold an escape.
std::size_t EndOfString(std::string_view line, std::size_t start, bool bellEnds) {
  for (std::size_t i = start; i < line.size(); ++i) {
    if (line[i] == k_Bell && bellEnds) {
      return i + 1;
    }
    if (line[i] == k_Escape) {
      return i + 1 < line.size() && line[i + 1] == '\\' ? i + 2 : std::string_view::npos;
    }
  }
  return std::string_view::npos;
}

// The index behind the sequence whose escape stands at `start`.
std::size_t EndOfSequence(std::string_view line, std::size_t start) {
  std::size_t i = start + 1;
  const auto skip = [&line, &i](int first, int last) {
    while (i < line.size() && IsBetween(line[i], first, last)) {
      ++i;
    }
  };
  if (i == line.size()) {
    return i;
  }
  const char kind = line[i];
  if (kind == '[') {
    ++i;
    skip(0x30, 0x3f); // parameters
    skip(0x20, 0x2f); // intermediates
    return i < line.size() && IsBetween(line[i], 0x40, 0x7e) ? i + 1 : i;
  }
  if (kind == ']' || kind == 'P' || kind == 'X' || kind == '^' || kind == '_') {
    const std::size_t end = EndOfString(line, i + 1, kind == ']');
    return end == std::string_view::npos ? i + 1 : end;
  }
  skip(0x20, 0x2f); // a character set or the like: ESC ( B
  return i < line.size() && IsBetween(line[i], 0x30, 0x7e) ? i + 1 : i;
}

void AppendWithoutSequences(std::string& clean, std::string_view line) {
  std::size_t position = 0;
  while (position < line.size()) {
    const std::size_t escape = std::min(line.find(k_Escape, position), line.size());
    clean.append(line, position, escape - position);
    position = escape == line.size() ? escape : EndOfSequence(line, escape);
  }
}

} // namespace

void LineSplitter::AddToFilter(TextFilter& filter) {
  const LowerTable asIs(std::locale::classic());
  filter.Add(String(1, k_Escape), asIs);
  filter.Add(String(k_ByteOrderMark), asIs);
}

void LineSplitter::Feed(std::string_view bytes) {
  if (m_Judge == nullptr) {
    FeedLines(bytes);
    return;
  }
  while (!bytes.empty()) {
    const bool wantsAll = m_Judge->WantedTexts() == nullptr;
    const std::string_view part = bytes.substr(0, wantsAll ? k_CutSize : k_JudgedSize);
    if (wantsAll) {
      FeedLines(part);
    } else {
      FeedBlock(part);
    }
    bytes.remove_prefix(part.size());
  }
}

void LineSplitter::FeedBlock(std::string_view block) {
  if (!m_Partial.empty()) {
    const std::size_t rest = std::min(FindLineEnd(block, 0) + 1, block.size());
    FeedLines(block.substr(0, rest));
    block.remove_prefix(rest);
  }
  if (m_SkipNewline && m_Partial.empty() && !block.empty()) {
    block.remove_prefix(block.front() == '\n' ? 1 : 0);
    m_SkipNewline = false;
  }
  const std::size_t whole = FindLineBegin(block, block.size());
  JudgeLines(block.substr(0, whole));
  FeedLines(block.substr(whole));
}

void LineSplitter::JudgeLines(std::string_view lines) {
  while (!lines.empty()) {
    const TextFilter* wanted = m_Judge->WantedTexts();
    if (wanted == nullptr) {
      FeedLines(lines);
      return;
    }
    const std::size_t place = wanted->Find(lines);
    const bool found = place != TextFilter::k_Nowhere;
    const std::size_t begin = found ? FindLineBegin(lines, place) : lines.size();
    if (begin > 0) {
      m_SkipNewline = lines[begin - 1] == '\r';
      m_Judge->OnPlainLines(lines.substr(0, begin));
      lines.remove_prefix(begin);
    }
    if (found) {
      const std::size_t end = FindLineEnd(lines, place - begin);
      const std::string_view line = lines.substr(0, end);
      const bool returned = lines[end] == '\r';
      lines.remove_prefix(end + 1);
      // It is whole, and shorter than what is judged at once.
      m_Escape = line.find(k_Escape) != std::string_view::npos;
      Deliver(line);
      m_Escape = false;
      const bool secondHalf = returned && lines.starts_with('\n');
      lines.remove_prefix(secondHalf ? 1 : 0);
      m_SkipNewline = returned && !secondHalf;
    }
  }
}

void LineSplitter::FeedLines(std::string_view bytes) {
  std::size_t line = 0; // where the current line begins in `bytes`
  for (std::size_t block = 0; block < bytes.size(); block += k_BlockSize) {
    const std::size_t size = std::min(k_BlockSize, bytes.size() - block);
    std::uint64_t marks =
        size == k_BlockSize ? MarkBlock(bytes.data() + block) : MarkTail(bytes.data() + block, size);
    for (; marks != 0; marks &= marks - 1) {
      const std::size_t mark = block + static_cast<std::size_t>(std::countr_zero(marks));
      if (bytes[mark] == k_Escape) {
        m_Escape = true;
        continue;
      }
      if (bytes[mark] == k_Backspace) {
        if (mark > line || !m_Partial.empty()) {
          Extend(bytes.substr(line, mark - line), true);
        }
        m_SkipNewline = false;
        line = mark + 1;
        continue;
      }
      const bool secondHalf = m_SkipNewline && bytes[mark] == '\n' && mark == line && m_Partial.empty();
      if (!secondHalf) {
        Extend(bytes.substr(line, mark - line), true);
      }
      m_SkipNewline = bytes[mark] == '\r';
      line = mark + 1;
    }
  }
  Extend(bytes.substr(line), false);
}

void LineSplitter::Finish() {
  if (!m_Partial.empty()) {
    Extend({}, true);
  }
  m_SkipNewline = false;
}

// Adds the next bytes of the current line, which ends with them if `ends`.
// Nothing is cut off before a byte beyond the limit is there, so the end of a
// line of just the limit's size is still found.
void LineSplitter::Extend(std::string_view text, bool ends) {
  while (m_Partial.size() + text.size() > k_LineLimit) {
    const std::size_t size = k_LineLimit - m_Partial.size();
    DeliverWith(text.substr(0, size));
    text.remove_prefix(size);
  }
  if (ends) {
    DeliverWith(text);
    m_Escape = false;
  } else {
    m_Partial.append(text);
  }
}

// Delivers what was kept together with the text behind it.
void LineSplitter::DeliverWith(std::string_view text) {
  if (m_Partial.empty()) {
    Deliver(text);
    return;
  }
  m_Partial.append(text);
  Deliver(m_Partial);
  m_Partial.clear();
}

void LineSplitter::Deliver(std::string_view line) {
  if (m_Escape) {
    m_Clean.clear();
    AppendWithoutSequences(m_Clean, line);
    line = m_Clean;
  }
  if (line.starts_with(k_ByteOrderMark)) {
    line.remove_prefix(k_ByteOrderMark.size());
  }
  m_Receiver(line);
}

std::string_view TakeFirstLine(std::string_view& lines) {
  const std::size_t end = FindLineEnd(lines, 0);
  const std::string_view line = lines.substr(0, end);
  lines.remove_prefix(std::min(end + 1, lines.size()));
  return line;
}

std::size_t FindLastLines(std::string_view lines, std::span<std::string_view> last) {
  std::size_t free = last.size(); // what is found fills the back
  while (free > 0 && !lines.empty()) {
    lines.remove_suffix(EndsLine(lines.back()) ? 1 : 0);
    const std::size_t begin = FindLineBegin(lines, lines.size());
    if (const std::string_view line = lines.substr(begin);
        line.find_first_not_of(" \t") != std::string_view::npos) {
      last[--free] = line;
    }
    lines = lines.substr(0, begin);
  }
  std::copy(last.begin() + static_cast<std::ptrdiff_t>(free), last.end(), last.begin());
  return last.size() - free;
}

String RemoveTerminalSequences(std::string_view line) {
  std::string clean;
  AppendWithoutSequences(clean, line);
  return String(std::move(clean));
}
