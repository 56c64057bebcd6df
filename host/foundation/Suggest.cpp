#include "host/foundation/Suggest.h"

#include <algorithm>

namespace {

// Names are short; a hostile one of a megabyte is not worth a table.
constexpr std::size_t k_LengthLimit = 200;

// Drops the bytes that both texts begin and end with: they change no distance.
void DropCommonEnds(std::string_view& a, std::string_view& b) {
  while (!a.empty() && !b.empty() && a.front() == b.front()) {
    a.remove_prefix(1);
    b.remove_prefix(1);
  }
  while (!a.empty() && !b.empty() && a.back() == b.back()) {
    a.remove_suffix(1);
    b.remove_suffix(1);
  }
}

} // namespace

int EditDistance(std::string_view left, std::string_view right) {
  const String lowerLeft = String(left).Lower();
  const String lowerRight = String(right).Lower();
  std::string_view a = lowerLeft;
  std::string_view b = lowerRight;
  DropCommonEnds(a, b);
  if (a.size() > k_LengthLimit || b.size() > k_LengthLimit) {
    return static_cast<int>(std::max(a.size(), b.size()));
  }
  // Rows of the classic table: two back, one back and current. Two back serves
  // swaps of neighbouring letters.
  std::vector<int> before(b.size() + 1);
  std::vector<int> previous(b.size() + 1);
  std::vector<int> current(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) {
    previous[j] = static_cast<int>(j);
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    current[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const int replaced = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      current[j] = std::min({replaced, previous[j] + 1, current[j - 1] + 1});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        current[j] = std::min(current[j], before[j - 2] + 1);
      }
    }
    std::swap(before, previous);
    std::swap(previous, current);
  }
  return previous[b.size()];
}

String SuggestName(std::string_view unknown, const std::vector<String>& known) {
  // A third of the letters wrong is still a slip; more is another word.
  const auto limitFor = [](std::size_t letters) {
    return static_cast<int>(std::max<std::size_t>(1, letters / 3 + 1));
  };
  String best;
  int bestDistance = limitFor(unknown.size()) + 1; // as far as no name may be
  for (const String& name : known) {
    const std::size_t longer = std::max(unknown.size(), name.size());
    const std::size_t shorter = std::min(unknown.size(), name.size());
    if (longer - shorter >= static_cast<std::size_t>(bestDistance)) {
      continue; // each letter too many is one change at least
    }
    const int distance = EditDistance(unknown, name);
    if (distance < bestDistance) {
      bestDistance = distance;
      best = name;
    }
  }
  const int limit = limitFor(std::min(unknown.size(), best.size()));
  const bool wholeWordWrong = bestDistance >= static_cast<int>(std::max(unknown.size(), best.size()));
  return bestDistance <= limit && !wholeWordWrong ? best : String::Null;
}
