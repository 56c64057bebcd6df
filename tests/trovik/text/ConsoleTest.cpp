#include "trovik/text/Console.h"

#include "trovik/machine/Interrupts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace trovik {
namespace {

/// A console whose writes can be looked at one by one.
struct Screen {
  std::vector<std::string> out;
  std::vector<std::string> error;
  std::size_t width = 20;
  Console console;

  explicit Screen(ConsoleTraits traits)
      : console([this](std::string_view bytes) { out.emplace_back(bytes); },
                [this](std::string_view bytes) { error.emplace_back(bytes); }, traits,
                [this] { return width; }) {}
};

ConsoleTraits terminal() {
  return {true, true, false, false};
}
using Writes = std::vector<std::string>;

TEST(Console, EachMessageIsOneWrite) {
  Screen screen{ConsoleTraits()};
  screen.console.print("one\ntwo\n");
  screen.console.printError("bad\n");
  EXPECT_EQ(screen.out, Writes{"one\ntwo\n"});
  EXPECT_EQ(screen.error, Writes{"bad\n"});
}

TEST(Console, LiveLineStaysBelowWhatIsPrinted) {
  Screen screen(terminal());
  screen.console.setLive("1/3");
  screen.console.print("image\n");
  screen.console.setLive("");
  EXPECT_EQ(screen.out, (Writes{"\r\x1b[K1/3", "\r\x1b[Kimage\n1/3", "\r\x1b[K"}));
}

TEST(Console, ErrorsDoNotRunIntoTheLiveLine) {
  Screen screen(terminal());
  screen.console.setLive("1/3");
  screen.console.printError("warning\n");
  EXPECT_EQ(screen.out, (Writes{"\r\x1b[K1/3", "\r\x1b[K", "1/3"}));
  EXPECT_EQ(screen.error, Writes{"warning\n"});
}

TEST(Console, LiveLineNeverReachesTheLastColumn) {
  Screen screen(terminal());
  screen.console.setLive(std::string(50, 'x'));
  EXPECT_EQ(screen.out, Writes{"\r\x1b[K" + std::string(18, 'x') + "…"});
  screen.width = 10;
  screen.console.setLive(std::string(51, 'x'));
  EXPECT_EQ(screen.out.back(), "\r\x1b[K" + std::string(8, 'x') + "…");
}

TEST(Console, SameLiveLineIsNotDrawnAgain) {
  Screen screen(terminal());
  screen.console.setLive("1/3");
  screen.console.setLive("1/3");
  EXPECT_EQ(screen.out.size(), 1U);
}

TEST(Console, PipesGetNoLiveLineAndNoColours) {
  Screen screen{ConsoleTraits()};
  screen.console.setLive("1/3");
  EXPECT_TRUE(screen.out.empty());
  EXPECT_EQ(screen.console.coloured(Colour::Red, "failed"), "failed");
}

TEST(Console, ColoursAreOfTheOutputThatTheyGoTo) {
  Screen screen({true, true, true, false});
  EXPECT_EQ(screen.console.coloured(Colour::Red, "x"), "\x1b[31mx\x1b[0m");
  EXPECT_EQ(screen.console.colouredError(Colour::Red, "x"), "x");
}

TEST(Console, LiveLineIsTakenAwayAtTheEnd) {
  std::vector<std::string> out;
  {
    Console console([&](std::string_view bytes) { out.emplace_back(bytes); }, [](std::string_view) {},
                    terminal(), [] { return std::size_t{80}; });
    console.setLive("x");
  }
  EXPECT_EQ(out, (Writes{"\r\x1b[Kx", "\r\x1b[K"}));
}

TEST(Console, LayoutInAPipeIsEightyColumns) {
  Screen screen{ConsoleTraits()};
  EXPECT_EQ(screen.console.layoutWidth(), 80U);
  Screen narrow(terminal());
  EXPECT_EQ(narrow.console.layoutWidth(), 20U);
}

TEST(DescriptorWriter, FullDiskIsGivenUpAndNoted) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  int error = 0;
  const Console::Writer writer = descriptorWriter(full, &error);
  writer("x");
  EXPECT_EQ(error, ENOSPC);
  error = 0;
  writer("y"); // which is not even tried
  EXPECT_EQ(error, 0);
  EXPECT_EQ(close(full), 0);
}

TEST(DescriptorWriter, AReaderThatHasGoneIsNothingWrong) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  struct sigaction before {};
  ASSERT_EQ(sigaction(SIGPIPE, nullptr, &before), 0);
  surviveFailedWrites();
  int error = 0;
  descriptorWriter(ends[1], &error)("x");
  sigaction(SIGPIPE, &before, nullptr);
  EXPECT_EQ(error, 0);
  close(ends[1]);
}

TEST(DescriptorWriter, WritesAll) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  descriptorWriter(ends[1])("hello");
  close(ends[1]);
  char buffer[16];
  EXPECT_EQ(read(ends[0], buffer, sizeof buffer), 5);
  close(ends[0]);
}

} // namespace
} // namespace trovik
