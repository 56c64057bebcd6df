#include "host/application/ErrorTexts.h"

#include "host/foundation/StringTokenizer.h"

#include <algorithm>

// Renderers print gigabytes, and nearly no line holds any of the texts. So the
// question asked of every byte is not "does text 1 begin here, does text 2",
// but "can any text begin here": two table look-ups, one for the byte and one
// for its follower. The texts are spread over eight groups, one bit each, so
// that the two bytes must come from texts of the same group; eight places are
// looked at before the one branch. Only where both tables agree are the texts
// themselves compared, which gives exactly what the plain way gives.

namespace {

constexpr std::size_t k_Groups = 8;
constexpr std::size_t k_Stride = 8;

unsigned char Byte(char c) {
  return static_cast<unsigned char>(c);
}

char LowerAscii(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char UpperAscii(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

} // namespace

TextSet::TextSet(const std::vector<String>& texts) {
  for (const String& text : texts) {
    if (text.empty()) {
      continue;
    }
    const auto group = static_cast<std::uint8_t>(1U << (m_Texts.size() % k_Groups));
    const String lower = text.Lower();
    const auto mark = [group](ByteTable& table, char c) {
      table[Byte(c)] |= group;
      table[Byte(UpperAscii(c))] |= group;
    };
    mark(m_First, lower[0]);
    if (lower.size() > 1) {
      mark(m_Second, lower[1]);
    } else {
      for (std::uint8_t& entry : m_Second) { // any byte may follow
        entry |= group;
      }
    }
    m_Texts.push_back(lower);
  }
}

bool TextSet::MatchesAt(std::string_view rest) const {
  return std::any_of(m_Texts.begin(), m_Texts.end(), [rest](const String& text) {
    return text.size() <= rest.size() && std::equal(text.begin(), text.end(), rest.begin(),
                                                    [](char a, char b) { return a == LowerAscii(b); });
  });
}

bool TextSet::Begins(std::string_view line) const {
  return !line.empty() && m_First[Byte(line[0])] != 0 && MatchesAt(line);
}

bool TextSet::Occurs(std::string_view line) const {
  if (line.empty() || m_Texts.empty()) {
    return false;
  }
  const auto canBegin = [this, line](std::size_t place) {
    return static_cast<unsigned>(m_First[Byte(line[place])] & m_Second[Byte(line[place + 1])]);
  };
  const std::size_t last = line.size() - 1; // has no follower
  std::size_t place = 0;
  for (; place + k_Stride <= last; place += k_Stride) {
    unsigned any = 0;
    for (std::size_t i = 0; i < k_Stride; ++i) {
      any |= canBegin(place + i);
    }
    for (std::size_t i = 0; any != 0 && i < k_Stride; ++i) {
      if (canBegin(place + i) != 0 && MatchesAt(line.substr(place + i))) {
        return true;
      }
    }
  }
  for (; place < last; ++place) {
    if (canBegin(place) != 0 && MatchesAt(line.substr(place))) {
      return true;
    }
  }
  return m_First[Byte(line[last])] != 0 && MatchesAt(line.substr(last));
}

ErrorTexts::ErrorTexts(const String& errors, const String& ignores, bool anywhere)
    : m_Errors(StringTokenizer::Split(errors, ';')), m_Ignores(StringTokenizer::Split(ignores, ';')),
      m_Anywhere(anywhere) {}
