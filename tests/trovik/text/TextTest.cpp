#include "trovik/text/Text.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

using namespace std::chrono_literals;

TEST(Printable, OrdinaryTextAndUtf8StayAsTheyAre) {
  EXPECT_EQ(printable("shot_0001 ünï 日本.png", OddBytes::Show), "shot_0001 ünï 日本.png");
}

TEST(Printable, ControlCharactersBecomeVisible) {
  EXPECT_EQ(printable("a\nb\rc\td\x1b[31me\x7f\x01", OddBytes::Show), "a\\nb\\rc\\td\\x1b[31me\\x7f\\x01");
  EXPECT_EQ(printable("a\nb\x1b", OddBytes::Keep), "a\\nb\\x1b");
}

TEST(Printable, NulByteBecomesVisible) {
  EXPECT_EQ(printable(std::string_view("a\0b", 3), OddBytes::Keep), "a\\x00b");
}

TEST(Printable, InvalidBytesAreShownOnTerminalsAndKeptInPipes) {
  EXPECT_EQ(printable("caf\xe9.png", OddBytes::Show), "caf\\xe9.png");
  EXPECT_EQ(printable("caf\xe9.png", OddBytes::Keep), "caf\xe9.png");
}

TEST(Printable, OverlongAndCutSequencesAreInvalid) {
  EXPECT_EQ(printable("\xc0\xaf", OddBytes::Show), "\\xc0\\xaf");
  EXPECT_EQ(printable("\xe0\x80\x80", OddBytes::Show), "\\xe0\\x80\\x80");
  EXPECT_EQ(printable("\xf4\x90\x80\x80", OddBytes::Show), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(printable("\xed\xa0\x80", OddBytes::Show), "\\xed\\xa0\\x80");
  EXPECT_EQ(printable("x\xe6\x97", OddBytes::Show), "x\\xe6\\x97");
}

TEST(Printable, CharactersThatSteerTerminalsOrReorderTextAreShown) {
  EXPECT_EQ(printable("a\xc2\x9b"
                      "31m",
                      OddBytes::Show),
            "a\\u009b31m");
  const std::string override = std::string("\xe2\x80") + '\xae';
  EXPECT_EQ(printable("gpj." + override + "exe", OddBytes::Show), "gpj.\\u202eexe");
}

TEST(InQuotes, NamesAreMadeVisible) {
  EXPECT_EQ(inQuotes("a\nb"), "\"a\\nb\"");
}

TEST(DisplayWidth, CountsColumnsNotBytes) {
  EXPECT_EQ(displayWidth("abc"), 3U);
  EXPECT_EQ(displayWidth("ünï"), 3U);
  EXPECT_EQ(displayWidth("日本"), 4U);
  EXPECT_EQ(displayWidth("e\u0301"), 1U);
}

TEST(CutToWidth, ShortTextIsUntouched) {
  EXPECT_EQ(cutToWidth("abc", 3), "abc");
}

TEST(CutToWidth, LongTextEndsWithAnEllipsisWithinTheWidth) {
  EXPECT_EQ(cutToWidth("abcdef", 4), "abc…");
  EXPECT_EQ(cutToWidth("日本語", 4), "日…");
  EXPECT_EQ(cutToWidth("abc", 0), "");
}

TEST(Padded, FillsUpToColumns) {
  EXPECT_EQ(padded("ü", 3), "ü  ");
  EXPECT_EQ(padded("abcd", 3), "abcd");
}

TEST(Wrapped, WordsAreWrappedWithAnIndent) {
  EXPECT_EQ(wrapped("one two three four five six seven", 24, 2), "  one two three four\n  five six seven\n");
}

TEST(Wrapped, LineBreaksAndBlankLinesAreKept) {
  EXPECT_EQ(wrapped("a\n\nb", 40, 1), " a\n\n b\n");
}

TEST(Wrapped, LongWordStandsAlone) {
  EXPECT_EQ(wrapped("a /very/long/path/without/any/blank/in/it b", 30, 0),
            "a\n/very/long/path/without/any/blank/in/it\nb\n");
}

TEST(DurationText, IsReadable) {
  EXPECT_EQ(durationText(0s), "0.0 s");
  EXPECT_EQ(durationText(1249ms), "1.2 s");
  EXPECT_EQ(durationText(9949ms), "9.9 s");
  EXPECT_EQ(durationText(9960ms), "10 s");
  EXPECT_EQ(durationText(59600ms), "1 min 00 s");
  EXPECT_EQ(durationText(200s), "3 min 20 s");
  EXPECT_EQ(durationText(7500s), "2 h 05 min");
}

TEST(Counted, SaysOneAndMany) {
  EXPECT_EQ(counted(1, "frame"), "1 frame");
  EXPECT_EQ(counted(24, "frame"), "24 frames");
}

TEST(IsUtf8, TellsTextsFromOtherBytes) {
  EXPECT_TRUE(isUtf8(""));
  EXPECT_TRUE(isUtf8("Größe 日本 ☀"));
  EXPECT_FALSE(isUtf8("\xff"));
  EXPECT_FALSE(isUtf8("a\xc3"));
  EXPECT_FALSE(isUtf8("\xed\xa0\x80")); // half of a surrogate pair
}

TEST(CharactersOf, AreThoseOfTheText) {
  EXPECT_EQ(charactersOf("aé☀"), U"aé☀");
  EXPECT_EQ(charactersOf("a\xff"
                         "b"),
            U"a\xfffd"
            U"b");
  EXPECT_EQ(charactersOf(""), U"");
}

} // namespace
} // namespace trovik
