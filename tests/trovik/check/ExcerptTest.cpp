// The line of a problem and the marks below it.

#include "tests/trovik/check/CheckTest.h"

#include "trovik/check/DiagnosticText.h"
#include "trovik/text/Text.h"

namespace trovik {
namespace {

class ExcerptTest : public testing::Test {
protected:
  static std::string excerpt(const std::string& line, std::uint32_t column, std::uint32_t endColumn,
                             std::size_t width = 80, ConsoleTraits traits = {}) {
    const Console console([](std::string_view) {}, [](std::string_view) {}, traits, [] { return 80U; });
    const Diagnostic problem{Severity::Error, "rule", 1, column, endColumn, "no", {}};
    const std::string text = diagnosticText(console, TypeSource("a.tvx", Path(), line), problem, width);
    return text.substr(text.find('\n') + 1);
  }
};

TEST_F(ExcerptTest, MarksStandBelowThePlace) {
  EXPECT_EQ(excerpt("Type=Interger", 6, 14), "    1 | Type=Interger\n"
                                             "      |      ^^^^^^^^\n");
}

TEST_F(ExcerptTest, PlaceWithoutBytesHasOneMark) {
  EXPECT_EQ(excerpt("Name=", 6, 6), "    1 | Name=\n"
                                    "      |      ^\n");
  EXPECT_EQ(excerpt("", 1, 1), "    1 |\n"
                               "      | ^\n");
}

TEST_F(ExcerptTest, TabsAndControlCharactersAreShownAsTheyAreWritten) {
  EXPECT_EQ(excerpt("\tA=\x1b[31mx", 8, 9), "    1 | \\tA=\\x1b[31mx\n"
                                            "      |            ^\n");
}

TEST_F(ExcerptTest, LettersOfAnyWidthAreCountedByTheirColumns) {
  EXPECT_EQ(excerpt("Größe=語x", 9, 12), "    1 | Größe=語x\n"
                                         "      |       ^^\n");
}

TEST_F(ExcerptTest, BytesThatAreNoUtf8AreShownOnATerminal) {
  ConsoleTraits terminal;
  terminal.terminal = true;
  EXPECT_EQ(excerpt("a\xff=x", 4, 5, 80, terminal), "    1 | a\\xff=x\n"
                                                    "      |       ^\n");
}

TEST_F(ExcerptTest, TheMarkAtTheBeginningOfAFileIsNoPartOfItsLine) {
  EXPECT_EQ(excerpt("\xEF\xBB\xBFx=1", 1, 2), "    1 | x=1\n"
                                              "      | ^\n");
}

TEST_F(ExcerptTest, CarriageReturnAtTheEndOfALineIsLeftOut) {
  EXPECT_EQ(excerpt("x=1\r\ny=2\r\n", 3, 4), "    1 | x=1\n"
                                             "      |   ^\n");
}

TEST_F(ExcerptTest, LongLineIsCutAroundThePlace) {
  const std::string line = std::string(200, 'a') + "HERE" + std::string(200, 'b');
  EXPECT_EQ(excerpt(line, 201, 205),
            "    1 | ...aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaHEREbbbbbbbbbbbbb...\n"
            "      |                                                    ^^^^\n");
  EXPECT_EQ(excerpt(line, 1, 405),
            "    1 | " + std::string(68, 'a') + "...\n      | " + std::string(71, '^') + "\n");
}

TEST_F(ExcerptTest, ExcerptOfAnyLineStaysWithinItsWidth) {
  const std::string odd = "aä語\xff\t\xE2\x80\x8B\x1b";
  std::string line;
  while (line.size() < 3000) {
    line += odd;
  }
  for (const std::size_t width : {40U, 57U, 80U, 200U}) {
    for (std::uint32_t column = 1; column < line.size(); column += 13) {
      for (const std::uint32_t length : {0U, 1U, 30U, 900U}) {
        const std::string text = excerpt(line, column, column + length, width);
        const std::size_t end = text.find('\n');
        ASSERT_LE(displayWidth(text.substr(0, end)), width) << column;
        ASSERT_LE(text.size() - end - 2, width) << column;
        ASSERT_EQ(text.find('\x1b'), std::string::npos);
      }
    }
  }
}

TEST_F(ExcerptTest, HugeLineCostsNoMoreThanALongOne) {
  const std::string line = "Name=" + std::string(std::size_t{32} << 20U, 'x') + "\nb=1";
  EXPECT_EQ(excerpt(line, 16U << 20U, (16U << 20U) + 3).size(), 143U);
}

TEST_F(ExcerptTest, ProblemOfAWholeFileHasNoExcerpt) {
  EXPECT_EQ(excerpt("x", 1, 2).empty(), false);
  const Console console([](std::string_view) {}, [](std::string_view) {}, {}, [] { return 80U; });
  Diagnostic problem{Severity::Warning, "rule", 0, 0, 0, "is odd", "leave it"};
  EXPECT_EQ(diagnosticText(console, TypeSource("a\n.tvx", Path(), "x"), problem, 80),
            "a\\n.tvx: warning: is odd\nhint: leave it\n");
}

} // namespace
} // namespace trovik
