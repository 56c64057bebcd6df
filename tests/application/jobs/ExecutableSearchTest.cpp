#include "tests/application/jobs/TestJob.h"

#include "host/application/ExecutableSearch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace {

class ExecutableSearch : public JobTest {
protected:
  Path Find(const std::vector<Path>& roots, const std::vector<Path>& bases,
            const Path& exe = "render") const {
    return ProcessJob::FindLatestExecutable(roots, bases, exe);
  }
};

// Sets PATH as long as it lives.
class PathVariable {
public:
  explicit PathVariable(const String& value) : m_Before(getenv("PATH")) { setenv("PATH", value.c_str(), 1); }
  ~PathVariable() { setenv("PATH", m_Before.c_str(), 1); }
  PathVariable(const PathVariable&) = delete;
  PathVariable& operator=(const PathVariable&) = delete;

private:
  std::string m_Before;
};

TEST_F(ExecutableSearch, HighestVersionWinsByNumberNotByLetter) {
  for (const char* name : {"paint-4.9", "paint-4.10", "paint-4.2"}) {
    WriteProgram(String(name) + "/render");
  }
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint-4.10/render"));
}

TEST_F(ExecutableSearch, ReleaseWinsOverItsPreRelease) {
  WriteProgram("paint-4.1-beta/render");
  WriteProgram("paint-4.1/render");
  WriteProgram("paint-4.1rc2/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint-4.1/render"));
}

TEST_F(ExecutableSearch, FolderWithoutVersionIsTheOldest) {
  WriteProgram("paint/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint/render"));
  WriteProgram("paint_1.0/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint_1.0/render"));
  WriteProgram("paint2.0/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint2.0/render"));
}

TEST_F(ExecutableSearch, NameThatGoesOnWithALetterIsAnotherProgram) {
  WriteProgram("paintkit-9.0/render");
  WriteProgram("Paint-9.0/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), Path());
  EXPECT_EQ(Find({m_Directory}, {"paint*"}), In("paintkit-9.0/render"));
}

TEST_F(ExecutableSearch, WildcardsMatchWholeNamesAndBracketsArePlain) {
  WriteProgram("paint[1]-2/render");
  WriteProgram("paint1-3/render");
  EXPECT_EQ(Find({m_Directory}, {"paint[1]*"}), In("paint[1]-2/render"));
  EXPECT_EQ(Find({m_Directory}, {"pa?nt1-?"}), In("paint1-3/render"));
  EXPECT_EQ(Find({m_Directory}, {"pa?nt1"}), Path());
}

TEST_F(ExecutableSearch, HiddenFoldersNeedAPointInTheBase) {
  WriteProgram(".paint-2/render");
  EXPECT_EQ(Find({m_Directory}, {"*"}), Path());
  EXPECT_EQ(Find({m_Directory}, {".paint"}), In(".paint-2/render"));
}

TEST_F(ExecutableSearch, NewestFolderWithoutTheProgramIsPassedOver) {
  MakeFolder("paint-5");
  Write("paint-4/render", "not executable");
  MakeFolder("paint-3/render");
  WriteProgram("paint-2/render");
  Write("paint-9", "a file");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint-2/render"));
}

TEST_F(ExecutableSearch, RootsCompeteTogetherAndTheEarlierWinsTies) {
  WriteProgram("a/paint-3/render");
  WriteProgram("b/paint-4/render");
  WriteProgram("b/paint_3/render");
  EXPECT_EQ(Find({In("a"), In("b")}, {"paint"}), In("b/paint-4/render"));
  std::filesystem::remove_all(In("b/paint-4").c_str());
  EXPECT_EQ(Find({In("a"), In("b")}, {"paint"}), In("a/paint-3/render"));
  EXPECT_EQ(Find({In("b"), In("a")}, {"paint"}), In("b/paint_3/render"));
}

TEST_F(ExecutableSearch, BasesCompeteByVersionNotByName) {
  WriteProgram("zeta-1/render");
  WriteProgram("alpha draw 2/render");
  EXPECT_EQ(Find({m_Directory}, {"zeta", "alpha draw"}), In("alpha draw 2/render"));
}

TEST_F(ExecutableSearch, EmptyBaseAndNoBasesMeanTheRootItself) {
  WriteProgram("render");
  EXPECT_EQ(Find({m_Directory}, {}), In("render"));
  EXPECT_EQ(Find({m_Directory}, {""}), In("render"));
  WriteProgram("paint-1/render");
  EXPECT_EQ(Find({m_Directory}, {"", "paint"}), In("paint-1/render"));
}

TEST_F(ExecutableSearch, ProgramMayLieDeeperInTheFolder) {
  WriteProgram("paint-1/bin/linux/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}, "bin/linux/render"), In("paint-1/bin/linux/render"));
}

TEST_F(ExecutableSearch, LinkToAFolderCountsAsFolder) {
  WriteProgram("store/x/render");
  std::filesystem::create_directory_symlink(In("store/x").c_str(), In("paint-7").c_str());
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint-7/render"));
}

TEST_F(ExecutableSearch, MissingAndEmptyRootsAreSkipped) {
  WriteProgram("paint-1/render");
  EXPECT_EQ(Find({"", In("nowhere"), m_Directory}, {"paint"}), In("paint-1/render"));
  EXPECT_EQ(Find({""}, {"paint"}), Path());
  EXPECT_EQ(Find({}, {"paint"}), Path());
}

TEST_F(ExecutableSearch, EmptyProgramGivesNothing) {
  EXPECT_EQ(Find({m_Directory}, {}, ""), Path());
  EXPECT_EQ(Find({}, {}, ""), Path());
}

TEST_F(ExecutableSearch, AbsoluteProgramStandsForItself) {
  const Path program = WriteProgram("own/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}, program), program);
  EXPECT_EQ(Find({m_Directory}, {"paint"}, In("own/other")), Path());
}

TEST_F(ExecutableSearch, WithoutRootsAndBasesThePathIsSearched) {
  WriteProgram("two/render");
  WriteProgram("three/render");
  Write("one/render", "not executable");
  const PathVariable path(In("one").Text() + ":" + In("two").Text() + ":" + In("three").Text());
  EXPECT_EQ(Find({}, {}), In("two/render"));
  EXPECT_EQ(Find({}, {}, "nothing"), Path());
}

TEST_F(ExecutableSearch, PathsBecomeAbsoluteAgainstTheCurrentDirectory) {
  const Path here = std::filesystem::current_path().string();
  EXPECT_EQ(MakeAbsolute("/a/b"), Path("/a/b"));
  EXPECT_EQ(MakeAbsolute("a/b"), Path(here.Text() + "/a/b"));
  EXPECT_EQ(MakeAbsolute(".//a"), Path(here.Text() + "/a"));
  EXPECT_EQ(MakeAbsolute("././a"), Path(here.Text() + "/a"));
  EXPECT_EQ(MakeAbsolute("../a"), Path(here.Text() + "/../a"));
  EXPECT_EQ(MakeAbsolute("."), here);
  EXPECT_EQ(MakeAbsolute("./"), here);
  EXPECT_EQ(MakeAbsolute("./a", "/s"), Path("/s/a"));
  EXPECT_EQ(MakeAbsolute("a", "s"), Path(here.Text() + "/s/a"));
  EXPECT_EQ(MakeAbsolute("/a", "/s"), Path("/a"));
}

} // namespace
