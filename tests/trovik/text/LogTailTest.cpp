#include "trovik/text/LogTail.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

using Lines = std::vector<std::string>;

TEST(LogTail, KeepsTheLastTenLines) {
  LogTail tail;
  for (int i = 1; i <= 12; ++i) {
    tail.add("line " + std::to_string(i));
  }
  EXPECT_EQ(tail.lines(), (Lines{"line 3", "line 4", "line 5", "line 6", "line 7", "line 8", "line 9",
                                 "line 10", "line 11", "line 12"}));
}

TEST(LogTail, FewLinesAreAllKept) {
  LogTail tail;
  tail.add("a");
  tail.add("b");
  EXPECT_EQ(tail.lines(), (Lines{"a", "b"}));
}

TEST(LogTail, BlankLinesAreLeftOut) {
  LogTail tail;
  tail.add("a");
  tail.add(" \t");
  tail.add("");
  tail.add("b");
  EXPECT_EQ(tail.lines(), (Lines{"a", "b"}));
}

TEST(LogTail, DecidingLineIsQuotedWithItsNeighbours) {
  LogTail tail;
  for (int i = 1; i <= 20; ++i) {
    tail.add(std::to_string(i));
    if (i == 9) {
      tail.markDeciding();
    }
  }
  EXPECT_EQ(tail.lines(), (Lines{"6", "7", "8", "9", "10", "11", "12"}));
}

TEST(LogTail, WholeLinesGiveTheSameAsOneByOne) {
  for (int deciding = 0; deciding < 30; ++deciding) {
    for (int block = 1; block < 25; ++block) {
      LogTail single;
      LogTail whole;
      std::string lines;
      for (int i = 0; i < 30; ++i) {
        single.add(std::to_string(i));
        lines += std::to_string(i) + (i % 2 == 0 ? "\n \t\r\n" : "\b");
        if (i == deciding || i % block == 0 || i == 29) {
          whole.addLines(lines);
          lines.clear();
        }
        if (i == deciding) {
          single.markDeciding();
          whole.markDeciding();
        }
      }
      ASSERT_EQ(whole.lines(), single.lines()) << deciding << " " << block;
    }
  }
}

TEST(LogTail, FirstDecidingLineCounts) {
  LogTail tail;
  tail.add("1");
  tail.markDeciding();
  tail.add("2");
  tail.markDeciding();
  EXPECT_EQ(tail.lines(), (Lines{"1", "2"}));
}

TEST(LogTail, LongLinesAreCut) {
  LogTail tail;
  tail.add(std::string(1 << 20, 'x'));
  ASSERT_EQ(tail.lines().size(), 1U);
  EXPECT_EQ(tail.lines().front(), std::string(LogTail::lineLimit, 'x') + "…");
}

} // namespace
} // namespace trovik
