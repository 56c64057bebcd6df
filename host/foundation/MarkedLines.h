#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// The lines of a text with the first "=" of each, for readers of settings.
//
// Their lines are short, some thirty bytes, so looking for the end of one and
// then for its "=" is two calls for next to nothing, each with a start and an
// end of its own. Instead 64 bytes at a time are compared with both, which gives
// two numbers with a bit for each byte; what follows goes from bit to bit.

/// A line without its line feed.
struct MarkedLine {
  const char* Begin;
  const char* End;
  const char* Equals; ///< null where there is none
};

/// Bit by byte, for any machine.
struct PlainMarks {
  static constexpr std::size_t k_Bytes = 64;

  /// A bit for each of so many bytes that is the one looked for.
  static std::uint64_t Of(const char* bytes, char wanted) {
    std::uint64_t marks = 0;
    for (std::size_t i = 0; i < k_Bytes; ++i) {
      marks |= std::uint64_t{bytes[i] == wanted} << i;
    }
    return marks;
  }
};

#ifdef __SSE2__
/// The same, 16 bytes at a time.
struct VectorMarks {
  static constexpr std::size_t k_Bytes = 64;

  static std::uint64_t Of(const char* bytes, char wanted) {
    const auto* const vectors = reinterpret_cast<const __m128i*>(bytes);
    const __m128i pattern = _mm_set1_epi8(wanted);
    const auto marksOf = [&](int i) -> std::uint64_t {
      return static_cast<std::uint32_t>(
          _mm_movemask_epi8(_mm_cmpeq_epi8(_mm_loadu_si128(vectors + i), pattern)));
    };
    return marksOf(0) | marksOf(1) << 16 | marksOf(2) << 32 | marksOf(3) << 48;
  }
};
using QuickMarks = VectorMarks;
#else
using QuickMarks = PlainMarks;
#endif

/// Calls `visit(line)` for every line of a text, the first one first. What
/// follows the last line feed is a line unless it is empty.
template <typename Marks = QuickMarks, typename Visit> void VisitLines(std::string_view text, Visit visit) {
  const char* const end = text.data() + text.size();
  MarkedLine line{text.data(), nullptr, nullptr};
  for (std::size_t from = 0; line.Begin != end; from += Marks::k_Bytes) {
    const char* const at = text.data() + from;
    const char* bytes = at;
    char last[Marks::k_Bytes];
    if (const std::size_t left = text.size() - from; left < Marks::k_Bytes) [[unlikely]] {
      std::memset(last, 0, sizeof(last)); // nothing behind the text is read
      std::memcpy(last, at, left);
      // A last line without its end gets one, so that `visit` is called in one
      // place: it is then a part of this loop.
      last[left] = text.back() == '\n' ? '\0' : '\n';
      bytes = last;
    }
    std::uint64_t lineEnds = Marks::Of(bytes, '\n');
    std::uint64_t equals = Marks::Of(bytes, '=');
    for (; lineEnds != 0; lineEnds &= lineEnds - 1) {
      const std::uint64_t upToEnd = lineEnds ^ (lineEnds - 1);
      if (line.Equals == nullptr && (equals & upToEnd) != 0) {
        line.Equals = at + std::countr_zero(equals);
      }
      line.End = at + std::countr_zero(lineEnds);
      visit(line);
      if (line.End == end) {
        return;
      }
      line = {line.End + 1, nullptr, nullptr};
      equals &= ~upToEnd;
    }
    if (line.Equals == nullptr && equals != 0) {
      line.Equals = at + std::countr_zero(equals);
    }
  }
}
