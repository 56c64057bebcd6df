#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace {

String Why(const ParameterInfo& info, const String& value) {
  String why = "accepted";
  const bool accepted = info.Accepts(value, why);
  EXPECT_EQ(accepted, why == "accepted");
  return why;
}

String Why(ParameterInfo::TYPE type, const String& value) {
  return Why(*ParameterInfo::Create(type), value);
}

TEST(ParameterInfo, AcceptsWholeNumbersOf32BitsWithinTheirLimits) {
  for (const char* value : {"", "0", "-5", "+7", "007", "2147483647", "-2147483648", "$(Width)"}) {
    EXPECT_EQ(Why(ParameterInfo::k_Integer, value), "accepted") << value;
  }
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "abc"), "\"abc\" is no whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "12abc"), "\"12abc\" is no whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, " 5"), "\" 5\" is no whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "1.5"), "\"1.5\" is no whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "-"), "\"-\" is no whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "+-5"), "\"+-5\" is no whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "2147483648"),
            "2147483648 is beyond the 32 bits of a whole number");
  EXPECT_EQ(Why(ParameterInfo::k_Integer, "-2147483649"),
            "-2147483649 is beyond the 32 bits of a whole number");
  ParameterInfo limited(ParameterInfo::k_Integer);
  limited.Minimum = 0;
  limited.Maximum = 100;
  EXPECT_EQ(Why(limited, "100"), "accepted");
  EXPECT_EQ(Why(limited, "120"), "120 is above the maximum of 100");
  EXPECT_EQ(Why(limited, "-1"), "-1 is below the minimum of 0");
}

TEST(ParameterInfo, AcceptsDecimalNumbers) {
  for (const char* value : {"0", "-0.5", "+1.25", "1e3", ".5"}) {
    EXPECT_EQ(Why(ParameterInfo::k_Decimal, value), "accepted") << value;
  }
  EXPECT_EQ(Why(ParameterInfo::k_Decimal, "1,5"), "\"1,5\" is no number; write 1.5");
  EXPECT_EQ(Why(ParameterInfo::k_Decimal, "inf"), "\"inf\" is no number");
  EXPECT_EQ(Why(ParameterInfo::k_Decimal, "nan"), "\"nan\" is no number");
  EXPECT_EQ(Why(ParameterInfo::k_Decimal, "1e999"), "\"1e999\" is no number");
  EXPECT_EQ(Why(ParameterInfo::k_Decimal, "0x10"), "\"0x10\" is no number");
  ParameterInfo limited(ParameterInfo::k_Decimal);
  limited.Minimum = 0.5;
  EXPECT_EQ(Why(limited, "0.4"), "0.4 is below the minimum of 0.5");
}

TEST(ParameterInfo, AcceptsOneOfItsChoicesInAnyCase) {
  ParameterInfo choice(ParameterInfo::k_Choice);
  choice.Choices = {"low", "medium", "high"};
  EXPECT_EQ(Why(choice, "low"), "accepted");
  EXPECT_EQ(Why(choice, "HIGH"), "accepted");
  EXPECT_EQ(Why(choice, "hgih"), "\"hgih\" is none of low, medium, high; did you mean \"high\"?");
  EXPECT_EQ(Why(choice, "excellent"), "\"excellent\" is none of low, medium, high");
}

TEST(ParameterInfo, AcceptsFrameRanges) {
  EXPECT_EQ(Why(ParameterInfo::k_Range, "1-100x5,200"), "accepted");
  EXPECT_EQ(Why(ParameterInfo::k_Range, "10-"), "frame range:1:4: a number is missing after \"-\"\n"
                                                "    1 | 10-\n"
                                                "      |    ^");
}

TEST(ParameterInfo, AcceptsDurations) {
  const std::vector<std::pair<const char*, double>> good = {{"90", 90},   {"90s", 90},   {"5m", 300},
                                                            {"2h", 7200}, {"1d", 86400}, {"1.5h", 5400},
                                                            {"0", 0},     {"3 M", 180}};
  for (const auto& [text, wanted] : good) {
    double seconds = -1;
    EXPECT_TRUE(ParseDuration(text, seconds)) << text;
    EXPECT_EQ(seconds, wanted) << text;
    EXPECT_EQ(Why(ParameterInfo::k_Duration, text), "accepted");
  }
  for (const char* text : {"", "-5", "s", "5 parsecs", "1h30m", "inf", "1e999", "1e308d"}) {
    double seconds = -1;
    EXPECT_FALSE(ParseDuration(text, seconds)) << text;
    EXPECT_EQ(seconds, -1) << text;
  }
  EXPECT_EQ(Why(ParameterInfo::k_Duration, "5 parsecs"),
            "\"5 parsecs\" is no duration; write seconds, or a number with s, m, h or d as in 90s or 2h");
  ParameterInfo limited(ParameterInfo::k_Duration);
  limited.Maximum = 60;
  EXPECT_EQ(Why(limited, "2m"), "2m is above the maximum of 60");
}

TEST(ParameterInfo, AcceptsWordsForYesAndNo) {
  for (const auto type : {ParameterInfo::k_Boolean, ParameterInfo::k_BoolOverride}) {
    for (const char* word :
         {"yes", "No", "TRUE", "false", "on", "off", "y", "n", "t", "f", "1", "0", " Yes ", ""}) {
      EXPECT_EQ(Why(type, word), "accepted") << word;
    }
    EXPECT_EQ(Why(type, "maybe"), "\"maybe\" is neither yes nor no");
    EXPECT_EQ(Why(type, "2"), "\"2\" is neither yes nor no");
  }
}

TEST(ParameterInfo, LooksIntoReferencesOnlyWhereTheyAreLiteral) {
  EXPECT_EQ(Why(ParameterInfo::k_Boolean, "$(Other)"), "accepted");
  ParameterInfo literal(ParameterInfo::k_Boolean);
  literal.Flags = ParameterInfo::k_Literal;
  EXPECT_EQ(Why(literal, "$(Other)"), "\"$(Other)\" is neither yes nor no");
  EXPECT_TRUE(ParameterInfo(ParameterInfo::k_File).IsLiteral());
  EXPECT_FALSE(ParameterInfo(ParameterInfo::k_Folder).IsLiteral());
}

TEST(ParameterInfo, RefusesTheByteZeroEverywhereAndValuesOfHeadings) {
  const String nul("a\0b", 3);
  for (const auto type :
       {ParameterInfo::k_Text, ParameterInfo::k_File, ParameterInfo::k_List, ParameterInfo::k_Integer}) {
    EXPECT_EQ(Why(type, nul), "a value cannot hold the byte 0, which ends every argument of a program");
  }
  EXPECT_EQ(Why(ParameterInfo::k_Heading, "x"), "a heading has no value");
  EXPECT_EQ(Why(ParameterInfo::k_Heading, ""), "accepted");
  for (const auto type : {ParameterInfo::k_Text, ParameterInfo::k_Multiline, ParameterInfo::k_File,
                          ParameterInfo::k_Folder, ParameterInfo::k_List}) {
    EXPECT_EQ(Why(type, "any; \"text\"\n"), "accepted");
  }
}

TEST(ParameterInfo, MessagesStayShortAndPlainForHostileValues) {
  const String why = Why(ParameterInfo::k_Integer, "\x1b[31m" + String(1 << 20, 'a'));
  EXPECT_LT(why.size(), 150U);
  EXPECT_EQ(why.substr(0, 8), "\"?[31maa");
}

TEST(ParameterInfo, CreatesTheClassOfEachKind) {
  for (const String& name : ParameterTypeNames()) {
    const std::optional<ParameterInfo::TYPE> type = ParameterTypeFromName(name.Upper());
    ASSERT_TRUE(type.has_value()) << name;
    const std::unique_ptr<ParameterInfo> info = ParameterInfo::Create(*type);
    EXPECT_EQ(info->Type(), *type);
    EXPECT_EQ(ParameterTypeName(*type), name);
    EXPECT_EQ(ListParameterInfo::CastFrom(info.get()) != nullptr, name == "List");
    EXPECT_EQ(FileParameterInfo::CastFrom(info.get()) != nullptr, name == "File" || name == "Folder");
    EXPECT_EQ(BoolOverrideInfo::CastFrom(info.get()) != nullptr, name == "BoolOverride");
  }
  EXPECT_EQ(ParameterTypeNames().size(), 13U);
  EXPECT_EQ(ParameterTypeFromName("Interger"), std::nullopt);
  ParameterInfo* none = nullptr;
  EXPECT_EQ(ListParameterInfo::CastFrom(none), nullptr);
  EXPECT_EQ(ParameterInfo::k_BoolOverride, 10);
  EXPECT_EQ(ParameterInfo::k_List, 16);
}

TEST(ParameterInfo, PacksListsReadably) {
  const ListParameterInfo list;
  EXPECT_EQ(list.Pack({}), "");
  EXPECT_EQ(list.Pack({""}), "\"\"");
  EXPECT_EQ(list.Pack({"error:", "fatal"}), "error:;fatal");
  EXPECT_EQ(list.Pack({"a;b", "say \"x\""}), "a\\;b;say \\\"x\\\"");
  EXPECT_EQ(list.Pack({"C:\\renders\\a", "ends\\", "x"}), "C:\\renders\\a;ends\\\\;x");
  EXPECT_TRUE(list.Unpack("").empty());
}

RC_GTEST_PROP(ParameterInfo, PackedListsComeBackFromUnpackAndTokenizer, ()) {
  const auto texts = *rc::gen::container<std::vector<String>>(rc::gen::map(
      rc::gen::container<std::string>(rc::gen::element(';', '"', '\\', ' ', 'a', ',', '\n', '\0', '\xC3')),
      [](const std::string& text) { return String(text); }));
  const String packed = ListParameterInfo().Pack(texts);
  RC_ASSERT(ListParameterInfo().Unpack(packed) == texts);
  for (const bool skipEmpty : {false, true}) {
    std::vector<String> pieces;
    StringTokenizer tokenizer(packed, ';', skipEmpty, '"', '\\');
    while (tokenizer.HasNext()) {
      pieces.push_back(tokenizer.GetNext());
    }
    RC_ASSERT(pieces == texts);
  }
}

TEST(ParameterInfo, ConvertsOverrides) {
  const BoolOverrideInfo info;
  EXPECT_EQ(info.ToString(k_NoOverride), "");
  EXPECT_EQ(info.ToString(k_OverrideYes), "Yes");
  EXPECT_EQ(info.ToString(k_OverrideNo), "No");
  EXPECT_EQ(info.ToString(static_cast<BoolOverride>(-3)), "");
  EXPECT_EQ(info.FromString("  "), k_NoOverride);
  EXPECT_EQ(info.FromString(" yes "), k_OverrideYes);
  EXPECT_EQ(info.FromString("no"), k_OverrideNo);
  EXPECT_EQ(info.FromString("whatever"), k_OverrideNo);
}

} // namespace
