#include "trovik/works/RunLogs.h"

#include "host/foundation/Log.h"
#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace trovik {
namespace {

TEST(RunLogs, OutputIsKeptByteForByteAsItComes) {
  const TemporaryDirectory directory;
  RunLogDirectory logs(Path(directory.file("a/b")));
  const std::unique_ptr<AttemptLog> log = logs.open("7-9", 1);
  log->write(std::string_view("a\0b\r\n\x1b[1m", 9));
  EXPECT_EQ(log->file().Text(), directory.file("a/b/7-9.log"));
  EXPECT_EQ(readFile(log->file().Text()), std::string("a\0b\r\n\x1b[1m", 9));
  log->write("more");
  EXPECT_EQ(readFile(log->file().Text()), std::string("a\0b\r\n\x1b[1mmore", 13));
}

TEST(RunLogs, FurtherAttemptsHaveLogsOfTheirOwn) {
  const TemporaryDirectory directory;
  RunLogDirectory logs((Path(directory.path())));
  const std::unique_ptr<AttemptLog> log = logs.open("work", 2);
  log->write("x");
  EXPECT_EQ(log->file().Text(), directory.file("work.attempt2.log"));
}

TEST(RunLogs, ProgramThatPrintsNothingHasNoLog) {
  const TemporaryDirectory directory;
  RunLogDirectory logs((Path(directory.path())));
  const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
  log->write("");
  EXPECT_TRUE(log->file().empty());
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(RunLogs, DirectoryThatCannotBeMadeIsRefused) {
  const TemporaryDirectory directory;
  directory.write("file", "");
  const Refusal refusal = refusalOf([&] { RunLogDirectory(Path(directory.file("file/logs"))); });
  EXPECT_EQ(refusal.message,
            "cannot make the folder for the logs \"" + directory.file("file/logs") + "\": Not a directory");
  EXPECT_EQ(refusal.hint, "choose another with --log-dir");
}

TEST(RunLogs, LogThatCannotBeWrittenWarnsOnceAndLosesNoWork) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink("/dev/full", directory.file("1-1.log"));
  RunLogDirectory logs((Path(directory.path())));
  std::vector<std::string> warnings;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { warnings.push_back(text); });
  const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
  log->write("a");
  log->write("b");
  SetLogSink(before);
  EXPECT_EQ(warnings, std::vector<std::string>{"cannot write the log \"" + directory.file("1-1.log") +
                                               "\": No space left on device"});
}

} // namespace
} // namespace trovik
