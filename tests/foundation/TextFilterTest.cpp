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
  // In memory of exactly its size, where a sanitizer sees a byte too many.
  const auto memory = std::make_unique<char[]>(line.size());
  std::copy(line.begin(), line.end(), memory.get());
  const std::string_view exact(memory.get(), line.size());
  for (const bool vectors : {true, false}) {
    TextFilter filter(vectors);
    filter.Build(texts, lower);
    EXPECT_EQ(filter.Occurs(exact), expected) << testing::PrintToString(line) << vectors;
  }
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

// Lower case in which one more byte, or a letter of ASCII less, is lowered.
class OddCase : public std::ctype<char> {
public:
  explicit OddCase(bool more) : m_More(more) {}

protected:
  char do_tolower(char byte) const override {
    if (m_More ? byte == '\xC4' : byte == 'Q') {
      return m_More ? '\xE4' : byte;
    }
    return std::ctype<char>::do_tolower(byte);
  }

private:
  bool m_More;
};

TEST(TextFilterTest, TextsAreLoweredByteByByteAsTheirLocaleHasIt) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const std::locale& classic = std::locale::classic();
  for (const std::locale& locale :
       {classic, std::locale(classic, new OddCase(true)), std::locale(classic, new OddCase(false))}) {
    const auto& classes = std::use_facet<std::ctype<char>>(locale);
    LowerTable lower(classic);
    lower = LowerTable(locale);
    String lowered = "what was there before";
    for (std::size_t size = 0; size < 300; ++size) {
      String text;
      String expected;
      for (std::size_t i = 0; i < size; ++i) {
        text += static_cast<char>(static_cast<unsigned char>(random() % 256));
        expected += classes.tolower(text.back());
      }
      lower.Lower(text, lowered);
      ASSERT_EQ(lowered, expected);
      ASSERT_EQ(lower.Lower(text), expected);
    }
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

/// A text of one of two cases, somewhere or at the start of a line.
struct Wanted {
  String Text;
  bool CodePage;
  TextFilter::Where Place;
};

/// Lower case as an old single-byte code page has it.
class UmlautCase : public std::ctype<char> {
protected:
  char do_tolower(char byte) const override {
    return byte == '\xC4' ? '\xE4' : std::ctype<char>::do_tolower(byte);
  }
};

TEST(TextFilterTest, FirstLineOfABlockThatHoldsATextIsTheOneOfAPlainSearch) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const LowerTable tables[] = {LowerTable(std::locale::classic()),
                               LowerTable(std::locale(std::locale::classic(), new UmlautCase()))};
  std::size_t found = 0;
  for (int round = 0; round < 20000; ++round) {
    const unsigned kinds = 2 + static_cast<unsigned>(random() % 7);
    const auto bytes = [&](std::size_t longest) {
      String text;
      for (std::size_t i = random() % (longest + 1); i > 0; --i) {
        text += "abA\xC4\xE4 \0z"[random() % kinds];
      }
      return text;
    };
    std::vector<Wanted> wanted;
    for (std::size_t i = random() % 12; i > 0; --i) {
      const bool codePage = random() % 2 == 0;
      wanted.push_back({tables[codePage ? 1 : 0].Lower("b" + bytes(7)), codePage,
                        random() % 3 == 0 ? TextFilter::Where::LineStart : TextFilter::Where::Anywhere});
    }
    std::string block;
    std::size_t expected = TextFilter::k_Nowhere; // the begin of the line
    std::size_t expectedEnd = 0;
    for (std::size_t i = random() % 20; i > 0; --i) {
      const String line = bytes(40);
      const bool holds = std::any_of(wanted.begin(), wanted.end(), [&](const Wanted& text) {
        const String lowered = tables[text.CodePage ? 1 : 0].Lower(line);
        return text.Place == TextFilter::Where::LineStart ? lowered.starts_with(text.Text)
                                                          : lowered.find(text.Text) != String::npos;
      });
      if (holds && expected == TextFilter::k_Nowhere) {
        expected = block.size();
        expectedEnd = block.size() + line.size();
        ++found;
      }
      block += line + "\n\r\b"[random() % 3];
    }
    const auto memory = std::make_unique<char[]>(block.size());
    std::copy(block.begin(), block.end(), memory.get());
    for (const bool vectors : {true, false}) {
      TextFilter filter(vectors);
      for (const Wanted& text : wanted) {
        filter.Add(text.Text, tables[text.CodePage ? 1 : 0], text.Place);
      }
      filter.Finish();
      const std::size_t place = filter.Find({memory.get(), block.size()});
      if (expected == TextFilter::k_Nowhere) {
        ASSERT_EQ(place, TextFilter::k_Nowhere) << testing::PrintToString(block);
      } else {
        ASSERT_GE(place, expected) << testing::PrintToString(block);
        ASSERT_LT(place, expectedEnd) << testing::PrintToString(block);
      }
    }
  }
  EXPECT_GT(found, 1000U);
  EXPECT_LT(found, 19000U);
}

TEST(TextFilterTest, ManyTextsInABlockAreAllFoundInBothWays) {
  std::vector<String> texts;
  texts.reserve(60);
  for (int i = 0; i < 60; ++i) {
    texts.push_back("text " + std::to_string(i) + " of many");
  }
  const LowerTable lower;
  for (const bool vectors : {true, false}) {
    TextFilter filter(vectors);
    filter.Build(texts, lower);
    for (const String& text : texts) {
      const std::string block = std::string(3000, 'x') + "\n" + text + "\n" + std::string(100, 'y') + "\n";
      const std::size_t place = filter.Find(block);
      EXPECT_GE(place, 3001U);
      EXPECT_LT(place, 3001 + text.size());
      EXPECT_EQ(filter.Find(std::string_view(block).substr(0, 3000 + text.size())), TextFilter::k_Nowhere);
    }
  }
}

TEST(TextFilterTest, ClearedFilterFindsOnlyWhatIsAddedAnew) {
  const LowerTable lower;
  TextFilter filter;
  filter.Build({"one", ""}, lower);
  EXPECT_TRUE(filter.HasEmpty());
  filter.Build({"two"}, lower);
  EXPECT_FALSE(filter.HasEmpty());
  EXPECT_FALSE(filter.Occurs("one"));
  EXPECT_TRUE(filter.Occurs("two"));
}

} // namespace
