#include "host/foundation/TextFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace {

bool Occurs(const std::vector<String>& texts, const String& line) {
  const LowerTable lower;
  const String lowered = lower.Lower(line);
  const bool expected = std::any_of(texts.begin(), texts.end(), [&lowered](const String& text) {
    return lowered.find(text) != String::npos;
  });
  TextFilter filter;
  filter.Build(texts, lower);
  // In memory of exactly its size, where a sanitizer sees a byte too many.
  const auto memory = std::make_unique<char[]>(line.size());
  std::copy(line.begin(), line.end(), memory.get());
  const std::string_view exact(memory.get(), line.size());
  EXPECT_EQ(filter.Occurs(exact, lower), expected) << testing::PrintToString(line);
  EXPECT_EQ(filter.OccursBytewise(exact, lower), expected) << testing::PrintToString(line);
  return expected;
}

TEST(TextFilterTest, NoTextsOccurNowhere) {
  EXPECT_FALSE(Occurs({}, ""));
  EXPECT_FALSE(Occurs({}, "anything"));
}

TEST(TextFilterTest, EmptyTextOccursEverywhere) {
  EXPECT_TRUE(Occurs({"abc", ""}, ""));
  EXPECT_TRUE(Occurs({"abc", ""}, "x"));
}

TEST(TextFilterTest, TextsOfAnyLengthAreFoundAtEveryPlace) {
  for (const String& text : {String("x"), String("xy"), String("xyz"), String("xyzxyzw"), String("\0", 1)}) {
    for (std::size_t before = 0; before < 100; ++before) {
      for (std::size_t after : {0U, 1U, 2U, 31U, 40U}) {
        const String line = String(before, '-') + text + String(after, '-');
        EXPECT_TRUE(Occurs({"never", text}, line)) << before;
        EXPECT_FALSE(Occurs({"never", text + "!"}, line)) << before;
      }
    }
  }
}

TEST(TextFilterTest, TextCutOffByTheEndOfTheLineDoesNotOccur) {
  for (std::size_t before = 0; before < 70; ++before) {
    EXPECT_FALSE(Occurs({"saved:"}, String(before, ' ') + "saved"));
    EXPECT_FALSE(Occurs({String("a\0\0", 3)}, String(before, ' ') + "a"));
  }
}

TEST(TextFilterTest, LineIsMatchedInAnyCase) {
  EXPECT_TRUE(Occurs({"saved: '"}, "SAVED: '/a.png'"));
  EXPECT_FALSE(Occurs({"SAVED"}, "SAVED")); // texts are in lower case already
  EXPECT_FALSE(Occurs({"[x"}, "{x"));       // differs from it as letters of two cases do
}

TEST(TextFilterTest, MoreTextsThanBucketsAreAllFound) {
  std::vector<String> texts;
  for (char c = 'a'; c <= 'z'; ++c) {
    texts.push_back(String(3, c));
  }
  for (char c = 'A'; c <= 'Z'; ++c) {
    EXPECT_TRUE(Occurs(texts, String(40, '.') + String(3, c)));
    EXPECT_FALSE(Occurs(texts, String(40, '.') + String(2, c)));
  }
}

TEST(TextFilterTest, RandomLinesGiveTheAnswerOfAPlainSearch) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::size_t hits = 0;
  for (int round = 0; round < 20000; ++round) {
    const unsigned kinds = 2 + static_cast<unsigned>(random() % 6);
    const auto text = [&](std::size_t longest) {
      String bytes;
      for (std::size_t i = random() % (longest + 1); i > 0; --i) {
        bytes += "abAB\xE1\x81\0"[random() % kinds];
      }
      return bytes;
    };
    std::vector<String> texts;
    for (std::size_t i = random() % 12; i > 0; --i) {
      texts.push_back("b" + text(8).Lower());
    }
    hits += Occurs(texts, text(120)) ? 1U : 0U;
  }
  EXPECT_GT(hits, 1000U);
  EXPECT_LT(hits, 19000U);
}

} // namespace
