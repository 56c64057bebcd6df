#include "tests/module/ModuleTest.h"

namespace {

using Texts = std::vector<String>;

class TypeInfoTest : public ModuleTest {
protected:
  /// The description of a type, as the module fills it; kept until the next.
  const JobTypeInfo& Describe(std::string_view body) {
    const UID type = LoadType(body);
    m_Info = JobTypeInfo();
    m_Module.GetTypeInfo(type, &m_Info);
    return m_Info;
  }

  const ParameterInfo& Param(const String& name) {
    const ParameterInfo* param = m_Info.GetParam(name);
    EXPECT_NE(param, nullptr) << name;
    static const ParameterInfo s_None(ParameterInfo::k_Text);
    return param == nullptr ? s_None : *param;
  }

  static Texts Names(const JobTypeInfo& info) {
    Texts names;
    for (std::size_t i = 0; i < info.ParamCount(); ++i) {
      names.push_back(info.GetParam(i)->Name);
    }
    return names;
  }

  JobTypeInfo m_Info;
};

// In the order in which a parameter is declared.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct CatalogueEntry {
  int Type;
  const char* Name;
  const char* Label;
  const char* Default;
  unsigned int Flags;
  const char* Help;
};

const CatalogueEntry k_Catalogue[] = {
    {15, "Executable overrides", "Executable overrides", "", 0xE0A, ""},
    {1, "CommandString", "Command Formatting String", "-s $(ActualScene)", 0x10E0A,
     "For the parameters to pass to the executable, this is the string that will be used to build the rest "
     "of the command.\n$(Scene) will substitute the text in the Scene field\n$(ActualScene) substitutes "
     "multiple scene files for products that use a single file per frame.\n$(SubRange) will substitue the "
     "range of the Work, in an x-y format.\n$(SubRange.Start) will subsitute the start of the "
     "Work.\n$(SubRange.End) will subsitute the end of the work.\nNote that Subrange may be empty if no "
     "range is supplied for the job\n$(CPUs) will substitue the allocated CPUs for the Work.\nAny other "
     "parameter of the Job can be substituted with $(<name>)\n\nThe Job parameter will override any value "
     "set in the type options for the Engine. If neither is set, the default in the configuration file will "
     "be used. If no default is given in the file your jobs may not execute correctly."},
    {16, "SuccessTexts", "Success Strings", "\"all; done\";fine", 0xE0A,
     "Allows you to define text that will be searched for at the beginning of a line of output that would "
     "signify successful work. If there are no SuccessText entries, then the normal work success tests are "
     "done. However, if there are any entries in this section, then there must be at least one line of "
     "output that starts with one of the entries, or the work will be considered unsuccessful. You can "
     "specify as many of these as you need. Separate multiple entries with a semicolon. The text is not case "
     "sensitive. "},
    {15, "Mulitple Scene File Options", "Mulitple Scene File Options", "", 0xC1A, ""},
    {9, "CheckForMultipleFiles", "Check For Multiple Files", "Yes", 0x810,
     "Allow Trovik to try to detect if the scene file selected is part of a sequence of source scene files."},
    {2, "SceneNumberLength", "Minimum Number Padding", "3", 0x810,
     "When searching for a scene file sequence, any numbers found must meet or exceed this many digits to be "
     "considered part of a sequence identifier."},
    {12, "SceneNameFormat", "Scene Name Format", "", 0x10402,
     "For sequences of scene files, this is the formatting string that is used to create the correct "
     "filename for each frame. This value is normally automatically calculated by Trovik and should be blank "
     "if the entire scene is in a single scene file"},
    {10, "EnquoteActual", "Enquote $(ActualScene)", "Yes", 0x10E0A,
     "$(ActualScene) can automatically enquote scene files as needed. Because multiple files may be returned "
     "and those files are separated by spaces, it can produce a command line syntax error to use the "
     ".Enquote Parameter Command with that variable. You can use this option to disable the automatic "
     "enquoting, if needed"},
    {10, "HideSubrange", "Hide Subrange for Scene Sequences", "No", 0x1E0A,
     "DEPRICATED\n\nThis should no longer be used, because it is buggy. Instead, use the new "
     "$(ActualSubRange) parameter for the same purpose. The default has been changed not to hide the "
     "subrange. Override at your peril.\n\nIf Trovik detects that your scene is part of a scene file "
     "sequence, setting this will cause the Job variable substitution system to return an empty string for "
     "the work SubRange. This allows you to have a command line that will include a frame range only for "
     "single scene files."},
    {15, "Image Filename Detection", "Image Filename Detection", "", 0xE0A, ""},
    {1, "ImageStartText", "Image Start String", "saved", 0xE0A,
     "When parsing the output, lines that start with this text are assumed to contain a rendered image "
     "filename. The filename is assumed to start at the first non-whitespace character after this text. If "
     "left empty, no filename detection will be performed."},
    {1, "ImageEndText", "Image End String", "kept", 0xE0A,
     "If a line is checked for an image, this text marks the end of the line, and will be trimmed off from "
     "the detected filename. You do not need to include any whitespace, because that will be trimmed off "
     "automatically."},
    {1, "ImageNotEndText", "Image Not End String", "lost", 0xE0A,
     "If a line starts with the Image Start String, but ends with this text, it won't be considered a "
     "filename. This test is applied before the Image End String test."},
};

TEST_F(TypeInfoTest, CatalogueHasItsThirteenEntriesWordForWord) {
  const JobTypeInfo& info = Describe(
      "Command=-s $(ActualScene)\nCheckForMultipleFiles=Yes\nImageStartText=saved\nImageEndText=kept\n"
      "ImageNotEndText=lost\n[SuccessText]\n1=all; done\n2=fine\n");
  const Texts names = Names(info);
  std::size_t at = 0;
  while (at < names.size() && names[at] != "Executable overrides") {
    ++at;
  }
  ASSERT_EQ(at + std::size(k_Catalogue), names.size());
  for (const CatalogueEntry& expected : k_Catalogue) {
    const ParameterInfo& param = *info.GetParam(at++);
    EXPECT_EQ(param.Type(), expected.Type) << expected.Name;
    EXPECT_EQ(param.Name, expected.Name);
    EXPECT_EQ(param.Label, expected.Label) << expected.Name;
    EXPECT_EQ(param.Help, expected.Help) << expected.Name;
    EXPECT_EQ(param.Flags, expected.Flags) << expected.Name;
    if (expected.Type == 16) {
      // How texts are packed is the host's; what comes out again is not.
      const auto* list = ListParameterInfo::CastFrom(&param);
      ASSERT_NE(list, nullptr);
      EXPECT_EQ(param.Default, list->Pack({"all; done", "fine"}));
      EXPECT_EQ(list->Unpack(param.Default), (Texts{"all; done", "fine"}));
    } else {
      EXPECT_EQ(param.Default, expected.Default) << expected.Name;
    }
  }
}

TEST_F(TypeInfoTest, LayersStandInTheirOrder) {
  const JobTypeInfo& info = Describe("[PrimaryParameters]\n2=First\n1=Second\n[SecondaryParameters]\nx=Last\n"
                                     "[First]\nType=Integer\n[Second]\nType=Text\n[Last]\nType=File\n"
                                     "[PrimaryCommands]\n1=Open\n[SecondaryCommands]\n1=Close\n"
                                     "[Open]\nCommand=view\n[Close]\nCommand=leave\n");
  JobTypeInfo standard;
  RenderJob::FillJobTypeInfo(&standard, true);
  Texts expected{"Second", "First"};
  for (const String& name : Names(standard)) {
    expected.push_back(name);
  }
  for (const CatalogueEntry& entry : k_Catalogue) {
    expected.emplace_back(entry.Name);
  }
  expected.emplace_back("Last");
  EXPECT_EQ(Names(info), expected);
  EXPECT_GT(standard.ParamCount(), 10U);

  // Standard commands, if the host has any, stand between the file's own.
  ASSERT_EQ(info.Commands().size(), standard.Commands().size() + 2);
  EXPECT_EQ(info.Commands().front().Name, "Open");
  EXPECT_EQ(info.Commands().back().Name, "Close");
  EXPECT_EQ(info.Commands().back().Command, "leave");
}

TEST_F(TypeInfoTest, DescriptionTakesNameHelpAndDetailsFromTheFile) {
  const JobTypeInfo& info = Describe("Name=Sketch\nHelp=Draws.\nDetails=More.\nDefaultEnabled=No\n");
  EXPECT_EQ(info.Name, "Sketch");
  EXPECT_EQ(info.Help, "Draws.");
  EXPECT_EQ(info.Details, "More.");
  EXPECT_FALSE(info.Enabled);
}

TEST_F(TypeInfoTest, TypeIsEnabledUnlessItsFileSaysOtherwise) {
  EXPECT_TRUE(Describe("Name=x\n").Enabled);
}

TEST_F(TypeInfoTest, AliasesAreTrimmedAndKeepTheirOrder) {
  EXPECT_EQ(Describe("Shortcut=sketch , s,\t\"draw, fast\" ,Zed\n").Aliases(),
            (Texts{"sketch", "s", "draw, fast", "Zed"}));
}

TEST_F(TypeInfoTest, EveryTokenBecomesAnAlias) {
  EXPECT_EQ(Describe("Shortcut=a,,a, ,\"\",b\n").Aliases(), (Texts{"a", "", "a", "", "", "b"}));
}

TEST_F(TypeInfoTest, TypeWithoutShortcutHasNoAlias) {
  EXPECT_EQ(Describe("Name=x\n").Aliases(), Texts{});
}

TEST_F(TypeInfoTest, NumberLengthOfTheFileDoesNotReachTheForm) {
  Describe("SceneNumberLength=5\n");
  EXPECT_EQ(Param("SceneNumberLength").Default, "3");
}

TEST_F(TypeInfoTest, OverrideChangesTheNumberLengthOfTheForm) {
  Describe("SceneNumberLength=5\n[OverrideDefaults]\nSceneNumberLength=4\n");
  EXPECT_EQ(Param("SceneNumberLength").Default, "4");
}

TEST_F(TypeInfoTest, TypeThatDoesNotCheckForMultipleFilesSaysNo) {
  Describe("CheckForMultipleFiles=no\n");
  EXPECT_EQ(Param("CheckForMultipleFiles").Default, "No");
}

TEST_F(TypeInfoTest, OverrideFlagsWithoutATokenClearsAllFlags) {
  Describe("[OverrideFlags]\nCommandString=\n");
  EXPECT_EQ(Param("CommandString").Flags, 0U);
}

TEST_F(TypeInfoTest, OverrideFlagsReplacesTheFlagsByTheNamedOnes) {
  Describe("[OverrideFlags]\ncommandstring= Required , \"OfJob\",Advanced\nScene=Visible\n");
  EXPECT_EQ(Param("CommandString").Flags,
            STranslateFlag("Required") | STranslateFlag("OfJob") | STranslateFlag("Advanced"));
  EXPECT_EQ(Param("CommandString").Flags, 0x203U);
  EXPECT_EQ(Param("Scene").Flags, 0x800U);
}

TEST_F(TypeInfoTest, OverrideFlagsDropsTheTopBit) {
  Describe("[OverrideFlags]\nCommandString=0x80000001, 0x10\n");
  EXPECT_EQ(STranslateFlag("0x80000001"), 0x80000001U);
  EXPECT_EQ(Param("CommandString").Flags, 0x11U);
}

TEST_F(TypeInfoTest, OverrideDefaultsReachesHeadingsAndHostParametersAndWinsOverErrorTexts) {
  Describe("ErrorDetectPosition=1\n[ErrorText]\n1=bad\n[ErrorIgnore]\n1=fine\n"
           "[OverrideDefaults]\nExecutable overrides=x\nExecutable=/opt/sketch\nErrorStarts=worse\n"
           "ErrorDetectPosition=0\nNothing=1\n");
  EXPECT_EQ(Param("Executable overrides").Default, "x");
  EXPECT_EQ(Param("Executable").Default, "/opt/sketch");
  EXPECT_EQ(Param("ErrorStarts").Default, "worse");
  EXPECT_EQ(Param("ErrorIgnores").Default, "fine");
  EXPECT_EQ(Param("ErrorDetectPosition").Default, "0");
  EXPECT_EQ(m_Info.GetParam("Nothing"), nullptr);
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(TypeInfoTest, ErrorTextsOfTheFileAreTheHostsDefaults) {
  Describe("ErrorDetectPosition=yes\n[ErrorText]\n1=bad; luck\n2=worse\n[ErrorIgnore]\n1=0 errors\n");
  const auto* starts = ListParameterInfo::CastFrom(&Param("ErrorStarts"));
  const auto* ignores = ListParameterInfo::CastFrom(&Param("ErrorIgnores"));
  ASSERT_NE(starts, nullptr);
  ASSERT_NE(ignores, nullptr);
  EXPECT_EQ(starts->Unpack(starts->Default), (Texts{"bad; luck", "worse"}));
  EXPECT_EQ(ignores->Unpack(ignores->Default), Texts{"0 errors"});
  EXPECT_EQ(Param("ErrorDetectPosition").Default, "1");
}

TEST_F(TypeInfoTest, WithoutErrorTextsTheHostsDefaultsAreEmpty) {
  Describe("Name=x\n");
  EXPECT_EQ(Param("ErrorStarts").Default, "");
  EXPECT_EQ(Param("ErrorIgnores").Default, "");
  EXPECT_EQ(Param("ErrorDetectPosition").Default, "0");
}

TEST_F(TypeInfoTest, ErrorTextParameterThatIsNoListIsLeftAlone) {
  // The file's own parameter of that name stands first and is the one found.
  Describe("[PrimaryParameters]\n1=ErrorStarts\n[ErrorStarts]\nType=Text\nDefault=own\n[ErrorText]\n1=bad\n");
  EXPECT_EQ(Param("ErrorStarts").Type(), ParameterInfo::k_Text);
  EXPECT_EQ(Param("ErrorStarts").Default, "own");
}

TEST_F(TypeInfoTest, OverrideFiltersReachesFileParametersAlone) {
  Describe("[SecondaryParameters]\n1=Texture\n[Texture]\nType=File\nFilter=old\n"
           "[OverrideFilters]\nScene=Scenes (*.sk)|*.sk\nTexture=new\nCommandString=none\nNothing=x\n");
  const auto* scene = FileParameterInfo::CastFrom(&Param("Scene"));
  const auto* texture = FileParameterInfo::CastFrom(&Param("Texture"));
  ASSERT_NE(scene, nullptr);
  ASSERT_NE(texture, nullptr);
  EXPECT_EQ(scene->Filter, "Scenes (*.sk)|*.sk");
  EXPECT_EQ(texture->Filter, "new");
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(TypeInfoTest, OverridesApplyToSecondaryParametersToo) {
  Describe(
      "[SecondaryParameters]\n1=Width\n[Width]\nType=Integer\nDefault=640\n[OverrideDefaults]\nWidth=320\n"
      "[OverrideFlags]\nWidth=Literal\n");
  EXPECT_EQ(Param("Width").Default, "320");
  EXPECT_EQ(Param("Width").Flags, 0x20U);
}

TEST_F(TypeInfoTest, DescribingTwiceGivesTheSameTwice) {
  const UID type = LoadType("Shortcut=a,b\n[PrimaryParameters]\n1=Width\n[Width]\nType=Integer\n");
  JobTypeInfo first;
  JobTypeInfo second;
  m_Module.GetTypeInfo(type, &first);
  m_Module.GetTypeInfo(type, &second);
  EXPECT_EQ(Names(first), Names(second));
  EXPECT_EQ(first.Aliases(), second.Aliases());
}

TEST_F(TypeInfoTest, UnknownTypeLeavesTheDescriptionAlone) {
  LoadType("Name=Sketch\n");
  JobTypeInfo info;
  info.Name = "mine";
  info.Help = "help";
  info.Details = "details";
  info.Enabled = false;
  info.AddAlias("alias");
  info.NewParam(ParameterInfo::k_Text)->Name = "Own";
  m_Module.GetTypeInfo(ID(k_OtherID), &info);
  EXPECT_EQ(info.Name, "mine");
  EXPECT_EQ(info.Help, "help");
  EXPECT_EQ(info.Details, "details");
  EXPECT_FALSE(info.Enabled);
  EXPECT_EQ(info.Aliases(), Texts{"alias"});
  EXPECT_EQ(Names(info), Texts{"Own"});
}

TEST_F(TypeInfoTest, RecordWithoutAKeptFileLeavesTheDescriptionAlone) {
  (*m_Module.TvxMap)[ID(k_ID)].Name = "Sketch";
  JobTypeInfo info;
  m_Module.GetTypeInfo(ID(k_ID), &info);
  EXPECT_EQ(info.Name, "");
  EXPECT_EQ(info.ParamCount(), 0U);
  EXPECT_EQ(m_Module.GetCommandString(ID(k_ID), "Open"), "");
}

} // namespace
