#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "tests/foundation/Support.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

namespace {

TEST(Exception, TextIsTheMessageAlone) {
  EXPECT_EQ(Exception("Module", "Function", 7, "the scene is gone", 0, "", 0).Text(), "the scene is gone");
}

TEST(Exception, TextNamesTheSystemsReason) {
  EXPECT_EQ(Exception("Module", "Function", 7, "cannot read a", ENOENT, "", 0).Text(),
            "cannot read a: No such file or directory");
}

TEST(Exception, TextEndsWithTheDetails) {
  EXPECT_EQ(Exception("Module", "Function", 7, "cannot read a", EACCES, "as user x", 0).Text(),
            "cannot read a: Permission denied (as user x)");
  EXPECT_EQ(Exception("Module", "Function", 7, "no", 0, "details", 0).Text(), "no (details)");
}

TEST(Exception, KeepsEverythingThatItWasGiven) {
  const Exception exception("Module", "Function", 7, "message", 2, "details", 1);
  EXPECT_EQ(exception.Module(), "Module");
  EXPECT_EQ(exception.Function(), "Function");
  EXPECT_EQ(exception.Code(), 7);
  EXPECT_EQ(exception.Message(), "message");
  EXPECT_EQ(exception.Number(), 2);
  EXPECT_EQ(exception.Details(), "details");
  EXPECT_EQ(exception.Flag(), 1);
}

TEST(Exception, IsRaisedByPointerWithTheHostsName) {
  try {
    RaiseException("Place", k_ErrorLimit, "too much", ENOSPC, "more");
  } catch (Exception* raised) {
    const std::unique_ptr<Exception> exception(raised);
    EXPECT_EQ(exception->Module(), "Trovik");
    EXPECT_EQ(exception->Function(), "Place");
    EXPECT_EQ(exception->Code(), k_ErrorLimit);
    EXPECT_EQ(exception->Number(), ENOSPC);
    EXPECT_EQ(exception->Flag(), 0);
    EXPECT_EQ(exception->Text(), "too much: No space left on device (more)");
  }
}

TEST(Exception, IsLoggedAsOneErrorWithItsPlace) {
  std::vector<std::pair<LogLevel, String>> lines;
  const LogSink before =
      SetLogSink([&lines](LogLevel level, const String& text) { lines.emplace_back(level, text); });
  Exception exception("Tessivar", "AutoDetect", 1, "50% {of} it", ENOENT, "and more", 0);
  Exception::Log(&exception);
  Exception::Log(nullptr);
  SetLogSink(before);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].first, LogLevel::Error);
  EXPECT_EQ(lines[0].second, "Tessivar::AutoDetect: 50% {of} it: No such file or directory (and more)");
}

} // namespace
