#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <chrono>

namespace {

using Map = std::map<String, String>;

// A job whose type has text parameters of these defaults.
class TextJob {
public:
  explicit TextJob(const Map& defaults)
      : m_Type([&defaults](JobTypeInfo& info) {
          for (const auto& [name, value] : defaults) {
            AddParam(info, ParameterInfo::k_Text, name, value);
          }
          AddParam(info, ParameterInfo::k_File, "Picked");
        }) {
    Job.SetType(m_Type.Id);
  }
  const UID& Type() const { return m_Type.Id; }
  String Expand(const String& text) const { return Job.FormatStringWithParameters(text); }
  String Refusal(const String& text, int* code = nullptr) const {
    return MessageOf([&] { Expand(text); }, code);
  }

private:
  RegisteredType m_Type;

public:
  CatalogueJob Job;
};

String Later(const String& text, const Map& map) {
  return Job::FormatStringWithParameters(text, map);
}

TEST(Expansion, PutsInValuesInAnyCaseOfTheirNames) {
  const TextJob job(Map{{"Title", "hello"}, {"Two words", "x"}});
  EXPECT_EQ(job.Expand("-t $(Title) $(TITLE)$(Two words)."), "-t hello hellox.");
  EXPECT_EQ(job.Expand(""), "");
  EXPECT_EQ(job.Expand("no references ( ) $ $x"), "no references ( ) $ $x");
}

TEST(Expansion, TwoDollarsMakeAPlainReferenceText) {
  const TextJob job(Map{{"A", "a"}});
  EXPECT_EQ(job.Expand("$$(A)"), "$(A)");
  EXPECT_EQ(job.Expand("$$$(A)"), "$$(A)");
  EXPECT_EQ(job.Expand("$(A)$$(A)$(A)"), "a$(A)a");
  EXPECT_EQ(job.Expand("$$"), "$$");
}

TEST(Expansion, AnEmptyValueFallsThroughToOptionAndDefault) {
  TextJob job(Map{{"Title", "default"}, {"Nothing", ""}});
  job.Job.SetParameter("Title", "");
  EXPECT_EQ(job.Expand("<$(Title)><$(Nothing)>"), "<default><>");
  const Option option(job.Type(), "Title", "option");
  EXPECT_EQ(job.Expand("<$(Title)>"), "<option>");
  job.Job.SetParameter("Title", "own");
  EXPECT_EQ(job.Expand("<$(Title)>"), "<own>");
}

TEST(Expansion, ExpandsValuesButNeverPickedFilesNamesOrComputedValues) {
  TextJob job(Map{{"Output", "$(Title)/x"}, {"Title", "t"}, {"Scene", ""}, {"Name", ""}, {"Executable", ""}});
  EXPECT_EQ(job.Expand("$(Output)"), "t/x");
  job.Job.SetParameter("Picked", "/a/$(Title).pov");
  job.Job.SetParameter("Scene", "/a/$(Title); rm $$(x");
  job.Job.SetParameter("Name", "$(Nobody)");
  EXPECT_EQ(job.Expand("$(Picked) $(Scene) $(Name)"), "/a/$(Title).pov /a/$(Title); rm $$(x $(Nobody)");
  EXPECT_EQ(job.Expand("$(ActualScene)"), "computed $(Name)");
  job.Job.Set("SubRange", "1-$(Title)");
  EXPECT_EQ(job.Expand("$(SubRange)"), "1-$(Title)");
}

TEST(Expansion, WhatComesOutOfAValueIsNeverReadAgain) {
  TextJob job(Map{{"Dollar", "$"}, {"Title", "t"}, {"Scene", ""}});
  job.Job.SetParameter("Scene", "$");
  EXPECT_EQ(job.Expand("$(Scene)(Title)"), "$(Title)");
  EXPECT_EQ(job.Expand("$(Dollar)(Title)"), "$(Title)");
}

TEST(Expansion, AnUnknownNameRaisesWithPlaceSuggestionAndCaret) {
  const TextJob job(Map{{"Scene", "s"}});
  int code = 0;
  EXPECT_EQ(job.Refusal("povray +I -D $(Scen)", &code),
            "command line:14: nobody answers $(Scen); did you mean \"Scene\"?\n"
            "    1 | povray +I -D $(Scen)\n"
            "      |              ^");
  EXPECT_EQ(code, k_ErrorReference);
  EXPECT_EQ(job.Refusal("$(ActualScen)"),
            "command line:1: nobody answers $(ActualScen); did you mean \"ActualScene\"?\n"
            "    1 | $(ActualScen)\n"
            "      | ^");
  EXPECT_EQ(job.Refusal("$(SubRnge.Start)"),
            "command line:1: nobody answers $(SubRnge); did you mean \"SubRange\"?\n"
            "    1 | $(SubRnge.Start)\n"
            "      | ^");
  EXPECT_EQ(job.Refusal("$(whatever)"), "command line:1: nobody answers $(whatever)\n"
                                        "    1 | $(whatever)\n"
                                        "      | ^");
  EXPECT_EQ(job.Refusal("$()"), "command line:1: nobody answers $()\n"
                                "    1 | $()\n"
                                "      | ^");
}

TEST(Expansion, AMistakeInAParametersTextIsShownThere) {
  const TextJob job(Map{{"Output", "dir/$(Titel)"}, {"Title", "t"}});
  EXPECT_EQ(job.Refusal("-o $(Output)"),
            "parameter Output:5: nobody answers $(Titel); did you mean \"Title\"?\n"
            "    1 | dir/$(Titel)\n"
            "      |     ^");
}

TEST(Expansion, NamesTheCircleOfParametersThatReferToEachOther) {
  const TextJob job(Map{{"A", "x$(B)"}, {"B", "$(C)"}, {"C", "$(B.Leaf)"}, {"Self", "$(self)"}});
  EXPECT_EQ(job.Refusal("$(A)"), "parameter C:1: parameters refer to each other in a circle: B -> C -> B\n"
                                 "    1 | $(B.Leaf)\n"
                                 "      | ^");
  EXPECT_EQ(job.Refusal("$(Self)"),
            "parameter self:1: parameters refer to each other in a circle: self -> self\n"
            "    1 | $(self)\n"
            "      | ^");
}

TEST(Expansion, MalformedReferencesRaise) {
  const TextJob job(Map{{"A", "a"}});
  EXPECT_EQ(job.Refusal("x $(A"),
            "command line:3: this reference is never closed; add \")\", or write \"$$(\" where "
            "\"$(\" is meant as it stands\n"
            "    1 | x $(A\n"
            "      |   ^");
  EXPECT_EQ(job.Refusal("$(A.Leaf").substr(0, 46), "command line:1: this reference is never closed");
  EXPECT_EQ(job.Refusal("$(A.Lef)"),
            "command line:5: unknown parameter command \"Lef\"; did you mean \"Leaf\"?\n"
            "    1 | $(A.Lef)\n"
            "      |     ^");
  EXPECT_EQ(job.Refusal("$(A.)"), "command line:5: a parameter command is missing after \".\"\n"
                                  "    1 | $(A.)\n"
                                  "      |     ^");
  EXPECT_EQ(job.Refusal("$(A.Pad)"), "command line:5: Pad needs an argument: Pad(n)\n"
                                     "    1 | $(A.Pad)\n"
                                     "      |     ^");
  EXPECT_EQ(job.Refusal("$(A.Leaf(x))"), "command line:5: Leaf takes no argument\n"
                                         "    1 | $(A.Leaf(x))\n"
                                         "      |     ^");
  EXPECT_EQ(job.Refusal("$(A.Pad(3)x)"), "command line:11: a \".\" or \")\" is missing behind the argument\n"
                                         "    1 | $(A.Pad(3)x)\n"
                                         "      |           ^");
  EXPECT_EQ(job.Refusal("$(A.Default((x)"),
            "command line:12: this argument is never closed; write a backslash before "
            "a parenthesis that stands alone\n"
            "    1 | $(A.Default((x)\n"
            "      |            ^");
  EXPECT_EQ(job.Refusal("$(A.Upper.Pad(3))"), "command line:11: Pad needs a whole number, not \"A\"\n"
                                              "    1 | $(A.Upper.Pad(3))\n"
                                              "      |           ^");
}

TEST(Expansion, AppliesCommandsFromLeftToRightInAnyCase) {
  TextJob job(Map{{"Scene", ""}, {"Empty", ""}, {"Size", "640"}});
  job.Job.SetParameter("Scene", "/a b/shot.0001.pov");
  EXPECT_EQ(job.Expand("$(Scene.base.UPPER)"), "SHOT.0001");
  EXPECT_EQ(job.Expand("$(Scene.Branch)/$(Scene.Base).png"), "/a b/shot.0001.png");
  EXPECT_EQ(job.Expand("$(Scene.Enquote)"), "\"/a b/shot.0001.pov\"");
  EXPECT_EQ(job.Expand("x$(Empty.Prefix(--seed=))y $(Size.Prefix(--size=).Suffix(px))"), "xy --size=640px");
  EXPECT_EQ(job.Expand("$(Empty.Default(a(b)c))"), "a(b)c");
  EXPECT_EQ(job.Expand("$(Empty.Default(:-\\)).Upper)"), ":-)");
  EXPECT_EQ(job.Expand("$(Empty.Default($(Size)))"), "$(Size)");
}

TEST(Expansion, ALongNameCostsNeitherTimeNorALongMessage) {
  const TextJob job(Map{{"A", "a"}});
  const String message = job.Refusal("$(" + String(1 << 20, 'n') + ")");
  EXPECT_EQ(message.substr(0, 40), "command line:1: nobody answers $(nnnnnnn");
  EXPECT_LT(message.size(), 400U);
}

TEST(Expansion, StopsAtTextsThatDoubleWithEveryParameter) {
  Map doubling;
  for (int i = 0; i < 60; ++i) {
    const String next = "$(P" + std::to_string(i + 1) + ")";
    doubling["P" + std::to_string(i)] = next + next;
  }
  doubling["P60"] = "x";
  const TextJob job(doubling);
  int code = 0;
  const String message = job.Refusal("$(P0)", &code);
  EXPECT_EQ(code, k_ErrorLimit);
  EXPECT_NE(message.find(": its references make more than 64 MiB of text"), String::npos) << message;
  doubling["P60"] = "";
  EXPECT_EQ(TextJob(doubling).Expand("<$(P0)>"), "<>");
}

TEST(Expansion, KnowsTheNamesWithADotOfWhatComesBefore) {
  const TextJob job(Map{{"After.OutputFolder", "/shots/a b"}, {"After.Images", "/a/1.png /a/2.png"}});
  EXPECT_EQ(job.Expand("$(After.OutputFolder)|$(after.images)"), "/shots/a b|/a/1.png /a/2.png");
  EXPECT_EQ(job.Expand("$(After.OutputFolder.Leaf.Upper)"), "A B");
  EXPECT_EQ(job.Refusal("$(After.OutputFolders)").find("unknown"), String("command line:9: ").size());
  EXPECT_NE(TextJob(Map{}).Refusal("$(After.Images)").find("since the job waits for no other one"),
            String::npos);
}

TEST(Expansion, BoundsTheWorkOfCommandsOnLongValues) {
  String text;
  for (int i = 0; i < 100000; ++i) {
    text += "$(Long.Extension)";
  }
  const TextJob job(Map{{"Long", String(1 << 20, 'x')}});
  int code = 0;
  job.Refusal(text, &code);
  EXPECT_EQ(code, k_ErrorLimit);
}

TEST(Expansion, StopsAtReferencesThatNestTooDeep) {
  Map chain;
  for (int i = 0; i < 100; ++i) {
    chain["P" + std::to_string(i)] = "$(P" + std::to_string(i + 1) + ")";
  }
  chain["P99"] = "end";
  EXPECT_EQ(TextJob(chain).Expand("$(P0)"), "end");
  chain["P99"] = "$(P100)";
  chain["P100"] = "end";
  int code = 0;
  EXPECT_EQ(TextJob(chain).Refusal("$(P0)", &code),
            "parameter P99:1: references nest deeper than 100 parameters\n"
            "    1 | $(P100)\n"
            "      | ^");
  EXPECT_EQ(code, k_ErrorLimit);
}

TEST(Expansion, ForLaterPrefersTheExactNameAndLeavesUnknownOnes) {
  const Map map = {{"title", "lower"}, {"Title", "exact"}, {"Output", "$(Title)/$(Frame)"}};
  EXPECT_EQ(Later("$(Title) $(title) $(TITLE)", map), "exact lower exact");
  EXPECT_EQ(Later("$(Output)", map), "exact/$(Frame)");
  EXPECT_EQ(Later("$(Frame.Pad(4)) $(nothing)", map), "$(Frame.Pad(4)) $(nothing)");
  EXPECT_EQ(Later("$$(Title)", map), "$$(Title)");
}

TEST(Expansion, ForLaterKeepsNamesFromOutsidePlain) {
  const Map map = {{"Scene", "/a/$(x)/$$(y.pov"},
                   {"name", "$(Scene)"},
                   {"SceneNameFormat", "$(z)%04d"},
                   {"EXECUTABLE", "$(e)"}};
  EXPECT_EQ(Later("$(Scene.Branch)/out", map), "/a/$$(x)/out");
  EXPECT_EQ(Later("$(Scene)", map), "/a/$$(x)/$$$(y.pov");
  EXPECT_EQ(Later("$(Name) $(SceneNameFormat) $(Executable)", map), "$$(Scene) $$(z)%04d $$(e)");
}

TEST(Expansion, ForLaterLeavesCommandsOnWhatCannotBeToldYet) {
  const Map map = {{"Output", "/a/$(Later)/x.png"}, {"Done", "/a/$$(b)/x.png"}};
  EXPECT_EQ(Later("$(Output.Branch)", map), "$(Output.Branch)");
  EXPECT_EQ(Later("$(Done.Branch)", map), "/a/$$(b)");
}

TEST(Expansion, ForLaterTwoPiecesMakeNoReferenceBetweenThem) {
  const Map map = {{"Scene", "cost$"}, {"Open", "(x)"}};
  EXPECT_EQ(Later("$(Scene)(x)", map), "cost$$(x)");
  EXPECT_EQ(Later("$(Scene)$(Open)", map), "cost$$(x)");
}

TEST(Expansion, ForLaterRefusesUnknownCommandsAndCircles) {
  EXPECT_EQ(MessageOf([] { Later("$(nothing.Lef)", {}); }),
            "text:11: unknown parameter command \"Lef\"; did you mean \"Leaf\"?\n"
            "    1 | $(nothing.Lef)\n"
            "      |           ^");
  EXPECT_EQ(MessageOf([] {
              Later("$(A)", {{"A", "$(A)"}});
            }),
            "parameter A:1: parameters refer to each other in a circle: A -> A\n"
            "    1 | $(A)\n"
            "      | ^");
}

TEST(Expansion, AnExceptionOfASourceKeepsItsCodeAndNumber) {
  ExpansionSource source;
  source.Find = [](const String&) { return ParameterAnswer{"v", false, nullptr}; };
  source.Apply = [](const String&, const String& command, const ParameterInfo*) -> String {
    RaiseException("test", k_ErrorSystem, "no " + command, 13, "details");
  };
  try {
    ExpandReferences("$(A.Pad(3))", source);
    FAIL() << "nothing raised";
  } catch (Exception* exception) {
    EXPECT_EQ(exception->Message(), "text:5: no Pad(3)\n    1 | $(A.Pad(3))\n      |     ^");
    EXPECT_EQ(exception->Code(), k_ErrorSystem);
    EXPECT_EQ(exception->Number(), 13);
    EXPECT_EQ(exception->Details(), "details");
    delete exception;
  }
}

rc::Gen<String> ReferenceTexts() {
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::element<std::string>(
                          "$", "(", ")", "$(", "$$(", "$(A)", "$(B.Leaf)", ".", "/x", "\\")),
                      [](const std::vector<std::string>& pieces) {
                        String text;
                        for (const std::string& piece : pieces) {
                          text += piece;
                        }
                        return text;
                      });
}

RC_GTEST_PROP(Expansion, EscapedTextIsExpandedToItself, ()) {
  const String text = *ReferenceTexts();
  RC_ASSERT(UnescapeReferences(EscapeReferences(text)) == text);
  ExpansionSource source;
  RC_ASSERT(ExpandReferences(EscapeReferences(text), source) == text);
}

RC_GTEST_PROP(Expansion, ASceneNameForLaterIsExpandedToItself, ()) {
  const String scene = *ReferenceTexts();
  const String around = *rc::gen::element<String>("", "(", "(A)", "x");
  ExpansionSource source;
  RC_ASSERT(ExpandReferences(Later("$(Scene)" + around, {{"Scene", scene}}), source) == scene + around);
}

RC_GTEST_PROP(Expansion, AnyTextsAreExpandedOrRefused, ()) {
  const Map map = {{"A", *ReferenceTexts()}, {"B", *ReferenceTexts()}};
  const String text = *ReferenceTexts();
  const String message = MessageOf([&] { Later(text, map); });
  RC_ASSERT(message == "nothing raised" || message.find("\n    1 | ") != String::npos);
}

} // namespace
