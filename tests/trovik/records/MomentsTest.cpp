#include "trovik/records/Moments.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>

namespace trovik {
namespace {

using namespace std::chrono_literals;
using Microseconds = std::chrono::microseconds;

constexpr Moment begin{Microseconds(1'700'000'000'000'000)};
constexpr Duration hundredYears{std::int64_t{3'155'760'000} * 1'000'000'000};

TEST(Moments, AgesAreToldInOneUnit) {
  EXPECT_EQ(ageText(begin, begin + 59s), "59 s");
  EXPECT_EQ(ageText(begin, begin + 60s), "1 min");
  EXPECT_EQ(ageText(begin, begin + 3599s), "59 min");
  EXPECT_EQ(ageText(begin, begin + 47h), "47 h");
  EXPECT_EQ(ageText(begin, begin + 48h), "2 d");
}

TEST(Moments, AClockThatWasPutBackGivesNoNegativeAge) {
  EXPECT_EQ(ageText(begin, begin - 1h), "0 s");
  EXPECT_EQ(between(begin, begin - 1h), Duration::zero());
}

TEST(Moments, AreWrittenInTheMachinesTimeZone) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(momentText(begin), "2023-11-14 22:13:20");
}

TEST(Moments, WhatNoClockCouldHaveGivenIsCut) {
  const Microseconds least = Microseconds::min();
  const Microseconds most = Microseconds::max();
  EXPECT_EQ(durationOf(most), hundredYears);
  EXPECT_EQ(durationOf(least), Duration::zero());
  EXPECT_EQ(durationOf(Microseconds(1500)), Duration(1'500'000));
  EXPECT_EQ(between(Moment(least), Moment(most)), hundredYears);
  EXPECT_EQ(between(Moment(most), Moment(least)), Duration::zero());
  EXPECT_EQ(momentText(Moment(most)).empty(), false);
}

TEST(Moments, SecondsAreToldToTheMillisecond) {
  EXPECT_EQ(secondsOf(begin + 1234ms), 1'700'000'001.234);
  EXPECT_EQ(secondsOf(Duration(1'234'567'890)), 1.234);
}

} // namespace
} // namespace trovik
