#include "trovik/machine/Aside.h"
#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace trovik {
namespace {

using namespace std::chrono_literals;

TEST(AsideTest, WhatIsDoneThereIsDone) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(runAside([&] { directory.write("made", "there"); }, 60s));
  EXPECT_EQ(readFile(directory.file("made")), "there");
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "something of it is left";
}

TEST(AsideTest, WhatHangsIsEndedAndSaidToBeUndone) {
  const TemporaryDirectory directory;
  const auto hang = [&] {
    directory.write("process", std::to_string(getpid()));
    for (;;) {
      pause();
    }
  };
  pid_t process = 0;
  for (Duration limit = 100ms; process == 0; limit *= 2) { // until it came to hang
    EXPECT_FALSE(runAside(hang, limit));
    process = std::atoi(readFile(directory.file("process")).c_str());
  }
  ASSERT_GT(process, 1);
  // Killed, but not waited for.
  if (waitpid(process, nullptr, 0) < 0) {
    EXPECT_NE(kill(process, 0), 0);
  }
}

TEST(AsideTest, WhatDiesThereHarmsNobodyHere) {
  EXPECT_FALSE(runAside([] { raise(SIGKILL); }, 60s));
}

} // namespace
} // namespace trovik
