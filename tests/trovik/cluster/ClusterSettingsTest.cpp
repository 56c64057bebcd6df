#include "trovik/cluster/ClusterSettings.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

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
