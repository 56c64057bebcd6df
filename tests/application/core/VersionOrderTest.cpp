#include "host/application/VersionOrder.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

TEST(VersionOrder, ReadsNumbersAsNumbersAndPreReleasesAsEarlier) {
  const std::vector<std::string> ascending = {
      "blender-2.79",      "blender-2.79b",      "blender-4.0-dev",   "blender-4.0-alpha",
      "blender-4.0-beta2", "blender-4.0-beta10", "blender-4.0-pre",   "blender-4.0-rc1",
      "blender-4.0-RC2",   "blender-4.0",        "blender-4.0-linux", "blender-4.0.1",
      "blender-4.9",       "blender-4.10",       "blender-20230401",  "blender-99999999999999999999999"};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      const int order = CompareVersions(ascending[i], ascending[j]);
      EXPECT_EQ(order < 0, i < j) << ascending[i] << " " << ascending[j];
      EXPECT_EQ(order > 0, i > j) << ascending[i] << " " << ascending[j];
    }
  }
}

TEST(VersionOrder, OrdersNamesThatReadTheSameByTheirBytes) {
  EXPECT_LT(CompareVersions("a-4.1", "a4.1"), 0);
  EXPECT_LT(CompareVersions("a4.01", "a4.1"), 0);
  EXPECT_GT(CompareVersions("a4.1", "A4.1"), 0);
  EXPECT_EQ(CompareVersions("a4.1", "a4.1"), 0);
  EXPECT_EQ(CompareVersions("", ""), 0);
  EXPECT_LT(CompareVersions("", "-"), 0);
}

TEST(VersionOrder, TakesOnlyWholeWordsForPreReleases) {
  EXPECT_GT(CompareVersions("4.1-alphabet", "4.1"), 0);
  EXPECT_LT(CompareVersions("4.1-alpha", "4.1"), 0);
  EXPECT_LT(CompareVersions("4.1alpha", "4.1"), 0);
}

TEST(VersionOrder, StandsNamesOfAMegabyte) {
  const std::string digits(1 << 20, '9');
  EXPECT_LT(CompareVersions(digits, digits + "0"), 0);
}

rc::Gen<std::string> Names() {
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
                          "1", "2", "10", "01", "0", ".", "-", "alpha", "RC", "rc", "dev", "a", "B", "x")),
                      [](const std::vector<std::string>& pieces) {
                        std::string name;
                        for (const std::string& piece : pieces) {
                          name += piece;
                        }
                        return name;
                      });
}

RC_GTEST_PROP(VersionOrder, IsAnOrderThatSortsCanRelyOn, ()) {
  const std::string a = *Names();
  const std::string b = *Names();
  const std::string c = *Names();
  RC_ASSERT((CompareVersions(a, b) < 0) == (CompareVersions(b, a) > 0));
  RC_ASSERT((CompareVersions(a, b) == 0) == (a == b));
  if (CompareVersions(a, b) < 0 && CompareVersions(b, c) < 0) {
    RC_ASSERT(CompareVersions(a, c) < 0);
  }
}

} // namespace
