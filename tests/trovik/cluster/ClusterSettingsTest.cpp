#include "trovik/cluster/ClusterSettings.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

TEST(ClusterMemory, IsMebibytesUnlessAUnitIsNamed) {
  EXPECT_EQ(memoryOf("ClusterMemory", ""), 0);
  EXPECT_EQ(memoryOf("ClusterMemory", "  "), 0);
  EXPECT_EQ(memoryOf("ClusterMemory", "500"), 500);
  EXPECT_EQ(memoryOf("ClusterMemory", "500M"), 500);
  EXPECT_EQ(memoryOf("ClusterMemory", " 4G "), 4096);
  EXPECT_EQ(memoryOf("ClusterMemory", "4 gib"), 4096);
  EXPECT_EQ(memoryOf("ClusterMemory", "2t"), 2 * 1024 * 1024);
  EXPECT_EQ(memoryOf("ClusterMemory", "1.5GB"), 1536);
  EXPECT_EQ(memoryOf("ClusterMemory", "0.1G"), 103) << "rounded up";
  EXPECT_EQ(memoryOf("ClusterMemory", "1024T"), std::int64_t{1} << 30);
}

TEST(ClusterMemory, WhatIsNoneIsRefusedWithItsText) {
  for (const char* text : {"4X", "G", "-1G", "4GG", "1e3", "inf", "nan", "0x10", "4,5G", "1025T",
                           "4G --mem=1", "99999999999999999999999999", "\xff"}) {
    const Refusal error = refusalOf([&] { memoryOf("ClusterMemory", text); });
    EXPECT_EQ(error.hint, "write 500M, 4G or 1T; a number alone is MiB") << text;
  }
  EXPECT_EQ(refusalOf([] { memoryOf("ClusterMemory", "4X"); }).message,
            "ClusterMemory: \"4X\" is no amount of memory");
  const Refusal none = refusalOf([] { memoryOf("ClusterMemory", "0G"); });
  EXPECT_EQ(none.message, "ClusterMemory: \"0G\" is no memory at all");
  EXPECT_EQ(none.hint, "leave it empty for the share that belongs to the CPUs of a work");
}

TEST(ClusterTime, TheTextOfTheTimeLimitCountsFirst) {
  EXPECT_EQ(minutesOf("90", 600, 5), 2) << "rounded up";
  EXPECT_EQ(minutesOf(" 2h ", 600, 5), 120);
  EXPECT_EQ(minutesOf("0", 600, 5), 0);
  EXPECT_EQ(minutesOf("99999999999999999999d", 0, 1), 366 * 24 * 60);
  const Refusal error = refusalOf([] { minutesOf("soon", 600, 5); });
  EXPECT_EQ(error.message, "ClusterTimeLimit: \"soon\" is no duration");
  EXPECT_EQ(error.hint, "write seconds, or a number with s, m, h or d");
}

TEST(ClusterTime, WithoutOneEveryWorkOfATaskReachesItsOwnLimitFirst) {
  EXPECT_EQ(minutesOf("", 0, 5), 0);
  EXPECT_EQ(minutesOf(" ", 600, 1), 15);
  EXPECT_EQ(minutesOf("", 600, 10), 114);
  EXPECT_EQ(minutesOf("", 1e300, 10), 366 * 24 * 60);
}

} // namespace
} // namespace trovik
