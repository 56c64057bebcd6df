#include "tests/module/ModuleTest.h"

namespace {

using Values = std::map<String, String>;
using Texts = std::vector<String>;

class AutoDetectTest : public ModuleTest {
protected:
  void SetUp() override {
    ModuleTest::SetUp();
    Write("s_0001.ma", "x");
    Write("s_0002.ma", "x");
    m_Scene = InDirectory("s_0001.ma").Text();
    m_Pattern = InDirectory("s_%04d.ma").Text();
  }

  String m_Scene;
  String m_Pattern;
};

TEST_F(AutoDetectTest, ChangedSceneIsRecognisedAsPartOfASequence) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\n");
  Values values{{"Scene", m_Scene}, {"SceneNameFormat", "old"}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values,
            (Values{{"Scene", m_Scene}, {"Name", "s"}, {"Range", "1-2"}, {"SceneNameFormat", m_Pattern}}));
}

TEST_F(AutoDetectTest, SceneNameOfAnotherCaseIsReadUnderTheNameAsPassed) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\n");
  Values values{{"Scene", "/elsewhere/x.ma"}, {"SCENE", m_Scene}};
  m_Module.AutoDetect(type, "SCENE", values);
  EXPECT_EQ(values["SceneNameFormat"], m_Pattern);

  Values other{{"Scene", m_Scene}};
  m_Module.AutoDetect(type, "sCENE", other);
  EXPECT_EQ(other, (Values{{"Scene", m_Scene}, {"SceneNameFormat", ""}}));
}

TEST_F(AutoDetectTest, TypeThatDoesNotCheckOnlyForgetsThePattern) {
  const UID type = LoadType("CheckForMultipleFiles=No\n");
  Values values{{"Scene", m_Scene}, {"SceneNameFormat", "old"}, {"Name", "mine"}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values, (Values{{"Scene", m_Scene}, {"SceneNameFormat", ""}, {"Name", "mine"}}));
}

TEST_F(AutoDetectTest, PatternIsForgottenWhenNoSequenceIsFound) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\n");
  Values values{{"Scene", "/elsewhere/x.ma"}, {"SceneNameFormat", "old"}, {"Range", "5"}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values, (Values{{"Scene", "/elsewhere/x.ma"}, {"SceneNameFormat", ""}, {"Range", "5"}}));
}

TEST_F(AutoDetectTest, SettingsSwitchDetectionOff) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\n");
  Application::the_Application->Settings().SetValue(k_ID, "CheckForMultipleFiles", "No");
  Values values{{"Scene", m_Scene}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values, (Values{{"Scene", m_Scene}, {"SceneNameFormat", ""}}));
}

TEST_F(AutoDetectTest, SettingsSwitchDetectionOn) {
  const UID type = LoadType("CheckForMultipleFiles=No\n");
  Application::the_Application->Settings().SetValue(k_ID, "CheckForMultipleFiles", "Yes");
  Values values{{"Scene", m_Scene}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values["Range"], "1-2");
}

TEST_F(AutoDetectTest, NumberLengthOfTheFileCounts) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\nSceneNumberLength=5\n");
  Values values{{"Scene", m_Scene}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values["SceneNameFormat"], "");
}

TEST_F(AutoDetectTest, NumberLengthOfTheSettingsCountsMore) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\nSceneNumberLength=5\n");
  Application::the_Application->Settings().SetValue(k_ID, "SceneNumberLength", "4");
  Values values{{"Scene", m_Scene}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values["SceneNameFormat"], m_Pattern);

  Application::the_Application->Settings().SetValue(k_ID, "SceneNumberLength", "6");
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values["SceneNameFormat"], "");
}

TEST_F(AutoDetectTest, RulesOfTheSceneSeeWhatDetectionWrote) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\n[AutoDetect]\nScene=Title=$(Name) of $(Range), "
                            "Pattern=$(SceneNameFormat)\n");
  Values values{{"Scene", m_Scene}};
  m_Module.AutoDetect(type, "Scene", values);
  EXPECT_EQ(values["Title"], "s of 1-2");
  EXPECT_EQ(values["Pattern"], m_Pattern);
}

TEST_F(AutoDetectTest, RulesSeeTheResultsOfTheOnesBeforeThem) {
  const UID type = LoadType("[AutoDetect]\nMode=B=[$(A)], A=<$(B)>\n");
  Values values{{"Mode", "x"}, {"A", "oldA"}, {"B", "oldB"}};
  m_Module.AutoDetect(type, "Mode", values);
  EXPECT_EQ(values["A"], "<oldB>");
  EXPECT_EQ(values["B"], "[<oldB>]");
}

TEST_F(AutoDetectTest, TriggersMatchByCase) {
  const UID type = LoadType("[AutoDetect]\nMode=A=1\n");
  Values values{{"mode", "x"}};
  m_Module.AutoDetect(type, "mode", values);
  EXPECT_EQ(values, (Values{{"mode", "x"}}));
}

TEST_F(AutoDetectTest, ChangeWithoutRulesLeavesTheValuesAlone) {
  const UID type = LoadType("CheckForMultipleFiles=Yes\n[AutoDetect]\nMode=A=1\n");
  const Values before{{"Scene", m_Scene}, {"SceneNameFormat", "old"}, {"Width", "3"}};
  Values values = before;
  m_Module.AutoDetect(type, "Width", values);
  EXPECT_EQ(values, before);
  m_Module.AutoDetect(type, "", values);
  EXPECT_EQ(values, before);
}

TEST_F(AutoDetectTest, UnknownTypeIsLoggedOnceAndRaised) {
  LoadType("Name=x\n");
  const Values before{{"Scene", m_Scene}};
  Values values = before;
  std::unique_ptr<Exception> raised;
  try {
    m_Module.AutoDetect(ID(k_OtherID), "Scene", values);
  } catch (Exception* exception) {
    raised.reset(exception);
  }
  ASSERT_NE(raised, nullptr);
  EXPECT_EQ(raised->Module(), "Tessivar");
  EXPECT_EQ(raised->Function(), "CreateJob");
  EXPECT_EQ(raised->Code(), 0x21000002);
  EXPECT_EQ(raised->Message(), "Tessivar cannot create jobs for types it does not know about");
  EXPECT_EQ(raised->Number(), 0);
  EXPECT_EQ(raised->Details(), "");
  EXPECT_EQ(raised->Flag(), 1);
  EXPECT_EQ(values, before);
  // The line is the one that the host makes of the record.
  const Texts logged = m_Log;
  m_Log.clear();
  Exception::Log(raised.get());
  EXPECT_EQ(logged, m_Log);
  ASSERT_EQ(logged.size(), 1U);
  EXPECT_NE(logged[0].find("Tessivar cannot create jobs for types it does not know about"), String::npos);
}

TEST_F(AutoDetectTest, RulesMayHoldHostileText) {
  const UID type = LoadType("[AutoDetect]\nMode=A=%n%s%999999999d $(Mode)\n");
  Values values{{"Mode", "%n"}};
  m_Module.AutoDetect(type, "Mode", values);
  EXPECT_EQ(values["A"], "%n%s%999999999d %n");
}

} // namespace
