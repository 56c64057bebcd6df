#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

namespace {

struct Loaded {
  JobTypeInfo Info;
  std::vector<String> Warnings;
};

// Reads the parameters that PrimaryParameters of the text names.
Loaded LoadParameters(const String& text) {
  IniFile file;
  file.SetFilename("/x/sketch.tvx");
  file.Parse(text);
  Loaded loaded;
  const LogCapture log;
  for (const IniFile::EntryView& entry : file.Entries("PrimaryParameters")) {
    SLoadParameter(String(entry.Value), file, &loaded.Info);
  }
  loaded.Warnings = log.Lines();
  return loaded;
}

using Lines = std::vector<String>;

TEST(JobTypeInfo, FindsParametersByNameInAnyCaseAndByPosition) {
  JobTypeInfo info;
  ParameterInfo* first = AddParam(info, ParameterInfo::k_Text, "Title");
  AddParam(info, ParameterInfo::k_Text, "title");
  EXPECT_EQ(info.GetParam("TITLE"), first);
  EXPECT_EQ(info.GetParam("other"), nullptr);
  EXPECT_EQ(info.GetParam(0), first);
  EXPECT_EQ(info.GetParam(2), nullptr);
  EXPECT_EQ(info.GetParam(-1), nullptr);
  EXPECT_EQ(info.ParamCount(), 2U);
}

TEST(JobTypeInfo, ReadsAWholeDefinition) {
  const Loaded loaded =
      LoadParameters("[PrimaryParameters]\n1=Width\n2=Quality\n3=Scene file\n"
                     "[Width]\nType=integer\nLabel=Width in pixels\nHelp=First\\nsecond \\x\n"
                     "Default=640\nMinimum=1\nMaximum=1e4\nRequired=yes\n"
                     "[Quality]\nType=Choice\nChoices=low, \"a,b\" , high\nDefault=HIGH\n"
                     "Flags=OfJob, visible ,0x40,Internal\n"
                     "[Scene file]\nType=File\nFilter=Scenes (*.pov)|*.pov\nDefault=a$(b\n");
  EXPECT_EQ(loaded.Warnings, Lines{});
  ASSERT_EQ(loaded.Info.ParamCount(), 3U);
  const ParameterInfo& width = *loaded.Info.GetParam("Width");
  EXPECT_EQ(width.Type(), ParameterInfo::k_Integer);
  EXPECT_EQ(width.Label, "Width in pixels");
  EXPECT_EQ(width.Help, "First\nsecond \\x");
  EXPECT_EQ(width.Default, "640");
  EXPECT_EQ(width.Minimum, 1);
  EXPECT_EQ(width.Maximum, 10000);
  EXPECT_EQ(FlagsAsText(width.Flags), "Required, OfJob, Editable, Visible, AffectsCommand");
  const ParameterInfo& quality = *loaded.Info.GetParam("Quality");
  EXPECT_EQ(quality.Choices, (Lines{"low", "a,b", "high"}));
  EXPECT_EQ(quality.Flags, 0x842U);
  EXPECT_EQ(quality.Label, "Quality");
  EXPECT_EQ(FileParameterInfo::CastFrom(loaded.Info.GetParam("Scene file"))->Filter, "Scenes (*.pov)|*.pov");
}

TEST(JobTypeInfo, ASectionWithoutKeysIsAText) {
  const Loaded loaded = LoadParameters("[PrimaryParameters]\n1=Title\n[Title]\n");
  EXPECT_EQ(loaded.Warnings, Lines{});
  EXPECT_EQ(loaded.Info.GetParam("Title")->Type(), ParameterInfo::k_Text);
  EXPECT_EQ(FlagsAsText(loaded.Info.GetParam("Title")->Flags), "OfJob, Editable, Visible, AffectsCommand");
}

TEST(JobTypeInfo, AnUnknownTypeIsAWarningAndReadAsText) {
  const Loaded loaded = LoadParameters("[PrimaryParameters]\n1=Width\n\n[Width]\nType=Interger\n");
  EXPECT_EQ(
      loaded.Warnings,
      (Lines{"/x/sketch.tvx:5:6: warning: unknown parameter type \"Interger\"; did you mean \"Integer\"?"}));
  EXPECT_EQ(loaded.Info.GetParam("Width")->Type(), ParameterInfo::k_Text);
}

TEST(JobTypeInfo, AllProblemsOfADefinitionAreWarningsInTheOrderOfTheirPlaces) {
  const Loaded loaded = LoadParameters("[PrimaryParameters]\n"
                                       "1=Width\n"
                                       "[Width]\n"
                                       "Default=20\n"
                                       "Maximum=ten\n"
                                       "  Lable = Width\n"
                                       "Type=Integer\n"
                                       "Flags=Visble, OfJob, 0x1FFFFFFFF\n"
                                       "Minimum=30\n"
                                       "Required=perhaps\n"
                                       "Filter=*.png\n"
                                       "Choices=a,b\n");
  EXPECT_EQ(loaded.Warnings,
            (Lines{"/x/sketch.tvx:4:9: warning: this default is refused: 20 is below the minimum of 30",
                   "/x/sketch.tvx:5:9: warning: Maximum needs a number, not \"ten\"",
                   "/x/sketch.tvx:6:3: warning: unknown key \"Lable\"; did you mean \"Label\"?",
                   "/x/sketch.tvx:8:7: warning: unknown flag \"Visble\"; did you mean \"Visible\"?",
                   "/x/sketch.tvx:8:22: warning: unknown flag \"0x1FFFFFFFF\"",
                   "/x/sketch.tvx:10:10: warning: \"perhaps\" is neither yes nor no",
                   "/x/sketch.tvx:11:1: warning: Filter has no use for a parameter of type Integer",
                   "/x/sketch.tvx:12:1: warning: Choices has no use for a parameter of type Integer"}));
  const ParameterInfo& width = *loaded.Info.GetParam("Width");
  EXPECT_EQ(width.Default, "");
  EXPECT_EQ(width.Flags, static_cast<unsigned int>(ParameterInfo::k_OfJob));
  EXPECT_EQ(width.Maximum, std::nullopt);
}

TEST(JobTypeInfo, LimitsThatExcludeEachOtherAreAWarning) {
  const Loaded loaded =
      LoadParameters("[PrimaryParameters]\n1=A\n[A]\nType=Duration\nMinimum=2m\nMaximum=30\n");
  EXPECT_EQ(loaded.Warnings,
            (Lines{"/x/sketch.tvx:6:9: warning: the maximum of 30 is below the minimum of 2m"}));
  EXPECT_EQ(loaded.Info.GetParam("A")->Minimum, 120);
  EXPECT_EQ(loaded.Info.GetParam("A")->Maximum, std::nullopt);
}

TEST(JobTypeInfo, AChoiceWithoutChoicesIsAWarning) {
  EXPECT_EQ(LoadParameters("[PrimaryParameters]\n1=A\n[A]\nType=Choice\nDefault=low\n").Warnings,
            (Lines{"/x/sketch.tvx:3:1: warning: a choice needs Choices, as in Choices=low,medium,high"}));
  EXPECT_EQ(LoadParameters("[PrimaryParameters]\n1=A\n[A]\nType=Choice\nChoices= , \n").Warnings,
            (Lines{"/x/sketch.tvx:5:10: warning: a choice needs Choices, as in Choices=low,medium,high"}));
}

TEST(JobTypeInfo, ANameWithoutSectionIsAWarningWhereItIsNamed) {
  const Loaded loaded = LoadParameters("[PrimaryParameters]\n1=Qualty\n2=\n[Quality]\n");
  EXPECT_EQ(loaded.Warnings,
            (Lines{"/x/sketch.tvx:2:3: warning: parameter \"Qualty\" is named but has no section "
                   "[Qualty]; did you mean \"Quality\"?",
                   "/x/sketch.tvx:3:3: warning: the name of a parameter is missing"}));
  EXPECT_EQ(loaded.Info.ParamCount(), 0U);
}

TEST(JobTypeInfo, TheFirstDefinitionOfANameHolds) {
  const Loaded loaded = LoadParameters("[PrimaryParameters]\n1=Width\n2=width\n[Width]\nDefault=1\n");
  EXPECT_EQ(loaded.Warnings,
            (Lines{"/x/sketch.tvx:4:1: warning: the type has a parameter \"width\" already; this "
                   "definition is not used"}));
  EXPECT_EQ(loaded.Info.ParamCount(), 1U);
}

TEST(JobTypeInfo, ADefaultWithReferencesIsLeftForLater) {
  const Loaded loaded =
      LoadParameters("[PrimaryParameters]\n1=A\n[A]\nType=Integer\nMaximum=5\nDefault=$(Other)\n");
  EXPECT_EQ(loaded.Warnings, Lines{});
  EXPECT_EQ(loaded.Info.GetParam("A")->Default, "$(Other)");
}

TEST(JobTypeInfo, OnlyTheFirstLineOfARefusedRangeIsInTheWarning) {
  EXPECT_EQ(
      LoadParameters("[PrimaryParameters]\n1=A\n[A]\nType=Range\nDefault=1-\n").Warnings,
      (Lines{
          "/x/sketch.tvx:5:9: warning: this default is refused: frame range:1:3: a number is missing after "
          "\"-\""}));
}

TEST(JobTypeInfo, ReadsCommands) {
  IniFile file;
  file.SetFilename("/x/sketch.tvx");
  file.Parse("[PrimaryCommands]\n1=View\n2=Clean\n3=Gone\n"
             "[View]\nLabel=View it\nHelp=One\\ntwo\nCommand=display $(Scene.Enquote)\n"
             "[Clean]\nComand=rm\n");
  JobTypeInfo info;
  const LogCapture log;
  for (const char* name : {"View", "Clean", "Gone", "VIEW"}) {
    SLoadCommand(name, file, &info);
  }
  EXPECT_EQ(
      log.Lines(),
      (Lines{"/x/sketch.tvx:9:1: warning: command \"Clean\" has no Command line to run",
             "/x/sketch.tvx:10:1: warning: unknown key \"Comand\"; did you mean \"Command\"?",
             "/x/sketch.tvx:4:3: warning: command \"Gone\" is named but has no section [Gone]",
             "/x/sketch.tvx:5:1: warning: the type has a command \"VIEW\" already; this definition is not "
             "used"}));
  ASSERT_EQ(info.Commands().size(), 2U);
  const CommandInfo* view = info.GetCommand("view");
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view->Label, "View it");
  EXPECT_EQ(view->Help, "One\ntwo");
  EXPECT_EQ(view->Command, "display $(Scene.Enquote)");
  EXPECT_EQ(info.GetCommand("Clean")->Label, "Clean");
  EXPECT_EQ(info.GetCommand("other"), nullptr);
}

TEST(JobTypeInfo, TranslatesFlagNamesAndNumbers) {
  const std::vector<std::pair<const char*, unsigned int>> flags = {
      {"Required", 0x1},    {"OfJob", 0x2},         {"ReadOnly", 0x4},           {"OfEngine", 0x8},
      {"SubmitOnly", 0x10}, {"Literal", 0x20},      {"Advanced", 0x200},         {"Editable", 0x400},
      {"Visible", 0x800},   {"Deprecated", 0x1000}, {"AffectsCommand", 0x10000}, {"Internal", 0x80000000}};
  for (const auto& [name, bit] : flags) {
    EXPECT_EQ(STranslateFlag(name), bit);
    EXPECT_EQ(FlagsAsText(bit), name);
  }
  EXPECT_EQ(FlagNames().size(), flags.size());
  EXPECT_EQ(STranslateFlag(" visible\t"), 0x800U);
  EXPECT_EQ(STranslateFlag("0xE0A"), 0xE0AU);
  EXPECT_EQ(STranslateFlag("0Xffffffff"), 0xFFFFFFFFU);
  EXPECT_EQ(STranslateFlag("16"), 16U);
  EXPECT_EQ(FlagsAsText(0xE0A), "OfJob, OfEngine, Advanced, Editable, Visible");
  EXPECT_EQ(FlagsAsText(0x842), "OfJob, Visible, 0x40");
  EXPECT_EQ(FlagsAsText(0), "");
}

TEST(JobTypeInfo, AnUnknownFlagIsZeroWithAWarning) {
  const LogCapture log;
  for (const char* name : {"Visble", "", "0x", "-1", "12x", "0x100000000", "%n"}) {
    EXPECT_EQ(STranslateFlag(name), 0U) << name;
  }
  EXPECT_EQ(log.Lines(), (Lines{"unknown flag \"Visble\"; did you mean \"Visible\"?", "unknown flag \"\"",
                                "unknown flag \"0x\"", "unknown flag \"-1\"", "unknown flag \"12x\"",
                                "unknown flag \"0x100000000\"", "unknown flag \"%n\""}));
}

TEST(JobTypeInfo, PlacedMessagesOfValuesWithoutAPlaceNameTheFileAlone) {
  EXPECT_EQ(PlacedMessage("/x/a.tvx", {12, 6}, "error", "bad"), "/x/a.tvx:12:6: error: bad");
  EXPECT_EQ(PlacedMessage("/x/a.tvx", {}, "warning", "odd"), "/x/a.tvx: warning: odd");
}

} // namespace
