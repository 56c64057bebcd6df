#include "tests/module/ModuleTest.h"

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace {

class ParameterTest : public ModuleTest {
protected:
  void SetUp() override {
    ModuleTest::SetUp();
    m_Job = MakeJob(LoadType("[PrimaryParameters]\n1=Width\n[Width]\nType=Integer\nDefault=640\n"));
  }

  void TearDown() override {
    m_Job = SmartHandle<Job>();
    ModuleTest::TearDown();
  }

  void Set(const String& name, const String& value) { EXPECT_TRUE(m_Job->SetParameter(name, value)) << name; }
  String Value(const String& name) { return ValueOf(m_Job, name); }

  /// A sequence with this work, its names bare.
  void SetSequence(const String& format, const String& range) {
    Set("SceneNameFormat", format);
    Set("SubRange", range);
    Set("EnquoteActual", "No");
  }

  SmartHandle<Job> m_Job;
};

TEST_F(ParameterTest, SequenceGivesOneFilePerFrame) {
  SetSequence("/s/shot_%04d.ma", "3-5");
  EXPECT_EQ(Value("ActualScene"), "/s/shot_0003.ma /s/shot_0004.ma /s/shot_0005.ma");
}

TEST_F(ParameterTest, EachFileOfASequenceIsEnquotedByItself) {
  SetSequence("/s/my shot_%04d.ma", "3-4");
  Set("EnquoteActual", "Yes");
  EXPECT_EQ(Value("ActualScene"),
            Path("/s/my shot_0003.ma").Enquote() + " " + Path("/s/my shot_0004.ma").Enquote());
  EXPECT_EQ(SplitCommandLine(Value("ActualScene")),
            (std::vector<String>{"/s/my shot_0003.ma", "/s/my shot_0004.ma"}));
}

TEST_F(ParameterTest, EnquotingIsOnUnlessTheJobOrTheEngineSaysNo) {
  Set("SceneNameFormat", "/s/a b_%d");
  Set("SubRange", "1-1");
  EXPECT_EQ(Value("EnquoteActual"), "");
  EXPECT_EQ(Value("ActualScene"), "\"/s/a b_1\"");
  Application::the_Application->Options().SetValue(k_ID, "EnquoteActual", "No");
  EXPECT_EQ(Value("ActualScene"), "/s/a b_1");
  Set("EnquoteActual", "Yes");
  EXPECT_EQ(Value("ActualScene"), "\"/s/a b_1\"");
}

TEST_F(ParameterTest, RangeOfOneNumberIsOneFrame) {
  SetSequence("/s/%d", "7");
  EXPECT_EQ(Value("ActualScene"), "/s/7");
}

TEST_F(ParameterTest, LeadingMinusSignSeparatesZeroFromTheEnd) {
  SetSequence("%d", "-5");
  EXPECT_EQ(Value("ActualScene"), "0 1 2 3 4 5");
}

TEST_F(ParameterTest, DescendingRangeAppendsNothing) {
  SetSequence("%d", "9-3");
  String value("before");
  EXPECT_TRUE(m_Job->GetParameter("ActualScene", value));
  EXPECT_EQ(value, "before");
}

TEST_F(ParameterTest, SequenceIsAppendedToTheCallersText) {
  SetSequence("%d", "1-2");
  String value("before");
  EXPECT_TRUE(m_Job->GetParameter("ActualScene", value));
  EXPECT_EQ(value, "before 1 2");
}

TEST_F(ParameterTest, SingleSceneReplacesTheCallersText) {
  Set("Scene", "/s/my scene.ma");
  String value("before");
  EXPECT_TRUE(m_Job->GetParameter("ActualScene", value));
  EXPECT_EQ(value, "\"/s/my scene.ma\"");
  Set("EnquoteActual", "No");
  EXPECT_TRUE(m_Job->GetParameter("ActualScene", value));
  EXPECT_EQ(value, "/s/my scene.ma");
}

TEST_F(ParameterTest, SequenceWithoutARangeIsItsPattern) {
  SetSequence("/s/shot_%04d.ma", "");
  Set("EnquoteActual", "Yes");
  EXPECT_EQ(Value("ActualScene"), "/s/shot_%04d.ma");
}

TEST_F(ParameterTest, RangesAreReadAsFarAsTheyAreNumbers) {
  const std::pair<const char*, const char*> cases[] = {
      {"x", "0"}, {"2x-3y", "2 3"},        {"1-3-9", "1 2 3"},  {" 4 - 5 ", "4 5"},
      {"-", "0"}, {"4294967297-2", "1 2"}, {"-3--1", "0 1 2 3"}};
  for (const auto& [range, expected] : cases) {
    SetSequence("%d", range);
    String value;
    EXPECT_TRUE(m_Job->GetParameter("ActualScene", value)) << range;
    EXPECT_EQ(value, expected) << range;
  }
}

TEST_F(ParameterTest, RangesAtTheEndsOfThirtyTwoBitsEnd) {
  SetSequence("%d", "2147483646-2147483647");
  EXPECT_EQ(Value("ActualScene"), "2147483646 2147483647");
  SetSequence("%d", "2147483647");
  EXPECT_EQ(Value("ActualScene"), "2147483647");
  // Beyond 32 bits the numbers are cut: both ends are the least one.
  SetSequence("%d", "2147483648");
  EXPECT_EQ(Value("ActualScene"), "-2147483648");
}

TEST_F(ParameterTest, CommandLineOfUnboundedLengthIsRefused) {
  SetSequence("/a/rather/long/name/of/a/scene/%0900d.ma", "0-2147483647");
  EXPECT_EQ(
      RaisedText([this] {
        String value;
        m_Job->GetParameter("ActualScene", value);
      }),
      "the scene files of frames 0-2147483647 would make a command line of more than 64 MiB: use smaller "
      "packets");
}

TEST_F(ParameterTest, HostileFormatsAreCopiedWhereTheyDoNotFit) {
  SetSequence("/s/%n%s_%d", "1-1");
  EXPECT_EQ(Value("ActualScene"), SFormat("/s/%n%s_%d", 1));
  SetSequence("/s/%999999999d", "1-2");
  EXPECT_EQ(Value("ActualScene").size(), 2 * (3 + std::size_t{k_FormatWidthLimit}) + 1);
}

TEST_F(ParameterTest, WithoutAPatternTheActualSubRangeIsTheSubRange) {
  Set("Scene", "/s/a.ma");
  Set("EnquoteActual", "No");
  Set("SubRange", "3-5");
  EXPECT_EQ(Value("ActualScene"), "/s/a.ma");
  EXPECT_EQ(Value("ActualSubRange"), "3-5");
  EXPECT_EQ(Value("SubRange"), "3-5");
}

TEST_F(ParameterTest, SequenceHasNoActualSubRange) {
  SetSequence("/s/%d", "3-5");
  String value("before");
  EXPECT_TRUE(m_Job->GetParameter("ActualSubRange", value));
  EXPECT_EQ(value, "");
  EXPECT_EQ(Value("SubRange"), "3-5");
}

TEST_F(ParameterTest, HiddenSubRangeStillExpandsTheScenes) {
  SetSequence("/s/%d", "3-4");
  Set("HideSubrange", "Yes");
  String value("before");
  EXPECT_TRUE(m_Job->GetParameter("subrange", value));
  EXPECT_EQ(value, "");
  EXPECT_EQ(Value("ActualSubRange"), "");
  EXPECT_EQ(Value("ActualScene"), "/s/3 /s/4");
}

TEST_F(ParameterTest, SingleSceneNeverHidesItsSubRange) {
  Set("HideSubrange", "Yes");
  Set("SubRange", "3-4");
  EXPECT_EQ(Value("SubRange"), "3-4");
  EXPECT_EQ(Value("ActualSubRange"), "3-4");
}

TEST_F(ParameterTest, EngineMayHideTheSubRange) {
  SetSequence("/s/%d", "3-4");
  Application::the_Application->Options().SetValue(k_ID, "HideSubrange", "Yes");
  EXPECT_EQ(Value("SubRange"), "");
}

TEST_F(ParameterTest, UnknownParameterIsNeitherStoredNorAnswered) {
  EXPECT_FALSE(m_Job->SetParameter("Height", "480"));
  String value("before");
  EXPECT_FALSE(m_Job->GetParameter("Height", value));
  EXPECT_EQ(value, "before");
}

TEST_F(ParameterTest, ExtraParameterIsStoredInAnyCase) {
  Set("wIDTH", "1");
  EXPECT_EQ(Value("Width"), "1");
  Set("CheckForMultipleFiles", "Yes");
  EXPECT_EQ(Value("checkformultiplefiles"), "Yes");
}

TEST_F(ParameterTest, ComputedParametersCannotBeSet) {
  EXPECT_FALSE(m_Job->SetParameter("ActualScene", "x"));
  EXPECT_FALSE(m_Job->SetParameter("ActualSubRange", "x"));
}

TEST_F(ParameterTest, ActualSceneIsStoredOnlyUnderAnExtraParameterOfThatName) {
  auto info = std::make_unique<JobTypeInfo>();
  info->NewParam(ParameterInfo::k_Text)->Name = "Width";
  RegisterPlain(ID(k_OtherID), std::move(info));
  // Streams make extra parameters of any name.
  const SmartHandle<Job> job = MakeJob(ID(k_OtherID));
  OutStream out;
  job->PackObject(out);
  std::string bytes = out.Bytes();
  const std::size_t place = bytes.find("Width");
  bytes.replace(place - 4, 9, std::string("\x0B\0\0\0", 4) + "ActualScene");
  InStream in(bytes);
  const SmartHandle<Job> copy(m_Module.CreateJob(), m_Module.DeleteJob);
  copy->UnpackObject(in, 1);
  EXPECT_TRUE(copy->SetParameter("ActualScene", "x"));
  // It is still computed.
  copy->SetParameter("Scene", "/s/a.ma");
  EXPECT_EQ(ValueOf(copy, "ActualScene"), "/s/a.ma");
}

TEST_F(ParameterTest, NamesMatchInAnyCase) {
  for (const char* name : {"CommandString", "ImageStartText", "ImageEndText", "ImageNotEndText",
                           "SuccessTexts", "SceneNameFormat"}) {
    Set(String(name).Upper(), "value");
    EXPECT_EQ(Value(String(name).Lower()), "value") << name;
  }
  Set("ENQUOTEACTUAL", "no");
  EXPECT_EQ(Value("enquoteactual"), "No");
  Set("hidesubrange", "1");
  EXPECT_EQ(Value("HIDESUBRANGE"), "Yes");
  Set("hidesubrange", "");
  EXPECT_EQ(Value("HIDESUBRANGE"), "");
}

TEST_F(ParameterTest, ActualSceneOfAJobWithoutAHandleRaises) {
  const std::unique_ptr<Job, void (*)(Job*)> job(m_Module.CreateJob(), m_Module.DeleteJob);
  EXPECT_EQ(RaisedText([&] {
              String value;
              job->GetParameter("ActualScene", value);
            }),
            "Cannot construct a SmartCountedObject from and invalid WeakCountedObject");
}

TEST_F(ParameterTest, TranslatedScenesAreCopiesWithTheirPathsRewritten) {
  ASSERT_EQ(setenv("XDG_CACHE_HOME", InDirectory("cache").c_str(), 1), 0);
  Path::SetTranslations({{"/far", "/near"}});
  Write("s_1.ma", "texture /far/a.png\n");
  Write("s_2.ma", "texture /far/b.png\n");
  SetSequence(InDirectory("s_%d.ma").Text(), "1-2");
  Set("TranslateSceneContents", "Yes");
  Set("EnquoteActual", "Yes");
  const std::vector<String> scenes = SplitCommandLine(Value("ActualScene"));
  ASSERT_EQ(scenes.size(), 2U);
  const auto contentOf = [](const String& name) {
    std::ifstream in(name);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  };
  EXPECT_NE(scenes[0], InDirectory("s_1.ma").Text());
  EXPECT_EQ(contentOf(scenes[0]), "texture /near/a.png\n");
  EXPECT_EQ(contentOf(scenes[1]), "texture /near/b.png\n");

  Set("SceneNameFormat", "");
  Set("Scene", InDirectory("s_1.ma").Text());
  EXPECT_EQ(contentOf(DequoteWord(Value("ActualScene"))), "texture /near/a.png\n");
  unsetenv("XDG_CACHE_HOME");
}

TEST_F(ParameterTest, WorkIsExpandedThroughTheJob) {
  SetSequence("/s/my shot_%02d.ma", "3-4");
  Set("EnquoteActual", "Yes");
  EXPECT_EQ(m_Job->FormatStringWithParameters("-s $(ActualScene) -r [$(ActualSubRange)] -w $(Width)"),
            "-s \"/s/my shot_03.ma\" \"/s/my shot_04.ma\" -r [] -w 640");
}

TEST_F(ParameterTest, RandomSequencesGiveWhatFormattingEachFrameGives) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const char* const pieces[] = {"/s", "a b", "%04d",     "%d", "%",     "%%",
                                "\"", "\\",  "$(Frame)", "'",  "_%03d", "\xff"};
  for (int round = 0; round < 300; ++round) {
    String format = "x";
    for (auto count = random() % 4; count > 0; --count) {
      format += pieces[random() % std::size(pieces)];
    }
    const int first = static_cast<int>(random() % 20);
    const int last = first + static_cast<int>(random() % 20);
    SetSequence(format, std::to_string(first) + "-" + std::to_string(last));
    const bool enquote = random() % 2 == 0;
    Set("EnquoteActual", enquote ? "Yes" : "No");
    String expected = round % 3 == 0 ? "before" : "";
    String actual = expected;
    for (int frame = first; frame <= last; ++frame) {
      const Path name(SFormat(format, frame));
      expected += (expected.empty() ? "" : " ") + (enquote ? name.Enquote() : name.Text());
    }
    ASSERT_TRUE(m_Job->GetParameter("ActualScene", actual));
    ASSERT_EQ(actual, expected) << format;
  }
}

} // namespace
