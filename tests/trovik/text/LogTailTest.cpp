#include "trovik/text/LogTail.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

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

// Short and long lines and blocks, with a deciding line now and then.
TEST(LogTail, BlocksAndLinesGiveTheSameAsLinesOneByOne) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 300; ++round) {
    LogTail whole;
    Lines all;
    std::size_t deciding = 0; // how many lines there were with it
    int number = 0;
    for (std::size_t block = random() % 300; block > 0; --block) {
      std::string lines;
      for (std::size_t i = random() % 25 == 0 ? random() % 400 : random() % 5; i > 0; --i) {
        const bool blank = random() % 5 == 0;
        const std::string line =
            blank ? " \t"
                  : std::to_string(++number) + std::string(random() % (random() % 20 == 0 ? 600 : 60), '.');
        lines += line + "\n\r\b"[random() % 3];
        if (!blank) {
          all.push_back(line);
        }
      }
      whole.addLines(lines);
      if (random() % 3 == 0) {
        all.push_back(std::to_string(++number) + std::string(random() % 2 * 9000, '.'));
        whole.add(all.back());
        if (random() % 100 == 0) {
          whole.markDeciding();
          deciding = deciding == 0 ? all.size() : deciding;
        }
      }
      if (random() % 40 == 0) {
        whole.lines();
      }
    }
    const std::size_t end = deciding == 0 ? all.size() : std::min(all.size(), deciding + LogTail::linesAfter);
    const std::size_t from = deciding == 0 ? all.size() - std::min(all.size(), LogTail::lastLines)
                                           : deciding - std::min(deciding, LogTail::linesBefore + 1);
    Lines expected;
    for (std::size_t i = from; i < end; ++i) {
      expected.push_back(all[i].size() > LogTail::lineLimit ? all[i].substr(0, LogTail::lineLimit) + "…"
                                                            : all[i]);
    }
    ASSERT_EQ(whole.lines(), expected);
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
