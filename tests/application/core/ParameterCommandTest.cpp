#include "tests/application/core/TestSupport.h"

#include "host/application/ParameterCommands.h"

#include <gtest/gtest.h>

namespace {

String Apply(const String& value, const String& commands) {
  return Job::ProcessParameterNameCommands(value, commands, SmartHandle<const Job>(), nullptr);
}

String Refusal(const String& value, const String& commands) {
  return MessageOf([&] { Apply(value, commands); });
}

TEST(ParameterCommand, TakesPathsApart) {
  const String path = "/shots/a b/shot.0001.exr";
  EXPECT_EQ(Apply(path, "Leaf"), "shot.0001.exr");
  EXPECT_EQ(Apply(path, "Branch"), "/shots/a b");
  EXPECT_EQ(Apply(path, "Base"), "shot.0001");
  EXPECT_EQ(Apply(path, "Extension"), "exr");
  EXPECT_EQ(Apply("bare", "Branch"), "");
  EXPECT_EQ(Apply("/x", "Branch"), "/");
}

TEST(ParameterCommand, QuotesAndUnquotes) {
  EXPECT_EQ(Apply("plain", "Enquote"), "plain");
  EXPECT_EQ(Apply("a \"b\" $(c)", "Enquote"), "\"a \\\"b\\\" \\$(c)\"");
  EXPECT_EQ(Apply("", "Enquote"), "\"\"");
  EXPECT_EQ(Apply("a \"b\" $(c)", "Enquote.Dequote"), "a \"b\" $(c)");
}

TEST(ParameterCommand, WritesStringsOfOtherLanguages) {
  const String name = "/a'b\"c\\d\n\x01\x7f\xC3\xA4$(x)";
  EXPECT_EQ(Apply(name, "PythonString"), "'/a\\'b\"c\\\\d\\x0a\\x01\\x7f\xC3\xA4$(x)'");
  EXPECT_EQ(Apply(name, "LispString"), "\"/a'b\\\"c\\\\d\n\x01\x7f\xC3\xA4$(x)\"");
  EXPECT_EQ(Apply(name, "JsonString"), "\"/a'b\\\"c\\\\d\\u000a\\u0001\\u007f\xC3\xA4$(x)\"");
  EXPECT_EQ(Apply("", "PythonString"), "''");
  EXPECT_EQ(Apply("", "LispString"), "\"\"");
  EXPECT_EQ(Apply("", "JsonString"), "\"\"");
  // A string in a script is one word of the command line with Enquote behind.
  EXPECT_EQ(Apply("it's", "PythonString.Enquote"), "\"'it\\\\'s'\"");
}

TEST(ParameterCommand, WritesBytesThatAreNoLettersWhereALanguageCan) {
  // A stray byte, half of a letter, half of a pair and a letter that is longer
  // than it must be.
  const String odd = "a\xFC\xC3/\xED\xB2\x80\xC0\x80";
  EXPECT_EQ(Apply(odd, "PythonString"), "'a\\udcfc\\udcc3/\\udced\\udcb2\\udc80\\udcc0\\udc80'");
  EXPECT_EQ(Apply(odd, "LispString"), "\"" + odd + "\"");
  EXPECT_EQ(Refusal("a\xFC", "JsonString"), "JsonString needs a text in UTF-8, not \"a\xFC\"");
}

TEST(ParameterCommand, ReadsRanges) {
  struct Case {
    const char *Range, *Start, *End, *Count;
  };
  for (const Case& range :
       std::initializer_list<Case>{{"7-9", "7", "9", "3"},
                                   {"7", "7", "7", "1"},
                                   {"-5--1", "-5", "-1", "5"},
                                   {"-3", "-3", "-3", "1"},
                                   {"-2147483648-2147483647", "-2147483648", "2147483647", "4294967296"},
                                   {"10-1x3,20", "1", "20", "5"},
                                   {"", "", "", ""}}) {
    EXPECT_EQ(Apply(range.Range, "Start"), range.Start) << range.Range;
    EXPECT_EQ(Apply(range.Range, "End"), range.End) << range.Range;
    EXPECT_EQ(Apply(range.Range, "Count"), range.Count) << range.Range;
  }
  EXPECT_EQ(Refusal("abc", "Start"), "Start needs a frame range, not \"abc\"");
  EXPECT_EQ(Refusal(" ", "Count"), "Count needs a frame range, not \" \"");
}

TEST(ParameterCommand, PadsWholeNumbers) {
  EXPECT_EQ(Apply("7", "Pad(4)"), "0007");
  EXPECT_EQ(Apply("-7", "Pad(4)"), "-0007");
  EXPECT_EQ(Apply("+7", "Pad(2)"), "07");
  EXPECT_EQ(Apply("12345", "Pad(4)"), "12345");
  EXPECT_EQ(Apply("0012", "Pad(3)"), "012");
  EXPECT_EQ(Apply("000", "Pad(0)"), "0");
  EXPECT_EQ(Apply("", "Pad(4)"), "");
  EXPECT_EQ(Apply("7", "Pad(64)").size(), 64U);
  EXPECT_EQ(Refusal("7", "Pad(65)"), "Pad needs a number of digits from 0 to 64, not \"65\"");
  EXPECT_EQ(Refusal("7", "Pad(999999999999)"),
            "Pad needs a number of digits from 0 to 64, not \"999999999999\"");
  EXPECT_EQ(Refusal("7", "Pad(-1)"), "Pad needs a number of digits from 0 to 64, not \"-1\"");
  EXPECT_EQ(Refusal("7", "Pad()"), "Pad needs a number of digits from 0 to 64, not \"\"");
  EXPECT_EQ(Refusal("1-5", "Pad(3)"), "Pad needs a whole number, not \"1-5\"");
  EXPECT_EQ(Refusal("-", "Pad(3)"), "Pad needs a whole number, not \"-\"");
}

TEST(ParameterCommand, AddsToWholeNumbers) {
  EXPECT_EQ(Apply("7", "Add(1)"), "8");
  EXPECT_EQ(Apply("0", "Add(-1)"), "-1");
  EXPECT_EQ(Apply("-0012", "Add(+2)"), "-10");
  EXPECT_EQ(Apply("", "Add(1)"), "");
  EXPECT_EQ(Apply("1000000000000", "Add(1000000000000)"), "2000000000000");
  EXPECT_EQ(Refusal("1-5", "Add(1)"), "Add needs a whole number, not \"1-5\"");
  EXPECT_EQ(Refusal("+-5", "Add(1)"), "Add needs a whole number, not \"+-5\"");
  EXPECT_EQ(Refusal("1000000000001", "Add(1)"), "Add needs a whole number, not \"1000000000001\"");
  EXPECT_EQ(Refusal("7", "Add()"), "Add needs a whole number to add, not \"\"");
  EXPECT_EQ(Refusal("7", "Add(1.5)"), "Add needs a whole number to add, not \"1.5\"");
}

TEST(ParameterCommand, ChangesCaseOfAsciiLetters) {
  EXPECT_EQ(Apply("aBc\xC3\xA4", "Upper"), "ABC\xC3\xA4");
  EXPECT_EQ(Apply("aBc", "Lower"), "abc");
}

TEST(ParameterCommand, WritesOptionalTexts) {
  EXPECT_EQ(Apply("", "Default(none)"), "none");
  EXPECT_EQ(Apply("x", "Default(none)"), "x");
  EXPECT_EQ(Apply("x", "Prefix( -s )"), " -s x");
  EXPECT_EQ(Apply("", "Prefix(-s)"), "");
  EXPECT_EQ(Apply("x", "Suffix(.png)"), "x.png");
  EXPECT_EQ(Apply("", "Suffix(.png)"), "");
  EXPECT_EQ(Apply("x", "Prefix(C:\\renders\\\\)"), "C:\\renders\\x");
}

TEST(ParameterCommand, WritesAnOptionWithItsValueAsAWord) {
  EXPECT_EQ(Apply("a b", "Option(-i )"), "-i \"a b\"");
  EXPECT_EQ(Apply("a;b", "Option(--id=)"), "--id=\"a;b\"");
  EXPECT_EQ(Apply("x", "Option(-i )"), "-i x");
  EXPECT_EQ(Apply("", "Option(-i )"), "");
}

TEST(ParameterCommand, ChoosesByTruth) {
  EXPECT_EQ(Apply("Yes", "If(-a,-b)"), "-a");
  EXPECT_EQ(Apply("No", "If(-a,-b)"), "-b");
  EXPECT_EQ(Apply("", "If(-a,-b)"), "-b");
  EXPECT_EQ(Apply("yes", "If(-a)"), "-a");
  EXPECT_EQ(Apply("no", "If(-a)"), "");
  EXPECT_EQ(Apply("yes", "If(f(1,2),b,c)"), "f(1,2)");
  EXPECT_EQ(Apply("no", "If(f(1,2),b,c)"), "b,c");
  EXPECT_EQ(Apply("yes", "If(1\\,2,b)"), "1,2");
  EXPECT_EQ(Apply("yes", "If(\\(,b)"), "(");
}

TEST(ParameterCommand, ReplacesEveryOccurrence) {
  EXPECT_EQ(Apply("a/b/c", "Replace(/,::)"), "a::b::c");
  EXPECT_EQ(Apply("aaa", "Replace(a,)"), "");
  EXPECT_EQ(Apply("a,b", "Replace(\\,,;)"), "a;b");
  EXPECT_EQ(Refusal("a", "Replace(a)"), "Replace needs two texts with a comma between, not \"a\"");
  EXPECT_EQ(Refusal("a", "Replace(,x)"), "Replace needs two texts with a comma between, not \",x\"");
  EXPECT_EQ(Refusal(String(1 << 20, 'a'), "Replace(a," + String(1 << 10, 'b') + ")"),
            "Replace makes a text of more than 64 MiB");
}

TEST(ParameterCommand, WritesEachTextOfAListAsAWord) {
  EXPECT_EQ(Apply("inc;my dir;a\\;b", "Each(+L)"), "+Linc +L\"my dir\" +L\"a;b\"");
  EXPECT_EQ(Apply("a;;\"\";b", "Each(-i )"), "-i a -i b");
  EXPECT_EQ(Apply("a b;c", "Each()"), "\"a b\" c");
  EXPECT_EQ(Apply("", "Each(+L)"), "");
}

TEST(ParameterCommand, DoublesEveryPercentButThatOfTheNumber) {
  for (const auto& [pattern, doubled] :
       std::vector<std::pair<String, String>>{{"/s/a_%04d.png", "/s/a_%04d.png"},
                                              {"/s/a_%010d.png", "/s/a_%010d.png"},
                                              {"/s/a_%0255d.png", "/s/a_%0255d.png"},
                                              {"/50%/a_%d.png", "/50%%/a_%d.png"},
                                              {"/50%%/a_%4d.png", "/50%%/a_%4d.png"},
                                              {"/50%0_%01d.png", "/50%%0_%01d.png"},
                                              {"/a_%04d_%04d.png", "/a_%04d_%%04d.png"},
                                              {"%", "%%"},
                                              {"%%", "%%"},
                                              {"", ""}}) {
    EXPECT_EQ(Apply(pattern, "DoublePercent"), doubled);
  }
}

TEST(ParameterCommand, TranslatesPathsForThisMachine) {
  const Translations maps("/there", "/here");
  EXPECT_EQ(Apply("/there/a.png", "TranslateToLocal"), "/here/a.png");
  EXPECT_EQ(Apply("/thereabouts/a.png", "TranslateToLocal"), "/thereabouts/a.png");
  EXPECT_EQ(Apply("/no/such/file", "TranslateContents"), "/no/such/file");
}

TEST(ParameterCommand, GivesPathsWithoutCertainLetters) {
  const TemporaryDirectory directory;
  const EnvironmentValue temporary("TMPDIR", directory.Name());
  const auto plain = [](const String& value, const ParameterInfo* info) {
    return Job::ProcessParameterNameCommands(value, "PlainPath(NonASCII \")", SmartHandle<const Job>(), info);
  };
  const String folder = plain("/\xC3\xA4", nullptr);
  EXPECT_EQ(folder.substr(0, directory.Name().size() + 1), directory.Name() + "/");
  EXPECT_EQ(plain("/a b;c", nullptr), "/a b;c");
  EXPECT_EQ(plain("/\xC3\xA4/a;/b", nullptr), folder + "/a;/b");
  EXPECT_EQ(plain("", nullptr), "");
  // Of a list each text is a path.
  const ListParameterInfo list;
  EXPECT_EQ(plain("/a;/\xC3\xA4/b c;/\xC3\xA4", &list), "/a;" + folder + "/b c;" + folder);
  const FileParameterInfo file;
  EXPECT_EQ(plain("/\xC3\xA4/a;/b", &file), folder + "/a;/b");
  EXPECT_EQ(Refusal("/a", "PlainPath(Umlauts)"), "PlainPath:1: \"Umlauts\" names no letters; write NonASCII, "
                                                 "NonUTF8, Control, Blank or the signs themselves, "
                                                 "with blanks between\n    1 | Umlauts\n      | ^");
}

TEST(ParameterCommand, RefusesMalformedChains) {
  EXPECT_EQ(Refusal("x", "Lef"),
            "parameter commands:1: unknown parameter command \"Lef\"; did you mean \"Leaf\"?\n"
            "    1 | Lef\n"
            "      | ^");
  EXPECT_EQ(Refusal("x", "Leaf)"), "parameter commands:5: this \")\" closes nothing\n"
                                   "    1 | Leaf)\n"
                                   "      |     ^");
  EXPECT_EQ(Refusal("x", ""), "parameter commands:1: a parameter command is missing after \".\"\n"
                              "    1 | \n"
                              "      | ^");
}

TEST(ParameterCommand, ReferencesAreReadWithTheirPlaces) {
  const String text = "a $$(x) $(Scene.Base.Pad(4)).png";
  bool literal = false;
  EXPECT_EQ(FindReference(text, 0, literal), 3U);
  EXPECT_TRUE(literal);
  const std::size_t start = FindReference(text, 5, literal);
  EXPECT_EQ(start, 8U);
  EXPECT_FALSE(literal);
  Reference reference;
  ReferenceProblem problem;
  ASSERT_TRUE(ReadReference(text, start, reference, problem));
  EXPECT_EQ(reference.Name, "Scene");
  EXPECT_EQ(text.substr(reference.Begin, reference.End - reference.Begin), "$(Scene.Base.Pad(4))");
  ASSERT_EQ(reference.Calls.size(), 2U);
  EXPECT_EQ(text.substr(reference.Calls[1].Begin, reference.Calls[1].End - reference.Calls[1].Begin),
            "Pad(4)");
  EXPECT_EQ(FindReference(text, reference.End, literal), String::npos);
}

TEST(ParameterCommand, MalformedReferenceTellsItsPlace) {
  const auto refuse = [](const String& text) {
    Reference reference;
    ReferenceProblem problem;
    EXPECT_FALSE(ReadReference(text, 0, reference, problem)) << text;
    return text.substr(problem.Begin, problem.End - problem.Begin) + ": " + problem.Text();
  };
  EXPECT_EQ(refuse("$(a.Laef)"), "Laef: unknown parameter command \"Laef\"; did you mean \"Leaf\"?");
  EXPECT_EQ(refuse("$(a.Pad)"), "Pad: Pad needs an argument: Pad(n)");
  EXPECT_EQ(refuse("$(a.Pad(4"),
            "(4: this argument is never closed; write a backslash before a parenthesis that "
            "stands alone");
  EXPECT_EQ(refuse("$(a"), "$(a: this reference is never closed; add \")\", or write \"$$(\" where \"$(\" is "
                           "meant as it stands");
}

TEST(ParameterCommand, EveryCommandHasHelpAndIsFoundByItsName) {
  EXPECT_EQ(ParameterCommands().size(), 27U);
  for (const ParameterCommand& command : ParameterCommands()) {
    EXPECT_STRNE(command.Help, "") << command.Name;
    const String argument = *command.Arguments == '\0' ? "" : "(1,1)";
    EXPECT_EQ(Refusal("", String(command.Name).Upper() + argument), "nothing raised") << command.Name;
  }
}

TEST(ParameterCommand, DeepParenthesesAreReadWithoutDepth) {
  const String open(1 << 20, '(');
  const String close(1 << 20, ')');
  EXPECT_EQ(Apply("", "Default(" + open + close + ")").size(), std::size_t{2} << 20);
  EXPECT_LT(Refusal("", "Default(" + open).size(), 500U);
}

} // namespace
