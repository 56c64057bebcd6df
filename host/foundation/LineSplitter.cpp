#include "host/foundation/LineSplitter.h"

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

namespace {

constexpr char k_Escape = '\x1b';
constexpr char k_Bell = '\a';
constexpr char k_Backspace = '\b';
constexpr std::string_view k_ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t k_BlockSize = 64;

// A line feed and a backspace differ in one bit, which is left out of both.
static_assert((k_Backspace ^ '\n') == 2);

// Bit i is set where byte i of the 64 is a line feed, backspace, carriage return
// or escape.
std::uint64_t MarkBlock(const char* block) {
  const __m128i allButOne = _mm_set1_epi8(~2);
  const __m128i backspace = _mm_set1_epi8(k_Backspace);
  const __m128i carriageReturn = _mm_set1_epi8('\r');
  const __m128i escape = _mm_set1_epi8(k_Escape);
  std::uint64_t marks = 0;
  for (unsigned int part = 0; part < 4; ++part) {
    __m128i bytes;
    std::memcpy(&bytes, block + std::size_t{16} * part, sizeof(bytes));
    const __m128i found =
        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(_mm_and_si128(bytes, allButOne), backspace),
                                  _mm_cmpeq_epi8(bytes, carriageReturn)),
                     _mm_cmpeq_epi8(bytes, escape));
    marks |= std::uint64_t{static_cast<std::uint32_t>(_mm_movemask_epi8(found))} << (16 * part);
  }
  return marks;
}

std::uint64_t MarkTail(const char* tail, std::size_t size) {
  char block[k_BlockSize] = {};
  std::memcpy(block, tail, size);
  return MarkBlock(block);
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

void LineSplitter::Feed(std::string_view bytes) {
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

String RemoveTerminalSequences(std::string_view line) {
  std::string clean;
  AppendWithoutSequences(clean, line);
  return String(std::move(clean));
}
