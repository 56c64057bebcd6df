#include "host/foundation/WriteFile.h"

#include "tests/foundation/Support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace {

class WriteFileWholeTest : public testing::Test {
protected:
  TemporaryDirectory m_Directory;
  Path m_Name = m_Directory / "file";

  bool Write(std::string_view bytes, Existing existing) const {
    return WriteFileWhole("Test", m_Name, bytes, existing);
  }
};

using Names = std::vector<std::string>;

TEST_F(WriteFileWholeTest, AFileIsWrittenAndNothingElse) {
  EXPECT_TRUE(Write(std::string_view("a\0b\n", 4), Existing::Keep));
  EXPECT_EQ(ReadFile(m_Name), std::string("a\0b\n", 4));
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

TEST_F(WriteFileWholeTest, AFileThatIsKeptStaysAsItIs) {
  WriteFile(m_Name, "old");
  EXPECT_FALSE(Write("new", Existing::Keep));
  EXPECT_EQ(ReadFile(m_Name), "old");
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

TEST_F(WriteFileWholeTest, ALinkToNowhereIsKept) {
  std::filesystem::create_symlink("nowhere", m_Name.c_str());
  EXPECT_FALSE(Write("new", Existing::Keep));
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

TEST_F(WriteFileWholeTest, AReplacedFileLendsItsPermissions) {
  WriteFile(m_Name, "old");
  ASSERT_EQ(chmod(m_Name.c_str(), 0640), 0);
  EXPECT_TRUE(Write("new", Existing::Replace));
  EXPECT_EQ(ReadFile(m_Name), "new");
  struct stat status {};
  ASSERT_EQ(stat(m_Name.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(WriteFileWholeTest, OfALinkTheTargetIsReplaced) {
  const Path target = m_Directory / "target";
  WriteFile(target, "old");
  ASSERT_EQ(chmod(target.c_str(), 0640), 0);
  std::filesystem::create_symlink("target", (m_Directory / "middle").c_str());
  std::filesystem::create_symlink("middle", m_Name.c_str());
  EXPECT_TRUE(Write("new", Existing::Replace));
  EXPECT_EQ(ReadFile(target), "new");
  EXPECT_EQ(std::filesystem::read_symlink(m_Name.c_str()), "middle");
  EXPECT_EQ(m_Directory.Names(), (Names{"file", "middle", "target"}));
  struct stat status {};
  ASSERT_EQ(stat(target.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(WriteFileWholeTest, ALinkToNowhereIsNotFollowed) {
  std::filesystem::create_symlink("nowhere", m_Name.c_str());
  EXPECT_EQ(RaisedText([this] { Write("new", Existing::Replace); }),
            "cannot write " + m_Name.Text() + ": No such file or directory (it is a link to nowhere)");
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

TEST_F(WriteFileWholeTest, WhatIsNoRegularFileIsLeftAlone) {
  ASSERT_EQ(mkfifo(m_Name.c_str(), 0600), 0);
  EXPECT_EQ(RaisedText([this] { Write("new", Existing::Replace); }),
            "cannot write " + m_Name.Text() + ": Operation not supported");
  EXPECT_TRUE(std::filesystem::is_fifo(m_Name.c_str()));
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

TEST_F(WriteFileWholeTest, APrivateFolderIsPrivateWhateverTheUmask) {
  const Path folder = m_Directory / "a/b//c/";
  for (const mode_t mask : {mode_t{0}, mode_t{0777}}) {
    const mode_t before = umask(mask);
    EXPECT_EQ(MakePrivateFolder(folder), 0);
    umask(before);
    for (const char* name : {"a", "a/b", "a/b/c"}) {
      struct stat status {};
      ASSERT_EQ(stat((m_Directory / name).c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 0777U, 0700U) << name;
    }
    std::filesystem::remove_all((m_Directory / "a").c_str());
  }
  ASSERT_EQ(mkdir(m_Name.c_str(), 0755), 0);
  EXPECT_EQ(MakePrivateFolder(m_Name), 0); // what is there stays
  struct stat status {};
  ASSERT_EQ(stat(m_Name.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0755U);
  WriteFile(m_Directory / "plain", "x");
  EXPECT_EQ(MakePrivateFolder(m_Directory / "plain/x"), ENOTDIR);
}

TEST_F(WriteFileWholeTest, OfManyWritersThatKeepOneWins) {
  std::atomic<int> written{0};
  std::vector<std::thread> writers;
  writers.reserve(8);
  for (int i = 0; i < 8; ++i) {
    writers.emplace_back(
        [&, i] { written += Write(std::string(1000, static_cast<char>('a' + i)), Existing::Keep); });
  }
  for (std::thread& writer : writers) {
    writer.join();
  }
  EXPECT_EQ(written, 1);
  const std::string text = ReadFile(m_Name);
  EXPECT_EQ(text, std::string(1000, text.empty() ? '?' : text[0]));
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

TEST_F(WriteFileWholeTest, AFolderThatIsNotThereIsToldAndNothingIsLeft) {
  const Path file = m_Directory / "none/file";
  EXPECT_EQ(RaisedText([&] { WriteFileWhole("Test", file, "x", Existing::Keep); }),
            "cannot write " + file.Text() + ": No such file or directory");
  EXPECT_EQ(RaisedCode([&] { WriteFileWhole("Test", Path(), "x", Existing::Replace); }), k_ErrorSystem);
  std::filesystem::create_directory(m_Name.c_str());
  EXPECT_EQ(RaisedText([&] { Write("x", Existing::Replace); }),
            "cannot write " + m_Name.Text() + ": Is a directory");
  EXPECT_EQ(m_Directory.Names(), Names{"file"});
}

} // namespace
