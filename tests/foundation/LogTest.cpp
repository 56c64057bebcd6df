#include "host/foundation/Log.h"
#include "host/foundation/Descriptor.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Lines = std::vector<std::pair<LogLevel, String>>;

// Puts the log back as it was.
class LogTest : public testing::Test {
protected:
  void TearDown() override {
    SetLogSink({});
    SetLogLevel(LogLevel::Warning);
  }

  Lines m_Lines;

  void CatchLines() {
    SetLogSink([this](LogLevel level, const String& text) { m_Lines.emplace_back(level, text); });
  }

  static void LogAll(const String& text) {
    LogDebug(text);
    LogInfo(text);
    LogWarning(text);
    LogError(text);
  }
};

// Standard error goes to a socket that keeps the bounds of each write.
class ErrorCapture {
public:
  ErrorCapture() : m_Saved(dup(STDERR_FILENO)) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
      throw std::runtime_error("no sockets");
    }
    m_Reader.Reset(ends[0]);
    const Descriptor writer(ends[1]);
    dup2(writer.Number(), STDERR_FILENO);
  }
  ~ErrorCapture() { Stop(); }
  ErrorCapture(const ErrorCapture&) = delete;
  ErrorCapture& operator=(const ErrorCapture&) = delete;

  // One text a write.
  std::vector<std::string> Writes() {
    Stop();
    std::vector<std::string> writes;
    std::array<char, 4096> buffer{};
    for (;;) {
      const ssize_t count = recv(m_Reader.Number(), buffer.data(), buffer.size(), 0);
      if (count <= 0) {
        return writes;
      }
      writes.emplace_back(buffer.data(), static_cast<std::size_t>(count));
    }
  }

private:
  void Stop() {
    if (m_Saved.IsOpen()) {
      dup2(m_Saved.Number(), STDERR_FILENO);
      m_Saved.Reset();
    }
  }

  Descriptor m_Saved;
  Descriptor m_Reader;
};

TEST_F(LogTest, TheSinkReceivesLevelAndText) {
  CatchLines();
  SetLogLevel(LogLevel::Debug);
  LogAll("text");
  EXPECT_EQ(m_Lines, (Lines{{LogLevel::Debug, "text"},
                            {LogLevel::Info, "text"},
                            {LogLevel::Warning, "text"},
                            {LogLevel::Error, "text"}}));
}

TEST_F(LogTest, WhatIsLoggedIsToldBeforeItIsMade) {
  const LogLevel levels[] = {LogLevel::Debug, LogLevel::Info, LogLevel::Warning, LogLevel::Error};
  CatchLines();
  for (const LogLevel least : {LogLevel::Debug, LogLevel::Info, LogLevel::Error, LogLevel::Off}) {
    SetLogLevel(least);
    m_Lines.clear();
    LogAll("text");
    Lines told;
    for (const LogLevel level : levels) {
      if (IsLogged(level)) {
        told.emplace_back(level, "text");
      }
    }
    EXPECT_EQ(m_Lines, told);
  }
}

TEST_F(LogTest, LinesBelowTheLevelAreDropped) {
  const auto levels = [this](LogLevel level) {
    m_Lines.clear();
    SetLogLevel(level);
    LogAll("x");
    return m_Lines.size();
  };
  CatchLines();
  EXPECT_EQ(levels(LogLevel::Debug), 4U);
  EXPECT_EQ(levels(LogLevel::Info), 3U);
  EXPECT_EQ(levels(LogLevel::Warning), 2U);
  EXPECT_EQ(levels(LogLevel::Error), 1U);
  EXPECT_EQ(levels(LogLevel::Off), 0U);
}

TEST_F(LogTest, WarningIsTheLevelAtFirst) {
  CatchLines();
  LogAll("x");
  EXPECT_EQ(m_Lines, (Lines{{LogLevel::Warning, "x"}, {LogLevel::Error, "x"}}));
}

TEST_F(LogTest, ASubjectHasALevelOfItsOwn) {
  CatchLines();
  LogWarning("at first", LogSubject::TypeInUse);
  SetSubjectLevel(LogSubject::TypeInUse, LogLevel::Info);
  LogWarning("dropped", LogSubject::TypeInUse);
  SetLogLevel(LogLevel::Info);
  LogWarning("kept", LogSubject::TypeInUse);
  SetSubjectLevel(LogSubject::TypeInUse, LogLevel::Warning);
  EXPECT_EQ(m_Lines, (Lines{{LogLevel::Warning, "at first"}, {LogLevel::Info, "kept"}}));
}

TEST_F(LogTest, ABudgetBoundsTheWarningsOfItsThread) {
  CatchLines();
  {
    WarningBudget outer(1);
    {
      WarningBudget inner(2);
      for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(WarningBudget::IsSpent(), i >= 2);
        LogWarning("inner " + std::to_string(i));
      }
      LogError("an error is no warning");
      std::thread([] { LogWarning("of another thread"); }).join();
      EXPECT_EQ(inner.Dropped(), 3U);
    }
    LogWarning("outer");
    LogWarning("dropped");
    EXPECT_EQ(outer.Dropped(), 1U);
  }
  LogWarning("without one");
  EXPECT_EQ(m_Lines, (Lines{{LogLevel::Warning, "inner 0"},
                            {LogLevel::Warning, "inner 1"},
                            {LogLevel::Error, "an error is no warning"},
                            {LogLevel::Warning, "of another thread"},
                            {LogLevel::Warning, "outer"},
                            {LogLevel::Warning, "without one"}}));
}

TEST_F(LogTest, FormatCharactersArePlain) {
  CatchLines();
  LogError("{} {0} {:>9999999} %s %n %v");
  EXPECT_EQ(m_Lines, (Lines{{LogLevel::Error, "{} {0} {:>9999999} %s %n %v"}}));
}

TEST_F(LogTest, StandardErrorGetsOneWholeLineInOneWrite) {
  SetLogLevel(LogLevel::Debug);
  ErrorCapture capture;
  LogAll("no {} %s %v \xC3\xA9");
  EXPECT_EQ(capture.Writes(), (std::vector<std::string>{"trovik: debug: no {} %s %v \xC3\xA9\n",
                                                        "trovik: info: no {} %s %v \xC3\xA9\n",
                                                        "trovik: warning: no {} %s %v \xC3\xA9\n",
                                                        "trovik: error: no {} %s %v \xC3\xA9\n"}));
}

TEST_F(LogTest, LinesOfConcurrentThreadsNeverInterleave) {
  ErrorCapture capture;
  std::vector<std::thread> threads;
  std::multiset<std::string> expected;
  for (int thread = 0; thread < 4; ++thread) {
    for (int line = 0; line < 25; ++line) {
      expected.insert("trovik: warning: thread " + std::to_string(thread) + " line " + std::to_string(line) +
                      "\n");
    }
    threads.emplace_back([thread] {
      for (int line = 0; line < 25; ++line) {
        LogWarning("thread " + std::to_string(thread) + " line " + std::to_string(line));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  const std::vector<std::string> writes = capture.Writes();
  EXPECT_EQ(std::multiset<std::string>(writes.begin(), writes.end()), expected);
}

TEST_F(LogTest, SettingASinkReturnsTheOneInForce) {
  EXPECT_FALSE(SetLogSink([this](LogLevel level, const String& text) { m_Lines.emplace_back(level, text); }));
  const LogSink first = SetLogSink([](LogLevel, const String&) {});
  LogError("lost");
  ASSERT_TRUE(first);
  SetLogSink(first);
  LogError("kept");
  EXPECT_EQ(m_Lines, (Lines{{LogLevel::Error, "kept"}}));
}

TEST_F(LogTest, AnEmptySinkRestoresStandardError) {
  CatchLines();
  SetLogSink({});
  ErrorCapture capture;
  LogWarning("back");
  EXPECT_EQ(capture.Writes(), (std::vector<std::string>{"trovik: warning: back\n"}));
  EXPECT_TRUE(m_Lines.empty());
}

} // namespace
