#include "host/foundation/MarkedLines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

// Each way to mark lines against a search line by line.

namespace {

/// Where a line begins and ends, and where its first "=" is, as offsets.
using Place = std::tuple<std::size_t, std::size_t, std::size_t>;

constexpr std::size_t k_None = std::string::npos;

std::vector<Place> PlainLines(const std::string& text) {
  std::vector<Place> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::size_t equals = text.find('=', begin);
    lines.emplace_back(begin, end, equals < end ? equals : k_None);
    begin = end + 1;
  }
  return lines;
}

template <typename Marks> std::vector<Place> MarkedLines(const std::string& text) {
  // In memory of exactly its size, where a sanitizer sees a byte too many.
  const auto memory = std::make_unique<char[]>(text.size());
  std::copy(text.begin(), text.end(), memory.get());
  const char* const start = memory.get();
  std::vector<Place> lines;
  VisitLines<Marks>(std::string_view(start, text.size()), [&](const MarkedLine& line) {
    lines.emplace_back(line.Begin - start, line.End - start,
                       line.Equals == nullptr ? k_None : static_cast<std::size_t>(line.Equals - start));
  });
  return lines;
}

void ExpectPlainLines(const std::string& text) {
  const std::vector<Place> expected = PlainLines(text);
  ASSERT_EQ(MarkedLines<PlainMarks>(text), expected) << testing::PrintToString(text);
  ASSERT_EQ(MarkedLines<QuickMarks>(text), expected) << testing::PrintToString(text);
}

TEST(MarkedLines, AnEmptyTextHasNoLine) {
  VisitLines({}, [](const MarkedLine&) { FAIL(); });
  ExpectPlainLines("");
}

TEST(MarkedLines, TheFirstEqualsSignOfALineCounts) {
  EXPECT_EQ(MarkedLines<QuickMarks>("a=b=c\n=\nd\n"),
            (std::vector<Place>{{0, 5, 1}, {6, 7, 6}, {8, 9, k_None}}));
  EXPECT_EQ(MarkedLines<QuickMarks>("\n\na"),
            (std::vector<Place>{{0, 0, k_None}, {1, 1, k_None}, {2, 3, k_None}}));
}

TEST(MarkedLines, LineFeedsAndEqualsSignsAreFoundAtEveryPlace) {
  for (std::size_t size = 1; size < 200; ++size) {
    for (std::size_t place = 0; place < size; ++place) {
      std::string text(size, 'x');
      text[place] = '=';
      ExpectPlainLines(text);
      text[size - place - 1] = '\n';
      ExpectPlainLines(text);
      text[place] = '\n';
      ExpectPlainLines(text);
    }
    ExpectPlainLines(std::string(size, '\n'));
    ExpectPlainLines(std::string(size, '='));
  }
}

TEST(MarkedLines, RandomBytesGiveTheSameLinesEachWay) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  // Bytes near those that are looked for, and any.
  const std::string near("\n\n===\x0b\x09<>a\0\x8a\xbd", 13);
  for (int round = 0; round < 20000; ++round) {
    std::string text(random() % 400, 'x');
    const std::size_t rare = 1 + random() % 30;
    for (char& byte : text) {
      if (random() % rare == 0) {
        byte = random() % 4 == 0 ? static_cast<char>(static_cast<unsigned char>(random()))
                                 : near[random() % near.size()];
      }
    }
    ExpectPlainLines(text);
    if (HasFatalFailure()) {
      return;
    }
  }
}

} // namespace
