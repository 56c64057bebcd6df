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
