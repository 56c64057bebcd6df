#include "host/foundation/FileFinder.h"

#include "tests/foundation/os/TestDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using Names = std::vector<std::string>;

// The matches without the directory, in the finder's order.
Names Matches(const TestDirectory& directory, const std::string& pattern) {
  Names names;
  FileFinder finder;
  for (bool more = finder.Find(directory.File(pattern)); more; more = finder.Next()) {
    EXPECT_EQ(finder.Name().Branch(true, true), directory.Text());
    names.push_back(finder.Name().Leaf(true));
  }
  EXPECT_EQ(finder.Name(), Path());
  EXPECT_FALSE(finder.Next());
  return names;
}

bool Exists(const TestDirectory& directory, const std::string& name) {
  FileFinder finder;
  return finder.FindExact(directory.File(name));
}

// The literal reading: ask the system about this one name.
bool IsFile(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

TEST(FileFinderTest, PatternsMatchInTheLastComponentSortedByBytes) {
  const TestDirectory directory;
  for (const char* name :
       {"b.tvx", "a.tvx", "B.tvx", "a.tvx.bak", "\xc3\xa4.tvx", "a10.tvx", "a2.tvx", "x.TVX"}) {
    directory.Write(name);
  }
  EXPECT_EQ(Matches(directory, "*.tvx"),
            (Names{"B.tvx", "a.tvx", "a10.tvx", "a2.tvx", "b.tvx", "\xc3\xa4.tvx"}));
  EXPECT_EQ(Matches(directory, "?.tvx"), (Names{"B.tvx", "a.tvx", "b.tvx"}));
  EXPECT_EQ(Matches(directory, "a*"), (Names{"a.tvx", "a.tvx.bak", "a10.tvx", "a2.tvx"}));
  EXPECT_EQ(Matches(directory, "a??.tvx"), (Names{"a10.tvx"}));
  EXPECT_EQ(Matches(directory, "*a*t*v*x*"), (Names{"a.tvx", "a.tvx.bak", "a10.tvx", "a2.tvx"}));
  EXPECT_EQ(Matches(directory, "a.tvx"), (Names{"a.tvx"}));
  EXPECT_EQ(Matches(directory, "c*"), (Names{}));
  EXPECT_EQ(Matches(directory, "c.tvx"), (Names{}));
}

TEST(FileFinderTest, HiddenFilesNeedAPatternThatBeginsWithAPoint) {
  const TestDirectory directory;
  directory.Write(".hidden.tvx");
  directory.Write("shown.tvx");
  EXPECT_EQ(Matches(directory, "*.tvx"), (Names{"shown.tvx"}));
  EXPECT_EQ(Matches(directory, "?hidden.tvx"), (Names{}));
  EXPECT_EQ(Matches(directory, ".*"), (Names{".hidden.tvx"}));
  EXPECT_EQ(Matches(directory, ".hidden.tvx"), (Names{".hidden.tvx"}));
}

TEST(FileFinderTest, DirectoriesDoNotMatchAndLinksCountAsTheirTargets) {
  const TestDirectory directory;
  directory.MakeDirectory("a_directory");
  directory.Write("a_file");
  directory.Link("a_link", "a_file");
  directory.Link("a_directory_link", "a_directory");
  directory.Link("a_dangling_link", "nowhere");
  directory.Link("a_loop", "a_loop");
  ASSERT_EQ(mkfifo(directory.File("a_fifo").c_str(), 0600), 0);
  EXPECT_EQ(Matches(directory, "a_*"), (Names{"a_fifo", "a_file", "a_link"}));
  for (const char* name : {"a_fifo", "a_file", "a_link"}) {
    EXPECT_EQ(Matches(directory, name), (Names{name}));
    EXPECT_TRUE(Exists(directory, name));
  }
  for (const char* name : {"a_directory", "a_directory_link", "a_dangling_link", "a_loop", ".", "..", ""}) {
    EXPECT_EQ(Matches(directory, name), (Names{})) << name;
    EXPECT_FALSE(Exists(directory, name)) << name;
  }
}

TEST(FileFinderTest, WildcardsInNamesThatExistArePlainForExactQuestions) {
  const TestDirectory directory;
  directory.Write("shot*_0001.ma");
  directory.Write("shot?_0002.ma");
  directory.Write("shotA_0003.ma");
  EXPECT_TRUE(Exists(directory, "shot*_0001.ma"));
  EXPECT_TRUE(Exists(directory, "shot?_0002.ma"));
  EXPECT_FALSE(Exists(directory, "shot*_0003.ma"));
  EXPECT_FALSE(Exists(directory, "shot?_0003.ma"));
  EXPECT_FALSE(Exists(directory, "*"));
  EXPECT_EQ(Matches(directory, "shot*_0001.ma"), (Names{"shot*_0001.ma"}));
  EXPECT_EQ(Matches(directory, "shot?_000?.ma"), (Names{"shot*_0001.ma", "shot?_0002.ma", "shotA_0003.ma"}));
}

TEST(FileFinderTest, NamesOfAnyBytesAreFound) {
  const TestDirectory directory;
  const Names names = {" ",        "$(x)", "-n", "[a]", "\"", "line\nfeed", std::string(255, 'n'),
                       "\xff\xfe", "\\*"};
  for (const std::string& name : names) {
    directory.Write(name);
  }
  FileFinder finder;
  for (int round = 0; round < 2; ++round) { // asked one by one, then from memory
    for (const std::string& name : names) {
      EXPECT_TRUE(finder.FindExact(directory.File(name))) << name;
      EXPECT_EQ(finder.Name(), Path(directory.File(name)));
      EXPECT_FALSE(finder.FindExact(directory.File(name + "x"))) << name;
    }
  }
  Names sorted = names;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(Matches(directory, "*"), sorted);
}

TEST(FileFinderTest, FilesToComeAreFoundByTheirNamesWhileTheyAreExpected) {
  const TestDirectory directory;
  directory.Write("a.1");
  FileFinder finder;
  {
    const FilesToCome second([&](const Path& file) { return file == Path(directory.File("a.2")); });
    EXPECT_TRUE(finder.FindExact(directory.File("a.1")));
    EXPECT_TRUE(finder.FindExact(directory.File("a.2")));
    EXPECT_EQ(finder.Name(), Path(directory.File("a.2")));
    EXPECT_FALSE(finder.FindExact(directory.File("a.3")));
    EXPECT_EQ(Matches(directory, "a.?"), (Names{"a.1"}));
    {
      const FilesToCome none([](const Path&) { return false; });
      EXPECT_FALSE(finder.FindExact(directory.File("a.2")));
    }
    EXPECT_TRUE(finder.FindExact(directory.File("a.2")));
  }
  EXPECT_FALSE(finder.FindExact(directory.File("a.2")));
}

TEST(FileFinderTest, WildcardsInTheDirectoryArePlain) {
  const TestDirectory directory;
  directory.MakeDirectory("d*");
  directory.MakeDirectory("dx");
  directory.Write("d*/one");
  directory.Write("dx/two");
  FileFinder finder;
  ASSERT_TRUE(finder.Find(directory.File("d*/*")));
  EXPECT_EQ(finder.Name(), Path(directory.File("d*/one")));
  EXPECT_FALSE(finder.Next());
}

TEST(FileFinderTest, PathsComeBackAsWritten) {
  const TestDirectory directory;
  directory.MakeDirectory("sub");
  directory.Write("sub/file");
  directory.Write("bare");
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory.Text());
  for (const char* path : {"bare", "./bare", "sub/file", "sub//file", "sub/../bare", "./sub/./file"}) {
    FileFinder finder;
    EXPECT_TRUE(finder.FindExact(path));
    EXPECT_EQ(finder.Name(), Path(path));
    const std::string pattern = std::string(path, std::string(path).size() - 1) + "?";
    EXPECT_TRUE(finder.Find(pattern));
    EXPECT_EQ(finder.Name(), Path(path));
  }
  std::filesystem::current_path(before);
}

TEST(FileFinderTest, WhatIsNotThereOrNoDirectoryHasNoMatches) {
  const TestDirectory directory;
  directory.Write("file");
  EXPECT_EQ(Matches(directory, "missing/*"), (Names{}));
  EXPECT_EQ(Matches(directory, "file/*"), (Names{}));
  EXPECT_EQ(Matches(directory, "missing/file"), (Names{}));
  EXPECT_EQ(Matches(directory, std::string("fi\0le", 5)), (Names{}));
  EXPECT_EQ(Matches(directory, std::string("file\0*", 6)), (Names{}));
  EXPECT_EQ(Matches(directory, std::string(5000, '*') + "file" + std::string(5000, '*')), (Names{"file"}));
  FileFinder finder;
  EXPECT_FALSE(finder.Find(Path()));
  EXPECT_FALSE(finder.FindExact(Path()));
  for (int i = 0; i < 300; ++i) {
    EXPECT_FALSE(finder.FindExact(directory.File("missing/" + std::to_string(i))));
    EXPECT_FALSE(finder.FindExact(directory.File(std::string(300, 'n'))));
  }
}

TEST(FileFinderTest, HostilePatternsEndSoon) {
  const TestDirectory directory;
  directory.Write(std::string(255, 'a'));
  std::string pattern;
  for (int i = 0; i < 100; ++i) {
    pattern += "a*";
  }
  EXPECT_EQ(Matches(directory, pattern), (Names{std::string(255, 'a')}));
  EXPECT_EQ(Matches(directory, pattern + "b"), (Names{}));
}

TEST(FileFinderTest, DirectoryThatMayOnlyBeEnteredIsAskedNameByName) {
  const TestDirectory directory;
  directory.MakeDirectory("locked");
  directory.Write("locked/a*1");
  chmod(directory.File("locked").c_str(), 0111);
  FileFinder finder;
  for (int i = 0; i < 300; ++i) {
    EXPECT_TRUE(finder.FindExact(directory.File("locked/a*1")));
    EXPECT_FALSE(finder.FindExact(directory.File("locked/a*" + std::to_string(i + 2))));
  }
  EXPECT_TRUE(finder.Find(directory.File("locked/a*1")));
  chmod(directory.File("locked").c_str(), 0755);
}

TEST(FileFinderTest, OwnMatchCanBeAskedForAgain) {
  const TestDirectory directory;
  for (const char* name : {"a", "b", "c"}) {
    directory.Write(name);
  }
  FileFinder finder;
  ASSERT_TRUE(finder.Find(directory.File("*")));
  ASSERT_TRUE(finder.Next());
  ASSERT_TRUE(finder.Next());
  EXPECT_TRUE(finder.FindExact(finder.Name()));
  EXPECT_EQ(finder.Name(), Path(directory.File("c")));
  EXPECT_FALSE(finder.Next());
}

// Fills a directory with things of every kind under numbered names.
Names FillWithEverything(const TestDirectory& directory, int count, std::mt19937& random, bool folders) {
  Names names;
  for (int i = 0; i < count; ++i) {
    const std::string name = "shot_" + std::to_string(i) + (i % 7 == 0 ? "*.exr" : ".exr");
    names.push_back(name);
    switch (random() % 12) {
    case 0:
      if (folders) {
        directory.MakeDirectory(name);
      }
      break;
    case 1:
      directory.Link(name, "nowhere");
      break;
    case 2:
      directory.Link(name, ".");
      break;
    case 3:
      directory.Link(name, names[random() % names.size()]);
      break;
    case 4:
    case 5:
      break; // nothing of that name
    default:
      directory.Write(name);
      break;
    }
  }
  return names;
}

TEST(FileFinderTest, ManyQuestionsAreAnsweredAsTheSystemAnswersEach) {
  std::mt19937 random(11);
  const std::pair<int, bool> fillings[] = {{3, true}, {120, true}, {4000, true}, {4000, false}};
  for (const auto& [count, folders] : fillings) { // the larger ones are read late
    const TestDirectory directory;
    Names names = FillWithEverything(directory, count, random, folders);
    std::shuffle(names.begin(), names.end(), random);
    FileFinder finder;
    std::size_t found = 0;
    for (const std::string& name : names) {
      for (const std::string& asked : {name, name.substr(0, name.size() - 1), name + " "}) {
        const std::string path = directory.File(asked);
        const bool expected = IsFile(path);
        found += expected ? 1 : 0;
        ASSERT_EQ(finder.FindExact(path), expected) << path << " of " << count;
        ASSERT_EQ(finder.Name(), expected ? Path(path) : Path());
      }
    }
    EXPECT_EQ(Matches(directory, "*").size(), found);
  }
}

// The walk of who looks for the ends of a sequence, in folders of which some are
// read at once, some after a look far, some late and some never.
TEST(FileFinderTest, SequencesOfEveryLengthAmongOthersAreAnsweredAsTheSystemAnswers) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto pick = [&random](int count) {
    return static_cast<int>(random() % static_cast<unsigned>(count));
  };
  for (const int others : {0, 300, 3000}) {
    const TestDirectory directory;
    const std::string start = pick(2) == 0 ? "a_" : "7.";
    const auto nameOf = [&start](int number) {
      const std::string digits = std::to_string(number);
      std::string name = start;
      name.append(digits.size() < 4 ? 4 - digits.size() : 0, '0').append(digits).append(".x");
      return name;
    };
    for (int i = 0; i < others; ++i) {
      directory.Write("a rather long name of another file " + std::to_string(i));
    }
    for (int first = 0; first < 4000;) {
      const int count = 1 + pick(pick(2) == 0 ? 20 : 1500);
      for (int number = first; number < first + count; ++number) {
        directory.Write(nameOf(number));
      }
      first += count + 1 + pick(40);
    }
    if (!IsFile(directory.File(nameOf(4990)))) {
      directory.MakeDirectory(nameOf(4990));
    }
    for (int round = 0; round < 20; ++round) {
      FileFinder finder;
      if (pick(2) == 0) {
        finder.ExpectMany();
      }
      const int from = pick(5000);
      const int step = pick(2) == 0 ? 1 : -1;
      for (int number = from; number >= 0 && number < 5000; number += step) {
        const String name(directory.File(nameOf(number)));
        const bool isThere = finder.Holds(name);
        ASSERT_EQ(isThere, IsFile(name)) << name << " from " << from << " among " << others;
        if (!isThere) {
          break;
        }
        const auto [low, high] = finder.KnownRun(name, number, 4);
        ASSERT_LE(low, number);
        ASSERT_GE(high, number);
        for (int known = low; known <= high; ++known) {
          ASSERT_TRUE(IsFile(directory.File(nameOf(known)))) << known;
        }
        number = step > 0 ? high : low;
      }
    }
  }
}

TEST(FileFinderTest, NumbersWrittenInSeveralWaysAreDifferentFiles) {
  // The finder keeps names that look like the one asked for as numbers.
  const Names names = {"a1.x",    "a01.x",       "a001.x",        "a10.x",
                       "a010.x",  "a0010.x",     "a.x",           "a-1.x",
                       "a1.x1",   "a99999999.x", "a4294967297.x", "a9999999999999.x",
                       "a001.xx", "ba1.x",       "a+1.x",         "a1 .x",
                       "1",       "01",          "a67108864.x",   "a00"};
  for (std::size_t kept = 0; kept < names.size(); ++kept) {
    const TestDirectory directory;
    directory.Write(names[kept]);
    for (const std::string& first : names) {
      FileFinder finder;
      for (int i = 0; i < 2; ++i) { // then it reads the directory
        finder.FindExact(directory.File(first));
      }
      for (std::size_t asked = 0; asked < names.size(); ++asked) {
        ASSERT_EQ(finder.FindExact(directory.File(names[asked])), asked == kept)
            << names[asked] << " after " << first << " where only " << names[kept] << " is";
      }
    }
  }
}

TEST(FileFinderTest, TheRunAroundAFileIsToldFromADirectoryThatWasRead) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 20; ++round) {
    const TestDirectory directory;
    std::set<int> numbers;
    const auto nameOf = [&directory](int number) {
      const std::string digits = std::to_string(number);
      return directory.File("a_" + std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits +
                            ".x");
    };
    const int count = 1 + static_cast<int>(random() % 400);
    for (int number = 0; number < count; ++number) {
      if (random() % 60 != 0) {
        numbers.insert(number);
        std::ofstream(nameOf(number)) << 'x';
      }
    }
    if (count >= 100) {
      std::ofstream(directory.File("a_0" + std::to_string(count) + ".x")) << 'x'; // none of the sequence
    }
    FileFinder finder;
    const int asked = static_cast<int>(random() % static_cast<unsigned>(count));
    EXPECT_EQ(finder.KnownRun(String(nameOf(asked)), asked, 3), std::pair(asked, asked)); // not asked for yet
    finder.Holds(String(nameOf(asked)));
    finder.Holds(String(nameOf(asked)));
    for (int number = 0; number < count; ++number) {
      std::pair<int, int> run(number, number);
      while (numbers.contains(number) && numbers.contains(run.first - 1)) {
        --run.first;
      }
      while (numbers.contains(number) && numbers.contains(run.second + 1)) {
        ++run.second;
      }
      ASSERT_EQ(finder.KnownRun(String(nameOf(number)), number, 3), run) << count;
      ASSERT_EQ(finder.KnownRun(String(nameOf(number)), number, 4), std::pair(number, number)) << count;
    }
  }
}

TEST(FileFinderTest, FinderAnswersFromMemoryAfterSomeQuestions) {
  for (const int count : {10, 4000}) {
    const TestDirectory directory;
    for (int i = 0; i < count; ++i) {
      directory.Write("frame." + std::to_string(i));
    }
    FileFinder finder;
    for (int i = 0; i < 300; ++i) {
      EXPECT_EQ(finder.FindExact(directory.File("frame." + std::to_string(i))), i < count);
    }
    std::filesystem::remove(directory.File("frame.5"));
    EXPECT_TRUE(finder.FindExact(directory.File("frame.5")));
    EXPECT_FALSE(Exists(directory, "frame.5"));
  }
}

TEST(FileFinderTest, FirstQuestionIsAboutTheFileAsItIsNow) {
  const TestDirectory directory;
  FileFinder finder;
  EXPECT_FALSE(finder.FindExact(directory.File("file")));
  directory.Write("file");
  EXPECT_TRUE(FileFinder().FindExact(directory.File("file")));
}

TEST(FileFinderTest, QuestionsAboutSeveralDirectoriesDoNotMix) {
  const TestDirectory directory;
  for (const char* name : {"a", "b"}) {
    directory.MakeDirectory(name);
    directory.Write(std::string(name) + "/only_" + name);
  }
  FileFinder finder;
  for (int round = 0; round < 10; ++round) {
    for (const char* name : {"a", "b"}) {
      for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(finder.FindExact(directory.File(std::string(name) + "/only_" + name)));
        EXPECT_FALSE(
            finder.FindExact(directory.File(std::string(name) + "/only_" + (name[0] == 'a' ? "b" : "a"))));
      }
    }
  }
}

} // namespace
