#include "trovik/works/RunLogs.h"

#include "host/application/Application.h"
#include "host/foundation/Log.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/machine/Interrupts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
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

/// The warnings while an action runs.
std::vector<std::string> warningsOf(const std::function<void()>& action) {
  std::vector<std::string> warnings;
  const LogSink before = SetLogSink([&](LogLevel, const String& text) { warnings.push_back(text); });
  action();
  SetLogSink(before);
  return warnings;
}

TEST(RunLogs, LogThatCannotBeWrittenWarnsOnceAndLosesNoWork) {
  const TemporaryDirectory directory;
  RunLogDirectory logs((Path(directory.path())));
  std::filesystem::remove_all(directory.path());
  EXPECT_EQ(warningsOf([&] {
              const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
              log->write("a");
              log->write("b");
            }),
            std::vector<std::string>{"cannot write the log \"" + directory.file("1-1.log") +
                                     "\": No such file or directory"});
}

TEST(RunLogs, LogBeyondTheLimitForFilesWarnsOnceAndLosesNoWork) {
  const TemporaryDirectory directory;
  RunLogDirectory logs((Path(directory.path())));
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{3, before.rlim_max};
  struct sigaction handlerBefore {};
  ASSERT_EQ(sigaction(SIGXFSZ, nullptr, &handlerBefore), 0);
  surviveFailedWrites();
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::vector<std::string> warnings = warningsOf([&] {
    const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
    log->write("abcd");
    log->write("e");
  });
  setrlimit(RLIMIT_FSIZE, &before);
  sigaction(SIGXFSZ, &handlerBefore, nullptr);
  EXPECT_EQ(warnings, std::vector<std::string>{"cannot write the log \"" + directory.file("1-1.log") +
                                               "\": File too large"});
  EXPECT_EQ(readFile(directory.file("1-1.log")), "abc");
}

TEST(RunLogs, LogThatIsThereIsNeverWrittenOver) {
  const TemporaryDirectory directory;
  directory.write("1-1.log", "of somebody else");
  directory.write("victim", "of somebody else");
  std::filesystem::create_symlink("victim", directory.file("1-1.other2.log"));
  RunLogDirectory logs((Path(directory.path())));
  const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
  log->write("own");
  EXPECT_EQ(log->file().Text(), directory.file("1-1.other3.log"));
  EXPECT_EQ(readFile(directory.file("1-1.other3.log")), "own");
  EXPECT_EQ(readFile(directory.file("1-1.log")), "of somebody else");
  EXPECT_EQ(readFile(directory.file("victim")), "of somebody else");
}

TEST(RunLogs, OfALongLogTheStartAndTheEndAreKept) {
  const TemporaryDirectory directory;
  RunLogDirectory logs(Path(directory.path()), RunLogDirectory::Access::Usual, 1024);
  std::string all;
  for (int line = 1000; line < 2000; ++line) {
    all += std::to_string(line) + '\n';
  }
  for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{300}, all.size()}) {
    const std::unique_ptr<AttemptLog> log = logs.open("of" + std::to_string(piece), 1);
    for (std::size_t at = 0; at < all.size(); at += piece) {
      log->write(std::string_view(all).substr(at, piece));
      // At every moment: the start, and behind the gap what came last.
      const std::string kept = readFile(log->file().Text());
      const std::size_t written = std::min(at + piece, all.size());
      ASSERT_LE(kept.size(), 1024U);
      ASSERT_EQ(kept.substr(0, 512), all.substr(0, std::min<std::size_t>(written, 512)));
      if (written > 1024) {
        const std::string end = " bytes of output are left out here]\n";
        const std::size_t gap = kept.find(end);
        ASSERT_NE(gap, std::string::npos);
        const std::string last = kept.substr(gap + end.size());
        ASSERT_GE(last.size(), 256U);
        ASSERT_EQ(last, all.substr(written - last.size(), last.size()));
        const std::size_t left = written - last.size() - 512;
        const std::string line = kept.substr(512, gap - 512);
        ASSERT_EQ(line.substr(0, 10), "\n[trovik: ");
        ASSERT_EQ(std::stoul(line.substr(10)), left);
      }
    }
  }
}

TEST(RunLogs, PrivateLogsAreForTheirUserAloneWhateverTheUmask) {
  const TemporaryDirectory directory;
  const mode_t before = umask(0);
  RunLogDirectory logs(Path(directory.file("a/b")), RunLogDirectory::Access::Private);
  const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
  log->write("x");
  umask(before);
  const auto rights = [](const std::string& file) {
    return std::filesystem::status(file).permissions() & std::filesystem::perms::all;
  };
  EXPECT_EQ(rights(directory.file("a")), std::filesystem::perms::owner_all);
  EXPECT_EQ(rights(directory.file("a/b")), std::filesystem::perms::owner_all);
  EXPECT_EQ(rights(directory.file("a/b/1-1.log")),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(RunLogs, BoundOfTheSettingsIsTakenAndAWrongOneTold) {
  const TemporaryDirectory directory;
  const std::string settings = directory.write("settings.ini", "[Logs]\nLimit=1x\n");
  Application::the_Application->LoadSettings(Path(settings), Path());
  EXPECT_EQ(warningsOf([&] { RunLogDirectory(Path(directory.path())); }),
            std::vector<std::string>{settings + ":2:7: warning: \"1x\" is no size of a log in MiB; write a "
                                                "whole number from 1 on, 64 is usual"});
  directory.write("settings.ini", "[Logs]\nLimit=1\n");
  Application::the_Application->LoadSettings(Path(settings), Path());
  RunLogDirectory logs((Path(directory.path())));
  const std::unique_ptr<AttemptLog> log = logs.open("1-1", 1);
  log->write(std::string(std::size_t{3} << 20U, 'x'));
  EXPECT_LE(std::filesystem::file_size(log->file().c_str()), std::uintmax_t{1} << 20U);
  EXPECT_GE(std::filesystem::file_size(log->file().c_str()), std::uintmax_t{3} << 18U);
  Application::the_Application->LoadSettings(Path(), Path());
}

} // namespace
} // namespace trovik
