#include "trovik/images/ImageHelper.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

extern const char* const FAKE_IMAGE_HELPER;

namespace trovik {
namespace {

using std::chrono::seconds;

/// A helper with a clock that stands still.
class ImageHelperTest : public testing::Test {
protected:
  Clock::time_point now{seconds(1000)};
  std::size_t room = 1;
  ImageHelper helper{Path(FAKE_IMAGE_HELPER), [this] { return now; }, seconds(120),
                     [this](std::size_t /*own*/) { return room; }};
  std::vector<std::string> problems;
  std::vector<int> processes;

  void ask(const std::string& file, bool refuseFlat = false) {
    helper.ask(Path(file), refuseFlat, [this](const Inspection& inspection) {
      problems.push_back(inspection.problem);
      processes.push_back(inspection.width);
    });
  }

  /// Waits for so many answers, for at most half a minute of real time.
  void waitFor(std::size_t count) {
    const Clock::time_point end = Clock::now() + seconds(30);
    while (problems.size() < count && Clock::now() < end) {
      pollfd entry{helper.descriptor(), POLLIN, 0};
      poll(&entry, 1, 1000);
      helper.advance(now);
    }
    ASSERT_EQ(problems.size(), count);
  }
};

using Problems = std::vector<std::string>;

TEST_F(ImageHelperTest, NothingIsAwaitedBeforeTheFirstQuestion) {
  EXPECT_EQ(helper.descriptor(), -1);
  EXPECT_EQ(helper.deadline(), std::nullopt);
  helper.advance(now);
}

TEST_F(ImageHelperTest, AnswersComeInTheOrderOfTheQuestionsFromOneProcess) {
  ask("a");
  ask("b", true);
  ask("c\xff\n");
  EXPECT_GE(helper.descriptor(), 0);
  EXPECT_EQ(helper.deadline(), now + seconds(2)); // whether somebody has stopped it
  waitFor(3);
  EXPECT_EQ(problems[0], "a");
  EXPECT_EQ(problems[1], "flat b");
  EXPECT_EQ(problems[2].substr(0, 1), "c");
  EXPECT_EQ(processes[0], processes[2]);
  EXPECT_EQ(helper.descriptor(), -1);
  EXPECT_EQ(helper.deadline(), std::nullopt);
}

TEST_F(ImageHelperTest, AStoppedHelperGoesOnAndHoldsUpNobody) {
  ask("stop");
  ask("b");
  const Clock::time_point end = Clock::now() + seconds(30);
  // The clock of the patience hardly moves: a second for each look.
  while (problems.size() < 2 && Clock::now() < end && now < Clock::time_point(seconds(1100))) {
    pollfd entry{helper.descriptor(), POLLIN, 0};
    if (poll(&entry, 1, 100) == 0) {
      now += seconds(1);
    }
    helper.advance(now);
  }
  EXPECT_EQ(problems, (Problems{"stop", "b"}));
}

TEST_F(ImageHelperTest, AnAnswerMayAskAgain) {
  helper.ask(Path("first"), false, [this](const Inspection&) { ask("second"); });
  ask("third");
  waitFor(2);
  EXPECT_EQ(problems, (Problems{"third", "second"}));
}

TEST_F(ImageHelperTest, AFileThatItDiesOfTwiceHasAProblemAndTheNextIsAnswered) {
  ask("a");
  ask("crash");
  ask("b");
  waitFor(3);
  EXPECT_EQ(problems, (Problems{"a", "The image library crashed on it", "b"}));
  EXPECT_NE(processes[0], processes[2]);
}

TEST_F(ImageHelperTest, AFileThatItDiesOfOnceIsTriedAgain) {
  const TemporaryDirectory directory;
  ask(directory.file("crash-once"));
  waitFor(1);
  EXPECT_EQ(problems, Problems{directory.file("crash-once")});
}

TEST_F(ImageHelperTest, OneThatWasKilledWhileItWaitedIsStartedAnew) {
  ask("a");
  waitFor(1);
  ASSERT_EQ(kill(processes[0], SIGKILL), 0);
  ask("b");
  waitFor(2);
  EXPECT_EQ(problems, (Problems{"a", "b"}));
}

TEST_F(ImageHelperTest, AFileThatTakesForEverIsGivenUp) {
  const TemporaryDirectory directory;
  ask(directory.file("hang"));
  ask("b");
  now += seconds(119);
  helper.advance(now);
  EXPECT_TRUE(problems.empty());
  now += seconds(1);
  helper.advance(now);
  EXPECT_EQ(problems, Problems{"Could not be decoded within 120 s"});
  EXPECT_EQ(helper.deadline(), now + seconds(2));
  waitFor(2);
  EXPECT_EQ(problems.back(), "b");
}

TEST_F(ImageHelperTest, WhatIsNoAnswerIsQuoted) {
  ask("garbage");
  ask("b");
  waitFor(2);
  EXPECT_EQ(problems, (Problems{std::string("Cannot be looked into: \"") + FAKE_IMAGE_HELPER +
                                    "\" said \"error while loading shared libraries: libpicture.so\"",
                                "b"}));
}

TEST_F(ImageHelperTest, TalkWithoutEndIsGivenUp) {
  ask("flood");
  ask("b");
  waitFor(2);
  EXPECT_EQ(problems, (Problems{"The image library crashed on it", "b"}));
}

TEST_F(ImageHelperTest, AnExitIsToldWithItsCode) {
  ask("exit");
  waitFor(1);
  EXPECT_EQ(problems, Problems{std::string("Cannot be looked into: \"") + FAKE_IMAGE_HELPER +
                               "\" ended with exit code 3"});
}

/// The first program is held up by a file until its gate is opened; others may
/// be started beside it.
class SideBySideTest : public ImageHelperTest {
protected:
  TemporaryDirectory directory;
  std::string gate = directory.file("gate");

  SideBySideTest() { room = 2; }

  void SetUp() override {
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    ask(gate);
  }

  /// Others that take no time.
  void askMore(int count) {
    for (int i = 0; i < count; ++i) {
      ask(std::to_string(i));
    }
    helper.advance(now);
  }

  void openGate() const { close(open(gate.c_str(), O_WRONLY)); }
  bool isAnswered(const std::string& problem) const {
    return std::find(problems.begin(), problems.end(), problem) != problems.end();
  }
};

TEST_F(SideBySideTest, AFileThatTakesLongHoldsUpNoOthersWhereThereIsRoom) {
  askMore(6);
  waitFor(6);
  EXPECT_FALSE(isAnswered(gate));
  EXPECT_EQ(helper.waiting(), 1U);
  openGate();
  waitFor(7);
  EXPECT_EQ(problems.back(), gate);
  EXPECT_NE(processes.back(), processes.front());
  EXPECT_EQ(std::set<int>(processes.begin(), processes.end()).size(), 2U);
}

TEST_F(SideBySideTest, OnlyTheFirstTakesACoreThatOthersWant) {
  askMore(6);
  waitFor(6);
  openGate();
  waitFor(7);
  EXPECT_EQ(sched_getscheduler(processes.front()), SCHED_IDLE);
  EXPECT_EQ(sched_getscheduler(processes.back()), sched_getscheduler(0));
}

TEST_F(SideBySideTest, WithoutRoomOneProgramDoesItAll) {
  room = 1;
  askMore(6);
  openGate();
  waitFor(7);
  EXPECT_EQ(problems.front(), gate);
  EXPECT_EQ(std::set<int>(processes.begin(), processes.end()).size(), 1U);
}

TEST_F(SideBySideTest, RoomThatIsGoneIsUsedNoMore) {
  askMore(6);
  waitFor(1);
  room = 1;
  const std::size_t under = problems.size();
  waitFor(under + 1); // what it was given before
  EXPECT_EQ(helper.waiting(), 7 - problems.size());
  openGate();
  waitFor(7);
  EXPECT_EQ(processes[6], processes[5]) << "by the first";
}

TEST_F(SideBySideTest, FewFilesAreNotWorthAnotherProgram) {
  askMore(3);
  openGate();
  waitFor(4);
  EXPECT_EQ(std::set<int>(processes.begin(), processes.end()).size(), 1U);
}

TEST_F(SideBySideTest, WhatAnotherFailsWithIsJudgedByTheFirst) {
  ask("crash");
  ask(directory.file("crash-once"));
  ask("garbage");
  ask("exit");
  askMore(3);
  waitFor(3); // what has failed waits for the first
  EXPECT_EQ(problems, (Problems{"0", "1", "2"}));
  openGate();
  waitFor(8);
  const std::string cannot = std::string("Cannot be looked into: \"") + FAKE_IMAGE_HELPER + "\" ";
  EXPECT_EQ(problems,
            (Problems{"0", "1", "2", gate, "The image library crashed on it", directory.file("crash-once"),
                      cannot + "said \"error while loading shared libraries: libpicture.so\"",
                      cannot + "ended with exit code 3"}));
}

TEST_F(SideBySideTest, AStandstillOfAnotherIsNoVerdict) {
  ask("hang");
  askMore(3);
  room = 1;
  for (int i = 0; i < 5; ++i) {
    now += seconds(2);
    helper.advance(now);
  }
  openGate();
  waitFor(1); // after which the first takes what the other has left
  EXPECT_EQ(problems, Problems{gate});
  const Clock::time_point taken = now;
  EXPECT_EQ(helper.deadline(), taken + seconds(2));
  now = taken + seconds(119);
  helper.advance(now);
  EXPECT_EQ(problems.size(), 1U);
  now = taken + seconds(120);
  helper.advance(now);
  EXPECT_EQ(problems.back(), "Could not be decoded within 120 s");
  waitFor(5);
}

TEST_F(SideBySideTest, TheFirstSoonTakesOverWhatAnotherDoesNotComeToAnEndWith) {
  ask("hang");
  askMore(3);
  openGate();
  waitFor(4);
  EXPECT_EQ(helper.waiting(), 1U);
  now += seconds(2);
  helper.advance(now);
  EXPECT_EQ(helper.waiting(), 1U);
  now += seconds(120);
  helper.advance(now);
  EXPECT_EQ(problems.back(), "Could not be decoded within 120 s");
  EXPECT_EQ(helper.waiting(), 0U);
}

TEST_F(SideBySideTest, OthersEndWhenNobodyHasAskedForLong) {
  askMore(6);
  waitFor(6);
  openGate();
  waitFor(7);
  const int other = processes.front();
  EXPECT_EQ(helper.descriptor(), -1);
  EXPECT_EQ(helper.deadline(), now + seconds(30));
  ASSERT_EQ(kill(other, 0), 0);
  now += seconds(30);
  helper.advance(now);
  EXPECT_NE(kill(other, 0), 0);
  EXPECT_EQ(kill(processes.back(), 0), 0);
  EXPECT_EQ(helper.deadline(), std::nullopt);
}

TEST(ImageHelper, OneThatCannotBeStartedIsAProblemOfEachFile) {
  ImageHelper helper(Path("/nowhere/trovik-image"));
  const std::vector<Inspection> inspections = inspectAll(helper, {Path("a"), Path("b")}, false);
  ASSERT_EQ(inspections.size(), 2U);
  for (const Inspection& inspection : inspections) {
    EXPECT_EQ(inspection.problem,
              "Cannot be looked into: cannot start \"/nowhere/trovik-image\": No such file or directory");
  }
}

TEST(ImageHelper, AllAreInspectedInTheirOrder) {
  ImageHelper helper{Path(FAKE_IMAGE_HELPER)};
  const std::vector<Inspection> inspections = inspectAll(helper, {Path("a"), Path("crash"), Path("c")}, true);
  ASSERT_EQ(inspections.size(), 3U);
  EXPECT_EQ(inspections[0].problem, "flat a");
  EXPECT_EQ(inspections[1].problem, "The image library crashed on it");
  EXPECT_EQ(inspections[2].problem, "flat c");
  EXPECT_TRUE(inspectAll(helper, {}, false).empty());
}

TEST(ImageHelper, ItsProcessEndsWithIt) {
  int process = 0;
  {
    ImageHelper helper{Path(FAKE_IMAGE_HELPER)};
    process = inspectAll(helper, {Path("a")}, false).front().width;
    ASSERT_EQ(kill(process, 0), 0);
  }
  EXPECT_NE(kill(process, 0), 0);
}

} // namespace
} // namespace trovik
