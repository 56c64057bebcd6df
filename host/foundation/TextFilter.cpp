// Nearly every line that a renderer prints holds none of the texts that a type
// looks for, so what counts is how fast a line can be dismissed. Lower-casing a
// copy and searching it text by text costs several passes and an allocation.
//
// Instead, each text belongs to one of eight buckets, a bit in a byte. For
// each of the first three bytes of the texts, a table tells which buckets a
// byte of the line fits, in either case. Anding the three answers at one place
// of the line leaves the buckets with a text that may begin there. The vector
// pass gets the answers for 32 places at once from two look-ups of 16 entries,
// by the low and the high half of a byte; that may name a bucket too many but
// never one too few, and every place that it names is compared byte by byte.
// Texts shorter than three bytes accept anything behind their end.

#include "host/foundation/TextFilter.h"

#include <immintrin.h>

#include <bit>
#include <cstdint>
#include <cstring>

LowerTable::LowerTable(const std::locale& locale) {
  Read(locale);
}

bool LowerTable::Follow() {
  const std::locale now;
  if (m_Locale == now) {
    return false;
  }
  Read(now);
  return true;
}

void LowerTable::Read(const std::locale& locale) {
  m_Locale = locale;
  const auto& classes = std::use_facet<std::ctype<char>>(m_Locale);
  for (std::size_t byte = 0; byte < m_Lower.size(); ++byte) {
    m_Lower[byte] = classes.tolower(static_cast<char>(static_cast<unsigned char>(byte)));
  }
}

String LowerTable::Lower(std::string_view text) const {
  String lowered(text);
  for (char& byte : lowered) {
    byte = Lower(byte);
  }
  return lowered;
}

bool LowerTable::BeginsWith(std::string_view line, std::string_view text) const {
  if (line.size() < text.size()) {
    return false;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (Lower(line[i]) != text[i]) {
      return false;
    }
  }
  return true;
}

void TextFilter::Build(const std::vector<String>& texts, const LowerTable& lower) {
  m_Texts = texts;
  m_HasEmpty = false;
  m_Positions = {};
  for (std::size_t k = 0; k < m_Texts.size(); ++k) {
    const String& text = m_Texts[k];
    m_HasEmpty |= text.empty();
    const auto bucket = static_cast<unsigned char>(1U << (k % 8));
    for (std::size_t j = 0; j < k_Prefix; ++j) {
      Position& position = m_Positions[j];
      for (std::size_t byte = 0; byte < 256; ++byte) {
        if (j >= text.size() || lower.Lower(static_cast<char>(static_cast<unsigned char>(byte))) == text[j]) {
          position.Byte[byte] |= bucket;
          position.Low[byte & 15] |= bucket;
          position.High[byte >> 4] |= bucket;
        }
      }
    }
  }
}

bool TextFilter::Occurs(std::string_view line, const LowerTable& lower) const {
  static const bool s_HasVectors = __builtin_cpu_supports("avx2") != 0;
  if (!s_HasVectors) {
    return OccursBytewise(line, lower);
  }
  return m_HasEmpty || (!m_Texts.empty() && OccursInVectors(line, lower));
}

bool TextFilter::IsAt(std::string_view line, std::size_t place, unsigned int buckets,
                      const LowerTable& lower) const {
  const std::string_view rest = line.substr(place);
  for (std::size_t k = 0; k < m_Texts.size(); ++k) {
    if ((buckets >> (k % 8) & 1) != 0 && lower.BeginsWith(rest, m_Texts[k])) {
      return true;
    }
  }
  return false;
}

bool TextFilter::OccursBytewise(std::string_view line, const LowerTable& lower) const {
  if (m_HasEmpty) {
    return true;
  }
  for (std::size_t place = 0; place < line.size(); ++place) {
    unsigned int buckets = 0xFF;
    for (std::size_t j = 0; j < k_Prefix && place + j < line.size(); ++j) {
      buckets &= m_Positions[j].Byte[static_cast<unsigned char>(line[place + j])];
    }
    if (buckets != 0 && IsAt(line, place, buckets, lower)) {
      return true;
    }
  }
  return false;
}

namespace {

// A table of 16 entries in both halves of a vector, as the shuffle wants it.
__attribute__((target("avx2"), always_inline)) inline __m256i LoadTable(const unsigned char* entries) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(entries)));
}

} // namespace

__attribute__((target("avx2"))) bool TextFilter::OccursInVectors(std::string_view line,
                                                                 const LowerTable& lower) const {
  constexpr std::size_t k_Places = 32;
  constexpr std::size_t k_Reach = k_Places + k_Prefix - 1;

  const __m256i nibble = _mm256_set1_epi8(15);
  __m256i low[k_Prefix];
  __m256i high[k_Prefix];
  for (std::size_t j = 0; j < k_Prefix; ++j) {
    low[j] = LoadTable(m_Positions[j].Low.data());
    high[j] = LoadTable(m_Positions[j].High.data());
  }

  for (std::size_t from = 0; from < line.size(); from += k_Places) {
    const std::size_t left = line.size() - from;
    // The last places are read from a copy, so that nothing behind the line
    // is; what the padding seems to hold, the comparison refuses.
    char padded[k_Reach];
    const char* bytes = line.data() + from;
    if (left < k_Reach) {
      std::memset(padded, 0, sizeof(padded));
      std::memcpy(padded, bytes, left);
      bytes = padded;
    }
    __m256i fits = _mm256_set1_epi8(-1);
    for (std::size_t j = 0; j < k_Prefix; ++j) {
      const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes + j));
      const __m256i lows = _mm256_shuffle_epi8(low[j], _mm256_and_si256(text, nibble));
      const __m256i highs =
          _mm256_shuffle_epi8(high[j], _mm256_and_si256(_mm256_srli_epi16(text, 4), nibble));
      fits = _mm256_and_si256(fits, _mm256_and_si256(lows, highs));
    }
    auto places =
        ~static_cast<std::uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(fits, _mm256_setzero_si256())));
    if (left < k_Places) {
      places &= (std::uint32_t{1} << left) - 1;
    }
    if (places == 0) {
      continue;
    }
    unsigned char buckets[k_Places];
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(buckets), fits);
    for (; places != 0; places &= places - 1) {
      const auto place = static_cast<std::size_t>(std::countr_zero(places));
      if (IsAt(line, from + place, buckets[place], lower)) {
        return true;
      }
    }
  }
  return false;
}
