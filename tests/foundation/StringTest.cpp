#include "host/foundation/String.h"
#include "host/foundation/Path.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <locale>
#include <map>
#include <type_traits>

namespace {

TEST(String, YesTrueOnYTAndOneAreTrueInAnyCase) {
  for (const char* word : {"yes", "true", "on", "y", "t", "1", "YES", "True", "oN", "Y", "T"}) {
    EXPECT_TRUE(String(word).Bool()) << word;
  }
}

TEST(String, BlanksAroundATruthDoNotMatter) {
  EXPECT_TRUE(String("  yes\t").Bool());
  EXPECT_TRUE(String("\r\n1 ").Bool());
}

TEST(String, EverythingElseIsFalse) {
  for (const char* word : {"", " ", "no", "false", "off", "n", "f", "0", "2", "01", "11", "yess", "ye",
                           "y es", "tru", "\"yes\"", "-1", "ja"}) {
    EXPECT_FALSE(String(word).Bool()) << word;
  }
  EXPECT_FALSE(String("yes\0", 4).Bool());
}

TEST(String, TrimRemovesWhiteSpaceFromBothEndsInPlace) {
  String text = " \t\n\v\f\r a b \t\n\v\f\r ";
  String& result = text.Trim();
  EXPECT_EQ(text, "a b");
  EXPECT_EQ(&result, &text);
}

TEST(String, TrimOfBlanksOnlyGivesTheEmptyText) {
  EXPECT_EQ(String(" \t ").Trim(), "");
  EXPECT_EQ(String().Trim(), "");
}

TEST(String, TrimKeepsBytesBeyondAsciiAndNulBytes) {
  EXPECT_EQ(String(" \xC2\xA0x\xC3\xA9 ").Trim(), "\xC2\xA0x\xC3\xA9");
  EXPECT_EQ(String(" \0 a\0 ", 6).Trim(), String("\0 a\0", 4));
}

// A classification in which "_" is white space and a blank is not.
class UnderscoreIsSpace : public std::ctype<char> {
public:
  UnderscoreIsSpace() : std::ctype<char>(Table()) {}

private:
  static const mask* Table() {
    static mask s_Table[table_size];
    std::copy(classic_table(), classic_table() + table_size, s_Table);
    s_Table[static_cast<unsigned char>('_')] = space;
    s_Table[static_cast<unsigned char>(' ')] = print;
    return s_Table;
  }
};

TEST(String, TrimAsksTheGlobalLocaleWhatWhiteSpaceIs) {
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new UnderscoreIsSpace()));
  String text = "__ a __";
  text.Trim();
  std::locale::global(before);
  EXPECT_EQ(text, " a ");
  EXPECT_EQ(String("__ a __").Trim(), "__ a __");
}

TEST(String, LowerAndUpperChangeAsciiLettersOnly) {
  EXPECT_EQ(String("AZaz09_\xC3\x84[`{@").Lower(), "azaz09_\xC3\x84[`{@");
  EXPECT_EQ(String("AZaz09_\xC3\xA4[`{@").Upper(), "AZAZ09_\xC3\xA4[`{@");
}

TEST(String, OrderWithoutCaseComparesLowerCaseBytesAsUnsigned) {
  EXPECT_EQ(String::CompareNoCase("Width", "wIDTH"), 0);
  EXPECT_LT(String::CompareNoCase("a", "B"), 0);
  EXPECT_GT(String::CompareNoCase("b", "A"), 0);
  EXPECT_LT(String::CompareNoCase("_", "A"), 0); // before "a", though behind "A"
  EXPECT_LT(String::CompareNoCase("z", "\xC3\xA4"), 0);
  EXPECT_LT(String::CompareNoCase("a", "ab"), 0);
  EXPECT_GT(String::CompareNoCase("ab", "a"), 0);
  EXPECT_LT(String::CompareNoCase("", "a"), 0);
  EXPECT_EQ(String::CompareNoCase("", ""), 0);
}

TEST(String, NulBytesAreComparedLikeOthers) {
  EXPECT_LT(String::CompareNoCase(std::string_view("a\0a", 3), std::string_view("a\0b", 3)), 0);
  EXPECT_FALSE(String::EqualNoCase(std::string_view("a\0", 2), "a"));
}

TEST(String, MapsWithoutCaseKeepTheFirstSpelling) {
  std::map<String, int, String::ciless> map;
  map["Scene"] = 1;
  map["SCENE"] = 2;
  ASSERT_EQ(map.size(), 1U);
  EXPECT_EQ(map.begin()->first, "Scene");
  EXPECT_EQ(map.begin()->second, 2);
  EXPECT_EQ(map.count(std::string_view("scene")), 1U);
}

RC_GTEST_PROP(String, OrderWithoutCaseIsTheOrderOfTheLowerCaseTexts,
              (const std::string& left, const std::string& right)) {
  const int order = String::CompareNoCase(left, right);
  const int expected = String(left).Lower().compare(String(right).Lower());
  RC_ASSERT((order < 0) == (expected < 0));
  RC_ASSERT((order > 0) == (expected > 0));
  RC_ASSERT(String::EqualNoCase(left, right) == (expected == 0));
  RC_ASSERT(String::ciless()(left, right) == (expected < 0));
}

TEST(String, JoinsEveryMixtureOfTextsToAString) {
  const String text = "a";
  const std::string plain = "b";
  const std::string_view view = "c";
  const Path path = "/d";
  static_assert(std::is_same_v<decltype(text + "x"), String>);
  static_assert(std::is_same_v<decltype("x" + text), String>);
  static_assert(std::is_same_v<decltype(text + plain), String>);
  static_assert(std::is_same_v<decltype(plain + text), String>);
  static_assert(std::is_same_v<decltype(text + 'x'), String>);
  static_assert(std::is_same_v<decltype(text + text), String>);
  EXPECT_EQ(text + text, "aa");
  EXPECT_EQ(text + plain, "ab");
  EXPECT_EQ(plain + text, "ba");
  EXPECT_EQ(text + view, "ac");
  EXPECT_EQ(view + text, "ca");
  EXPECT_EQ(text + "x", "ax");
  EXPECT_EQ("x" + text, "xa");
  EXPECT_EQ(text + 'x', "ax");
  EXPECT_EQ('x' + text, "xa");
  EXPECT_EQ(text + path, "a/d");
  EXPECT_EQ(path + text, "/da");
  EXPECT_EQ("1" + text + '2' + plain + view + path + String("z"), "1a2bc/dz");
  EXPECT_EQ(text + std::to_string(7), "a7");
}

TEST(String, JoiningKeepsNulBytes) {
  EXPECT_EQ(String("a\0", 2) + String("\0b", 2), String("a\0\0b", 4));
  EXPECT_EQ(String("a") + '\0', String("a\0", 2));
}

TEST(String, ANullPointerIsTheEmptyText) {
  EXPECT_EQ(String(static_cast<const char*>(nullptr)), "");
  EXPECT_TRUE(String::Null.empty());
}

TEST(String, CountAndFillMakeARun) {
  EXPECT_EQ(String(3, 'x'), "xxx");
  EXPECT_EQ(String(0, 'x'), "");
}

/// The order byte by byte, as it is written down.
int ComparePlainly(const std::string& left, const std::string& right) {
  const auto lowered = [](std::string text) {
    for (char& byte : text) {
      byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte + 32) : byte;
    }
    return text;
  };
  const int order = lowered(left).compare(lowered(right));
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

TEST(String, EveryByteIsComparedWithEveryOtherAtEveryPlace) {
  for (std::size_t length : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 16U}) {
    const auto place = length - 1;
    for (int a = 0; a < 256; ++a) {
      for (int b = 0; b < 256; ++b) {
        std::string left(length, 'q');
        std::string right(length, 'Q');
        left[place] = static_cast<char>(static_cast<unsigned char>(a));
        right[place] = static_cast<char>(static_cast<unsigned char>(b));
        ASSERT_EQ(String::CompareNoCase(left, right), ComparePlainly(left, right)) << a << " " << b;
        const auto leftPrefix = String::NoCasePrefix(left);
        const auto rightPrefix = String::NoCasePrefix(right);
        ASSERT_EQ(leftPrefix == rightPrefix  ? 0
                  : leftPrefix < rightPrefix ? -1
                                             : 1,
                  ComparePlainly(left.substr(0, 8), right.substr(0, 8)))
            << a << " " << b;
      }
    }
  }
}

RC_GTEST_PROP(StringProperty, TextsAreComparedAsByteByByte, ()) {
  const auto text = [] {
    return *rc::gen::container<std::string>(
        rc::gen::element('a', 'A', 'b', 'Z', 'z', '@', '[', '`', '{', '\0', '\x80', '\xC1', '\xE1'));
  };
  const std::string common = text();
  const std::string left = common + text();
  const std::string right = common + text();
  RC_ASSERT(String::CompareNoCase(left, right) == ComparePlainly(left, right));
  const auto leftPrefix = String::NoCasePrefix(left);
  const auto rightPrefix = String::NoCasePrefix(right);
  RC_ASSERT(leftPrefix == rightPrefix || (leftPrefix < rightPrefix) == (ComparePlainly(left, right) < 0));
}

} // namespace
