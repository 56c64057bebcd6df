#include "tests/application/jobs/FolderReads.h"
#include "tests/application/jobs/TestJob.h"

#include "host/application/jobs/ExecutableSearch.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>

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
  explicit PathVariable(const String& value) {
    if (const char* const before = getenv("PATH")) {
      m_Before = before;
    }
    setenv("PATH", value.c_str(), 1);
  }
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

TEST_F(ExecutableSearch, FolderThatWasPutAsideIsNeverUsed) {
  WriteProgram("paint-4.1/render");
  for (const char* name : {"paint-4.2-old", "paint-4.2.backup", "paint-4.2-disabled", "paint-4.2 (copy)"}) {
    WriteProgram(String(name) + "/render");
  }
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint-4.1/render"));
  std::filesystem::remove_all(In("paint-4.1").c_str());
  EXPECT_EQ(Find({m_Directory}, {"paint"}), Path());
  EXPECT_EQ(Find({m_Directory}, {"paint-4.2-old"}), In("paint-4.2-old/render")); // who names it means it
  EXPECT_EQ(Find({m_Directory}, {"paint-*-old"}), In("paint-4.2-old/render"));
}

TEST_F(ExecutableSearch, PlainestNameWinsAmongThoseThatReadTheSame) {
  WriteProgram("paint-4.2-lts/render");
  WriteProgram("paint-4.2/render");
  EXPECT_EQ(Find({m_Directory}, {"paint"}), In("paint-4.2/render"));
}

TEST_F(ExecutableSearch, BaseWithANumberTakesNoOtherNumber) {
  WriteProgram("paint-4.10/render");
  WriteProgram("paint-4.1.2/render");
  EXPECT_EQ(Find({m_Directory}, {"paint-4.1"}), In("paint-4.1.2/render"));
  EXPECT_EQ(Find({m_Directory}, {"paint-4"}), In("paint-4.10/render"));
}

TEST_F(ExecutableSearch, NumberOfABaseIsPartOfTheVersion) {
  WriteProgram("paint-3.6.2/render");
  WriteProgram("paint-4.1/render");
  EXPECT_EQ(Find({m_Directory}, {"paint-3.6", "paint-4.1"}), In("paint-4.1/render"));
  EXPECT_EQ(Find({m_Directory}, {"paint-3.*", "paint-4.*"}), In("paint-4.1/render"));
  WriteProgram("draw19.5.640/render");
  WriteProgram("draw20.5.278/render");
  EXPECT_EQ(Find({m_Directory}, {"draw19", "draw20"}), In("draw20.5.278/render"));
  WriteProgram("bulb2-2.30/render"); // the number is the program's
  WriteProgram("bulb-2.31/render");
  EXPECT_EQ(Find({m_Directory}, {"bulb2", "bulb"}), In("bulb-2.31/render"));
}

TEST_F(ExecutableSearch, LongestBaseThatFitsDecidesNotTheirOrder) {
  // By the base "paint" the first would be an unfinished 4.2.
  const Path beta = WriteProgram("a/paint (beta) 4.2/render");
  const Path release = WriteProgram("b/paint 4.2/render");
  EXPECT_EQ(Find({In("a"), In("b")}, {"paint", "paint (beta)"}), beta);
  EXPECT_EQ(Find({In("a"), In("b")}, {"paint (beta)", "paint"}), beta);
  EXPECT_EQ(Find({In("a"), In("b")}, {"paint"}), release);
}

TEST_F(ExecutableSearch, TellsWhatItCameBy) {
  WriteProgram("paint-4.1/render");
  WriteProgram("paint-4.0/render");
  WriteProgram("paint-5-old/render");
  MakeFolder("paint-4.3");
  MakeFolder("paint-4.2/render");
  Write("plain", "a file");
  MakeFolder("empty");
  const ExecutableSearchResult result =
      SearchNewestExecutable({In("nowhere"), m_Directory, In("plain"), In("empty")}, {"paint"}, "render");
  EXPECT_EQ(result.Program, In("paint-4.1/render"));
  String folders;
  for (const SearchedFolder& one : result.Folders) {
    folders += one.Folder.Leaf(true) + " " + one.Problem + "\n";
  }
  EXPECT_EQ(folders, "paint-4.3 cannot serve: its \"render\" does not exist\n"
                     "paint-4.2 cannot serve: its \"render\" is a folder\n"
                     "paint-4.1 \n"
                     "paint-4.0 \n"
                     "paint-5-old was put aside: its name says \"old\"\n");
  String roots;
  for (const SearchedFolder& one : result.Roots) {
    roots += one.Folder.Leaf(true) + " " + one.Problem + "\n";
  }
  EXPECT_EQ(roots, "nowhere does not exist\nplain is no folder\nempty \n");
}

TEST_F(ExecutableSearch, SaysWhyAFileIsNoProgram) {
  EXPECT_EQ(ExecutableProblem(WriteProgram("render")), "");
  EXPECT_EQ(ExecutableProblem(In("nothing")), "does not exist");
  EXPECT_EQ(ExecutableProblem(m_Directory), "is a folder");
  EXPECT_EQ(ExecutableProblem(Write("plain", "")), "is not executable");
  EXPECT_EQ(ExecutableProblem("/dev/null"), "is no regular file");
  std::filesystem::create_symlink(In("gone").c_str(), In("link").c_str());
  EXPECT_EQ(ExecutableProblem(In("link")), "is a link to \"" + In("gone").Text() + "\", which leads nowhere");
  std::filesystem::create_symlink("loop", In("loop").c_str());
  EXPECT_EQ(ExecutableProblem(In("loop")), "is a link to \"loop\", which leads nowhere");
}

// A job of a type that has a search of its own.
class SearchingJob : public TestJob {
public:
  Path GetLatestExecutable() override { return FindLatestExecutable(Roots, {"paint"}, "render"); }
  std::vector<Path> Roots;
};

class SearchOfAJob : public JobTest {
protected:
  // Prepares a work of a job as an engine would; its program.
  Path Work(const std::shared_ptr<ExecutableMemory>& memory, const String& executable = String::Null) {
    auto* job = new SearchingJob;
    const SmartHandle<Job> handle(static_cast<Job*>(job));
    job->SetType(m_Type);
    job->Roots = {m_Directory};
    job->SetParameter(p_Executable, executable);
    job->SetParameter("CommandString", "-x");
    job->ShareSearches(memory);
    ProcessStart start;
    return job->PrepareWork(start) ? Path(start.Arguments.front()) : Path();
  }
  std::shared_ptr<ExecutableMemory> m_Memory = std::make_shared<ExecutableMemory>();
};

TEST_F(SearchOfAJob, IsMadeOnceForAllWorks) {
  const Path program = WriteProgram("paint-1/render");
  FolderReads reads(m_Directory);
  for (int work = 0; work < 100; ++work) {
    EXPECT_EQ(Work(m_Memory), program);
  }
  EXPECT_EQ(reads.Count(), 1);
}

TEST_F(SearchOfAJob, KeepsItsProgramWhenANewerOneComes) {
  const Path program = WriteProgram("paint-1/render");
  EXPECT_EQ(Work(m_Memory), program);
  const Path newer = WriteProgram("paint-2/render");
  EXPECT_EQ(Work(m_Memory), program);
  EXPECT_EQ(Work(std::make_shared<ExecutableMemory>()), newer); // another job
  std::filesystem::remove(program.c_str());
  EXPECT_EQ(Work(m_Memory), newer);
}

TEST_F(SearchOfAJob, IsMadeAgainForAProgramThatWasReplaced) {
  const Path program = WriteProgram("paint-2/render");
  EXPECT_EQ(Work(m_Memory), program);
  const Path other = WriteProgram("other/render");
  FolderReads reads(m_Directory);
  std::filesystem::rename(other.c_str(), program.c_str());
  EXPECT_EQ(Work(m_Memory), program);
  EXPECT_EQ(reads.Count(), 1);
  EXPECT_EQ(Work(m_Memory), program);
  EXPECT_EQ(reads.Count(), 0);
  const Path older = WriteProgram("paint-1/render");
  std::filesystem::permissions(program.c_str(), std::filesystem::perms::owner_read);
  EXPECT_EQ(Work(m_Memory), older); // it may not be run any more
}

// A memory of hours ago: what was there then is known to be old.
class DoubtedSearch : public JobTest {
protected:
  Path Find(const Path& root) { return m_Memory.Find({root}, {"paint"}, "render"); }
  Path Find() { return Find(m_Directory); }
  Path FindInDoubt() {
    m_Memory.Doubt();
    return Find();
  }
  std::int64_t m_Later = 3600;
  ExecutableMemory m_Memory{[this] { return std::time(nullptr) + m_Later; }};
};

TEST_F(DoubtedSearch, ServesOnWhereNothingHasChanged) {
  WriteProgram("paint-1/render");
  MakeFolder("paint-3");
  const Path program = WriteProgram("paint-2/render");
  EXPECT_EQ(Find(), program);
  FolderReads reads(m_Directory);
  EXPECT_EQ(FindInDoubt(), program);
  EXPECT_EQ(FindInDoubt(), program);
  EXPECT_EQ(reads.Count(), 0);
}

TEST_F(DoubtedSearch, ThatFoundNothingServesOnUntilThereIsAProgram) {
  MakeFolder("paint-1");
  EXPECT_EQ(Find(), Path());
  FolderReads reads(m_Directory);
  EXPECT_EQ(FindInDoubt(), Path());
  EXPECT_EQ(reads.Count(), 0);
  const Path program = WriteProgram("paint-1/render"); // which the root does not tell
  EXPECT_EQ(Find(), Path()) << "works of one job share what was found";
  EXPECT_EQ(FindInDoubt(), program);
}

TEST_F(DoubtedSearch, IsMadeAgainWhereANewerOneCame) {
  const Path program = WriteProgram("paint-1/render");
  EXPECT_EQ(Find(), program);
  const Path newer = WriteProgram("paint-2/render");
  EXPECT_EQ(Find(), program);
  EXPECT_EQ(FindInDoubt(), newer);
}

TEST_F(DoubtedSearch, IsMadeAgainWhereOneThatWasPassedOverIsComplete) {
  MakeFolder("paint-2");
  const Path program = WriteProgram("paint-1/render");
  EXPECT_EQ(Find(), program);
  const Path newer = WriteProgram("paint-2/render"); // which the root does not tell
  EXPECT_EQ(FindInDoubt(), newer);
}

TEST_F(DoubtedSearch, IsMadeAgainWhereALinkLeadsToAFolderNow) {
  MakeFolder("store");
  std::filesystem::create_directory_symlink(In("store/x").c_str(), In("paint-7").c_str());
  const Path program = WriteProgram("paint-1/render");
  EXPECT_EQ(Find(), program);
  WriteProgram("store/x/render"); // which the root does not tell
  EXPECT_EQ(FindInDoubt(), In("paint-7/render"));
}

TEST_F(DoubtedSearch, IsMadeAgainWhereItsProgramIsGone) {
  const Path older = WriteProgram("paint-1/render");
  const Path program = WriteProgram("paint-2/render");
  EXPECT_EQ(Find(), program);
  std::filesystem::remove(program.c_str());
  EXPECT_EQ(FindInDoubt(), older);
}

TEST_F(DoubtedSearch, IsMadeAgainWhereARootCame) {
  const Path root = In("root");
  EXPECT_EQ(Find(root), Path());
  const Path program = WriteProgram("root/paint-1/render");
  EXPECT_EQ(Find(root), Path());
  m_Memory.Doubt();
  EXPECT_EQ(Find(root), program);
}

TEST_F(DoubtedSearch, IsMadeAgainWhereARootHadJustChanged) {
  m_Later = 0;
  const Path program = WriteProgram("paint-1/render");
  EXPECT_EQ(Find(), program);
  FolderReads reads(m_Directory);
  EXPECT_EQ(FindInDoubt(), program);
  EXPECT_EQ(reads.Count(), 1) << "a folder's times change in steps";
}

TEST_F(SearchOfAJob, IsNotMadeWhereTheProgramWasChosen) {
  WriteProgram("paint-1/render");
  FolderReads reads(m_Directory);
  EXPECT_EQ(Work(m_Memory, "/bin/true"), Path("/bin/true"));
  SetOption(p_Executable, "/bin/false");
  EXPECT_EQ(Work(m_Memory), Path("/bin/false"));
  EXPECT_EQ(reads.Count(), 0);
}

TEST_F(SearchOfAJob, IsMadeAgainAfterAWorkThatCouldNotStart) {
  WriteProgram("other/render");
  EXPECT_EQ(Work(m_Memory), Path());
  const Path program = WriteProgram("paint-1/render");
  EXPECT_EQ(Work(m_Memory), program);
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
