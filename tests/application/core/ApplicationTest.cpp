#include "tests/application/core/TestSupport.h"

#include <gtest/gtest.h>

namespace {

class ApplicationSettings : public testing::Test {
protected:
  ~ApplicationSettings() override { Application::the_Application->LoadSettings(Path(), Path()); }
  TemporaryDirectory Directory;
};

TEST_F(ApplicationSettings, AreThereBeforeAnythingIsLoaded) {
  ASSERT_NE(Application::the_Application, nullptr);
  ASSERT_NE(JobFactory::s_JobFactory, nullptr);
  EXPECT_TRUE(Application::the_Application->Settings().SectionNames().empty());
}

TEST_F(ApplicationSettings, ReadBothFilesAndTheirPathMaps) {
  WriteFile(Directory / "settings.ini", "[PathMaps]\n1=/there ; /here\n2=\"/a;b\";/c/\n");
  WriteFile(Directory / "options.ini", "[x]\nExecutable=/bin/true\n");
  Application::the_Application->LoadSettings(Path(Directory / "settings.ini"),
                                             Path(Directory / "options.ini"));
  EXPECT_EQ(Path("/there/x").TranslateToLocal().Text(), "/here/x");
  EXPECT_EQ(Path("/a;b/x").TranslateToLocal().Text(), "/c/x");
  EXPECT_EQ(Application::the_Application->Options().GetValue("X", "executable", ""), "/bin/true");
  Application::the_Application->LoadSettings(Path(Directory / "missing.ini"),
                                             Path(Directory / "settings.ini/x"));
  EXPECT_EQ(Path("/there/x").TranslateToLocal().Text(), "/there/x");
  EXPECT_TRUE(Application::the_Application->Options().SectionNames().empty());
}

TEST_F(ApplicationSettings, WarnAboutWhatIsNoPathMap) {
  WriteFile(Directory / "settings.ini", "[PathMaps]\nA=/there\nB = ;/here\nC=/x;/y;/z\nD=/there;/here\n");
  const LogCapture log;
  Application::the_Application->LoadSettings(Path(Directory / "settings.ini"), Path());
  const String file = Directory / "settings.ini";
  EXPECT_EQ(log.Lines(),
            (std::vector<String>{file + ":2:3: warning: \"/there\" is no path map; write source;local",
                                 file + ":3:5: warning: \";/here\" is no path map; write source;local",
                                 file + ":4:3: warning: \"/x;/y;/z\" is no path map; write source;local"}));
  EXPECT_EQ(Path("/there/x").TranslateToLocal().Text(), "/here/x");
}

TEST_F(ApplicationSettings, RaiseForAFileThatCannotBeReadAndKeepWhatWasLoaded) {
  WriteFile(Directory / "options.ini", "[x]\nkey=value\n");
  Application::the_Application->LoadSettings(Path(), Path(Directory / "options.ini"));
  EXPECT_EQ(MessageOf([this] { Application::the_Application->LoadSettings(Path(Directory.Name()), Path()); }),
            "cannot read " + Directory.Name());
  EXPECT_EQ(Application::the_Application->Options().GetValue("x", "key", ""), "value");
}

TEST_F(ApplicationSettings, KeepScenesBelowTheCacheDirectory) {
  {
    const EnvironmentValue cache("XDG_CACHE_HOME", "/tmp/c");
    EXPECT_EQ(Application::SceneCache().Text(), "/tmp/c/trovik/scenes");
  }
  const EnvironmentValue relative("XDG_CACHE_HOME", "relative");
  {
    const EnvironmentValue home("HOME", "/home/x");
    EXPECT_EQ(Application::SceneCache().Text(), "/home/x/.cache/trovik/scenes");
  }
  const EnvironmentValue home("HOME", "");
  EXPECT_TRUE(Application::SceneCache().IsAbsolute());
}

} // namespace
