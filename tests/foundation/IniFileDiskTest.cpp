#include "host/foundation/IniFile.h"
#include "tests/foundation/AllocationWatch.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace {

class IniFileDisk : public testing::Test {
protected:
  TemporaryDirectory m_Directory;
  Path m_Name = m_Directory / "file.tvx";

  IniFile Named() const {
    IniFile file;
    file.SetFilename(m_Name);
    return file;
  }
};

using Names = std::vector<std::string>;

TEST_F(IniFileDisk, AFileIsLoaded) {
  WriteFile(m_Name, "[a]\nk=v\n");
  IniFile file = Named();
  EXPECT_TRUE(file.Load(true, true));
  EXPECT_EQ(file.GetValue("a", "k", ""), "v");
}

TEST_F(IniFileDisk, AnEmptyFileIsLoaded) {
  WriteFile(m_Name, "");
  IniFile file = Named();
  EXPECT_TRUE(file.Load(true, true));
  EXPECT_TRUE(file.SectionNames().empty());
}

TEST_F(IniFileDisk, AMissingFileLeavesTheObjectEmpty) {
  IniFile file = Named();
  file.SetValue("a", "k", "v");
  EXPECT_FALSE(file.Load(false, true));
  EXPECT_TRUE(file.SectionNames().empty());
  EXPECT_FALSE(file.SetSection("a"));
}

TEST_F(IniFileDisk, AMissingFileRaisesWhereItMustExist) {
  EXPECT_EQ(RaisedText([&] { Named().Load(true, true); }),
            "cannot read " + m_Name.Text() + ": No such file or directory");
  EXPECT_EQ(RaisedCode([&] { Named().Load(true, true); }), k_ErrorSystem);
}

TEST_F(IniFileDisk, AFileWithoutNameIsMissing) {
  IniFile file;
  EXPECT_FALSE(file.Load(false, true));
  EXPECT_EQ(RaisedText([&] { file.Load(true, true); }), "cannot read : No such file or directory");
}

TEST_F(IniFileDisk, ANameIsNotCutAtANulByte) {
  WriteFile(m_Name, "[a]\nk=v\n");
  IniFile file;
  file.SetFilename(m_Name + String("\0.tvx", 5));
  EXPECT_FALSE(file.Load(false, true));
  file.SetValue("b", "k", "v");
  EXPECT_EQ(RaisedText([&] { file.Save(); }),
            "cannot write " + file.Filename().Text() + ": No such file or directory");
  EXPECT_EQ(ReadFile(m_Name), "[a]\nk=v\n");
}

TEST_F(IniFileDisk, ADirectoryCannotBeRead) {
  mkdir(m_Name.c_str(), 0777);
  EXPECT_FALSE(Named().Load(false, true));
  EXPECT_EQ(RaisedText([&] { Named().Load(true, true); }),
            "cannot read " + m_Name.Text() + ": Is a directory");
}

TEST_F(IniFileDisk, ANamedPipeCannotBeReadAndDoesNotHang) {
  ASSERT_EQ(mkfifo(m_Name.c_str(), 0666), 0);
  EXPECT_FALSE(Named().Load(false, true));
  EXPECT_EQ(RaisedText([&] { Named().Load(true, true); }),
            "cannot read " + m_Name.Text() + ": Invalid argument");
}

TEST_F(IniFileDisk, ALinkCountsAsWhatItPointsAt) {
  WriteFile(m_Directory / "other", "[a]\nk=v\n");
  ASSERT_EQ(symlink("other", m_Name.c_str()), 0);
  IniFile file = Named();
  EXPECT_TRUE(file.Load(true, true));
  EXPECT_EQ(file.GetValue("a", "k", ""), "v");
}

TEST_F(IniFileDisk, AFileOfTheKernelHasNoSizeAndIsReadWhole) {
  IniFile file;
  file.SetFilename("/proc/self/status");
  EXPECT_TRUE(file.Load(true, true));
  EXPECT_GT(file.Oddities().size(), 20U);
}

TEST_F(IniFileDisk, ATooLargeFileRaisesAlways) {
  WriteFile(m_Name, "[a]\nk=v\n");
  ASSERT_EQ(truncate(m_Name.c_str(), static_cast<off_t>(IniFile::k_SizeLimit) + 1), 0);
  for (const bool mustExist : {false, true}) {
    EXPECT_EQ(RaisedText([&] { Named().Load(mustExist, true); }),
              m_Name.Text() + " is larger than 64 MiB, more than any settings or type file needs");
    EXPECT_EQ(RaisedCode([&] { Named().Load(mustExist, true); }), k_ErrorLimit);
  }
}

TEST_F(IniFileDisk, AFileOfTheLargestSizeIsLoaded) {
  WriteFile(m_Name, "[a]\nk=v\n");
  ASSERT_EQ(truncate(m_Name.c_str(), static_cast<off_t>(IniFile::k_SizeLimit)), 0);
  IniFile file = Named();
  EXPECT_TRUE(file.Load(true, true));
  EXPECT_EQ(file.GetValue("a", "k", ""), "v");
}

TEST_F(IniFileDisk, LoadingReplacesOrAdds) {
  WriteFile(m_Name, "[a]\nk=1\nl=2\n");
  IniFile file = Named();
  file.Load(true, true);
  WriteFile(m_Name, "[a]\nk=3\n[b]\nm=4\n");
  EXPECT_TRUE(file.Load(true, false));
  EXPECT_EQ(file.GetValue("a", "k", ""), "3");
  EXPECT_EQ(file.GetValue("a", "l", ""), "2");
  EXPECT_EQ(file.GetValue("b", "m", ""), "4");
  EXPECT_TRUE(file.Load(true, true));
  EXPECT_EQ(file.GetValue("a", "l", "gone"), "gone");
}

TEST_F(IniFileDisk, AddingAMissingFileKeepsWhatIsThere) {
  IniFile file = Named();
  file.SetValue("a", "k", "v");
  EXPECT_FALSE(file.Load(false, false));
  EXPECT_EQ(file.GetValue("a", "k", ""), "v");
}

TEST_F(IniFileDisk, LoadingTheSameFileOftenFillsNoMemory) {
  WriteFile(m_Name, "; " + std::string(1 << 20, 'c') + "\n[a]\nk=" + std::string(1 << 20, 'v') + "\n");
  IniFile file = Named();
  file.Load(true, true);
  StartAllocationWatch();
  for (int i = 0; i < 20; ++i) {
    file.Load(true, false);
  }
  EXPECT_LE(LargestAllocation(), std::size_t{8} << 20U);
  file.SetValue("a", "new", "x");
  EXPECT_EQ(file.GetValue("a", "k", "").size(), std::size_t{1} << 20U);
  EXPECT_EQ(file.Entries("a").size(), 2U);
}

TEST_F(IniFileDisk, SectionsAndEntriesAreSavedInTheirOrder) {
  IniFile file = Named();
  file.Parse("; comment\n[b]\nz = 1\na=\n\n[a]\n[B]\ny=\" q \"\n");
  file.SetValue("c", "k", "v=w");
  file.Save();
  EXPECT_EQ(ReadFile(m_Name), "[b]\nz=1\na=\ny=\" q \"\n\n[a]\n\n[c]\nk=v=w\n");
  EXPECT_EQ(m_Directory.Names(), Names{"file.tvx"});
}

TEST_F(IniFileDisk, AnEmptyFileIsSaved) {
  WriteFile(m_Name, "old");
  Named().Save();
  EXPECT_EQ(ReadFile(m_Name), "");
}

TEST_F(IniFileDisk, SavingReplacesTheFileAndKeepsItsPermissions) {
  for (const mode_t mode : {0600U, 0664U, 0444U}) {
    WriteFile(m_Name, "");
    ASSERT_EQ(chmod(m_Name.c_str(), mode), 0);
    IniFile file = Named();
    file.SetValue("a", "k", "v");
    file.Save();
    struct stat status {};
    ASSERT_EQ(stat(m_Name.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, mode);
    EXPECT_EQ(ReadFile(m_Name), "[a]\nk=v\n");
    unlink(m_Name.c_str());
  }
  EXPECT_EQ(m_Directory.Names(), Names{});
}

TEST_F(IniFileDisk, LeftTemporariesAreNoObstacle) {
  for (int i = 0; i < 50; ++i) {
    mkfifo((m_Name.Text() + ".new-" + std::to_string(getpid()) + "-" + std::to_string(i)).c_str(), 0666);
  }
  IniFile file = Named();
  file.SetValue("a", "k", "v");
  file.Save();
  EXPECT_EQ(ReadFile(m_Name), "[a]\nk=v\n");
}

TEST_F(IniFileDisk, WhatWouldNotBeReadBackIsNotSaved) {
  struct Case {
    const char* Section;
    const char* Key;
    const char* Value;
    const char* What;
  };
  WriteFile(m_Name, "[old]\n");
  for (const Case& bad : {Case{"a]b", "k", "v", "section \"a]b\""}, Case{" a", "k", "v", "section \" a\""},
                          Case{"a\nb", "k", "v", "section \"a\nb\""}, Case{"a", "", "v", "key \"\""},
                          Case{"a", "k=l", "v", "key \"k=l\""}, Case{"a", "[k", "v", "key \"[k\""},
                          Case{"a", ";k", "v", "key \";k\""}, Case{"a", "#k", "v", "key \"#k\""},
                          Case{"a", "k ", "v", "key \"k \""}, Case{"a", "k\nl", "v", "key \"k\nl\""},
                          Case{"a", "k", "v\nw", "value \"v\nw\""}, Case{"a", "k", " v", "value \" v\""},
                          Case{"a", "k", "v\r", "value \"v\r\""}, Case{"a", "k", "\t", "value \"\t\""}}) {
    IniFile file = Named();
    file.SetValue(bad.Section, bad.Key, bad.Value);
    EXPECT_EQ(RaisedText([&] { file.Save(); }),
              "cannot write " + m_Name.Text() + ": the " + bad.What + " would not be read back as it is");
  }
  EXPECT_EQ(ReadFile(m_Name), "[old]\n");
  EXPECT_EQ(m_Directory.Names(), Names{"file.tvx"});
}

TEST_F(IniFileDisk, AFileThatCouldNotBeLoadedIsNotSaved) {
  IniFile file = Named();
  file.SetValue("a", "k", String(IniFile::k_SizeLimit, 'x'));
  EXPECT_EQ(RaisedText([&] { file.Save(); }),
            m_Name.Text() + " is larger than 64 MiB, more than any settings or type file needs");
  EXPECT_EQ(m_Directory.Names(), Names{});
}

TEST_F(IniFileDisk, SavingIntoAMissingDirectoryRaises) {
  IniFile file;
  file.SetFilename(m_Directory / "none/file");
  EXPECT_EQ(RaisedText([&] { file.Save(); }),
            "cannot write " + file.Filename().Text() + ": No such file or directory");
  EXPECT_EQ(m_Directory.Names(), Names{});
}

TEST_F(IniFileDisk, SavingOverADirectoryRaisesAndLeavesNoTemporary) {
  mkdir(m_Name.c_str(), 0777);
  IniFile file = Named();
  file.SetValue("a", "k", "v");
  EXPECT_EQ(RaisedText([&] { file.Save(); }), "cannot write " + m_Name.Text() + ": Is a directory");
  EXPECT_EQ(m_Directory.Names(), Names{"file.tvx"});
}

TEST_F(IniFileDisk, AWriteThatFailsRaisesAndLeavesTheOldFileAlone) {
  WriteFile(m_Name, "[old]\n");
  IniFile file = Named();
  file.SetValue("a", "k", String(100000, 'x'));
  // Files of this process cannot grow beyond 4096 bytes.
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small{4096, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const String raised = RaisedText([&] { file.Save(); });
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(raised, "cannot write " + m_Name.Text() + ": File too large");
  EXPECT_EQ(ReadFile(m_Name), "[old]\n");
  EXPECT_EQ(m_Directory.Names(), Names{"file.tvx"});
}

} // namespace
