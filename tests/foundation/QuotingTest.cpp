#include "host/foundation/Quoting.h"
#include "host/foundation/Descriptor.h"
#include "host/foundation/Path.h"
#include "tests/foundation/Support.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <optional>
#include <random>

namespace {

using Words = std::vector<String>;

constexpr const char* k_Unclosed =
    " is never closed; close it, or write a backslash before it where it is meant as "
    "it stands";

// Prints the number of its arguments and each of them, all ended by a byte 0.
constexpr const char* k_ShowFunction =
    "show() { printf '%d\\0' \"$#\"; for w in \"$@\"; do printf '%s\\0' \"$w\"; "
    "done; }\n";

// What /bin/sh prints when it runs a script file.
std::string RunShell(const std::string& script, const std::vector<std::string>& arguments) {
  const TemporaryDirectory directory;
  const Path file = directory / "script";
  const Path output = directory / "output";
  WriteFile(file, script);
  std::vector<std::string> texts = {"/bin/sh", file.Text()};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    argv.push_back(text.data());
  }
  argv.push_back(nullptr);
  std::string locale = "LC_ALL=C";
  char* environment[] = {locale.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                   0600);
  pid_t id = -1;
  const int failure = posix_spawn(&id, "/bin/sh", &actions, nullptr, argv.data(), environment);
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    throw std::runtime_error("/bin/sh does not start");
  }
  int status = 0;
  waitpid(id, &status, 0);
  return ReadFile(output);
}

// One list of words for each call of show, nothing for a line that the shell
// refused.
std::vector<std::optional<Words>> ReadShown(const std::string& output) {
  std::vector<std::string> texts;
  for (std::size_t start = 0; start < output.size();) {
    const std::size_t end = output.find('\0', start);
    texts.push_back(output.substr(start, end - start));
    start = end + 1;
  }
  std::vector<std::optional<Words>> lists;
  for (std::size_t at = 0; at < texts.size();) {
    if (texts[at] == "refused") {
      lists.emplace_back();
      ++at;
      continue;
    }
    const std::size_t count = std::stoul(texts[at++]);
    Words words;
    for (std::size_t i = 0; i < count; ++i) {
      words.emplace_back(texts.at(at++));
    }
    lists.emplace_back(std::move(words));
  }
  return lists;
}

std::string RandomText(std::mt19937& random, std::size_t longest) {
  std::string text(random() % (longest + 1), '\0');
  for (char& c : text) {
    // Half of the bytes are those that shells know.
    static constexpr std::string_view k_Special = "\"'\\$`!*?[]{}()<>|&;#~=^ \t\n%-_./:@+,aZ0";
    c = random() % 2 == 0 ? k_Special[random() % k_Special.size()] : static_cast<char>(random() % 255 + 1);
  }
  return text;
}

// Whether a line feed stands outside quotes, where it ends the shell's command.
bool HasBareLineFeed(const std::string& line) {
  char quote = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '\\' && quote != '\'') {
      ++i;
    } else if (quote != 0) {
      quote = c == quote ? '\0' : quote;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '\n') {
      return true;
    }
  }
  return false;
}

TEST(Quoting, BlanksSeparateWords) {
  EXPECT_EQ(SplitCommandLine(""), Words{});
  EXPECT_EQ(SplitCommandLine(" \t\n "), Words{});
  EXPECT_EQ(SplitCommandLine("a b"), (Words{"a", "b"}));
  EXPECT_EQ(SplitCommandLine("  a\t\tb\nc  "), (Words{"a", "b", "c"}));
}

TEST(Quoting, SingleQuotesKeepEverything) {
  EXPECT_EQ(SplitCommandLine("'a b' '\\' '\"' '$x' ''"), (Words{"a b", "\\", "\"", "$x", ""}));
  EXPECT_EQ(SplitCommandLine("a'b c'd"), (Words{"ab cd"}));
}

TEST(Quoting, DoubleQuotesKeepAllButFiveEscapes) {
  EXPECT_EQ(SplitCommandLine(R"("a b" "\"" "\\" "\$" "\`" "\n" "\'" "" "'")"),
            (Words{"a b", "\"", "\\", "$", "`", "\\n", "\\'", "", "'"}));
  EXPECT_EQ(SplitCommandLine("\"a\\\nb\""), (Words{"ab"}));
  EXPECT_EQ(SplitCommandLine("\"a\nb\""), (Words{"a\nb"}));
}

TEST(Quoting, ABackslashKeepsTheNextByte) {
  EXPECT_EQ(SplitCommandLine(R"(a\ b \" \' \\ \n)"), (Words{"a b", "\"", "'", "\\", "n"}));
  EXPECT_EQ(SplitCommandLine("a\\\nb \\\n c"), (Words{"ab", "c"}));
}

TEST(Quoting, ABackslashAtTheEndIsPlain) {
  EXPECT_EQ(SplitCommandLine("a\\"), (Words{"a\\"}));
  EXPECT_EQ(SplitCommandLine("\\"), (Words{"\\"}));
}

TEST(Quoting, NothingIsExpanded) {
  EXPECT_EQ(SplitCommandLine("a;b|c>d&e $HOME $(x) `y` * ? # ~ {1,2} a=b"),
            (Words{"a;b|c>d&e", "$HOME", "$(x)", "`y`", "*", "?", "#", "~", "{1,2}", "a=b"}));
}

TEST(Quoting, AnUnclosedQuoteIsRefusedWithItsColumn) {
  EXPECT_EQ(RaisedText([] { SplitCommandLine("a 'b c"); }),
            String("command line:3: the quote '") + k_Unclosed);
  EXPECT_EQ(RaisedText([] { SplitCommandLine("\"b c"); }),
            String("command line:1: the quote \"") + k_Unclosed);
  EXPECT_EQ(RaisedText([] { SplitCommandLine("ab\"c\\\""); }),
            String("command line:3: the quote \"") + k_Unclosed);
  EXPECT_EQ(RaisedText([] { SplitCommandLine("'a' it's"); }),
            String("command line:7: the quote '") + k_Unclosed);
  EXPECT_EQ(RaisedText([] { SplitCommandLine("\"\\"); }),
            String("command line:1: the quote \"") + k_Unclosed);
  EXPECT_EQ(RaisedCode([] { SplitCommandLine("'"); }), k_ErrorSyntax);
}

TEST(Quoting, AnUnclosedQuoteIsFoundWhereItOpens) {
  EXPECT_EQ(FindUnclosedQuote("a 'b c"), 2U);
  EXPECT_EQ(FindUnclosedQuote("'a' it's"), 6U);
  EXPECT_EQ(FindUnclosedQuote("\"a'\" \\' 'b\"'"), String::npos);
  EXPECT_EQ(FindUnclosedQuote(""), String::npos);
}

TEST(Quoting, OrdinaryWordsStayBare) {
  for (const char* word : {"a", "/s/shot_0001.ma", "--size", "10%", "user@host:/a", "a,b+c", "-", "."}) {
    EXPECT_EQ(EnquoteWord(word), word);
    EXPECT_EQ(Path(word).Enquote(), word);
  }
}

TEST(Quoting, OtherWordsGetDoubleQuotes) {
  EXPECT_EQ(EnquoteWord(""), "\"\"");
  EXPECT_EQ(EnquoteWord("a b"), "\"a b\"");
  EXPECT_EQ(EnquoteWord("it's"), "\"it's\"");
  EXPECT_EQ(EnquoteWord("a\"b\\c$d`e"), R"("a\"b\\c\$d\`e")");
  EXPECT_EQ(EnquoteWord("a=b"), "\"a=b\"");
  EXPECT_EQ(EnquoteWord("$(rm -rf x)"), "\"\\$(rm -rf x)\"");
  EXPECT_EQ(EnquoteWord("~"), "\"~\"");
  EXPECT_EQ(EnquoteWord("a\nb"), "\"a\nb\"");
  EXPECT_EQ(EnquoteWord("\xC3\xA9"), "\"\xC3\xA9\"");
}

RC_GTEST_PROP(Quoting, EveryTextIsReadBackAsOneEqualWord, ()) {
  const std::string text = *Texts(1);
  RC_ASSERT(SplitCommandLine(EnquoteWord(text)) == Words{text});
  RC_ASSERT(SplitCommandLine("a " + EnquoteWord(text) + " b") == (Words{"a", text, "b"}));
  RC_ASSERT(SplitCommandLine(EnquoteWord(text) + EnquoteWord(text)) == Words{text + text});
}

RC_GTEST_PROP(Quoting, DequotingUndoesEnquoting, ()) {
  const std::string text = *Texts(0);
  RC_ASSERT(DequoteWord(EnquoteWord(text)) == text);
  RC_ASSERT(Path(Path(text).Enquote()).Dequote().Text() == text);
}

RC_GTEST_PROP(Quoting, JoinedWordsAreSplitToTheSame, ()) {
  const auto texts = *rc::gen::container<std::vector<std::string>>(Texts(1));
  const Words words(texts.begin(), texts.end());
  RC_ASSERT(SplitCommandLine(JoinCommandLine(words)) == words);
}

TEST(Quoting, WordsAreJoinedWithBlanks) {
  EXPECT_EQ(JoinCommandLine({}), "");
  EXPECT_EQ(JoinCommandLine({"povray", "", "a b"}), "povray \"\" \"a b\"");
  EXPECT_EQ(JoinCommandLine({"", "a"}), "\"\" a");
}

TEST(Quoting, TheRealShellReadsEveryTextBack) {
  std::mt19937 random(20240607);
  std::string script = k_ShowFunction;
  std::vector<std::optional<Words>> expected;
  for (int byte = 1; byte < 256; ++byte) {
    const Words words = {String(1, static_cast<char>(byte)), "a" + String(1, static_cast<char>(byte)) + "b"};
    script += "show " + JoinCommandLine(words) + "\n";
    expected.emplace_back(words);
  }
  for (int line = 0; line < 3000; ++line) {
    Words words(random() % 6);
    for (String& word : words) {
      word = RandomText(random, 24);
    }
    script += "show " + JoinCommandLine(words) + "\n";
    expected.emplace_back(words);
  }
  EXPECT_EQ(ReadShown(RunShell(script, {})), expected);
}

TEST(Quoting, LinesWithoutExpansionsAreSplitAsTheRealShellDoes) {
  static const std::vector<std::string> k_Pieces = {
      "a",    "b", "Z", "9", " ", " ", "\t",       "'",    "'",    "\"",   "\"",  "\\",     "\\",
      "\\\n", "=", "-", "/", "%", ",", "\xC3\xA9", "\xFF", "\x81", "\x88", "\\a", "\"\n\"", "'\n'"};
  std::mt19937 random(7);
  std::vector<std::string> lines;
  std::vector<std::optional<Words>> expected;
  int refused = 0;
  while (lines.size() < 3000) {
    std::string line;
    for (std::size_t count = random() % 14; count > 0; --count) {
      line += k_Pieces[random() % k_Pieces.size()];
    }
    if (HasBareLineFeed(line)) {
      continue;
    }
    std::optional<Words> words;
    try {
      words = SplitCommandLine(line);
    } catch (Exception* exception) {
      delete exception;
    }
    refused += words ? 0 : 1;
    lines.push_back(line);
    expected.push_back(std::move(words));
  }
  const std::string script =
      std::string(k_ShowFunction) +
      "for line in \"$@\"; do ( eval \"show $line\" ) 2>/dev/null || printf 'refused\\0'; done\n";
  const auto shown = ReadShown(RunShell(script, lines));
  ASSERT_EQ(shown.size(), expected.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    ASSERT_EQ(shown[i], expected[i]) << "line: " << lines[i];
  }
  EXPECT_GT(refused, 100);
}

TEST(Quoting, DequotingLeavesWhatIsNotOneDoubleQuotedWord) {
  for (const char* text : {"", "a", "\"", "Saved: '", "it's", "'\"'", "\"a\"b\"", "\"a", "a\"", "\"a\" \"b\"",
                           "\"a\\\"", "'a'", "\"\\\"", " \"a\""}) {
    EXPECT_EQ(DequoteWord(text), text);
    EXPECT_EQ(Path(text).Dequote().Text(), text);
  }
}

TEST(Quoting, DequotingRemovesQuotesAndEscapes) {
  EXPECT_EQ(DequoteWord("\"\""), "");
  EXPECT_EQ(DequoteWord("\"a b\""), "a b");
  EXPECT_EQ(DequoteWord("\" saving image \""), " saving image ");
  EXPECT_EQ(DequoteWord(R"("a\"b\\c\$d\`e\f")"), R"(a"b\c$d`e\f)");
}

RC_GTEST_PROP(Quoting, DequotingReadsAWholeWordAsTheSplitterDoes, ()) {
  const std::string text = "\"" + *TextsOf({"a", " ", "\"", "\\", "\\\\", "\\\"", "$", "\n", "'"}) + "\"";
  std::optional<Words> words;
  try {
    words = SplitCommandLine(text);
  } catch (Exception* exception) {
    delete exception;
  }
  const String dequoted = DequoteWord(text);
  if (dequoted != text) {
    RC_ASSERT(words == Words{dequoted});
  }
}

} // namespace
