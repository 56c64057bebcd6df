#include "trovik/machine/IdleCores.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

TEST(IdleCores, AreThoseThatNobodyElseRunsOn) {
  EXPECT_EQ(idleCores(0, 8, 8, "0.20 0.18 0.12 1/80 11206\n"), 8U) << "only this process runs";
  EXPECT_EQ(idleCores(0, 8, 8, "0.20 0.18 0.12 4/80 11206\n"), 5U);
  EXPECT_EQ(idleCores(2, 8, 8, "0.20 0.18 0.12 6/80 11206\n"), 5U) << "with two of our own";
  EXPECT_EQ(idleCores(2, 8, 8, "0.20 0.18 0.12 1/80 11206\n"), 8U) << "which wait for a disk";
}

TEST(IdleCores, AreOneAtLeast) {
  EXPECT_EQ(idleCores(0, 2, 2, "9.20 9.18 9.12 3/80 11206\n"), 1U);
  EXPECT_EQ(idleCores(0, 2, 2, "9.20 9.18 9.12 400/800 11206\n"), 1U);
  EXPECT_EQ(idleCores(0, 2, 2, "nothing of the kind"), 1U);
  EXPECT_EQ(idleCores(0, 2, 2, ""), 1U);
}

TEST(IdleCores, AreNoMoreThanThisProcessMayUse) {
  EXPECT_EQ(idleCores(0, 64, 4, "0.20 0.18 0.12 21/80 11206\n"), 4U);
  EXPECT_EQ(idleCores(0, 64, 4, "0.20 0.18 0.12 63/80 11206\n"), 2U);
}

TEST(IdleCores, OfThisMachineAreBetweenOneAndAll) {
  EXPECT_GE(idleCores(0), 1U);
  EXPECT_LE(idleCores(0), 100'000U);
}

} // namespace
} // namespace trovik
