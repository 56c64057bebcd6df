#include "trovik/records/RunSet.h"

#include <gtest/gtest.h>

#include <limits>

namespace trovik {
namespace {

TEST(RunSet, NeighboursBecomeOneRun) {
  RunSet set;
  set.add({5, 6});
  set.add({1, 2});
  set.add({3, 4});
  EXPECT_EQ(set.text(), "1-6");
  EXPECT_EQ(set.count(), 6U);
}

TEST(RunSet, OverlapsCountOnce) {
  RunSet set;
  set.add({1, 10});
  set.add({5, 15});
  set.add({3, 4});
  EXPECT_EQ(set.text(), "1-15");
  EXPECT_EQ(set.count(), 15U);
}

TEST(RunSet, ARunCanSwallowSeveral) {
  RunSet set;
  set.add({1, 1});
  set.add({3, 3});
  set.add({5, 5});
  set.add({2, 4});
  EXPECT_EQ(set.text(), "1-5");
  EXPECT_EQ(set.count(), 5U);
}

TEST(RunSet, GapsStay) {
  RunSet set;
  set.add({9, 9});
  set.add({-3, -1});
  set.add({4, 5});
  EXPECT_EQ(set.text(), "-3--1,4-5,9");
}

TEST(RunSet, LongTextsCountTheRest) {
  RunSet set;
  for (int frame = 1; frame < 20; frame += 2) {
    set.add({frame, frame});
  }
  EXPECT_EQ(set.text(3), "1,3,5 and 7 more");
  EXPECT_EQ(set.text(10), "1,3,5,7,9,11,13,15,17,19");
}

TEST(RunSet, EndsOfTheIntegersDoNotOverflow) {
  RunSet set;
  set.add({std::numeric_limits<int>::max(), std::numeric_limits<int>::max()});
  set.add({std::numeric_limits<int>::min(), std::numeric_limits<int>::min()});
  EXPECT_EQ(set.text(), "-2147483648,2147483647");
  EXPECT_EQ(set.count(), 2U);
  set.add({std::numeric_limits<int>::min(), std::numeric_limits<int>::max()});
  EXPECT_EQ(set.text(), "-2147483648-2147483647");
  EXPECT_EQ(set.count(), std::size_t{1} << 32U);
}

TEST(RunSet, BackwardRunAddsNothing) {
  RunSet set;
  set.add({5, 4});
  EXPECT_TRUE(set.empty());
}

TEST(RunSet, SetsCanBeJoined) {
  RunSet left;
  left.add({1, 3});
  RunSet right;
  right.add({4, 4});
  left.add(right);
  EXPECT_EQ(left.text(), "1-4");
}

} // namespace
} // namespace trovik
