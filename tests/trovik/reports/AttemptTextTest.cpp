#include "trovik/reports/AttemptText.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace trovik {
namespace {

AttemptRecord attemptWith(VerdictRule rule, const std::string& reason,
                          const std::vector<std::string>& lines) {
  AttemptRecord attempt;
  attempt.state = AttemptState::Failed;
  attempt.rule = rule;
  attempt.reason = reason;
  attempt.lines = lines;
  return attempt;
}

std::string printedLog(const std::string& path, bool terminal) {
  std::string out;
  Console console([&](std::string_view bytes) { out += bytes; }, [](std::string_view) {},
                  {terminal, false, false, false}, [] { return std::size_t{80}; });
  return printLog(console, Path(path)) ? out : "(cannot be read)";
}

TEST(DecidingLine, IsTheOneThatTheReasonQuotes) {
  EXPECT_EQ(decidingLine(attemptWith(VerdictRule::ErrorLine, "Error line: fatal: bad",
                                     {"reading", "fatal: bad", "giving up"})),
            1U);
}

TEST(DecidingLine, AnErrorLineDecidesWhereItStandsFirstAndALastLineWhereItStandsLast) {
  const std::vector<std::string> lines = {"again", "x", "again"};
  EXPECT_EQ(decidingLine(attemptWith(VerdictRule::ErrorLine, "Error line: again", lines)), 0U);
  EXPECT_EQ(decidingLine(attemptWith(VerdictRule::Result, "Exit code 1; last line: again", lines)), 2U);
}

TEST(DecidingLine, AShortLineThatHappensToBeInTheReasonDoesNotDecide) {
  EXPECT_EQ(decidingLine(attemptWith(VerdictRule::ErrorLine, "Error line: a b c", {"a", "a b c", "c"})), 1U);
}

TEST(DecidingLine, AReasonThatQuotesNoneHasNone) {
  EXPECT_EQ(decidingLine(attemptWith(VerdictRule::Files, "There is no file", {"done", ""})), std::nullopt);
}

TEST(DecidingLine, ALongLineIsFoundByItsBeginning) {
  const std::string line = "fatal: " + std::string(380, 'x');
  EXPECT_EQ(decidingLine(
                attemptWith(VerdictRule::ErrorLine, "Error line: " + line.substr(0, 300) + "…", {"a", line})),
            1U);
}

TEST(LogOfAnAttempt, IsWhereItsJobKeepsThemWhileItRuns) {
  JobRecord job;
  job.logs = "/logs/3";
  AttemptRecord attempt;
  attempt.run = {7, 9};
  EXPECT_EQ(logOf(attempt, job).Text(), "/logs/3/7-9.log");
  attempt.number = 2;
  EXPECT_EQ(logOf(attempt, job).Text(), "/logs/3/7-9.attempt2.log");
  job.hasFrames = false;
  EXPECT_EQ(logOf(attempt, job).Text(), "/logs/3/work.attempt2.log");
  attempt.state = AttemptState::Good;
  EXPECT_EQ(logOf(attempt, job).Text(), "");
  attempt.log = "/else/x.log";
  EXPECT_EQ(logOf(attempt, job).Text(), "/else/x.log");
}

TEST(LogEnd, HasTheLastLinesThatHoldText) {
  const TemporaryDirectory directory;
  std::string text;
  for (int i = 1; i <= 20; ++i) {
    text += "line " + std::to_string(i) + "\n\n";
  }
  const LogEnd end = readLogEnd(Path(directory.write("a.log", text + "10%\r20%\r\x1b[31mlast\x1b[0m")));
  EXPECT_TRUE(end.there);
  EXPECT_EQ(end.bytes, static_cast<std::int64_t>(text.size()) + 21);
  EXPECT_EQ(end.lines, (std::vector<std::string>{"line 14", "line 15", "line 16", "line 17", "line 18",
                                                 "line 19", "line 20", "10%", "20%", "last"}));
}

TEST(LogEnd, OfAHugeLogIsReadFromItsEnd) {
  const TemporaryDirectory directory;
  const LogEnd end =
      readLogEnd(Path(directory.write("a.log", std::string(300'000, 'x') + "\nnear the end\nend\n")));
  EXPECT_EQ(end.lines, (std::vector<std::string>{"near the end", "end"}));
}

TEST(LogEnd, WhatIsNoPlainFileIsNotThere) {
  const TemporaryDirectory directory;
  const std::string pipe = directory.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_FALSE(readLogEnd(Path(pipe)).there);
  EXPECT_FALSE(readLogEnd(Path(directory.path())).there);
  EXPECT_FALSE(readLogEnd(Path(directory.file("none"))).there);
  EXPECT_FALSE(readLogEnd(Path()).there);
  EXPECT_EQ(printedLog(pipe, false), "(cannot be read)");
}

TEST(WholeLog, IsPassedOnByteForByteInAPipe) {
  const TemporaryDirectory directory;
  std::string bytes = std::string("\0\xff\x1b[2J\r\n", 8);
  for (int i = 0; i < 100'000; ++i) {
    bytes += std::to_string(i) + '\n';
  }
  bytes += "no line feed";
  EXPECT_EQ(printedLog(directory.write("a.log", bytes), false), bytes);
}

TEST(WholeLog, IsMadeVisibleOnATerminal) {
  const TemporaryDirectory directory;
  EXPECT_EQ(printedLog(directory.write("a.log", "a\n\n\x1b[2Jb\xff\nend"), true),
            "a\n\n\\x1b[2Jb\\xff\nend\n");
}

TEST(WholeLog, ALineWithoutAnEndTakesNoMoreMemoryThanAPiece) {
  const TemporaryDirectory directory;
  const std::string bytes(400'000, 'x');
  EXPECT_EQ(printedLog(directory.write("a.log", bytes), true), bytes + '\n');
}

} // namespace
} // namespace trovik
