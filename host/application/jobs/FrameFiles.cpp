#include "host/application/jobs/FrameFiles.h"

#include "host/foundation/Characters.h"

#include <algorithm>
#include <limits>

// Which number of "/shot_010/v2/cam1.0007.png" is the frame?
//
// A work renders one run of neighbouring frames, so a number that is none of
// them is out. What is left is mostly one, but versions, cameras, layers and
// shots have small numbers too. One path alone cannot tell them apart; the
// paths of a work together nearly always can. So paths that differ in nothing
// but their numbers share a pattern, and the numbers at one place of a pattern
// make a column, of which is known:
//
//   Misses  it held numbers that are no frames, as cameras 1 to 8 do in a work
//           of five frames.
//   Varies  a version or a shot is the same in all paths, a frame is not.
//   First   it was the work's first frame in the first path. Programs begin
//           with the first frame.
//   Falls   cameras go 1 2 3 1 2 3 while frames go 1 1 1 2 2 2.
//
// Each of them in this order dismisses the columns that are worse than others,
// and the last column that is left is the frame: most names end with it.
//
// A work that broke off early leaves too few paths to tell. "cam1_0001
// cam2_0001 cam3_0001" of a work from frame 1 on may be three cameras of one
// frame or three frames with a version behind. Then the frames are told as if
// all had gone well, but not as sure, and no further attempt relies on them.
// The one reading that is relied on without proof is that of "/0001/layer1
// /0001/layer2": it is that of "/v001/image1 /v001/image2", which is common.
// Types whose names are otherwise declare their expected files, which are
// never guessed at.
//
// A "-" before a number may be its sign or a mere separator, so such a number
// makes two columns. Behind a letter or digit it rather separates.

namespace {

// More numbers than these at the end of a path, or more patterns, are nobody's
// but an attacker's.
constexpr std::size_t k_NumbersLimit = 64;
constexpr std::size_t k_PatternsLimit = 10'000;

bool IsOfWord(char c) {
  return IsDigit(c) || IsLetter(c);
}

// The value of a row of digits; nothing beyond ten, or beyond 32 bits.
std::optional<int> ToNumber(std::string_view digits, bool negative) {
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  if (digits.size() > 10) {
    return std::nullopt;
  }
  std::int64_t value = 0;
  for (const char digit : digits) {
    value = value * 10 + (digit - '0');
  }
  value = negative ? -value : value;
  const bool fits = value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
  return fits ? std::optional<int>(static_cast<int>(value)) : std::nullopt;
}

// Where the extension begins, if it is one such as "mp4", whose digits are no
// number; those of "image.0007" and "image.v007" are. At the end when not.
std::size_t ExtensionPlace(std::string_view path) {
  constexpr std::ptrdiff_t k_Longest = 5;
  constexpr std::ptrdiff_t k_MostDigits = 2;
  const std::size_t point = path.rfind('.');
  if (point == std::string_view::npos) {
    return path.size();
  }
  const std::string_view extension = path.substr(point + 1);
  const auto digits = std::count_if(extension.begin(), extension.end(), IsDigit);
  const auto letters = std::count_if(extension.begin(), extension.end(), IsAsciiLetter);
  const bool isOne = letters > 0 && digits <= k_MostDigits && letters + digits <= k_Longest &&
                     static_cast<std::size_t>(letters + digits) == extension.size();
  return isOne ? point + 1 : path.size();
}

// Keeps what has a property, unless nothing has it.
template <typename Property> void Prefer(std::vector<std::size_t>& places, Property has) {
  if (std::any_of(places.begin(), places.end(), has)) {
    places.erase(std::remove_if(places.begin(), places.end(), [&has](std::size_t i) { return !has(i); }),
                 places.end());
  }
}

} // namespace

// Every number becomes "0" in the pattern, which has no other digits but those
// of an extension, so that paths of one pattern have their numbers at the same
// places.
FrameFiles::Numbers FrameFiles::Read(std::string_view path, std::string& pattern) {
  Numbers numbers;
  pattern.clear();
  const std::size_t extension = ExtensionPlace(path);
  for (std::size_t i = 0; i < path.size();) {
    if (i >= extension || !IsDigit(path[i])) {
      pattern.push_back(path[i++]);
      continue;
    }
    const std::size_t start = i;
    while (i < path.size() && IsDigit(path[i])) {
      ++i;
    }
    pattern.push_back('0');
    const std::string_view digits = path.substr(start, i - start);
    const bool dash = start > 0 && path[start - 1] == '-';
    const bool separates = start > 1 && IsOfWord(path[start - 2]);
    if (dash) { // the likelier one last
      numbers.push_back(ToNumber(digits, separates));
    }
    numbers.push_back(ToNumber(digits, dash && !separates));
  }
  if (numbers.size() > k_NumbersLimit) {
    numbers.erase(numbers.begin(), numbers.end() - static_cast<std::ptrdiff_t>(k_NumbersLimit));
  }
  return numbers;
}

bool FrameFiles::IsFrame(const std::optional<int>& number) const {
  return number.has_value() && *number >= m_Frames.First && *number <= m_Frames.Last;
}

void FrameFiles::Learn(const Numbers& numbers, Columns& columns) const {
  const bool isFirst = columns.empty();
  columns.resize(numbers.size());
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    Column& column = columns[i];
    if (!IsFrame(numbers[i])) {
      column.Misses = true;
      continue;
    }
    const int number = *numbers[i];
    column.First = column.First || (isFirst && number == m_Frames.First);
    column.Varies = column.Varies || (column.Hits && number != column.Last);
    column.Falls = column.Falls || (column.Hits && number < column.Last);
    column.Hits = true;
    column.Last = number;
  }
}

FrameFiles::Answer FrameFiles::Choose(const Numbers& numbers, const Columns& columns) const {
  std::vector<std::size_t> likely;
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].Hits) {
      likely.push_back(i);
    }
  }
  if (likely.empty()) {
    return {};
  }
  Prefer(likely, [&columns](std::size_t i) { return !columns[i].Misses; });
  std::vector<std::size_t> best = likely;
  Prefer(best, [&columns](std::size_t i) { return columns[i].Varies; });
  Prefer(best, [&columns](std::size_t i) { return columns[i].First; });
  Prefer(best, [&columns](std::size_t i) { return !columns[i].Falls; });
  const std::size_t chosen = best.back();
  const std::optional<int>& number = numbers[chosen];
  if (!IsFrame(number)) {
    return {};
  }
  const auto isRival = [&columns, chosen](std::size_t i) {
    if (!columns[chosen].Varies) {
      return true;
    }
    const bool behind = i > chosen;
    return !columns[i].Varies &&
           (columns[chosen].First ? columns[i].First && behind : columns[i].First || behind);
  };
  const auto agrees = [&numbers, &number](std::size_t i) { return numbers[i] == number; };
  const bool sure =
      std::all_of(best.begin(), best.end(), agrees) &&
      std::all_of(likely.begin(), likely.end(), [&](std::size_t i) { return !isRival(i) || agrees(i); });
  return {number, sure};
}

void FrameFiles::Add(std::string_view path) {
  if (m_Frames.Count() <= 1) {
    return;
  }
  std::string pattern;
  const Numbers numbers = Read(path, pattern);
  auto known = m_Patterns.find(pattern);
  if (known == m_Patterns.end()) {
    if (m_Patterns.size() >= k_PatternsLimit) {
      return;
    }
    known = m_Patterns.try_emplace(std::move(pattern)).first;
  }
  Learn(numbers, known->second);
}

FrameFiles::Answer FrameFiles::FrameOf(std::string_view path) const {
  if (m_Frames.Count() <= 1) {
    return {m_Frames.First, true};
  }
  std::string pattern;
  const Numbers numbers = Read(path, pattern);
  const auto known = m_Patterns.find(pattern);
  if (known != m_Patterns.end()) {
    return Choose(numbers, known->second);
  }
  Columns columns;
  Learn(numbers, columns);
  return Choose(numbers, columns);
}
