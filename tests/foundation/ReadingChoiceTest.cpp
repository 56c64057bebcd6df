#include "host/foundation/folder/ReadingChoice.h"
#include "host/foundation/folder/FolderNames.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

constexpr ReadingChoice::Time k_FromMemory = 300ns;
constexpr ReadingChoice::Time k_FromDisk = 100us;

/// A choice after so many answers that took so long each.
ReadingChoice After(std::uint64_t size, int answers, ReadingChoice::Time each) {
  ReadingChoice choice(size, k_FromMemory);
  for (int i = 0; i < answers; ++i) {
    choice.Add(each);
  }
  return choice;
}

/// The answers until the first look far.
int AnswersBeforeLook(std::uint64_t size, ReadingChoice::Time each) {
  int answers = 0;
  while (!After(size, answers, each).IsTimeToLookFar()) {
    ++answers;
  }
  return answers;
}

TEST(ReadingChoice, ASmallFolderIsReadAtOnceAndALargerOneWhereTheDiskIsAsked) {
  EXPECT_TRUE(ReadingChoice(4096, k_FromMemory).IsSmall());
  EXPECT_TRUE(ReadingChoice(28 << 10, k_FromMemory).IsSmall());
  EXPECT_FALSE(ReadingChoice(48 << 10, k_FromMemory).IsSmall());
  EXPECT_TRUE(ReadingChoice(48 << 10, k_FromDisk).IsSmall());
  EXPECT_FALSE(ReadingChoice(400 << 10, k_FromDisk).IsSmall());
}

TEST(ReadingChoice, InMemoryAnAnswerIsWorthAboutTwoNamesAndOnADiskABlock) {
  EXPECT_EQ(After(64'000, 4, k_FromMemory).BreakEven(), 1001U);
  EXPECT_EQ(After(4'096'000, 4, k_FromDisk).BreakEven(), 1001U);
}

TEST(ReadingChoice, MostAnswersTellSoThatOneThatWasDisturbedDoesNot) {
  ReadingChoice choice(256 << 10, k_FromMemory);
  choice.Add(k_FromMemory);
  choice.Add(k_FromMemory);
  choice.Add(10ms);
  EXPECT_EQ(choice.BreakEven(), 4097U);
  choice.Add(10ms);
  EXPECT_EQ(choice.BreakEven(), 65U);
}

TEST(ReadingChoice, ALookFarComesAfterAThirtySecondOfWhatReadingCosts) {
  EXPECT_EQ(AnswersBeforeLook(100 << 10, k_FromDisk), 2);
  EXPECT_EQ(AnswersBeforeLook(400 << 10, k_FromDisk), 3);
  EXPECT_EQ(AnswersBeforeLook(40 << 20, k_FromDisk), 8);
  EXPECT_EQ(AnswersBeforeLook(400 << 10, k_FromMemory), 8);
}

TEST(ReadingChoice, WhatWasAskedForAsOftenAsReadingCostsIsPaid) {
  for (const auto each : {k_FromMemory, k_FromDisk}) {
    ReadingChoice choice = After(256 << 10, ReadingChoice::k_Measured, each);
    EXPECT_FALSE(choice.IsMeasuring());
    for (std::uint64_t answers = ReadingChoice::k_Measured; answers < choice.BreakEven(); ++answers) {
      ASSERT_FALSE(choice.IsPaid());
      choice.Add();
    }
    EXPECT_TRUE(choice.IsPaid());
  }
}

TEST(NumberedName, ANameBesideHasTheOtherNumberAndAsManyDigitsOrMore) {
  const auto beside = [](const char* name, std::int64_t distance) {
    return NumberedName(name).Beside(distance);
  };
  EXPECT_EQ(beside("a2_007.x", 5), "a2_012.x");
  EXPECT_EQ(beside("a2_007.x", -7), "a2_000.x");
  EXPECT_EQ(beside("a2_007.x", 1000), "a2_1007.x");
  EXPECT_EQ(beside("12", 1), "13");
  EXPECT_EQ(beside("a2_007.x", -8), "");
  EXPECT_EQ(beside("none", 1), "");
  EXPECT_EQ(beside("", 1), "");
  EXPECT_EQ(beside("a999999999", 1), "");
  EXPECT_EQ(beside("a0000000001", 1), "");
  EXPECT_EQ(beside("a1", std::int64_t{1} << 40), "");
}

} // namespace
