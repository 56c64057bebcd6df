#include "host/application/jobs/ErrorTexts.h"

#include "host/application/ParameterInfo.h"
#include "host/foundation/StringTokenizer.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <random>

namespace {

TEST(ErrorTexts, BeginOfLineMatchesInAnyCaseOfLetters) {
  const ErrorTexts texts("Error:;FATAL", "", false);
  EXPECT_TRUE(texts.IsError("error: no such scene"));
  EXPECT_TRUE(texts.IsError("Fatal trouble"));
  EXPECT_TRUE(texts.IsError("ERROR:"));
  EXPECT_FALSE(texts.IsError(" error: behind a blank"));
  EXPECT_FALSE(texts.IsError("an error: within"));
  EXPECT_FALSE(texts.IsError("error"));
  EXPECT_FALSE(texts.IsError(""));
}

TEST(ErrorTexts, AnywhereFindsTextsInTheMiddleAndAtTheEnd) {
  const ErrorTexts texts("Error:;fatal", "", true);
  EXPECT_TRUE(texts.IsError("12:01 [77] error: no such scene"));
  EXPECT_TRUE(texts.IsError("this is fatal"));
  EXPECT_TRUE(texts.IsError("fatal"));
  EXPECT_FALSE(texts.IsError("this is fata"));
  EXPECT_FALSE(texts.IsError(""));
}

TEST(ErrorTexts, IgnoreTextAnywhereInTheLineMakesItHarmless) {
  const ErrorTexts texts("error", "0 decoder errors;egl", false);
  EXPECT_FALSE(texts.IsError("error count: 0 Decoder Errors"));
  EXPECT_FALSE(texts.IsError("Error in EGL set-up"));
  EXPECT_TRUE(texts.IsError("error count: 3"));
}

TEST(ErrorTexts, EmptyTextsAreNoTexts) {
  const ErrorTexts texts(";;\"\";", "", true);
  EXPECT_FALSE(texts.IsError("anything"));
  EXPECT_FALSE(texts.IsError(""));
  const ErrorTexts ignoring("error", ";\"\";", false);
  EXPECT_TRUE(ignoring.IsError("error"));
}

TEST(ErrorTexts, QuotedTextsKeepSemicolonsAndBlanks) {
  const ErrorTexts texts("\"a;b\"; c", "", false);
  EXPECT_TRUE(texts.IsError("A;B"));
  EXPECT_TRUE(texts.IsError(" c"));
  EXPECT_FALSE(texts.IsError("c"));
}

TEST(ErrorTexts, LettersBeyondAsciiMatchOnlyAsTheyAre) {
  const ErrorTexts texts("\xC3\xA4rger", "", true); // a lower-case umlaut
  EXPECT_TRUE(texts.IsError("nur \xC3\xA4RGER"));
  EXPECT_FALSE(texts.IsError("nur \xC3\x84rger"));
}

TEST(ErrorTexts, TextsOfOneByteAndNulBytesCount) {
  EXPECT_TRUE(ErrorTexts("!", "", true).IsError("done!"));
  EXPECT_TRUE(ErrorTexts("!", "", true).IsError("!"));
  const String line("a\0Bad\xFF", 6);
  EXPECT_TRUE(ErrorTexts("bad", "", true).IsError(line));
  EXPECT_TRUE(ErrorTexts(String("\0b", 2), "", true).IsError(line));
}

TEST(ErrorTexts, MoreTextsThanGroupsAreAllFound) {
  String list;
  for (int i = 10; i < 50; ++i) {
    list += "t" + std::to_string(i) + ";";
  }
  const ErrorTexts texts(list, "", true);
  for (int i = 10; i < 50; ++i) {
    EXPECT_TRUE(texts.IsError("some T" + std::to_string(i) + " text")) << i;
  }
  EXPECT_FALSE(texts.IsError("some t9 text"));
}

TEST(ErrorTexts, TheMatchTellsTheFirstTextsAsTheyAreWritten) {
  const ErrorTexts texts("No such;;ERROR:;error", "harmless;EGL", true);
  const auto told = [&texts](const char* line) {
    const ErrorTexts::Match match = texts.Find(line);
    return match.Error + "|" + match.Ignore;
  };
  EXPECT_EQ(told("an error"), "error|");
  EXPECT_EQ(told("error: no such file"), "No such|");
  EXPECT_EQ(told("Error: of egl, harmless"), "ERROR:|harmless");
  EXPECT_EQ(told("egl"), "|") << "an ignore text alone says nothing";
  EXPECT_EQ(told(""), "|");
  EXPECT_EQ(ErrorTexts("error", "", false).Find("an error").Error, "");
}

// The rules read literally and slowly.
bool IsErrorBySlowReading(const String& errors, const String& ignores, bool anywhere, const String& line) {
  const String lower = line.Lower();
  bool error = false;
  for (const String& text : StringTokenizer::Split(errors, ';')) {
    const std::size_t place = text.empty() ? String::npos : lower.find(text.Lower());
    error = error || (anywhere ? place != String::npos : place == 0);
  }
  for (const String& text : StringTokenizer::Split(ignores, ';')) {
    error = error && (text.empty() || lower.find(text.Lower()) == String::npos);
  }
  return error;
}

TEST(ErrorTexts, RandomLinesAreJudgedAsByTheSlowReading) {
  // Few letters, so that near misses and overlaps are common.
  std::mt19937 random(20240817);
  const auto text = [&random](std::size_t longest) {
    static const String letters = "aAbBc;\" \\\xC3";
    String result;
    for (std::size_t length = random() % (longest + 1); length > 0; --length) {
      result.push_back(letters[random() % letters.size()]);
    }
    return result;
  };
  int errors = 0;
  for (int round = 0; round < 20000; ++round) {
    const String starts = text(14);
    const String ignores = text(6);
    const bool anywhere = (random() & 1U) != 0;
    const ErrorTexts texts(starts, ignores, anywhere);
    for (int i = 0; i < 5; ++i) {
      const String line = text(40);
      const bool expected = IsErrorBySlowReading(starts, ignores, anywhere, line);
      errors += expected ? 1 : 0;
      const ErrorTexts::Match match = texts.Find(line);
      ASSERT_EQ(!match.Error.empty() && match.Ignore.empty(), expected) << line;
      ASSERT_EQ(texts.IsError(line), expected) << "texts <" << starts << "> ignored <" << ignores
                                               << "> anywhere " << anywhere << " line <" << line << ">";
    }
  }
  EXPECT_GT(errors, 5000); // both verdicts were tried often
  EXPECT_LT(errors, 95000);
}

RC_GTEST_PROP(ErrorTexts, ArbitraryBytesAreJudgedAsByTheSlowReading,
              (const std::string& start, const std::string& ignore, const std::string& before,
               const std::string& after, bool anywhere)) {
  const ListParameterInfo list;
  const String starts = list.Pack({start, "E"});
  const String ignores = list.Pack({ignore});
  const String line = before + String(start).Upper() + after;
  RC_ASSERT(ErrorTexts(starts, ignores, anywhere).IsError(line) ==
            IsErrorBySlowReading(starts, ignores, anywhere, line));
}

} // namespace
