#include "host/foundation/LineSplitter.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

// Feeds the chunks one after the other, then ends the output.
Lines Split(const std::vector<std::string_view>& chunks) {
  Lines lines;
  LineSplitter splitter([&lines](std::string_view line) { lines.emplace_back(line); });
  for (const std::string_view chunk : chunks) {
    splitter.Feed(chunk);
  }
  splitter.Finish();
  return lines;
}

// The rules of the sequences, written down once more as one expression.
std::string RemoveLiterally(const std::string& line) {
  static const std::regex sequence("\x1b(?:\\[[0-?]*[ -/]*[@-~]?" // CSI, whole or cut off
                                   "|\\][^\x07\x1b]*(?:\x07|\x1b\\\\)"
                                   "|[PX^_][^\x1b]*\x1b\\\\"
                                   "|[ -/]*[0-~]?)");
  return std::regex_replace(line, sequence, "");
}

// The rules of the line ends, read byte by byte.
Lines SplitLiterally(const std::string& text) {
  Lines lines;
  std::string line;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\b') {
      if (!line.empty()) {
        lines.push_back(line);
        line.clear();
      }
    } else if (text[i] == '\n' || text[i] == '\r') {
      lines.push_back(line);
      line.clear();
      if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
        ++i;
      }
    } else {
      if (line.size() == LineSplitter::k_LineLimit) {
        lines.push_back(line);
        line.clear();
      }
      line.push_back(text[i]);
    }
  }
  if (!line.empty()) {
    lines.push_back(line);
  }
  return lines;
}

std::vector<std::string_view> CutAnywhere(std::string_view text, std::size_t longest, std::mt19937& random) {
  std::vector<std::string_view> chunks;
  while (!text.empty()) {
    const std::size_t size =
        std::min(text.size(), std::uniform_int_distribution<std::size_t>(0, longest)(random));
    chunks.push_back(text.substr(0, size));
    text.remove_prefix(size);
  }
  return chunks;
}

TEST(LineSplitterTest, AllThreeLineEndsAreUnderstood) {
  EXPECT_EQ(Split({"a\nb\r\nc\rd"}), (Lines{"a", "b", "c", "d"}));
  EXPECT_EQ(Split({"\n\r\n\r"}), (Lines{"", "", ""}));
  EXPECT_EQ(Split({"a\r\r\nb\n\rc"}), (Lines{"a", "", "b", "", "c"}));
}

TEST(LineSplitterTest, OutputThatEndsWithALineEndHasNoEmptyLineBehindIt) {
  EXPECT_EQ(Split({"a\n"}), (Lines{"a"}));
  EXPECT_EQ(Split({}), (Lines{}));
}

TEST(LineSplitterTest, LineIsDeliveredAsSoonAsItsEndIsSeen) {
  Lines lines;
  LineSplitter splitter([&lines](std::string_view line) { lines.emplace_back(line); });
  splitter.Feed("10%\r");
  EXPECT_EQ(lines, (Lines{"10%"}));
  splitter.Feed("20");
  EXPECT_EQ(lines, (Lines{"10%"}));
  splitter.Feed("%\r");
  EXPECT_EQ(lines, (Lines{"10%", "20%"}));
}

TEST(LineSplitterTest, LineEndThatIsCutInTwoCountsOnce) {
  EXPECT_EQ(Split({"a\r", "\nb"}), (Lines{"a", "b"}));
  EXPECT_EQ(Split({"a\r", "", "\nb"}), (Lines{"a", "b"}));
  EXPECT_EQ(Split({"a\r", "b\n", "\nc"}), (Lines{"a", "b", "", "c"}));
}

TEST(LineSplitterTest, FinishDeliversThePartialLineAndStartsAfresh) {
  Lines lines;
  LineSplitter splitter([&lines](std::string_view line) { lines.emplace_back(line); });
  splitter.Feed("half\x1b[");
  splitter.Finish();
  splitter.Finish();
  EXPECT_EQ(lines, (Lines{"half"}));
  splitter.Feed("a\r");
  splitter.Finish();
  splitter.Feed("\n31m");
  splitter.Finish();
  EXPECT_EQ(lines, (Lines{"half", "a", "", "31m"}));
}

TEST(LineSplitterTest, OtherControlBytesAndZeroBytesStay) {
  const std::string line("a\0b\tc\x02"
                         "d\x0c\x7f\xff",
                         10);
  EXPECT_EQ(Split({line}), (Lines{line}));
}

TEST(LineSplitterTest, BackspacesOfAProgressBarHideNothingBehindThem) {
  EXPECT_EQ(Split({" 9%\b\b\b10%\b\b\bdone\n"}), (Lines{" 9%", "10%", "done"}));
  EXPECT_EQ(Split({"\b\bdone\n"}), (Lines{"done"}));
  EXPECT_EQ(Split({"10", "%\b", "\b\bdone", "\b\n"}), (Lines{"10%", "done", ""}));
  EXPECT_EQ(Split({"a\r\b\nb"}), (Lines{"a", "", "b"}));
  EXPECT_EQ(Split({"10%\b\b\b"}), (Lines{"10%"}));
}

TEST(LineSplitterTest, ByteOrderMarkBeforeALineIsRemoved) {
  EXPECT_EQ(Split({"\xEF\xBB\xBF"
                   "done\n\xEF\xBB\xBF\n"}),
            (Lines{"done", ""}));
  EXPECT_EQ(Split({"\xEF\xBB", "\xBF"
                               "done"}),
            (Lines{"done"}));
  EXPECT_EQ(Split({"\x1b[m\xEF\xBB\xBF"
                   "done"}),
            (Lines{"done"}));
  EXPECT_EQ(Split({"a\xEF\xBB\xBF"
                   "b\n\xEF\xBB"}),
            (Lines{"a\xEF\xBB\xBF"
                   "b",
                   "\xEF\xBB"}));
}

TEST(LineSplitterTest, TerminalSequencesAreRemoved) {
  EXPECT_EQ(Split({"\x1b[1;31mError:\x1b[0m disk full\n"}), (Lines{"Error: disk full"}));
  EXPECT_EQ(Split({"\x1b[2K\x1b[1G50%\r"}), (Lines{"50%"}));
  EXPECT_EQ(Split({"\x1b]0;a title\aone\n\x1b]8;;http://x\x1b\\two\x1b]8;;\x1b\\\n"}), (Lines{"one", "two"}));
  EXPECT_EQ(Split({"\x1b"
                   "7a\x1b(B\x1b[mb\x1b=c\x1bM\n"}),
            (Lines{"abc"}));
  EXPECT_EQ(Split({"a\x1bP1$r0m\x1b\\b\n"}), (Lines{"ab"}));
}

TEST(LineSplitterTest, SequenceThatIsCutInTwoIsRemoved) {
  EXPECT_EQ(Split({"a\x1b", "[3", "1mb", "\n"}), (Lines{"ab"}));
}

TEST(LineSplitterTest, SequenceOfOneLineDoesNotReachIntoTheNext) {
  EXPECT_EQ(Split({"a\x1b[31\nmb\n"}), (Lines{"a", "mb"}));
  EXPECT_EQ(Split({"a\x1b\nb\x1b]0;\nc\a\n"}), (Lines{"a", "b0;", "c\a"}));
}

TEST(LineSplitterTest, StringWithoutAnEndKeepsItsText) {
  EXPECT_EQ(RemoveTerminalSequences("\x1b]0;Error: disk full"), "0;Error: disk full");
  EXPECT_EQ(RemoveTerminalSequences("\x1b]0;a\x1b[1mb\a"), "0;ab\a");
  EXPECT_EQ(RemoveTerminalSequences("\x1bPabc"), "abc");
}

TEST(LineSplitterTest, MalformedSequenceLosesNoText) {
  EXPECT_EQ(RemoveTerminalSequences("\x1b[31\xc3\xa4"), "\xc3\xa4");
  EXPECT_EQ(RemoveTerminalSequences("\x1b\x1b[1mx"), "x");
  EXPECT_EQ(RemoveTerminalSequences("x\x1b"), "x");
  EXPECT_EQ(RemoveTerminalSequences(std::string_view("\x1b\0x", 3)), String("\0x", 2));
}

TEST(LineSplitterTest, ManyStringsWithoutAnEndTakeNoLonger) {
  // A line of nothing but beginnings: looking for each end to the line's end
  // would take hours.
  std::string line;
  while (line.size() < LineSplitter::k_LineLimit) {
    line += "\x1b]x";
  }
  EXPECT_EQ(RemoveTerminalSequences(line).size(), line.size() / 3);
}

TEST(LineSplitterTest, AnyCuttingGivesTheLinesOfTheLiteralReading) {
  std::mt19937 random(20);
  const std::string alphabet = "\n\n\r\r\b\b\x1b\x1b\x1b[[]];m0P\\\a (Bxyz\xc3\xa4 ";
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    const std::size_t size = std::uniform_int_distribution<std::size_t>(0, 400)(random);
    const bool plain = round % 3 == 0; // lines longer than a block of the scan
    while (text.size() < size) {
      text.push_back(plain && random() % 90 != 0 ? 'x' : alphabet[random() % alphabet.size()]);
    }
    Lines expected = SplitLiterally(text);
    for (std::string& line : expected) {
      line = RemoveLiterally(line);
    }
    const std::size_t longest = round % 2 == 0 ? 5 : 300;
    ASSERT_EQ(Split(CutAnywhere(text, longest, random)), expected) << testing::PrintToString(text);
  }
}

TEST(LineSplitterTest, LongLinesComeInPiecesOfTheLimit) {
  const std::size_t limit = LineSplitter::k_LineLimit;
  const auto sizes = [](const std::string& text, std::size_t chunk) {
    std::vector<std::size_t> result;
    LineSplitter splitter([&result](std::string_view line) { result.push_back(line.size()); });
    for (std::size_t i = 0; i < text.size(); i += chunk) {
      splitter.Feed(std::string_view(text).substr(i, chunk));
    }
    splitter.Finish();
    return result;
  };
  using Sizes = std::vector<std::size_t>;
  for (const std::size_t chunk : {limit - 1, limit, limit + 1, 3 * limit, std::size_t{65536}}) {
    EXPECT_EQ(sizes(std::string(limit, 'x'), chunk), (Sizes{limit}));
    EXPECT_EQ(sizes(std::string(limit, 'x') + "\n", chunk), (Sizes{limit}));
    EXPECT_EQ(sizes(std::string(limit, 'x') + "\r\ny", chunk), (Sizes{limit, 1}));
    EXPECT_EQ(sizes(std::string(limit + 1, 'x') + "\n", chunk), (Sizes{limit, 1}));
    EXPECT_EQ(sizes("a\n" + std::string(2 * limit, 'x') + "\r\n\n", chunk), (Sizes{1, limit, limit, 0}));
  }
}

TEST(LineSplitterTest, LongLinesCutAnywhereGiveTheLinesOfTheLiteralReading) {
  std::mt19937 random(3);
  const std::size_t limit = LineSplitter::k_LineLimit;
  for (int round = 0; round < 6; ++round) {
    std::string text;
    for (int line = 0; line < 3; ++line) {
      text.append(limit - 2 + random() % 5, static_cast<char>('a' + line));
      text += std::vector<std::string>{"\n", "\r\n", "\r", ""}[random() % 4];
    }
    const Lines expected = SplitLiterally(text);
    ASSERT_TRUE(Split(CutAnywhere(text, 700'000, random)) == expected) << "round " << round;
  }
}

TEST(LineSplitterTest, EscapesInALongLineAreRemovedFromEveryPiece) {
  std::string text(LineSplitter::k_LineLimit, 'x');
  text.replace(0, 4, "\x1b[1m");
  text += std::string(100, 'y') + "\x1b[0m!\nz\n";
  const Lines lines = Split({text});
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], std::string(LineSplitter::k_LineLimit - 4, 'x'));
  EXPECT_EQ(lines[1], std::string(100, 'y') + "!");
  EXPECT_EQ(lines[2], "z");
}

std::size_t ResidentBytes() {
  std::size_t total = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(LineSplitterTest, HundredMegabytesWithoutALineEndStayBounded) {
  constexpr std::size_t k_Total = 100'000'000;
  const std::string chunk = std::string(65530, 'x') + "\x1b[0m";
  std::size_t longest = 0;
  std::size_t delivered = 0;
  std::size_t peak = 0;
  LineSplitter splitter([&](std::string_view line) {
    longest = std::max(longest, line.size());
    delivered += line.size();
    peak = std::max(peak, ResidentBytes());
  });
  const std::size_t before = ResidentBytes();
  std::size_t fed = 0;
  for (; fed < k_Total; fed += chunk.size()) {
    splitter.Feed(chunk);
  }
  splitter.Finish();
  EXPECT_LE(longest, LineSplitter::k_LineLimit);
  EXPECT_GT(delivered, fed / chunk.size() * 65530 - 1);
  EXPECT_LT(delivered, fed);
  EXPECT_LT(peak, before + (std::size_t{32} << 20));
}

/// Wants lines with some texts, and notes every line once, as it was told of it.
class NotingJudge : public LineJudge {
public:
  NotingJudge(std::vector<String> texts, bool vectors, unsigned seed)
      : m_Texts(std::move(texts)), m_Filter(vectors), m_Random(seed) {
    Build();
  }

  const TextFilter* WantedTexts() override {
    // Now and then it wants every line for a while.
    m_WantsAll = m_Random() % 8 == 0;
    return m_WantsAll ? nullptr : &m_Filter;
  }

  void OnLine(std::string_view line) override {
    All.emplace_back(line);
    // What it wants changes with a line.
    if (!m_Texts.empty() && m_Random() % 16 == 0) {
      m_Texts.pop_back();
      Build();
    }
  }

  void OnPlainLines(std::string_view lines) override {
    EXPECT_FALSE(lines.empty());
    ++Blocks;
    std::string rest(lines);
    EXPECT_NE(std::string_view("\n\r\b").find(rest.back()), std::string_view::npos);
    for (const std::string& line : SplitLiterally(rest)) {
      for (const String& text : m_Texts) {
        EXPECT_EQ(line.find(text), std::string::npos) << line;
      }
      All.push_back(line);
    }
  }

  Lines All;
  std::size_t Blocks = 0;

private:
  void Build() {
    m_Filter.Clear();
    LineSplitter::AddToFilter(m_Filter);
    for (const String& text : m_Texts) {
      m_Filter.Add(text, m_Lower);
    }
    m_Filter.Finish();
  }

  std::vector<String> m_Texts;
  LowerTable m_Lower;
  TextFilter m_Filter;
  std::mt19937 m_Random;
  bool m_WantsAll = false;
};

void ExpectJudgedAsSplit(const std::string& text, const std::vector<String>& wanted, std::size_t longest,
                         std::mt19937& random, std::size_t& blocks) {
  const std::vector<std::string_view> chunks = CutAnywhere(text, longest, random);
  const Lines expected = Split({text});
  for (const bool vectors : {true, false}) {
    NotingJudge judge(wanted, vectors, static_cast<unsigned>(random()));
    LineSplitter splitter(judge);
    for (const std::string_view chunk : chunks) {
      const auto exact = std::make_unique<char[]>(chunk.size()); // for a sanitizer
      std::copy(chunk.begin(), chunk.end(), exact.get());
      splitter.Feed({exact.get(), chunk.size()});
    }
    splitter.Finish();
    ASSERT_EQ(judge.All, expected);
    blocks += judge.Blocks;
  }
}

TEST(LineSplitterTest, JudgeGetsTheSameLinesInBlocks) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  // NUL, terminal sequences, marks, and bytes that are no UTF-8.
  const std::vector<std::string> pieces = {"\n",
                                           "\r",
                                           "\r\n",
                                           "\b",
                                           "x",
                                           "Error",
                                           "saved",
                                           "err",
                                           " ",
                                           "\x1b[1m",
                                           "\xEF\xBB\xBF",
                                           "\x1b",
                                           std::string(1, 0),
                                           "\xFF",
                                           "a longer piece of text"};
  std::size_t blocks = 0;
  for (int round = 0; round < 3000; ++round) {
    const std::size_t kinds = 6 + random() % (pieces.size() - 5);
    std::string text;
    for (std::size_t i = random() % 300; i > 0; --i) {
      text += pieces[random() % std::min(kinds, pieces.size())];
    }
    std::vector<String> wanted;
    for (std::size_t i = random() % 4; i > 0; --i) {
      static constexpr const char* k_Wanted[] = {"error", "saved", "s", "rx", "longer piece"};
      wanted.emplace_back(k_Wanted[random() % 5]);
    }
    ASSERT_NO_FATAL_FAILURE(ExpectJudgedAsSplit(text, wanted, 1 + random() % 400, random, blocks));
  }
  EXPECT_GT(blocks, 1000U);
}

TEST(LineSplitterTest, JudgeGetsLongLinesInTheSamePieces) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::size_t blocks = 0;
  for (const std::size_t around : {std::size_t{256} << 10, LineSplitter::k_LineLimit}) {
    for (int round = 0; round < 4; ++round) {
      std::string text = "first\n";
      for (int line = 0; line < 5; ++line) {
        text +=
            "short\r\n" + std::string(around - 40 + random() % 80, 'x') + "Error" + "\n\r\b"[random() % 3];
      }
      ASSERT_NO_FATAL_FAILURE(ExpectJudgedAsSplit(text, {"error"}, 700'000, random, blocks));
      ASSERT_NO_FATAL_FAILURE(ExpectJudgedAsSplit(text, {"error"}, 9'000'000, random, blocks));
    }
  }
  EXPECT_GT(blocks, 0U);
}

TEST(LineSplitterTest, LinesOfTextsOfAnySizeAreFoundFromBothEnds) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto endsLine = [](char c) { return c == '\n' || c == '\r' || c == '\b'; };
  for (std::size_t size = 1; size < 300; ++size) {
    for (int round = 0; round < 20; ++round) {
      const std::size_t rarity = 1 + random() % 200;
      const auto text = std::make_unique<char[]>(size); // for a sanitizer
      for (std::size_t i = 0; i < size; ++i) {
        text[i] = random() % rarity == 0 ? "\n\r\b\x1b\x0b\x0c\x09\x07"[random() % 8] : 'x';
      }
      const std::string_view lines(text.get(), size);
      const auto end =
          static_cast<std::size_t>(std::find_if(lines.begin(), lines.end(), endsLine) - lines.begin());
      std::string_view rest = lines;
      ASSERT_EQ(TakeFirstLine(rest), lines.substr(0, end));
      ASSERT_EQ(rest, lines.substr(std::min(end + 1, size)));

      std::vector<std::string_view> all;
      for (std::size_t begin = 0; begin < size;) {
        std::size_t behind = begin;
        while (behind < size && !endsLine(lines[behind])) {
          ++behind;
        }
        const std::string_view line = lines.substr(begin, behind - begin);
        if (line.find_first_not_of(" \t") != std::string_view::npos) {
          all.push_back(line);
        }
        begin = behind + 1;
      }
      std::vector<std::string_view> last(1 + random() % 4);
      const std::size_t room = std::min(all.size(), last.size());
      all.erase(all.begin(), all.end() - static_cast<std::ptrdiff_t>(room));
      last.resize(FindLastLines(lines, last));
      ASSERT_EQ(last, all) << testing::PrintToString(lines);
    }
  }
}

TEST(LineSplitterTest, LastLinesWithTextAreFoundFromTheEnd) {
  std::vector<std::string_view> last(3);
  const auto find = [&last](std::string_view lines) {
    const std::size_t count = FindLastLines(lines, last);
    return Lines(last.begin(), last.begin() + static_cast<std::ptrdiff_t>(count));
  };
  EXPECT_EQ(find(""), Lines{});
  EXPECT_EQ(find("\n\r\n \t\b\b"), Lines{});
  EXPECT_EQ(find("one\n"), Lines{"one"});
  EXPECT_EQ(find("one\r\n\r\n  two\b \t\nthree\r"), (Lines{"one", "  two", "three"}));
  EXPECT_EQ(find("one\ntwo\nthree\nfour\n\n"), (Lines{"two", "three", "four"}));
  const std::string longer(1000, 'x');
  EXPECT_EQ(find("one\n" + longer + "\n"), (Lines{"one", longer}));
}

TEST(LineSplitterTest, FirstLineIsTakenOff) {
  std::string_view lines = "one\n\r\ntwo\b";
  EXPECT_EQ(TakeFirstLine(lines), "one");
  EXPECT_EQ(TakeFirstLine(lines), "");
  EXPECT_EQ(TakeFirstLine(lines), "");
  EXPECT_EQ(TakeFirstLine(lines), "two");
  EXPECT_TRUE(lines.empty());
}

} // namespace
