#include "tests/application/core/TestSupport.h"

#include "host/application/PlainPath.h"

#include <gtest/gtest.h>

#include <rapidcheck/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

class PlainPathTest : public testing::Test {
protected:
  PlainPathTest() { fs::create_directory(Directory / "tmp"); }

  String Plain(const std::string& path) const { return PlainPath(Path(path), Refused).Text(); }
  String Refusal(const std::string& path) const {
    return MessageOf([&] { Plain(path); });
  }

  TemporaryDirectory Directory;
  EnvironmentValue Temporary{"TMPDIR", Directory / "tmp"};
  std::string Links = Directory / "tmp/trovik-" + std::to_string(geteuid());
  NameLetters Refused{"NonASCII \"", "Letters"};
};

TEST_F(PlainPathTest, PathWithoutSuchLettersStaysAsItIs) {
  for (const char* path : {"/shots/a b/$(x)_%04d.pov", "scene.pov", "../a//b/", "/", ""}) {
    EXPECT_EQ(Plain(path), path);
  }
  EXPECT_FALSE(fs::exists(Links));
}

TEST_F(PlainPathTest, FolderIsReachedByALinkAndTheRestStays) {
  const std::string folder = Directory / "my r\xC3\xABnder \"farm\"";
  WriteFile(folder + "/shot 1/scene_0001.pov", "scene");
  const String plain = Plain(folder + "/shot 1/scene_0001.pov");
  EXPECT_EQ(Refused.FindIn(plain), String::npos);
  EXPECT_EQ(plain.substr(0, Links.size() + 1), Links + "/");
  EXPECT_EQ(plain.substr(Links.size() + 17), "/shot 1/scene_0001.pov");
  EXPECT_EQ(ReadFile(plain), "scene");
  EXPECT_EQ(fs::read_symlink(plain.substr(0, Links.size() + 17)), folder);
}

TEST_F(PlainPathTest, LinkLeadsToTheLastSuchComponent) {
  const std::string folder = Directory / "\xC3\xA4/b/\xE6\x97\xA5\xE6\x9C\xAC/l\xE9";
  WriteFile(folder + "/a/scene.pov", "scene");
  const String plain = Plain(folder + "/a/scene.pov");
  EXPECT_EQ(plain.substr(Links.size() + 17), "/a/scene.pov");
  EXPECT_EQ(ReadFile(plain), "scene");
  EXPECT_EQ(Plain(folder).substr(Links.size() + 17), "");
  EXPECT_EQ(Plain(folder + "/").substr(Links.size() + 17), "/");
}

TEST_F(PlainPathTest, LinkToAFileKeepsItsExtension) {
  const std::string file = Directory / "Flu\xC3\x9F.v2.pov";
  WriteFile(file, "scene");
  const String plain = Plain(file);
  EXPECT_EQ(Path(plain).Extension(), "pov");
  EXPECT_EQ(ReadFile(plain), "scene");
  EXPECT_EQ(Path(Plain(Directory / "scene.\xC3\xA4")).Extension(), "");
}

TEST_F(PlainPathTest, SamePathHasTheSameLinkAndAnotherAnother) {
  const String first = Plain("/\xC3\xA4/x");
  EXPECT_EQ(Plain("/\xC3\xA4/x"), first);
  EXPECT_EQ(Path(Plain("/\xC3\xA4/y")).Branch(true, true), Path(first).Branch(true, true));
  EXPECT_NE(Path(Plain("/\xC3\xB6/x")).Branch(true, true), Path(first).Branch(true, true));
  EXPECT_EQ(std::distance(fs::directory_iterator(Links), fs::directory_iterator()), 2);
}

TEST_F(PlainPathTest, LinkThatLeadsElsewhereIsMadeAnew) {
  const std::string link = Path(Plain("/\xC3\xA4/x")).Branch(true, true);
  fs::remove(link);
  fs::create_symlink("/elsewhere", link);
  Plain("/\xC3\xA4/x");
  EXPECT_EQ(fs::read_symlink(link), "/\xC3\xA4");
  EXPECT_EQ(std::distance(fs::directory_iterator(Links), fs::directory_iterator()), 1);
}

TEST_F(PlainPathTest, RelativePathWithSuchALetterIsRefused) {
  EXPECT_EQ(Refusal("a/\xC3\xA4"), "PlainPath needs a full path, not \"a/\xC3\xA4\"");
}

TEST_F(PlainPathTest, FolderThatIsNotOursAloneIsNotUsed) {
  const String message = "the folder " + String(Links) +
                         " for links is not of this user alone; remove it, or set TMPDIR to another place";
  fs::create_directory(Links);
  ASSERT_EQ(chmod(Links.c_str(), 0777), 0);
  EXPECT_EQ(Refusal("/\xC3\xA4"), message);
  fs::remove(Links);
  fs::create_directory(Directory / "other");
  fs::create_directory_symlink(Directory / "other", Links);
  EXPECT_EQ(Refusal("/\xC3\xA4"), message);
}

TEST_F(PlainPathTest, FolderThatCannotBeMadeIsTold) {
  const EnvironmentValue nowhere("TMPDIR", Directory / "none");
  EXPECT_EQ(Refusal("/\xC3\xA4"), "cannot make the folder " + (Directory / "none/trovik-") +
                                      std::to_string(geteuid()) + " for links");
}

TEST_F(PlainPathTest, TemporaryFolderWithSuchALetterIsPassedOver) {
  const EnvironmentValue odd("TMPDIR", Directory / "t\xC3\xABmp");
  const String plain = Plain(Directory.Name() + "/\xC3\xA4");
  EXPECT_EQ(plain.substr(0, 12), "/tmp/trovik-");
  fs::remove(plain.c_str());
}

TEST_F(PlainPathTest, LettersThatNoLinkCanDoWithoutAreTold) {
  EXPECT_EQ(MessageOf([] { PlainPath(Path("/a-b"), NameLetters("-", "Letters")); }),
            "no name of a link in /tmp would do without the letters of PlainPath");
}

RC_GTEST_FIXTURE_PROP(PlainPathTest, AnyPathIsThenWithoutSuchLettersAndLeadsToTheSameFile, ()) {
  std::string path;
  for (int depth = *rc::gen::inRange(1, 5); depth > 0; --depth) {
    const auto letters = rc::gen::nonEmpty(rc::gen::container<std::string>(
        rc::gen::element('a', ' ', '.', '"', '\\', '\n', '$', '\xC3', '\xA4', '\xE9', '\x01')));
    path += "/x" + *letters;
  }
  WriteFile(Directory.Name() + path, path);
  const String plain = Plain(Directory.Name() + path);
  RC_ASSERT(Refused.FindIn(plain) == String::npos);
  RC_ASSERT(ReadFile(plain) == path);
  RC_ASSERT(Plain(plain) == plain);
  fs::remove_all(Directory.Name() + path.substr(0, path.find('/', 1)));
}

} // namespace
