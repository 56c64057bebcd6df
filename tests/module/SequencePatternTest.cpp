#include "job/SequencePattern.h"

#include "host/foundation/Format.h"
#include "host/foundation/Quoting.h"

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

TEST(SequencePatternTest, OnlyTextsWithOnePlainNumberAreRead) {
  for (const char* text : {"/s/a_%04d.ma", "%01d", "%0250d.x", "a\"b %03d'"}) {
    ASSERT_TRUE(SequencePattern::Read(text)) << text;
    EXPECT_EQ(SequencePattern::Read(text)->Text(), text);
  }
  for (const char* text :
       {"",     "a",      "%",      "%d",       "%4d",  "%0d",   "%00d",    "%004d", "%0-4d", "%+04d", "%04",
        "%04x", "%04dd%", "%%%04d", "%04d%04d", "%04i", "%04ld", "%02000d", "% 04d", "d%04",  "%0 4d"}) {
    EXPECT_FALSE(SequencePattern::Read(text)) << text;
  }
}

TEST(SequencePatternTest, RandomNamesAreThoseOfSFormatAndEnquotedAlike) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const char* const pieces[] = {"a",  "/",  "s_", "d", "0",    "-", " ", "\"",
                                "\\", "$(", "`",  "'", "\xff", "=", "\n"};
  for (int round = 0; round < 1000; ++round) {
    String parts[2];
    for (String& part : parts) {
      for (auto count = random() % 4; count > 0; --count) {
        part += pieces[random() % std::size(pieces)];
      }
    }
    const String text = parts[0] + "%0" + std::to_string(1 + random() % 12) + "d" + parts[1];
    const auto pattern = SequencePattern::Read(text);
    ASSERT_TRUE(pattern) << text;
    const SequencePattern enquoted = pattern->Enquoted();
    for (int i = 0; i < 10; ++i) {
      const int frame = static_cast<int>(random()) >> (random() % 32);
      String names = "x";
      pattern->AppendName(frame, names);
      enquoted.AppendName(frame, names);
      const String name = SFormat(text, frame);
      ASSERT_EQ(names, "x" + name + EnquoteWord(name)) << text << " " << frame;
    }
  }
}

} // namespace
