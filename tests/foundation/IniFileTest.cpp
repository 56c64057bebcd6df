#include "host/foundation/IniFile.h"
#include "tests/foundation/AllocationWatch.h"

#include <gtest/gtest.h>

namespace {

IniFile Parsed(std::string_view text, bool keepOrder = false) {
  IniFile file(keepOrder);
  file.Parse(text);
  return file;
}

// A section as its walk yields it: "key=value" texts.
std::vector<std::string> Walk(IniFile& file, const String& section) {
  std::vector<std::string> entries;
  file.SetSection(section);
  String key;
  String value;
  while (file.GetNextValue(key, value)) {
    entries.push_back(key + "=" + value);
  }
  return entries;
}

using Entries = std::vector<std::string>;

const char* Name(IniFile::Oddity::Kind kind) {
  using Kind = IniFile::Oddity::Kind;
  switch (kind) {
  case Kind::NoEquals:
    return "NoEquals";
  case Kind::NoSection:
    return "NoSection";
  case Kind::UnclosedSection:
    return "UnclosedSection";
  case Kind::TextAfterSection:
    return "TextAfterSection";
  case Kind::EmptyKey:
    return "EmptyKey";
  case Kind::RepeatedKey:
    return "RepeatedKey";
  case Kind::RepeatedSection:
    return "RepeatedSection";
  case Kind::NulByte:
    return "NulByte";
  }
  return "?";
}

std::vector<std::string> Oddities(const IniFile& file) {
  std::vector<std::string> lines;
  for (const IniFile::Oddity& oddity : file.Oddities()) {
    lines.push_back(std::to_string(oddity.Place.Line) + ":" + std::to_string(oddity.Place.Column) + " " +
                    Name(oddity.What) + " " + oddity.Text);
  }
  return lines;
}

std::string Places(const IniFile& file, const String& section, const String& key) {
  IniFile::EntryView entry;
  if (!file.FindEntry(section, key, entry)) {
    return "missing";
  }
  const auto text = [](TextPlace place) {
    return std::to_string(place.Line) + ":" + std::to_string(place.Column);
  };
  return text(entry.KeyPlace) + " " + text(entry.ValuePlace);
}

TEST(IniFile, IsEmptyAtFirst) {
  IniFile file;
  EXPECT_EQ(file.Filename().Text(), "");
  EXPECT_TRUE(file.SectionNames().empty());
  EXPECT_FALSE(file.SetSection(""));
  String key;
  String value;
  EXPECT_FALSE(file.GetNextValue(key, value));
}

TEST(IniFile, EntriesAreSplitAtTheFirstEqualsSign) {
  IniFile file = Parsed("[a]\nk=v\nx=1=2==\ne=\n");
  EXPECT_EQ(Walk(file, "a"), (Entries{"e=", "k=v", "x=1=2=="}));
}

TEST(IniFile, BlanksAroundNamesKeysAndValuesAreDropped) {
  IniFile file = Parsed(" \t[ \ta b\t ] \t\n \tk c\t = \tv w\t \n");
  EXPECT_EQ(file.SectionNames(), std::vector<String>{"a b"});
  EXPECT_EQ(Walk(file, "a b"), Entries{"k c=v w"});
  EXPECT_EQ(Oddities(file), Entries{});
}

TEST(IniFile, QuotesAreKept) {
  IniFile file = Parsed("[a]\nk=\" v \"\n'q'='x'\n");
  EXPECT_EQ(Walk(file, "a"), (Entries{"'q'='x'", "k=\" v \""}));
}

TEST(IniFile, CommentsBeginALineAndNeverEndOne) {
  IniFile file = Parsed("; one\n# two\n[a]\n  ; k=1\n\t#k=2\n;[b]\nk=v ; w # x\nl=#1\n");
  EXPECT_EQ(file.SectionNames(), std::vector<String>{"a"});
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=v ; w # x", "l=#1"}));
  EXPECT_EQ(Oddities(file), Entries{});
}

TEST(IniFile, CarriageReturnsEndLinesWithLineFeeds) {
  IniFile file = Parsed("[a]\r\nk=v\r\n\r\n; c\r\nempty=\r\nx=a\rb\r\n");
  EXPECT_EQ(Walk(file, "a"), (Entries{"empty=", "k=v", "x=a\rb"}));
  EXPECT_EQ(Oddities(file), Entries{});
  EXPECT_EQ(Places(file, "a", "empty"), "5:1 5:7");
}

TEST(IniFile, AUtf8MarkIsSkippedAndCountsNoColumn) {
  IniFile file = Parsed("\xEF\xBB\xBF[a]\nk=v\n");
  EXPECT_EQ(Walk(file, "a"), Entries{"k=v"});
  EXPECT_EQ(file.SectionPlace("a").Line, 1U);
  EXPECT_EQ(file.SectionPlace("a").Column, 1U);
  EXPECT_EQ(Oddities(file), Entries{});
  EXPECT_TRUE(Parsed("\xEF\xBB\xBF").SectionNames().empty());
  EXPECT_EQ(Oddities(Parsed("\xEF\xBB")), Entries{"1:1 NoEquals \xEF\xBB"});
}

TEST(IniFile, AMissingLastLineFeedIsAccepted) {
  IniFile file = Parsed("[a]\nk=v");
  EXPECT_EQ(Walk(file, "a"), Entries{"k=v"});
  EXPECT_TRUE(Parsed("[a]").SetSection("a"));
}

TEST(IniFile, SectionsAndKeysMatchInAnyCase) {
  IniFile file = Parsed("[Module]\nCommand=x\n");
  EXPECT_TRUE(file.SetSection("mODULE"));
  String value;
  EXPECT_TRUE(file.GetValue("COMMAND", value));
  EXPECT_EQ(value, "x");
}

TEST(IniFile, LettersBeyondAsciiMatchAsTheyAre) {
  IniFile file = Parsed("[\xC3\x84]\n");
  EXPECT_TRUE(file.SetSection("\xC3\x84"));
  EXPECT_FALSE(file.SetSection("\xC3\xA4"));
}

TEST(IniFile, ARepeatedSectionContinuesTheFirst) {
  IniFile file = Parsed("[A]\nk=1\n[b]\nx=1\n[a]\nl=2\n");
  EXPECT_EQ(file.SectionNames(), (std::vector<String>{"A", "b"}));
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=1", "l=2"}));
  EXPECT_EQ(Walk(file, "b"), Entries{"x=1"});
  EXPECT_EQ(file.SectionPlace("a").Line, 1U);
  EXPECT_EQ(Oddities(file), Entries{"5:1 RepeatedSection a"});
}

TEST(IniFile, ARepeatedKeyKeepsItsFirstSpellingAndHasTheLastValue) {
  IniFile file = Parsed("[a]\nKey=1\nKEY=2\nkey=3\n");
  EXPECT_EQ(Walk(file, "a"), Entries{"Key=3"});
  EXPECT_EQ(Places(file, "a", "key"), "2:1 4:5");
  EXPECT_EQ(Oddities(file), (Entries{"3:1 RepeatedKey KEY", "4:1 RepeatedKey key"}));
}

TEST(IniFile, AKeyRepeatedInAContinuedSectionCountsToo) {
  IniFile file = Parsed("[a]\nk=1\n[b]\nk=2\n[A]\nK=3\n");
  EXPECT_EQ(Walk(file, "a"), Entries{"k=3"});
  EXPECT_EQ(Walk(file, "b"), Entries{"k=2"});
  EXPECT_EQ(Oddities(file), (Entries{"5:1 RepeatedSection A", "6:1 RepeatedKey K"}));
}

TEST(IniFile, WalksGoByKeyWithoutRegardToCase) {
  IniFile file = Parsed("[a]\nb=1\nC=2\nA=3\n_=4\n10=5\n2=6\n1=7\n");
  EXPECT_EQ(Walk(file, "a"), (Entries{"1=7", "10=5", "2=6", "_=4", "A=3", "b=1", "C=2"}));
}

TEST(IniFile, AFileThatKeepsOrderIsWalkedAsWritten) {
  IniFile file = Parsed("[a]\nb=1\nC=2\n[x]\nz=0\n[a]\nA=3\nc=4\n", true);
  EXPECT_EQ(Walk(file, "a"), (Entries{"b=1", "C=4", "A=3"}));
  file.SetValue("a", "0", "5");
  file.SetValue("a", "b", "6");
  EXPECT_EQ(Walk(file, "a"), (Entries{"b=6", "C=4", "A=3", "0=5"}));
}

TEST(IniFile, EntriesAndSectionNamesComeInTheOrderOfTheFile) {
  const IniFile file = Parsed("[z]\nb=1\na=2\n[m]\n[y]\n");
  EXPECT_EQ(file.SectionNames(), (std::vector<String>{"z", "m", "y"}));
  std::vector<std::string> keys;
  for (const IniFile::EntryView& entry : file.Entries("Z")) {
    keys.emplace_back(entry.Key);
  }
  EXPECT_EQ(keys, (Entries{"b", "a"}));
  EXPECT_TRUE(file.Entries("m").empty());
  EXPECT_TRUE(file.Entries("none").empty());
}

TEST(IniFile, PlacesAreKnown) {
  const IniFile file = Parsed("; c\n\n  [ a ]\n\tkey = value \n  empty=  \nnone=\n");
  EXPECT_EQ(file.SectionPlace("a").Line, 3U);
  EXPECT_EQ(file.SectionPlace("a").Column, 3U);
  EXPECT_EQ(Places(file, "a", "key"), "4:2 4:8");
  EXPECT_EQ(Places(file, "a", "empty"), "5:3 5:9");
  EXPECT_EQ(Places(file, "a", "none"), "6:1 6:6");
  EXPECT_EQ(file.SectionPlace("b").Line, 0U);
  EXPECT_EQ(Places(file, "a", "other"), "missing");
  EXPECT_EQ(Places(file, "b", "key"), "missing");
}

TEST(IniFile, SetValuesHaveNoPlace) {
  IniFile file = Parsed("[a]\nk=v\n");
  file.SetValue("a", "k", "w");
  file.SetValue("b", "k", "w");
  EXPECT_EQ(Places(file, "a", "k"), "2:1 0:0");
  EXPECT_EQ(Places(file, "b", "k"), "0:0 0:0");
  EXPECT_EQ(file.SectionPlace("b").Line, 0U);
}

TEST(IniFile, EveryOddityIsKeptWithPlaceAndText) {
  using namespace std::string_literals;
  const IniFile file = Parsed("early=1\n"
                              " word here\n"
                              "[open\n"
                              "[a] ; trailing\n"
                              "  =value\n"
                              " nothing \n"
                              "k=1\n"
                              "  K = 2\n"
                              "  [A]  rest ]\n"
                              " n\0l=x\0\n"
                              "[]\n"s);
  EXPECT_EQ(Oddities(file),
            (Entries{"1:1 NoSection early=1", "2:2 NoEquals word here", "3:1 UnclosedSection [open",
                     "4:5 TextAfterSection ; trailing", "5:3 EmptyKey =value", "6:2 NoEquals nothing",
                     "8:3 RepeatedKey K", "9:3 RepeatedSection A", "9:8 TextAfterSection rest ]",
                     "10:3 NulByte n\0l=x\0"s}));
  EXPECT_EQ(file.SectionNames(), (std::vector<String>{"a", ""}));
}

TEST(IniFile, LinesThatAreNotUnderstoodAreSkipped) {
  IniFile file = Parsed("[a]\nk=1\nnonsense\n=x\n[open\nl=2\n");
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=1", "l=2"}));
}

TEST(IniFile, TheFirstBracketEndsASectionName) {
  const IniFile file = Parsed("[a]b]\n[[c]\n");
  EXPECT_EQ(file.SectionNames(), (std::vector<String>{"a", "[c"}));
  EXPECT_EQ(Oddities(file), Entries{"1:4 TextAfterSection b]"});
}

TEST(IniFile, ASectionMayHaveAnEmptyName) {
  IniFile file = Parsed("[ ]\nk=v\n[]\nl=w\n");
  EXPECT_TRUE(file.SetSection(""));
  EXPECT_EQ(Walk(file, ""), (Entries{"k=v", "l=w"}));
}

TEST(IniFile, IntegersAreReadLikeStrtolAndCut) {
  IniFile file =
      Parsed("[a]\nempty=\ndigits=12abc\nletters=abc\nplus=+7\nminus=-8\nhex=0x10\noctal=010\n"
             "large=2147483648\nwrap=4294967301\nhuge=99999999999999999999\nlow=-99999999999999999999\n"
             "inner=1 2\n");
  file.SetSection("a");
  const auto read = [&file](const char* key) {
    int value = 77;
    EXPECT_TRUE(file.GetValue(key, value)) << key;
    return value;
  };
  EXPECT_EQ(read("empty"), 0);
  EXPECT_EQ(read("digits"), 12);
  EXPECT_EQ(read("letters"), 0);
  EXPECT_EQ(read("plus"), 7);
  EXPECT_EQ(read("minus"), -8);
  EXPECT_EQ(read("hex"), 0);
  EXPECT_EQ(read("octal"), 10);
  EXPECT_EQ(read("large"), -2147483647 - 1);
  EXPECT_EQ(read("wrap"), 5);
  EXPECT_EQ(read("huge"), -1); // the largest 64-bit value, cut
  EXPECT_EQ(read("low"), 0);
  EXPECT_EQ(read("inner"), 1);
}

TEST(IniFile, BooleansAreReadAsTruths) {
  IniFile file = Parsed("[a]\nyes=Yes\nno=No\nempty=\n");
  file.SetSection("a");
  bool value = false;
  EXPECT_TRUE(file.GetValue("yes", value));
  EXPECT_TRUE(value);
  EXPECT_TRUE(file.GetValue("no", value));
  EXPECT_FALSE(value);
  value = true;
  EXPECT_TRUE(file.GetValue("empty", value));
  EXPECT_FALSE(value);
}

TEST(IniFile, AMissingKeyLeavesTheValueAsItWas) {
  IniFile file = Parsed("[a]\nk=v\n[b]\nother=1\n");
  file.SetSection("a");
  String text = "untouched";
  int number = 77;
  bool truth = true;
  EXPECT_FALSE(file.GetValue("other", text));
  EXPECT_FALSE(file.GetValue("other", number));
  EXPECT_FALSE(file.GetValue("other", truth));
  EXPECT_EQ(text, "untouched");
  EXPECT_EQ(number, 77);
  EXPECT_TRUE(truth);
}

TEST(IniFile, DefaultsAnswerForMissingKeysAndSections) {
  IniFile file = Parsed("[a]\ntext=v\nnumber=12\ntruth=yes\nempty=\n");
  EXPECT_EQ(file.GetValue("A", "TEXT", String("d")), "v");
  EXPECT_EQ(file.GetValue("a", "none", String("d")), "d");
  EXPECT_EQ(file.GetValue("none", "text", "d"), "d");
  EXPECT_EQ(file.GetValue("a", "empty", "d"), "");
  EXPECT_EQ(file.GetValue("a", "number", 7), 12);
  EXPECT_EQ(file.GetValue("a", "none", 7), 7);
  EXPECT_EQ(file.GetValue("a", "empty", 7), 0);
  EXPECT_TRUE(file.GetValue("a", "truth", false));
  EXPECT_TRUE(file.GetValue("a", "none", true));
  EXPECT_FALSE(file.GetValue("a", "empty", true));
}

TEST(IniFile, DefaultGettersLeaveTheCurrentSection) {
  IniFile file = Parsed("[a]\nk=1\nl=2\n[b]\nk=3\n");
  file.SetSection("a");
  String key;
  String value;
  EXPECT_TRUE(file.GetNextValue(key, value));
  EXPECT_EQ(file.GetValue("b", "k", ""), "3");
  EXPECT_TRUE(file.GetNextValue(key, value));
  EXPECT_EQ(key, "l");
  EXPECT_TRUE(file.GetValue("k", value));
  EXPECT_EQ(value, "1");
}

TEST(IniFile, AMissingSectionYieldsNothing) {
  IniFile file = Parsed("[a]\nk=1\n");
  EXPECT_TRUE(file.SetSection("a"));
  EXPECT_FALSE(file.SetSection("b"));
  String key = "untouched";
  String value = "untouched";
  EXPECT_FALSE(file.GetNextValue(key, value));
  EXPECT_FALSE(file.GetValue("k", value));
  EXPECT_EQ(key, "untouched");
  EXPECT_EQ(value, "untouched");
}

TEST(IniFile, SelectingASectionStartsItsWalkAnew) {
  IniFile file = Parsed("[a]\nk=1\nl=2\n");
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=1", "l=2"}));
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=1", "l=2"}));
}

TEST(IniFile, SettingAValueStartsTheWalkAnew) {
  IniFile file = Parsed("[a]\nk=1\nl=2\n");
  file.SetSection("a");
  String key;
  String value;
  file.GetNextValue(key, value);
  file.GetNextValue(key, value);
  file.SetValue("a", "a", "0");
  EXPECT_TRUE(file.GetNextValue(key, value));
  EXPECT_EQ(key + "=" + value, "a=0");
}

TEST(IniFile, ValuesAreSetInNewEmptyAndFilledSections) {
  IniFile file = Parsed("[a]\nk=1\n[empty]\n[c]\nz=9\n");
  file.SetValue("new", "n", "1");
  file.SetValue("EMPTY", "e", "2");
  file.SetValue("A", "j", "3");
  file.SetValue("a", "K", "a longer value");
  file.SetValue("c", "z", "");
  EXPECT_EQ(file.SectionNames(), (std::vector<String>{"a", "empty", "c", "new"}));
  EXPECT_EQ(Walk(file, "a"), (Entries{"j=3", "k=a longer value"}));
  EXPECT_EQ(Walk(file, "empty"), Entries{"e=2"});
  EXPECT_EQ(Walk(file, "c"), Entries{"z="});
  EXPECT_EQ(Walk(file, "new"), Entries{"n=1"});
}

TEST(IniFile, AValueThatChangesForeverDoesNotFillTheMemory) {
  IniFile file = Parsed("[a]\nother=kept\nk=1\nk=2\n[b]\nx=y\n");
  const String text(1000, 'x');
  StartAllocationWatch();
  for (int i = 0; i < 10000; ++i) {
    file.SetValue("a", "k", text);
    file.SetValue("a", "k", "");
  }
  EXPECT_LE(LargestAllocation(), std::size_t{1} << 20U);
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=", "other=kept"}));
  EXPECT_EQ(Walk(file, "b"), Entries{"x=y"});
  EXPECT_EQ(Places(file, "a", "other"), "2:1 2:7");
}

TEST(IniFile, ManyKeysAndSectionsWithOneBeginningAreOrdered) {
  std::string text;
  for (int section = 40; section > 0; --section) {
    text += "[The Same Beginning " + std::to_string(100 + section) + "]\n";
    for (int key = 40; key > 0; --key) {
      text += (key % 2 == 0 ? "the_same_beginning_" : "The_Same_Beginning_") + std::to_string(100 + key) +
              "=" + std::to_string(section) + "\n";
    }
  }
  text += "[the same beginning 101]\nTHE_SAME_BEGINNING_101=again\n";
  IniFile file = Parsed(text);
  EXPECT_EQ(file.SectionNames().size(), 40U);
  for (int section = 1; section <= 40; ++section) {
    Entries expected;
    for (int key = 1; key <= 40; ++key) {
      const bool again = section == 1 && key == 1;
      expected.push_back((key % 2 == 0 ? "the_same_beginning_" : "The_Same_Beginning_") +
                         std::to_string(100 + key) + "=" + (again ? "again" : std::to_string(section)));
    }
    ASSERT_EQ(Walk(file, "the same beginning " + std::to_string(100 + section)), expected);
  }
}

TEST(IniFile, ACopyOfAnEmptyFileStaysEmpty) {
  IniFile file;
  IniFile copy(file);
  file.Parse("[a]\nk=v\n");
  EXPECT_TRUE(copy.SectionNames().empty());
  copy.Parse("[b]\nk=v\n");
  EXPECT_EQ(file.SectionNames(), std::vector<String>{"a"});
}

TEST(IniFile, ACopyIsIndependent) {
  IniFile file = Parsed("[a]\nk=1\n");
  file.SetFilename("/x/a.tvx");
  IniFile copy(file, false);
  file.SetValue("a", "k", "2");
  file.SetValue("b", "k", "3");
  EXPECT_EQ(copy.Filename().Text(), "/x/a.tvx");
  EXPECT_EQ(Walk(copy, "a"), Entries{"k=1"});
  EXPECT_FALSE(copy.SetSection("b"));
  copy.SetValue("a", "k", "4");
  EXPECT_EQ(Walk(file, "a"), Entries{"k=2"});
}

TEST(IniFile, ACopyOutlivesItsOriginal) {
  auto file = std::make_unique<IniFile>(Parsed("[a]\nk=1\n"));
  IniFile copy(*file, false);
  file.reset();
  EXPECT_EQ(Walk(copy, "a"), Entries{"k=1"});
}

TEST(IniFile, ACopyKeepsThePositionOnlyWhenAsked) {
  for (const bool keepOrder : {false, true}) {
    IniFile file = Parsed("[a]\nk=1\nl=2\n", keepOrder);
    file.SetSection("a");
    String key;
    String value;
    file.GetNextValue(key, value);
    IniFile with(file, true);
    IniFile without(file, false);
    IniFile assigned;
    assigned = file;
    EXPECT_TRUE(with.GetNextValue(key, value));
    EXPECT_EQ(key, "l");
    EXPECT_TRUE(assigned.GetNextValue(key, value));
    EXPECT_EQ(key, "l");
    EXPECT_FALSE(without.GetNextValue(key, value));
    EXPECT_FALSE(without.GetValue("k", value));
    EXPECT_EQ(Walk(without, "a"), (Entries{"k=1", "l=2"}));
  }
}

TEST(IniFile, ACopyKeepsOrderAndOddities) {
  IniFile file = Parsed("[a]\nz=1\nb=2\nodd\n", true);
  IniFile copy(file, false);
  EXPECT_EQ(Walk(copy, "a"), (Entries{"z=1", "b=2"}));
  EXPECT_EQ(Oddities(copy), Entries{"4:1 NoEquals odd"});
}

TEST(IniFile, AssigningItselfChangesNothing) {
  IniFile file = Parsed("[a]\nk=1\n");
  const IniFile& same = file;
  file = same;
  EXPECT_EQ(Walk(file, "a"), Entries{"k=1"});
}

TEST(IniFile, ParsingReplacesOrAdds) {
  IniFile file = Parsed("[a]\nk=1\nl=2\nodd one\n[b]\nx=1\n");
  file.SetSection("a");
  file.Parse("odd two\n[A]\nK=3\nm=4\n[c]\ny=5\n", false);
  String value;
  EXPECT_FALSE(file.GetValue("l", value)); // no section is current
  EXPECT_EQ(file.SectionNames(), (std::vector<String>{"a", "b", "c"}));
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=3", "l=2", "m=4"}));
  EXPECT_EQ(Walk(file, "b"), Entries{"x=1"});
  EXPECT_EQ(Walk(file, "c"), Entries{"y=5"});
  EXPECT_EQ(Oddities(file), (Entries{"4:1 NoEquals odd one", "1:1 NoEquals odd two", "2:1 RepeatedSection A",
                                     "3:1 RepeatedKey K"}));
  EXPECT_EQ(Places(file, "a", "k"), "2:1 3:3");
  file.Parse("[d]\nz=1\n");
  EXPECT_EQ(file.SectionNames(), std::vector<String>{"d"});
  EXPECT_EQ(Oddities(file), Entries{});
}

TEST(IniFile, AnAddedTextBeginsOutsideSections) {
  IniFile file = Parsed("[a]\nk=1\n");
  file.Parse("k=2\n", false);
  EXPECT_EQ(Walk(file, "a"), Entries{"k=1"});
  EXPECT_EQ(Oddities(file), Entries{"1:1 NoSection k=2"});
}

TEST(IniFile, AddingToSetValuesKeepsThem) {
  IniFile file = Parsed("[a]\nk=1\n");
  file.SetValue("a", "k", "set");
  file.SetValue("n", "k", "set too");
  file.Parse("[a]\nl=2\n", false);
  EXPECT_EQ(Walk(file, "a"), (Entries{"k=set", "l=2"}));
  EXPECT_EQ(Walk(file, "n"), Entries{"k=set too"});
}

TEST(IniFile, NulBytesArePlainInNamesAndValues) {
  using namespace std::string_literals;
  IniFile file = Parsed("[a\0b]\nk\0=v\0w\nn=1\0002\n"s);
  EXPECT_FALSE(file.SetSection("a"));
  EXPECT_TRUE(file.SetSection("A\0B"s));
  String value;
  EXPECT_FALSE(file.GetValue("k", value));
  EXPECT_TRUE(file.GetValue("k\0"s, value));
  EXPECT_EQ(value, "v\0w"s);
  int number = 0;
  EXPECT_TRUE(file.GetValue("n", number));
  EXPECT_EQ(number, 1);
}

TEST(IniFile, AMillionOddLinesAreNotAllKept) {
  std::string text = "[a]\n";
  for (int i = 0; i < 1000000; ++i) {
    text += "x\n";
  }
  text += "k=v\n";
  IniFile file = Parsed(text);
  EXPECT_EQ(file.Oddities().size(), IniFile::k_OddityLimit);
  EXPECT_EQ(Walk(file, "a"), Entries{"k=v"});
}

TEST(IniFile, ThreeHundredThousandSectionsAreParsed) {
  std::string text;
  for (int i = 0; i < 300000; ++i) {
    text += "[s" + std::to_string(i * 7919L % 300000) + "]\nk=" + std::to_string(i) + "\n";
  }
  IniFile file = Parsed(text);
  EXPECT_EQ(file.SectionNames().size(), 300000U);
  EXPECT_EQ(file.GetValue("S7919", "K", ""), "1");
  EXPECT_EQ(Walk(file, "s0"), Entries{"k=0"});
}

TEST(IniFile, ThreeHundredThousandKeysAreParsed) {
  std::string text = "[a]\n";
  for (int i = 0; i < 300000; ++i) {
    text += "k" + std::to_string(i * 7919L % 300000) + "=" + std::to_string(i) + "\n";
  }
  IniFile file = Parsed(text);
  EXPECT_EQ(file.GetValue("a", "K7919", ""), "1");
  EXPECT_EQ(Walk(file, "a").size(), 300000U);
  EXPECT_EQ(Oddities(file), Entries{});
}

TEST(IniFile, AHundredThousandRepeatsOfOneKeyAreOneEntry) {
  std::string text = "[a]\n";
  for (int i = 0; i < 100000; ++i) {
    text += i % 2 == 0 ? "Key=" : "KEY=";
    text += std::to_string(i) + "\n";
  }
  IniFile file = Parsed(text);
  EXPECT_EQ(Walk(file, "a"), Entries{"Key=99999"});
}

TEST(IniFile, AHundredThousandRepeatsOfOneSectionAreOneSection) {
  std::string text;
  for (int i = 0; i < 100000; ++i) {
    text += "[a]\nk" + std::to_string(i % 10) + "=" + std::to_string(i) + "\n";
  }
  IniFile file = Parsed(text);
  EXPECT_EQ(file.SectionNames(), std::vector<String>{"a"});
  EXPECT_EQ(Walk(file, "a").size(), 10U);
}

TEST(IniFile, ManySetValuesBuildAFile) {
  IniFile file;
  for (int i = 0; i < 20000; ++i) {
    file.SetValue("s" + std::to_string(i % 100), "k" + std::to_string(i), std::to_string(i));
  }
  EXPECT_EQ(file.SectionNames().size(), 100U);
  EXPECT_EQ(Walk(file, "s42").size(), 200U);
  EXPECT_EQ(file.GetValue("s42", "k1042", 0), 1042);
}

} // namespace
