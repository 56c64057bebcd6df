#include "trovik/reports/CoveredTime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace trovik {
namespace {

using std::chrono::microseconds;

Moment at(int time) {
  return Moment(microseconds(time));
}

TEST(CoveredTime, NothingCoversNothing) {
  EXPECT_EQ(CoveredTime().length(), Duration());
  CoveredTime time;
  time.add(at(5), at(5));
  time.add(at(9), at(3)); // ends before it begins
  EXPECT_EQ(time.length(), Duration());
}

TEST(CoveredTime, WhatOverlapsCountsOnce) {
  CoveredTime time;
  time.add(at(100), at(130));
  time.add(at(10), at(20));
  time.add(at(15), at(30));
  time.add(at(30), at(35));
  time.add(at(110), at(120));
  EXPECT_EQ(time.length(), microseconds(25 + 30));
  EXPECT_EQ(time.begin(), at(10));
  EXPECT_EQ(time.end(), at(130));
  time.add(at(0), at(200)); // goes on after it was asked
  EXPECT_EQ(time.length(), microseconds(200));
}

TEST(CoveredTime, IsThatOfEachMomentByItself) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr int moments = 20000;
  for (const int longest : {2, 20, 2000}) {
    std::vector<bool> covered(moments, false);
    std::array<CoveredTime, 3> parts;
    CoveredTime whole;
    int begin = 0;
    for (int i = 0; i < 5000; ++i) { // more than are joined at once
      // In order or not, with gaps or none.
      begin = i % 4 == 0 ? static_cast<int>(random() % moments)
                         : (begin + static_cast<int>(random() % 5)) % moments;
      const int end = std::min(moments, begin + static_cast<int>(random() % static_cast<unsigned>(longest)));
      std::fill(covered.begin() + begin, covered.begin() + std::max(begin, end), true);
      whole.add(at(begin), at(end));
      parts[random() % parts.size()].add(at(begin), at(end));
    }
    const microseconds expected(std::count(covered.begin(), covered.end(), true));
    EXPECT_EQ(whole.length(), expected);
    EXPECT_EQ(CoveredTime::length({&parts[0], &parts[1], &parts[2]}), expected);
  }
}

TEST(CoveredTime, OfManyYearsIsCutNotWrong) {
  constexpr microseconds year(std::int64_t{31'557'600} * 1'000'000);
  CoveredTime time;
  for (int i = 0; i < 8000; ++i) {
    time.add(Moment(2 * i * year), Moment((2 * i + 1) * year));
  }
  EXPECT_EQ(time.length(), std::chrono::duration_cast<microseconds>(Duration::max()));
}

} // namespace
} // namespace trovik
