#include "trovik/text/Amounts.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/text/Text.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

TEST(Memory, IsMebibytesUnlessAUnitIsNamed) {
  EXPECT_EQ(memoryOf("Memory", "", "for nothing"), 0);
  EXPECT_EQ(memoryOf("Memory", "  ", "for nothing"), 0);
  EXPECT_EQ(memoryOf("Memory", "500", "for nothing"), 500);
  EXPECT_EQ(memoryOf("Memory", "500M", "for nothing"), 500);
  EXPECT_EQ(memoryOf("Memory", " 4G ", "for nothing"), 4096);
  EXPECT_EQ(memoryOf("Memory", "4 gib", "for nothing"), 4096);
  EXPECT_EQ(memoryOf("Memory", "2t", "for nothing"), 2 * 1024 * 1024);
  EXPECT_EQ(memoryOf("Memory", "1.5GB", "for nothing"), 1536);
  EXPECT_EQ(memoryOf("Memory", "0.1G", "for nothing"), 103) << "rounded up";
  EXPECT_EQ(memoryOf("Memory", "1024T", "for nothing"), std::int64_t{1} << 30);
}

TEST(Memory, WhatIsNoneIsRefusedWithItsText) {
  for (const char* text : {"4X", "G", "-1G", "4GG", "1e3", "inf", "nan", "0x10", "4,5G", "1025T",
                           "4G --mem=1", "99999999999999999999999999", "\xff"}) {
    const Refusal error = refusalOf([&] { memoryOf("Memory", text, "for nothing"); });
    EXPECT_EQ(error.hint, "write 500M, 4G or 1T; a number alone is MiB") << text;
  }
  EXPECT_EQ(refusalOf([] { memoryOf("Memory", "4X", "for nothing"); }).message,
            "Memory: \"4X\" is no amount of memory");
  const Refusal none = refusalOf([] { memoryOf("Memory", "0G", "for nothing"); });
  EXPECT_EQ(none.message, "Memory: \"0G\" is no memory at all");
  EXPECT_EQ(none.hint, "leave it empty for nothing");
}

using Amounts = std::vector<std::pair<std::string, int>>;

TEST(Amounts, AreNamesWithNumbersOneWhereThereIsNone) {
  EXPECT_EQ(amountsOf("Limits", ""), Amounts{});
  EXPECT_EQ(amountsOf("Limits", "Renderer; floating = 2,disk=1 ;"),
            (Amounts{{"disk", 1}, {"floating", 2}, {"renderer", 1}}));
}

TEST(Amounts, WhatIsNoneIsRefusedWithItsPiece) {
  for (const char* text : {"=2", "a=", "a=0", "a=-1", "a=two", "a b", "-a", "a:2", "a=1000001", "\"a\""}) {
    EXPECT_EQ(refusalOf([&] { amountsOf("Limits", text); }).message,
              std::string("Limits: ") + inQuotes(text) + " is no part of a limit");
  }
  EXPECT_EQ(refusalOf([] { amountsOf("Limits", "a;b;A=2"); }).message, "Limits: \"a\" is named twice");
}

} // namespace
} // namespace trovik
