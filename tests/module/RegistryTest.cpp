#include "tests/module/ModuleTest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

class TypeFileTest : public ModuleTest {
protected:
  /// The record of a file with `body` in its section "Module".
  const TvxInfo& RecordOf(std::string_view body) {
    const UID type = LoadType(body);
    return m_Module.TvxMap->at(type);
  }
};

class RegistryTest : public ModuleTest {
protected:
  std::vector<UID> ListedTypes() {
    std::vector<UID> types{ID(k_OtherID)};
    m_Module.ListTypes(types);
    return types;
  }
};

using Texts = std::vector<String>;
using Rules = std::map<String, std::map<String, String>>;

TEST_F(TypeFileTest, FileWithoutModuleSectionIsSkippedWithoutAWord) {
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(Write("a.tvx", "[Other]\nID=x\n")));
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(Write("empty.tvx", "")));
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(InDirectory("missing.tvx")));
  EXPECT_EQ(m_Log, Texts{});
  EXPECT_TRUE(m_Module.TvxMap->empty());
}

TEST_F(TypeFileTest, FileWithoutAnIDIsRefusedWithAWarning) {
  const Path file = Write("a.tvx", "[Module]\nName=Sketch\n");
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(file));
  EXPECT_EQ(m_Log, Texts{"warning: No ID found in configuration file for Module " + file.Text()});
  EXPECT_TRUE(m_Module.TvxMap->empty());
  EXPECT_TRUE(m_Module.IDs->empty());
}

TEST_F(TypeFileTest, MalformedIDIsRefusedWithAWarning) {
  for (const char* id : {"", "x", "%n%n%s", "11111111-2222-3333-4444-55555555555", "%999999999d",
                         "{1111111-2222-3333-4444-555555555555}"}) {
    m_Log.clear();
    const Path file = Write("a.tvx", std::string("[Module]\nID=") + id + "\n");
    EXPECT_FALSE(m_Module.LoadVirtualModuleData(file)) << id;
    EXPECT_EQ(m_Log, Texts{"warning: Failed to load virtual module file: " + file.Text()}) << id;
    EXPECT_TRUE(m_Module.TvxMap->empty());
  }
}

TEST_F(TypeFileTest, TheNullIDIsAnIDLikeAnyOther) {
  const UID type = LoadType("Name=Null", "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(m_Module.TvxMap->at(type).Name, "Null");
}

TEST_F(TypeFileTest, LoadedFileIsLoggedAndListed) {
  const Path file = Write("a.tvx", "[module]\nid=11111111-2222-3333-4444-555555555555\nNAME=Sketch\n");
  EXPECT_TRUE(m_Module.LoadVirtualModuleData(file));
  EXPECT_EQ(m_Log, Texts{"info: Loaded Virtual Module " + file.Text()});
  EXPECT_EQ(*m_Module.IDs, std::vector<UID>{ID(k_ID)});
  EXPECT_EQ(m_Module.TvxMap->at(ID(k_ID)).Name, "Sketch");
}

TEST_F(TypeFileTest, SceneNumberLengthIsReadLikeStrtol) {
  const std::pair<const char*, int> cases[] = {
      {"SceneNumberLength=", 0},    {"SceneNumberLength=12abc", 12},
      {"SceneNumberLength=abc", 0}, {"Name=x", 3},
      {"SceneNumberLength=-4", -4}, {"SceneNumberLength=4294967297", 1}};
  for (const auto& [line, expected] : cases) {
    const Path file = Write("a.tvx", std::string("[Module]\nID=") + k_ID + "\n" + line + "\n");
    ASSERT_TRUE(m_Module.LoadVirtualModuleData(file)) << line;
    EXPECT_EQ(m_Module.TvxMap->at(ID(k_ID)).SceneNumberLength, expected) << line;
    m_Module.OnModuleUnload();
  }
}

TEST_F(TypeFileTest, MissingKeysKeepTheirDefaults) {
  const TvxInfo& info = RecordOf("");
  EXPECT_EQ(info.Command, "");
  EXPECT_EQ(info.Name, "");
  EXPECT_EQ(info.Shortcut, "");
  EXPECT_EQ(info.Help, "");
  EXPECT_EQ(info.Details, "");
  EXPECT_EQ(info.ImageStartText, "");
  EXPECT_EQ(info.ImageEndText, "");
  EXPECT_EQ(info.ImageNotEndText, "");
  EXPECT_EQ(info.ErrorText, Texts{});
  EXPECT_EQ(info.ErrorIgnore, Texts{});
  EXPECT_EQ(info.SuccessText, Texts{});
  EXPECT_FALSE(info.ErrorDetectPosition);
  EXPECT_TRUE(info.DefaultEnabled);
  EXPECT_FALSE(info.CheckForMultipleFiles);
  EXPECT_EQ(info.SceneNumberLength, 3);
  EXPECT_EQ(info.AutoDetect, Rules{});
  EXPECT_NE(info.Ini, nullptr);
}

TEST_F(TypeFileTest, EveryKeyReachesItsField) {
  const TvxInfo& info = RecordOf("Command=-c \"$(Scene)\"\nName=Sketch\nShortcut=sk, s\nHelp=Draws.\n"
                                 "Details=More.\nImageStartText=saved\nImageEndText=done\n"
                                 "ImageNotEndText=skipped\nDefaultEnabled=No\nCheckForMultipleFiles=Yes\n"
                                 "SceneNumberLength=5\nErrorDetectPosition=1\n"
                                 "[ErrorText]\nb=two\nA=one\n[ErrorIgnore]\nx=fine\n[SuccessText]\n1=done\n");
  EXPECT_EQ(info.Command, "-c \"$(Scene)\"");
  EXPECT_EQ(info.Name, "Sketch");
  EXPECT_EQ(info.Shortcut, "sk, s");
  EXPECT_EQ(info.Help, "Draws.");
  EXPECT_EQ(info.Details, "More.");
  EXPECT_EQ(info.ImageStartText, "saved");
  EXPECT_EQ(info.ImageEndText, "done");
  EXPECT_EQ(info.ImageNotEndText, "skipped");
  EXPECT_FALSE(info.DefaultEnabled);
  EXPECT_TRUE(info.CheckForMultipleFiles);
  EXPECT_EQ(info.SceneNumberLength, 5);
  EXPECT_TRUE(info.ErrorDetectPosition);
  EXPECT_EQ(info.ErrorText, (Texts{"one", "two"}));
  EXPECT_EQ(info.ErrorIgnore, Texts{"fine"});
  EXPECT_EQ(info.SuccessText, Texts{"done"});
  String kept;
  ASSERT_TRUE(info.Ini->SetSection("Module"));
  EXPECT_TRUE(info.Ini->GetValue("Help", kept));
  EXPECT_EQ(kept, "Draws.");
  EXPECT_EQ(info.Ini->Filename().Leaf(true), String(k_ID) + ".tvx");
}

TEST_F(TypeFileTest, ListSectionKeepsOneValueForKeysThatDifferOnlyInCase) {
  const TvxInfo& info = RecordOf("[SuccessText]\nText=first\nTEXT=second\nother=third\n");
  EXPECT_EQ(info.SuccessText, (Texts{"third", "second"}));
}

TEST_F(TypeFileTest, RuleWithoutAnyAssignmentIsNotEntered) {
  const TvxInfo& info = RecordOf("[AutoDetect]\nScene=Foo, Bar\nNote=\n");
  EXPECT_EQ(info.AutoDetect, Rules{});
}

TEST_F(TypeFileTest, AssignmentsAreSplitAtTheFirstEqualsSignAndTrimmed) {
  const TvxInfo& info = RecordOf("[AutoDetect]\nScene=Output = $(Scene).png , a=b=c, =x, Foo,\t Empty =\n");
  const Rules expected{{"Scene", {{"Output", "$(Scene).png"}, {"a", "b=c"}, {"", "x"}, {"Empty", ""}}}};
  EXPECT_EQ(info.AutoDetect, expected);
}

TEST_F(TypeFileTest, QuotedOrEscapedCommaDoesNotSplitAnAssignment) {
  const TvxInfo& info = RecordOf("[AutoDetect]\nScene=Output=\"a,b\", Note=c\\,d, Output2=1\n");
  const Rules expected{{"Scene", {{"Output", "a,b"}, {"Note", "c,d"}, {"Output2", "1"}}}};
  EXPECT_EQ(info.AutoDetect, expected);
}

TEST_F(TypeFileTest, LaterAssignmentOfANameReplacesTheEarlierOne) {
  const TvxInfo& info = RecordOf("[AutoDetect]\nScene=A=1, a=2, A=3\n");
  const Rules expected{{"Scene", {{"A", "3"}, {"a", "2"}}}};
  EXPECT_EQ(info.AutoDetect, expected);
}

TEST_F(TypeFileTest, IDThatTheHostKnowsIsRefusedWithTheOtherTypesName) {
  auto other = std::make_unique<JobTypeInfo>();
  other->Name = "First";
  RegisterPlain(ID(k_ID), std::move(other));
  const Path file = Write("a.tvx", std::string("[Module]\nName=Second\nID=") + k_ID + "\n");
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(file));
  EXPECT_EQ(m_Log, Texts{"warning: Module '" + file.Text() +
                         "' configuration specifices a type ID that is already in use by 'First"});
  EXPECT_TRUE(m_Module.TvxMap->empty());
}

TEST_F(RegistryTest, TwoFilesOfOneScanWithTheSameIDBothLoad) {
  const Path first = Write("a.tvx", std::string("[Module]\nName=First\nID=") + k_ID + "\n");
  const Path second = Write("b.tvx", std::string("[Module]\nName=Second\nID=") + k_ID + "\n");
  ASSERT_TRUE(m_Module.LoadVirtualModuleData(first));
  // The module loses the kept file of a record that is overwritten.
  const std::unique_ptr<IniFile> lost(m_Module.TvxMap->at(ID(k_ID)).Ini);
  ASSERT_TRUE(m_Module.LoadVirtualModuleData(second));
  EXPECT_EQ(m_Log, (Texts{"info: Loaded Virtual Module " + first.Text(),
                          "info: Loaded Virtual Module " + second.Text()}));
  EXPECT_EQ(m_Module.TvxMap->size(), 1U);
  EXPECT_EQ(m_Module.TvxMap->at(ID(k_ID)).Name, "Second");
  EXPECT_NE(m_Module.TvxMap->at(ID(k_ID)).Ini, lost.get());
  EXPECT_EQ(*m_Module.IDs, (std::vector<UID>{ID(k_ID), ID(k_ID)}));
  EXPECT_EQ(ListedTypes(), (std::vector<UID>{ID(k_ID), ID(k_ID)}));
}

TEST_F(RegistryTest, DirectoryWithoutTypeFilesLoadsNothing) {
  Write("readme.txt", "[Module]\n");
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListedTypes(), std::vector<UID>{});
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(RegistryTest, OneRefusedFileDoesNotStopTheScan) {
  const Path bad = Write("a.tvx", "[Module]\nName=Bad\n");
  const Path good = Write("b.tvx", std::string("[Module]\nID=") + k_ID + "\n");
  EXPECT_TRUE(Load());
  EXPECT_EQ(m_Log, (Texts{"warning: No ID found in configuration file for Module " + bad.Text(),
                          "info: Loaded Virtual Module " + good.Text()}));
  EXPECT_EQ(ListedTypes(), std::vector<UID>{ID(k_ID)});
}

TEST_F(RegistryTest, ScanOfRefusedFilesAloneReportsNothingLoaded) {
  Write("a.tvx", "[Module]\nName=Bad\n");
  Write("b.tvx", "nothing\n");
  EXPECT_FALSE(Load());
  EXPECT_EQ(ListedTypes(), std::vector<UID>{});
}

TEST_F(RegistryTest, SecondDirectoryIsReadOnTopOfTheFirst) {
  Write("one/a.tvx", std::string("[Module]\nName=One\nID=") + k_ID + "\n");
  Write("two/a.tvx", std::string("[Module]\nName=Hidden\nID=") + k_ID + "\n");
  Write("two/b.tvx", std::string("[Module]\nName=Two\nID=") + k_OtherID + "\n");
  EXPECT_TRUE(Load("one"));
  RegisterTypes();
  m_Log.clear();
  EXPECT_TRUE(Load("two"));
  EXPECT_EQ(m_Log, (Texts{"warning: Module '" + InDirectory("two/a.tvx").Text() +
                              "' configuration specifices a type ID that is already in use by 'One",
                          "info: Loaded Virtual Module " + InDirectory("two/b.tvx").Text()}));
  EXPECT_EQ(ListedTypes(), (std::vector<UID>{ID(k_ID), ID(k_OtherID)}));
  EXPECT_EQ(m_Module.TvxMap->at(ID(k_ID)).Name, "One");
}

TEST_F(RegistryTest, UnloadEmptiesEverythingAndTheCountIsAlwaysZero) {
  EXPECT_EQ(*m_Module.IDCount, 0);
  Write("a.tvx", std::string("[Module]\nID=") + k_ID + "\n");
  EXPECT_TRUE(Load());
  EXPECT_EQ(*m_Module.IDCount, 0);
  m_Module.OnModuleUnload();
  EXPECT_EQ(*m_Module.IDCount, 0);
  EXPECT_EQ(ListedTypes(), std::vector<UID>{});
  EXPECT_TRUE(m_Module.TvxMap->empty());
  EXPECT_EQ(m_Module.GetCommandString(ID(k_ID), "Open"), "");
}

TEST_F(RegistryTest, UnloadLogsTheFilesInTheOrderOfTheirIDs) {
  const Path high = Write("a.tvx", std::string("[Module]\nID=") + k_OtherID + "\n");
  const Path low = Write("b.tvx", std::string("[Module]\nID=") + k_ID + "\n");
  EXPECT_TRUE(Load());
  EXPECT_EQ(ListedTypes(), (std::vector<UID>{ID(k_OtherID), ID(k_ID)}));
  m_Log.clear();
  m_Module.OnModuleUnload();
  EXPECT_EQ(m_Log, (Texts{"debug: Unloaded Virtual Module " + low.Text(),
                          "debug: Unloaded Virtual Module " + high.Text()}));
}

TEST_F(RegistryTest, UnloadUnregistersNothingWithTheHost) {
  const UID type = LoadType("Name=Sketch\n");
  m_Module.OnModuleUnload();
  ASSERT_NE(JobFactory::s_JobFactory->GetTypeInfo(type, false), nullptr);
}

TEST_F(RegistryTest, CommandStringIsThatOfTheCommandsSection) {
  const UID type = LoadType("[Open]\nCommand=view $(Scene)\n[Bare]\nLabel=none\n");
  EXPECT_EQ(m_Module.GetCommandString(type, "Open"), "view $(Scene)");
  EXPECT_EQ(m_Module.GetCommandString(type, "OPEN"), "view $(Scene)");
  EXPECT_EQ(m_Module.GetCommandString(type, "Bare"), "");
  EXPECT_EQ(m_Module.GetCommandString(type, "Nothing"), "");
  EXPECT_EQ(m_Module.GetCommandString(ID(k_OtherID), "Open"), "");
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(RegistryTest, DeletingNoJobDoesNothing) {
  m_Module.DeleteJob(nullptr);
  EXPECT_EQ(m_Log, Texts{});
}

TEST_F(RegistryTest, CreatedJobHasNoTypeYet) {
  Job* job = m_Module.CreateJob();
  ASSERT_NE(job, nullptr);
  EXPECT_TRUE(job->Type().IsNull());
  m_Module.DeleteJob(job);
}

TEST_F(RegistryTest, JobOutlivesTheRegistryAndFindsNothingThere) {
  const UID type = LoadType("[Open]\nCommand=view\n");
  const SmartHandle<Job> job = MakeJob(type);
  m_Module.OnModuleUnload();
  EXPECT_FALSE(job->ProcessCommand("Open", nullptr));
}

TEST_F(RegistryTest, ConstantsHoldTheirOwnNames) {
  for (const char* name : {"CommandString", "SuccessTexts", "CheckForMultipleFiles", "SceneNumberLength",
                           "SceneNameFormat", "EnquoteActual", "HideSubrange", "ImageStartText",
                           "ImageEndText", "ImageNotEndText", "ActualScene", "ActualSubRange"}) {
    const auto* pointer = static_cast<const char* const*>(Symbol((std::string("p_") + name).c_str()));
    ASSERT_NE(pointer, nullptr);
    EXPECT_STREQ(*pointer, name);
  }
}

TEST_F(RegistryTest, DirectoriesPipesAndDanglingLinksAreNoTypeFiles) {
  std::filesystem::create_directory(InDirectory("dir.tvx").c_str());
  ASSERT_EQ(mkfifo(InDirectory("pipe.tvx").c_str(), 0600), 0);
  ASSERT_EQ(symlink("/nowhere/at/all", InDirectory("link.tvx").c_str()), 0);
  EXPECT_FALSE(Load());
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(InDirectory("dir.tvx")));
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(InDirectory("pipe.tvx")));
  EXPECT_FALSE(m_Module.LoadVirtualModuleData(InDirectory("link.tvx")));
  EXPECT_EQ(m_Log, Texts{});
}

} // namespace
