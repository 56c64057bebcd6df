#include "module/SequencePattern.h"

#include "host/foundation/Format.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

namespace {

void ExpectNamesOfSFormat(const char* head, int digits, const char* tail) {
  SequencePattern pattern(head, digits, tail);
  EXPECT_EQ(pattern.Text(), SFormat("%s%%0%dd%s", head, digits, tail));
  std::mt19937 random(7);
  std::vector<int> frames{0,   1,   -1,   9,   10,   -9,      -10,     99,
                          100, -99, -100, 999, 1000, INT_MAX, INT_MIN, INT_MIN + 1};
  for (int i = 0; i < 200; ++i) {
    frames.push_back(static_cast<int>(random()) >> (random() % 32));
  }
  for (int frame : frames) {
    EXPECT_EQ(pattern.Name(frame), SFormat(pattern.Text(), frame)) << pattern.Text() << " " << frame;
  }
}

TEST(SequencePatternTest, NamesAreThoseOfSFormat) {
  for (int digits : {1, 2, 3, 4, 9, 10, 11, 12, 20, 250, k_FormatWidthLimit, k_FormatWidthLimit + 1, 99999}) {
    ExpectNamesOfSFormat("/s/shot_", digits, ".ma");
    ExpectNamesOfSFormat("", digits, "");
  }
}

TEST(SequencePatternTest, PercentInTheNameIsLeftToSFormat) {
  for (const char* text :
       {"%", "%%", "%d", "%5", "%n", "%s", "%c", "%hhd", "50%", "%999999999d", "%*d", "%1$d"}) {
    ExpectNamesOfSFormat(text, 3, ".ma");
    ExpectNamesOfSFormat("/s/", 3, text);
    ExpectNamesOfSFormat(text, 3, text);
  }
}

} // namespace
