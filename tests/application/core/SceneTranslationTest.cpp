#include "tests/application/core/TestSupport.h"

#include "host/application/SceneTranslation.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

class SceneTranslation : public testing::Test {
protected:
  String Translate(std::string_view content) {
    WriteFile(Scene, content);
    const Path copy = TranslateSceneContents(Path(Scene));
    Copy = copy.Text();
    return ReadFile(Copy);
  }

  TemporaryDirectory Directory;
  EnvironmentValue Cache{"XDG_CACHE_HOME", Directory / "cache"};
  Translations Maps{{{"/mnt/proj", "/local/p"}, {"/mnt", "/m"}, {"P:", "/p"}}};
  std::string Scene = Directory / "scenes/a scene.pov";
  String Copy;
};

TEST_F(SceneTranslation, RewritesWholeComponentsLongestFirst) {
  EXPECT_EQ(Translate("#include \"/mnt/proj/a.inc\"\nmap=/mnt/x;/mnt\n'P:/tex' path=/mnt/proj"),
            "#include \"/local/p/a.inc\"\nmap=/m/x;/m\n'/p/tex' path=/local/p");
  EXPECT_NE(Copy, Scene);
  EXPECT_EQ(Path(Copy).Leaf(true), "a scene.pov");
  EXPECT_EQ(Copy.rfind(Directory / "cache/trovik/scenes/", 0), 0U);
}

TEST_F(SceneTranslation, LeavesWhatOnlyLooksAlike) {
  const std::string content = "/mnt2/a /mnt.old /mnt-x /a/mnt/b x/mnt /mnt\xC3\xA4 XP:/";
  EXPECT_EQ(Translate(content), content);
  EXPECT_EQ(Copy, Scene);
  EXPECT_EQ(Translate(content + " /mnt"), content + " /m");
}

TEST_F(SceneTranslation, GivesTheSceneItselfWhereThereIsNothingToDo) {
  EXPECT_EQ(Translate("no paths at all"), "no paths at all");
  EXPECT_EQ(Copy, Scene);
  EXPECT_EQ(Translate(""), "");
  EXPECT_EQ(Copy, Scene);
  Translate(std::string("/mnt/a\0", 7));
  EXPECT_EQ(Copy, Scene);
  Path::SetTranslations({});
  Translate("/mnt/a");
  EXPECT_EQ(Copy, Scene);
}

TEST_F(SceneTranslation, ANulBehindTheFirstBytesIsText) {
  const std::string content = "/mnt" + std::string(9000, ' ') + std::string(1, '\0');
  EXPECT_EQ(Translate(content).substr(0, 3), "/m ");
}

TEST_F(SceneTranslation, GivesBackWhatCannotBeRead) {
  for (const std::string& scene : {Directory / "missing.pov", Directory.Name(), std::string()}) {
    EXPECT_EQ(TranslateSceneContents(Path(scene)).Text(), scene);
  }
  const std::string pipe = Directory / "pipe.pov";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(TranslateSceneContents(Path(pipe)).Text(), pipe);
}

TEST_F(SceneTranslation, GivesBackAFileBeyondTheLimit) {
  WriteFile(Scene, "/mnt/a");
  std::filesystem::resize_file(Scene, (std::uintmax_t{256} << 20) + 1); // a hole, no bytes on the disk
  EXPECT_EQ(TranslateSceneContents(Path(Scene)).Text(), Scene);
}

TEST_F(SceneTranslation, KeepsACopyThatIsTheSameAndReplacesAnother) {
  Translate("/mnt/a");
  const String first = Copy;
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(stat(first.c_str(), &before), 0);
  Translate("/mnt/a");
  EXPECT_EQ(Copy, first);
  ASSERT_EQ(stat(first.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(Translate("/mnt/b"), "/m/b");
  EXPECT_EQ(Copy, first);
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(Path(first).Branch(true, true))) {
    files += entry.is_regular_file() ? 1 : 0;
  }
  EXPECT_EQ(files, 1);
}

TEST_F(SceneTranslation, ScenesOfOneNameInTwoDirectoriesHaveTheirOwnCopies) {
  Translate("/mnt/a");
  const String first = Copy;
  Scene = Directory / "other/a scene.pov";
  Translate("/mnt/b");
  EXPECT_NE(Copy, first);
  EXPECT_EQ(ReadFile(first), "/m/a");
}

TEST_F(SceneTranslation, ACopyThatCannotBeWrittenIsAnError) {
  WriteFile(Directory / "cache", "a file where the cache should be");
  WriteFile(Scene, "/mnt/a");
  int code = 0;
  const String message = MessageOf([this] { TranslateSceneContents(Path(Scene)); }, &code);
  EXPECT_EQ(message.rfind("cannot write the translated scene " + (Directory / "cache/trovik/scenes/"), 0), 0U)
      << message;
  EXPECT_EQ(code, k_ErrorSystem);
}

} // namespace
