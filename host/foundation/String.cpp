#include "host/foundation/String.h"

#include "host/foundation/Characters.h"

#include <algorithm>
#include <array>
#include <locale>

const String String::Null;

namespace {

char UpperAscii(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// White space as the global locale has it. Asking a locale for its classification
// takes longer than trimming a text by it.
class SpaceTable {
public:
  SpaceTable() { Read(); }

  void Follow() {
    const std::locale now;
    if (!(m_Locale == now)) {
      m_Locale = now;
      Read();
    }
  }

  bool IsSpace(char c) const { return m_Space[static_cast<unsigned char>(c)]; }

private:
  void Read() {
    const auto& facet = std::use_facet<std::ctype<char>>(m_Locale);
    for (std::size_t byte = 0; byte < m_Space.size(); ++byte) {
      m_Space[byte] = facet.is(std::ctype_base::space, static_cast<char>(static_cast<unsigned char>(byte)));
    }
  }

  std::locale m_Locale; // the global one
  std::array<bool, 256> m_Space{};
};

} // namespace

String& String::Trim() {
  thread_local SpaceTable spaces;
  spaces.Follow();
  std::size_t last = size();
  while (last > 0 && spaces.IsSpace((*this)[last - 1])) {
    --last;
  }
  std::size_t first = 0;
  while (first < last && spaces.IsSpace((*this)[first])) {
    ++first;
  }
  erase(last);
  erase(0, first);
  return *this;
}

bool String::Bool() const {
  static constexpr std::array<std::string_view, 6> k_TrueWords = {"yes", "true", "on", "y", "t", "1"};
  String word = *this;
  word.Trim();
  return std::any_of(k_TrueWords.begin(), k_TrueWords.end(),
                     [&word](std::string_view candidate) { return EqualNoCase(word, candidate); });
}

String String::Lower() const {
  String result = *this;
  std::transform(result.begin(), result.end(), result.begin(), LowerAscii);
  return result;
}

String String::Upper() const {
  String result = *this;
  std::transform(result.begin(), result.end(), result.begin(), UpperAscii);
  return result;
}

int String::CompareNoCase(std::string_view left, std::string_view right) {
  const std::size_t common = std::min(left.size(), right.size());
  for (std::size_t i = 0; i < common; i += sizeof(std::uint64_t)) {
    const std::uint64_t a = NoCasePrefix(left.substr(i, common - i));
    const std::uint64_t b = NoCasePrefix(right.substr(i, common - i));
    if (a != b) {
      return a < b ? -1 : 1;
    }
  }
  if (left.size() == right.size()) {
    return 0;
  }
  return left.size() < right.size() ? -1 : 1;
}

// What is equal is mostly written alike.
bool String::EqualNoCase(std::string_view left, std::string_view right) {
  return left.size() == right.size() && NoCasePrefix(left) == NoCasePrefix(right) &&
         (left == right || CompareNoCase(left, right) == 0);
}

String operator+(const String& left, const String& right) {
  String result;
  result.reserve(left.size() + right.size());
  result.append(left);
  result.append(right);
  return result;
}
