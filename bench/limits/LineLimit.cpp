// One pass with 32-byte vectors. Each text is one of eight bits; for each of
// its first three bytes a table by half bytes says which bits fit. Where a bit
// is left after all three, a text may begin, and only the line around that
// place is looked at: lower-cased and searched text by text. What is asked for are
// the images, each once, so their names are kept and looked up.

#include "bench/limits/Limits.h"

#include <immintrin.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace bench {
namespace {

constexpr std::size_t blockSize = std::size_t{256} << 10;
constexpr std::size_t padding = 64; // readable bytes behind a block

char lowerOf(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), lowerOf);
  return text;
}

} // namespace

LineLimit::LineLimit(std::vector<std::string> images, std::string imageEnd, std::vector<std::string> errors,
                     std::string success)
    : images_(std::move(images)), imageEnd_(lowered(std::move(imageEnd))), errors_(std::move(errors)),
      success_(lowered(std::move(success))) {
  std::size_t number = 0;
  const auto add = [&](const std::string& text) {
    const auto bit = static_cast<unsigned char>(1U << (number++ % 8));
    for (std::size_t place = 0; place < 3; ++place) {
      for (unsigned int byte = 0; byte < 256; ++byte) {
        if (lowerOf(static_cast<char>(byte)) == text[place]) {
          tables_[place].low[byte & 15] |= bit;
          tables_[place].high[byte >> 4] |= bit;
        }
      }
    }
  };
  for (std::vector<std::string>* texts : {&images_, &errors_}) {
    for (std::string& text : *texts) {
      text = lowered(text);
      add(text);
    }
  }
  add(success_);
}

LineLimit::Counts LineLimit::run(int descriptor) {
  counts_ = Counts();
  names_.clear();
  std::vector<char> buffer(2 * blockSize + padding);
  std::size_t kept = 0;
  for (;;) {
    const ssize_t got = read(descriptor, buffer.data() + kept, blockSize);
    if (got <= 0) {
      counts_.images = names_.size();
      return counts_;
    }
    const std::size_t size = kept + static_cast<std::size_t>(got);
    const void* last = memrchr(buffer.data() + kept, '\n', static_cast<std::size_t>(got));
    const char* end = last == nullptr ? buffer.data() : static_cast<const char*>(last) + 1;
    scan(buffer.data(), end);
    kept = static_cast<std::size_t>(buffer.data() + size - end);
    std::memmove(buffer.data(), end, kept);
  }
}

void LineLimit::scan(const char* begin, const char* end) {
  const auto load = [](const void* bytes) { return _mm256_loadu_si256(static_cast<const __m256i*>(bytes)); };
  const auto spread = [](const unsigned char* table) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
  };
  const __m256i nibble = _mm256_set1_epi8(15);
  const __m256i lineFeed = _mm256_set1_epi8('\n');
  const __m256i low[] = {spread(tables_[0].low), spread(tables_[1].low), spread(tables_[2].low)};
  const __m256i high[] = {spread(tables_[0].high), spread(tables_[1].high), spread(tables_[2].high)};
  const char* judged = begin; // lines before it are done
  for (const char* block = begin; block < end; block += 32) {
    __m256i fits = _mm256_set1_epi8(-1);
    for (int place = 0; place < 3; ++place) {
      const __m256i bytes = load(block + place);
      const __m256i byLow = _mm256_shuffle_epi8(low[place], _mm256_and_si256(bytes, nibble));
      const __m256i byHigh =
          _mm256_shuffle_epi8(high[place], _mm256_and_si256(_mm256_srli_epi16(bytes, 4), nibble));
      fits = _mm256_and_si256(fits, _mm256_and_si256(byLow, byHigh));
    }
    auto ends = static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(load(block), lineFeed)));
    auto places =
        ~static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(fits, _mm256_setzero_si256())));
    if (end - block < 32) {
      const std::uint32_t inside = (1U << (end - block)) - 1;
      ends &= inside;
      places &= inside;
    }
    counts_.lines += static_cast<std::size_t>(std::popcount(ends));
    for (; places != 0; places &= places - 1) {
      const char* place = block + std::countr_zero(places);
      if (place < judged) {
        continue;
      }
      const void* before = memrchr(judged, '\n', static_cast<std::size_t>(place - judged));
      const char* line = before == nullptr ? judged : static_cast<const char*>(before) + 1;
      const auto* lineEnd =
          static_cast<const char*>(std::memchr(place, '\n', static_cast<std::size_t>(end - place)));
      judge({line, static_cast<std::size_t>(lineEnd - line)});
      judged = lineEnd + 1;
    }
  }
}

void LineLimit::judge(std::string_view line) {
  lowered_.assign(line);
  std::transform(lowered_.begin(), lowered_.end(), lowered_.begin(), lowerOf);
  for (const std::string& text : images_) {
    const std::size_t place = lowered_.find(text);
    if (place != std::string::npos) {
      const std::size_t nameEnd = lowered_.rfind(imageEnd_);
      if (nameEnd != std::string::npos) {
        ++counts_.imageLines;
        const std::string_view name = line.substr(place + text.size(), nameEnd - place - text.size());
        if (!names_.contains(name)) {
          names_.emplace(name);
        }
      }
      return;
    }
  }
  if (lowered_.starts_with(success_)) {
    ++counts_.successes;
    return;
  }
  for (const std::string& text : errors_) {
    if (lowered_.find(text) != std::string::npos) {
      ++counts_.errors;
      return;
    }
  }
}

} // namespace bench
