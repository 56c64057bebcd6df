#include "trovik/records/PacketPlan.h"

#include <gtest/gtest.h>

#include <cmath>

namespace trovik {
namespace {

const std::vector<TimedPacket> seen = {{1, 2.1}, {16, 3.6}, {200, 22}};

std::int64_t frames(const std::vector<TimedPacket>& packets, PacketMoment moment, PacketAim aim = {}) {
  return packetFrames(frameCosts(packets), aim, moment);
}

TEST(PacketPlan, StartAndFramesAreToldApartByPacketsOfDifferentLengths) {
  const FrameCosts costs = frameCosts(seen).value();
  EXPECT_NEAR(costs.start, 2, 1e-6);
  EXPECT_NEAR(costs.frame, 0.1, 1e-6);
  EXPECT_NEAR(costs.spread, 0, 1e-6);
  EXPECT_EQ(costs.longest, 200);
}

TEST(PacketPlan, WithoutAPacketThereAreNoCostsAndTheFirstHasOneFrame) {
  EXPECT_FALSE(frameCosts({}));
  EXPECT_EQ(frames({}, {.left = 1000}), 1);
}

TEST(PacketPlan, PacketsOfOneLengthCountAsFramesAlone) {
  const FrameCosts costs = frameCosts({{4, 8}, {4, 12}}).value();
  EXPECT_EQ(costs.start, 0);
  EXPECT_NEAR(costs.frame, 2.3, 0.1) << "short ones count for more";
  EXPECT_NEAR(costs.spread, 0.2, 0.05);
}

TEST(PacketPlan, NoTimesGiveCostsBelowNothing) {
  // Later frames were quicker, or slower, than the first.
  for (const double longer : {0.5, 2.0, 100.0}) {
    const FrameCosts costs = frameCosts({{1, 10}, {10, 10 * longer}}).value();
    EXPECT_GE(costs.start, 0) << longer;
    EXPECT_GT(costs.frame, 0) << longer;
    EXPECT_TRUE(std::isfinite(costs.spread)) << longer;
  }
}

TEST(PacketPlan, PacketTakesItsTime) {
  EXPECT_EQ(frames(seen, {.left = 10'000, .more = true}), 580);
  EXPECT_EQ(frames(seen, {.left = 10'000, .more = true}, {.time = 12}), 100);
  EXPECT_EQ(frames(seen, {.left = 1000}), 500) << "two of the same length";
}

TEST(PacketPlan, LimitOfTheTimeHoldsWhateverAStartTakes) {
  const std::vector<TimedPacket> slow = {{1, 50.1}, {16, 51.6}};
  EXPECT_EQ(frames(slow, {.left = 10'000, .more = true}), 148)
      << "a start may cost a fifth, but should it be a slow frame, this takes eight minutes";
  EXPECT_EQ(frames(slow, {.left = 10'000, .more = true}, {.time = 60, .most = 60}), 100);
}

TEST(PacketPlan, SeveralFirstPacketsTellStartsFromFrames) {
  EXPECT_EQ(frames({}, {.left = 1000, .busy = {0}, .longest = 1}), 2);
  EXPECT_EQ(frames({}, {.left = 12, .busy = {0}, .longest = 1}), 1) << "too few are left for a longer one";
}

TEST(PacketPlan, SlowFrameIsNotTakenForAStart) {
  // The second packet had twice the frames, and was quicker by chance.
  EXPECT_EQ(frames({{1, 3600}, {2, 3000}}, {.left = 10'000, .more = true}), 1);
}

TEST(PacketPlan, GrowsBySixteenAtMost) {
  EXPECT_EQ(frames({{1, 0.001}}, {.left = 100'000}), 16);
}

TEST(PacketPlan, FramesThatAreLeftAreSharedAmongTheSlots) {
  EXPECT_EQ(frames(seen, {.left = 100, .free = 2}), 50);
  EXPECT_EQ(frames(seen, {.left = 100, .busy = {7}, .free = 1}), 85)
      << "the other is free in 7 seconds, pays for a start and does 15";
  EXPECT_EQ(frames(seen, {.left = 100, .busy = {600}, .free = 1}), 100) << "the other is free too late";
}

TEST(PacketPlan, LastOneIsHalvedWhereItsTimeIsUnsure) {
  const std::vector<TimedPacket> unlike = {{1, 0.2}, {16, 1.0}, {16, 2.6}};
  const std::int64_t sure = frames({{1, 0.2}, {16, 1.7}}, {.left = 100, .free = 1});
  EXPECT_EQ(sure, 100);
  EXPECT_LT(frames(unlike, {.left = 100, .free = 1}), 60);
}

TEST(PacketPlan, NeverMoreThanIsLeftNorLessThanOne) {
  EXPECT_EQ(frames(seen, {.left = 3, .free = 64}), 1);
  EXPECT_EQ(frames(seen, {.left = 2, .free = 1}), 2);
  EXPECT_EQ(frames({{1, 1e6}}, {.left = 3}), 1);
  EXPECT_EQ(frames(seen, {.left = 0}), 1);
}

} // namespace
} // namespace trovik
