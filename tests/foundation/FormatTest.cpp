#include "host/foundation/Format.h"
#include "host/foundation/Path.h"
#include "tests/foundation/AllocationWatch.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstdio>
#include <limits>

namespace {

// What the C library's own printf makes of it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <typename... Arguments> std::string Printf(const std::string& format, Arguments... arguments) {
  const int size = std::snprintf(nullptr, 0, format.c_str(), arguments...);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  std::snprintf(text.data(), text.size(), format.c_str(), arguments...);
  text.pop_back();
  return text;
}
#pragma GCC diagnostic pop

// Flags, width and precision of a conversion.
std::string RandomFields(const std::string& flags) {
  std::string text = *rc::gen::container<std::string>(rc::gen::elementOf(flags));
  if (*rc::gen::arbitrary<bool>()) {
    text += std::to_string(*rc::gen::inRange(0, 40));
  }
  if (*rc::gen::arbitrary<bool>()) {
    text += "." + (*rc::gen::arbitrary<bool>() ? std::to_string(*rc::gen::inRange(0, 40)) : std::string());
  }
  return text;
}

RC_GTEST_PROP(Format, IntegersAreWrittenLikePrintf, (int value)) {
  const std::string format = "<%" + RandomFields("-+ #0") + *rc::gen::elementOf(std::string("dixXo")) + ">";
  RC_LOG() << format;
  RC_ASSERT(SFormat(format, value) == Printf(format, value));
}

RC_GTEST_PROP(Format, UnsignedIntegersAreWrittenLikePrintf, (unsigned value)) {
  const std::string format = "<%" + RandomFields("-#0") + *rc::gen::elementOf(std::string("uxXo")) + ">";
  RC_LOG() << format;
  RC_ASSERT(SFormat(format, value) == Printf(format, value));
}

RC_GTEST_PROP(Format, LongIntegersAreWrittenLikePrintf, (long value)) {
  const std::string fields = RandomFields("-+ 0");
  RC_ASSERT(SFormat("%" + fields + "ld", value) == Printf("%" + fields + "ld", value));
  RC_ASSERT(SFormat("%" + fields + "d", value) == Printf("%" + fields + "ld", value));
}

RC_GTEST_PROP(Format, DecimalsAreWrittenLikePrintf, ()) {
  const double value = *rc::gen::oneOf(
      rc::gen::arbitrary<double>(),
      rc::gen::element(0.0, -0.0, 1e308, -1e308, 5e-324, std::numeric_limits<double>::infinity(),
                       -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()));
  const std::string format =
      "<%" + RandomFields("-+ #0") + *rc::gen::elementOf(std::string("fFeEgGaA")) + ">";
  RC_LOG() << format;
  RC_ASSERT(SFormat(format, value) == Printf(format, value));
}

RC_GTEST_PROP(Format, TextsAreWrittenLikePrintf, ()) {
  const std::string value = *Texts(1);
  const std::string format = "<%" + RandomFields("-") + "s>";
  RC_LOG() << format;
  RC_ASSERT(SFormat(format, value) == Printf(format, value.c_str()));
}

RC_GTEST_PROP(Format, CharactersAreWrittenLikePrintf, ()) {
  const int value = *rc::gen::inRange(1, 256);
  const std::string width = std::to_string(*rc::gen::inRange(1, 20));
  RC_ASSERT(SFormat("%c|%" + width + "c|%-" + width + "c", value, value, value) ==
            Printf("%c|%" + width + "c|%-" + width + "c", value, value, value));
}

RC_GTEST_PROP(Format, StarsTakeWidthAndPrecisionLikePrintf, (int value)) {
  const int width = *rc::gen::inRange(-40, 40);
  const int precision = *rc::gen::inRange(-40, 40);
  RC_ASSERT(SFormat("<%0*d|%*.*d|%-*.3d>", width, value, width, precision, value, width, value) ==
            Printf("<%0*d|%*.*d|%-*.3d>", width, value, width, precision, value, width, value));
}

TEST(Format, SceneNumbersArePadded) {
  EXPECT_EQ(SFormat("/s/shot_%04d.ma", 12), "/s/shot_0012.ma");
  EXPECT_EQ(SFormat("/s/shot_%04d.ma", 123456), "/s/shot_123456.ma");
  EXPECT_EQ(SFormat("/s/shot_%04d.ma", -1), "/s/shot_-001.ma");
  EXPECT_EQ(SFormat("%d-%d", std::numeric_limits<int>::min(), std::numeric_limits<int>::max()),
            "-2147483648-2147483647");
}

TEST(Format, EveryKindOfTextIsTaken) {
  EXPECT_EQ(SFormat(String("%s %s %s %s %s"), "a", String("b"), std::string("c"), std::string_view("d"),
                    Path("/e")),
            "a b c d /e");
  EXPECT_EQ(SFormat(Path("/x/%d"), 7), "/x/7");
  EXPECT_EQ(SFormat(std::string("%s"), static_cast<const char*>(nullptr)), "");
  EXPECT_EQ(SFormat(static_cast<const char*>(nullptr)), "");
}

TEST(Format, ArgumentsKeepTheirOwnWidth) {
  EXPECT_EQ(SFormat("%x", -1), "ffffffff");
  EXPECT_EQ(SFormat("%x", std::int64_t{-1}), "ffffffffffffffff");
  EXPECT_EQ(SFormat("%hhd %lld", 300, 300), "300 300");
  EXPECT_EQ(SFormat("%d", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(SFormat("%lld", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(SFormat("%.2f", 1.5F), "1.50");
  EXPECT_EQ(SFormat("%d", true), "1");
}

TEST(Format, PercentPairsGiveOnePercent) {
  EXPECT_EQ(SFormat("100%%"), "100%");
  EXPECT_EQ(SFormat("%%d", 1), "%d");
  EXPECT_EQ(SFormat("%%%d%%", 1), "%1%");
}

TEST(Format, ALonePercentIsCopied) {
  EXPECT_EQ(SFormat("%"), "%");
  EXPECT_EQ(SFormat("100%", 1), "100%");
  EXPECT_EQ(SFormat("%-08.3"), "%-08.3");
}

TEST(Format, WritingToMemoryDoesNothing) {
  EXPECT_EQ(SFormat("a%nb"), "ab");
  EXPECT_EQ(SFormat("%n%d%hhn%lln", 5), "5");
}

TEST(Format, AConversionWithoutArgumentIsCopied) {
  EXPECT_EQ(SFormat("%s"), "%s");
  EXPECT_EQ(SFormat("%d %d", 1), "1 %d");
  EXPECT_EQ(SFormat("%s%s%s%s%s%s%s%s"), "%s%s%s%s%s%s%s%s");
  EXPECT_EQ(SFormat("%-5.2f|%5c"), "%-5.2f|%5c");
}

TEST(Format, AConversionThatDoesNotFitIsCopiedAndUsesItsArgumentUp) {
  EXPECT_EQ(SFormat("%s", 5), "%s");
  EXPECT_EQ(SFormat("%d", "text"), "%d");
  EXPECT_EQ(SFormat("%d", 1.5), "%d");
  EXPECT_EQ(SFormat("%f", 1), "%f");
  EXPECT_EQ(SFormat("%c", "c"), "%c");
  EXPECT_EQ(SFormat("%s %s", 5, "end"), "%s end");
  EXPECT_EQ(SFormat("%5.1d|%d", "x", 2), "%5.1d|2");
}

TEST(Format, AnUnknownConversionIsCopiedAndUsesNothing) {
  EXPECT_EQ(SFormat("%1$d", 5), "%1$d");
  EXPECT_EQ(SFormat("%y %d", 5), "%y 5");
  EXPECT_EQ(SFormat("%p %m %ls", "x"), "%p %m x");
  EXPECT_EQ(SFormat("%5$%d", 5), "%5$5");
  EXPECT_EQ(SFormat("%'d", 5), "%'d");
}

TEST(Format, AStarNeedsAFittingArgument) {
  EXPECT_EQ(SFormat("%*d"), "%*d");
  EXPECT_EQ(SFormat("%*d", 5), "%*d");
  EXPECT_EQ(SFormat("%*d", 5, 7), "    7");
  EXPECT_EQ(SFormat("%*d", -5, 7), "7    ");
  EXPECT_EQ(SFormat("%.*d", 3, 7), "007");
  EXPECT_EQ(SFormat("%*d|%s", "wide", 7, "end"), "%*d|end");
  EXPECT_EQ(SFormat("%.*f|%s", 1.5, 2.5, "end"), "%.*f|end");
  EXPECT_EQ(SFormat("%*.*d|%s", 3, "x", 7, "end"), "%*.*d|end");
}

TEST(Format, WidthAndPrecisionAreCut) {
  EXPECT_EQ(SFormat("%999999999d", 7), std::string(k_FormatWidthLimit - 1, ' ') + "7");
  EXPECT_EQ(SFormat("%-99999999999999999999s|", "x"), "x" + std::string(k_FormatWidthLimit - 1, ' ') + "|");
  EXPECT_EQ(SFormat("%.999999999d", 7), std::string(k_FormatWidthLimit - 1, '0') + "7");
  EXPECT_EQ(SFormat("%*d", std::numeric_limits<int>::max(), 7),
            std::string(k_FormatWidthLimit - 1, ' ') + "7");
  EXPECT_EQ(SFormat("%*d", std::numeric_limits<int>::min(), 7),
            "7" + std::string(k_FormatWidthLimit - 1, ' '));
  EXPECT_EQ(SFormat("%*d", std::numeric_limits<std::uint64_t>::max(), 7),
            std::string(k_FormatWidthLimit - 1, ' ') + "7");
  EXPECT_EQ(SFormat("%999999999.999999999f", 1e308).size(), 309U + 1U + k_FormatWidthLimit);
  EXPECT_EQ(SFormat("%999999999d"), "%999999999d");
}

TEST(Format, NulBytesArePlain) {
  EXPECT_EQ(SFormat(String("a\0%d\0", 5), 7), String("a\0"
                                                     "7\0",
                                                     4));
  EXPECT_EQ(SFormat("%s", String("a\0b", 3)), String("a\0b", 3));
  EXPECT_EQ(SFormat(String("%\0d", 3), 7), String("%\0d", 3));
  EXPECT_EQ(SFormat(String("%5\0d", 4), 7), String("%5\0d", 4));
  EXPECT_EQ(SFormat("%c", 0), String("\0", 1));
}

TEST(Format, BytesBeyondAsciiArePlain) {
  EXPECT_EQ(SFormat("\xC3\xA9%s\xFF", "\x80"), "\xC3\xA9\x80\xFF");
  EXPECT_EQ(SFormat("%\xC3\xA9", 1), "%\xC3\xA9");
}

// Any format with any arguments: no crash, and a result in proportion to what
// was given.
RC_GTEST_PROP(Format, HostileFormatsStayBounded, ()) {
  const std::string format =
      *rc::gen::oneOf(Texts(0), TextsOf({"%",    "%",   "*", ".",         "-", "+", " ",
                                         "#",    "0",   "9", "999999999", "d", "s", "n",
                                         "x",    "c",   "f", "a",         "g", "l", "hh",
                                         "L",    "z",   "$", "1$",        "u", "o", std::string(1, '\0'),
                                         "\xFF", "text"}));
  const std::string text = *Texts(0);
  const auto kinds = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 4));
  std::vector<FormatArgument> arguments;
  for (const int kind : kinds) {
    switch (kind) {
    case 0:
      arguments.emplace_back(*rc::gen::arbitrary<int>());
      break;
    case 1:
      arguments.emplace_back(*rc::gen::arbitrary<std::uint64_t>());
      break;
    case 2:
      arguments.emplace_back(*rc::gen::arbitrary<double>());
      break;
    default:
      arguments.emplace_back(text);
      break;
    }
  }
  const String result = FormatArguments(format, arguments.data(), arguments.size());
  const auto conversions = static_cast<std::size_t>(std::count(format.begin(), format.end(), '%'));
  const std::size_t most = 309 + 2 * static_cast<std::size_t>(k_FormatWidthLimit) + text.size();
  RC_ASSERT(result.size() <= format.size() + conversions * most);
}

TEST(Format, AHostileWidthAllocatesLittle) {
  StartAllocationWatch();
  const String result = SFormat("%999999999d%.999999999s%*d", 1, "x", 999999999, 2);
  EXPECT_LE(LargestAllocation(), 16384U);
  EXPECT_EQ(result.size(), 2 * static_cast<std::size_t>(k_FormatWidthLimit) + 1);
}

} // namespace
