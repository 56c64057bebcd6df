#include "host/foundation/Path.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

namespace {

TEST(Path, LeafIsTheLastComponent) {
  EXPECT_EQ(Path("/a/b.0001.exr").Leaf(true), "b.0001.exr");
  EXPECT_EQ(Path("b.exr").Leaf(true), "b.exr");
  EXPECT_EQ(Path("/a/b/").Leaf(true), "");
  EXPECT_EQ(Path("/").Leaf(true), "");
  EXPECT_EQ(Path("").Leaf(true), "");
  EXPECT_EQ(Path("/a/ b\n\".x").Leaf(true), " b\n\".x");
  EXPECT_EQ(Path("C:\\a\\b.x").Leaf(true), "C:\\a\\b.x");
}

TEST(Path, LeafWithoutExtensionEndsBeforeTheLastPoint) {
  EXPECT_EQ(Path("/a/b.0001.exr").Leaf(false), "b.0001");
  EXPECT_EQ(Path("/a.d/b").Leaf(false), "b");
  EXPECT_EQ(Path("/a.d/").Leaf(false), "");
  EXPECT_EQ(Path("b.").Leaf(false), "b");
}

TEST(Path, ExtensionIsTheTextBehindTheLastPoint) {
  EXPECT_EQ(Path("/a/b.0001.exr").Extension(), "exr");
  EXPECT_EQ(Path("/a.d/b").Extension(), "");
  EXPECT_EQ(Path("b.").Extension(), "");
  EXPECT_EQ(Path("").Extension(), "");
  EXPECT_EQ(Path("a.b/").Extension(), "");
}

TEST(Path, ALeadingPointStartsNoExtension) {
  for (const char* name : {".profile", "..", ".", "...", "..x"}) {
    EXPECT_EQ(Path(name).Extension(), "") << name;
    EXPECT_EQ(Path(name).Leaf(false), name);
  }
  EXPECT_EQ(Path(".a.b").Extension(), "b");
  EXPECT_EQ(Path(".a.b").Leaf(false), ".a");
}

TEST(Path, BranchAsWrittenWithoutSeparator) {
  EXPECT_EQ(Path("/a/b/c.x").Branch(true, true), "/a/b");
  EXPECT_EQ(Path("a/b").Branch(true, true), "a");
  EXPECT_EQ(Path("b").Branch(true, true), "");
  EXPECT_EQ(Path("/b").Branch(true, true), "/");
  EXPECT_EQ(Path("/").Branch(true, true), "/");
  EXPECT_EQ(Path("//").Branch(true, true), "/");
  EXPECT_EQ(Path("/a/b/").Branch(true, true), "/a/b");
  EXPECT_EQ(Path("a//b").Branch(true, true), "a");
  EXPECT_EQ(Path("").Branch(true, true), "");
  EXPECT_EQ(Path("./b").Branch(true, true), ".");
}

TEST(Path, BranchAsWrittenWithSeparator) {
  EXPECT_EQ(Path("/a/b/c.x").Branch(true, false), "/a/b/");
  EXPECT_EQ(Path("a/b").Branch(true, false), "a/");
  EXPECT_EQ(Path("b").Branch(true, false), "");
  EXPECT_EQ(Path("/b").Branch(true, false), "/");
  EXPECT_EQ(Path("/").Branch(true, false), "/");
  EXPECT_EQ(Path("/a/b/").Branch(true, false), "/a/b/");
  EXPECT_EQ(Path("").Branch(true, false), "");
}

// Relative paths are tested in a directory of a known name.
class PathInDirectory : public testing::Test {
protected:
  void SetUp() override {
    m_Before = std::filesystem::current_path();
    std::filesystem::current_path((m_Directory / ".").c_str());
    m_Here = std::filesystem::current_path().string();
  }
  void TearDown() override { std::filesystem::current_path(m_Before); }

  TemporaryDirectory m_Directory;
  std::filesystem::path m_Before;
  std::string m_Here;
};

TEST_F(PathInDirectory, BranchIsMadeAbsoluteAgainstTheCurrentDirectory) {
  EXPECT_EQ(Path("b").Branch(false, true), m_Here);
  EXPECT_EQ(Path("a/b").Branch(false, true), m_Here + "/a");
  EXPECT_EQ(Path("a/b/").Branch(false, true), m_Here + "/a/b");
  EXPECT_EQ(Path("").Branch(false, true), m_Here);
  EXPECT_EQ(Path("b").Branch(false, false), m_Here + "/");
  EXPECT_EQ(Path("a/b").Branch(false, false), m_Here + "/a/");
}

TEST_F(PathInDirectory, AnAbsoluteBranchStaysAsItIs) {
  EXPECT_EQ(Path("/a/b").Branch(false, true), "/a");
  EXPECT_EQ(Path("/a/b").Branch(false, false), "/a/");
  EXPECT_EQ(Path("/b").Branch(false, true), "/");
  EXPECT_EQ(Path("/").Branch(false, false), "/");
}

TEST_F(PathInDirectory, ABareNameInTheRootHasTheRootAsBranch) {
  std::filesystem::current_path("/");
  EXPECT_EQ(Path("b").Branch(false, true), "/");
  EXPECT_EQ(Path("b").Branch(false, false), "/");
  EXPECT_EQ(Path("a/b").Branch(false, true), "/a");
}

String Joined(const Path& left, const String& right) {
  Path path = left;
  Path& result = path /= right;
  EXPECT_EQ(&result, &path);
  return path.Text();
}

TEST(Path, JoiningLeavesExactlyOneSeparator) {
  EXPECT_EQ(Joined("/a", "b"), "/a/b");
  EXPECT_EQ(Joined("/a/", "b"), "/a/b");
  EXPECT_EQ(Joined("/a", "/b"), "/a/b");
  EXPECT_EQ(Joined("/a/", "/b"), "/a/b");
  EXPECT_EQ(Joined("/a//", "//b"), "/a/b");
  EXPECT_EQ(Joined("/", "b"), "/b");
  EXPECT_EQ(Joined("//", "b"), "/b");
  EXPECT_EQ(Joined("a", "b/c/"), "a/b/c/");
}

TEST(Path, JoiningToAnEmptyPathGivesTheComponent) {
  EXPECT_EQ(Joined("", "b"), "b");
  EXPECT_EQ(Joined("", "/b"), "/b");
  EXPECT_EQ(Joined("", ""), "");
}

TEST(Path, JoiningAnEmptyComponentOnlyAddsTheSeparator) {
  EXPECT_EQ(Joined("/a", ""), "/a/");
  EXPECT_EQ(Joined("/a/", ""), "/a/");
  EXPECT_EQ(Joined("/", ""), "/");
  EXPECT_EQ(Joined("/a", "/"), "/a/");
}

TEST(Path, BranchAndLeafJoinToThePath) {
  for (const char* text : {"/a/b", "/b", "a/b", "b", "", "/"}) {
    const Path path = text;
    EXPECT_EQ(path.Branch(true, false) + path.Leaf(true), text);
    EXPECT_EQ(Joined(path.Branch(true, true), path.Leaf(true)), text);
  }
}

TEST(Path, AbsolutePathsBeginWithTheRoot) {
  EXPECT_TRUE(Path("/").IsAbsolute());
  EXPECT_FALSE(Path("a/b").IsAbsolute());
  EXPECT_FALSE(Path("").IsAbsolute());
}

TEST(Path, ANullPointerIsTheEmptyPath) {
  EXPECT_TRUE(Path(static_cast<const char*>(nullptr)).empty());
}

class PathTranslation : public testing::Test {
protected:
  void TearDown() override { Path::SetTranslations({}); }

  static String Local(const char* path) { return Path(path).TranslateToLocal().Text(); }
};

TEST_F(PathTranslation, WithoutATablePathsStayAsTheyAre) {
  EXPECT_EQ(Local("/mnt/a"), "/mnt/a");
  EXPECT_EQ(Local(""), "");
}

TEST_F(PathTranslation, TheSourceIsReplacedByTheLocalPrefix) {
  Path::SetTranslations({{"/mnt/show", "/Volumes/show"}});
  EXPECT_EQ(Local("/mnt/show/a/b.ma"), "/Volumes/show/a/b.ma");
  EXPECT_EQ(Local("/mnt/show"), "/Volumes/show");
  EXPECT_EQ(Local("/mnt/show/"), "/Volumes/show/");
}

TEST_F(PathTranslation, OnlyWholeComponentsMatch) {
  Path::SetTranslations({{"/mnt/show", "/x"}});
  EXPECT_EQ(Local("/mnt/shows/a"), "/mnt/shows/a");
  EXPECT_EQ(Local("/mnt/sho"), "/mnt/sho");
  EXPECT_EQ(Local("/mnt"), "/mnt");
  EXPECT_EQ(Local("/a/mnt/show/b"), "/a/mnt/show/b");
  EXPECT_EQ(Local("/MNT/show/b"), "/MNT/show/b");
}

TEST_F(PathTranslation, TheLongestSourceWinsWhateverTheOrder) {
  Path::SetTranslations({{"/mnt", "/1"}, {"/mnt/show/a", "/3"}, {"/mnt/show", "/2"}});
  EXPECT_EQ(Local("/mnt/show/a/x"), "/3/x");
  EXPECT_EQ(Local("/mnt/show/b/x"), "/2/b/x");
  EXPECT_EQ(Local("/mnt/other"), "/1/other");
}

TEST_F(PathTranslation, TheResultIsNotTranslatedAgain) {
  Path::SetTranslations({{"/a", "/b"}, {"/b", "/c"}});
  EXPECT_EQ(Local("/a/x"), "/b/x");
}

TEST_F(PathTranslation, TrailingSeparatorsOfTheTableDoNotMatter) {
  Path::SetTranslations({{"/mnt/show//", "/x/"}});
  EXPECT_EQ(Local("/mnt/show/a"), "/x/a");
  EXPECT_EQ(Local("/mnt/show"), "/x");
  EXPECT_EQ(Path::Translations(), (std::vector<std::pair<String, String>>{{"/mnt/show", "/x"}}));
}

TEST_F(PathTranslation, TheRootMayBeEitherSide) {
  Path::SetTranslations({{"/mnt", "/"}});
  EXPECT_EQ(Local("/mnt"), "/");
  EXPECT_EQ(Local("/mnt/a"), "/a");
  Path::SetTranslations({{"/", "/mnt"}, {"/own", "/o"}});
  EXPECT_EQ(Local("/a/b"), "/mnt/a/b");
  EXPECT_EQ(Local("/own/b"), "/o/b");
  EXPECT_EQ(Local("a/b"), "a/b");
  EXPECT_EQ(Local(""), "");
}

TEST_F(PathTranslation, RelativeAndForeignSourcesMatchToo) {
  Path::SetTranslations({{"Z:", "/mnt/z"}, {"show", "/s"}});
  EXPECT_EQ(Local("Z:/a/b"), "/mnt/z/a/b");
  EXPECT_EQ(Local("show/a"), "/s/a");
}

TEST_F(PathTranslation, PairsWithAnEmptySideAreDropped) {
  Path::SetTranslations({{"", "/x"}, {"/a", ""}});
  EXPECT_TRUE(Path::Translations().empty());
  EXPECT_EQ(Local("/a/b"), "/a/b");
}

} // namespace
