#include "host/application/VersionOrder.h"

#include "host/foundation/Characters.h"
#include "host/foundation/String.h"

#include <algorithm>
#include <array>

namespace {

// What a name is made of. Their order decides between names that part ways:
// 4.1-rc1 < 4.1 < 4.1-linux < 4.1.2.
enum class Kind { PreRelease, End, Word, Number };

struct Token {
  Kind What = Kind::End;
  std::string_view Text;
  std::size_t Rank = 0; // of a pre-release word
};

// Takes the next number or word off the text; what stands between is skipped.
Token Next(std::string_view& text) {
  static constexpr std::array<std::string_view, 5> k_PreReleases = {"dev", "alpha", "beta", "pre", "rc"};
  while (!text.empty() && !IsDigit(text[0]) && !IsLetter(text[0])) {
    text.remove_prefix(1);
  }
  if (text.empty()) {
    return {};
  }
  const auto belongs = IsDigit(text[0]) ? IsDigit : IsLetter;
  const auto end = std::find_if_not(text.begin(), text.end(), belongs);
  Token token{belongs == IsDigit ? Kind::Number : Kind::Word,
              text.substr(0, static_cast<std::size_t>(end - text.begin()))};
  text.remove_prefix(token.Text.size());
  if (token.What == Kind::Number) {
    token.Text.remove_prefix(std::min(token.Text.find_first_not_of('0'), token.Text.size()));
    return token;
  }
  for (std::size_t i = 0; i < k_PreReleases.size(); ++i) {
    if (String::EqualNoCase(token.Text, k_PreReleases[i])) {
      token.What = Kind::PreRelease;
      token.Rank = i;
    }
  }
  return token;
}

template <typename Value> int Compare(const Value& left, const Value& right) {
  return left < right ? -1 : static_cast<int>(right < left);
}

int CompareTokens(const Token& left, const Token& right) {
  if (left.What != right.What) {
    return Compare(left.What, right.What);
  }
  switch (left.What) {
  case Kind::Number: // without leading zeros, the longer one is the larger
    return left.Text.size() != right.Text.size() ? Compare(left.Text.size(), right.Text.size())
                                                 : Compare(left.Text, right.Text);
  case Kind::Word:
    return String::CompareNoCase(left.Text, right.Text);
  case Kind::PreRelease:
    return Compare(left.Rank, right.Rank);
  case Kind::End:
    break;
  }
  return 0;
}

} // namespace

int CompareVersions(std::string_view left, std::string_view right) {
  std::string_view leftRest = left;
  std::string_view rightRest = right;
  for (;;) {
    const Token leftToken = Next(leftRest);
    const Token rightToken = Next(rightRest);
    const int order = CompareTokens(leftToken, rightToken);
    if (order != 0) {
      return order;
    }
    if (leftToken.What == Kind::End) {
      return Compare(left, right);
    }
  }
}
