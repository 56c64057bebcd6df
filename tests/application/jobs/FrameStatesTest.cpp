#include "host/application/jobs/FrameStates.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

TEST(FrameStates, NeighboursInOneStateCostOneEntry) {
  FrameStates states;
  for (int frame = 0; frame < 20000; frame += 2) {
    states.Set({frame, frame + 1}, 7);
    ASSERT_EQ(states.Size(), 1U);
  }
  EXPECT_EQ(states.Count(7), 20000);
  EXPECT_EQ(states.Of(19999), 7);
  EXPECT_EQ(states.Of(20000), std::nullopt);
  EXPECT_EQ(states.Of(-1), std::nullopt);
}

TEST(FrameStates, WorkThatWasCutHasStatesOfItsParts) {
  FrameStates states;
  states.Set({1, 10}, 5);
  states.Set({4, 6}, 2);
  EXPECT_EQ(states.Count(5), 7);
  EXPECT_EQ(states.Count(2), 3);
  EXPECT_EQ(states.Of(3), 5);
  EXPECT_EQ(states.Of(4), 2);
  EXPECT_EQ(states.Of(6), 2);
  EXPECT_EQ(states.Of(7), 5);
  EXPECT_EQ(states.Size(), 3U);
  states.Set({4, 6}, 5);
  EXPECT_EQ(states.Size(), 1U);
  EXPECT_EQ(states.Count(2), 0);
}

TEST(FrameStates, EndsOf32BitsAreFrames) {
  constexpr int least = std::numeric_limits<int>::min();
  constexpr int most = std::numeric_limits<int>::max();
  FrameStates states;
  states.Set({least, most}, 1);
  EXPECT_EQ(states.Count(1), std::int64_t{1} << 32);
  states.Set({most, most}, 7);
  states.Set({least, least}, 7);
  EXPECT_EQ(states.Count(7), 2);
  EXPECT_EQ(states.Count(1), (std::int64_t{1} << 32) - 2);
  EXPECT_EQ(states.Of(most), 7);
  EXPECT_EQ(states.Of(least), 7);
  states.Set({most, least}, 3); // no run at all
  EXPECT_EQ(states.Count(3), 0);
}

RC_GTEST_PROP(FrameStates, AgreeWithATableOfAllFrames, ()) {
  std::vector<std::optional<int>> table(30);
  FrameStates states;
  const auto steps = *rc::gen::inRange(1, 40);
  for (int step = 0; step < steps; ++step) {
    const int first = *rc::gen::inRange(0, 30);
    const int last = *rc::gen::inRange(first, 30);
    const int state = *rc::gen::inRange(1, 4);
    states.Set({first, last}, state);
    std::fill(table.begin() + first, table.begin() + last + 1, state);
  }
  std::size_t runs = 0;
  for (int frame = 0; frame < 30; ++frame) {
    const auto place = static_cast<std::size_t>(frame);
    RC_ASSERT(states.Of(frame) == table[place]);
    runs += table[place].has_value() && (frame == 0 || table[place - 1] != table[place]) ? 1U : 0U;
  }
  RC_ASSERT(states.Size() == runs);
  for (int state = 1; state < 4; ++state) {
    RC_ASSERT(states.Count(state) == std::count(table.begin(), table.end(), std::optional<int>(state)));
  }
}

} // namespace
