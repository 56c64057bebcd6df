#include "trovik/replay/Replay.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"
#include "trovik/text/UsageError.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

std::string told(const ProcessExit& exit) {
  return std::to_string(exit.Code) + " " + std::to_string(exit.Signal);
}

std::string refused(const std::string& text) {
  try {
    return told(exitFrom(text));
  } catch (const UsageError& error) {
    return error.message + "\n" + error.hint;
  }
}

TEST(ExitFrom, CodesAreCodesAndDeathsAreDeaths) {
  const std::pair<const char*, const char*> cases[] = {
      {"0", "0 0"},          {"1", "1 0"},          {"128", "128 0"},        {"129", "129 1"},
      {"137", "137 9"},      {"192", "192 64"},     {"193", "193 0"},        {"255", "255 0"},
      {"-9", "137 9"},       {"-64", "192 64"},     {"SIGTERM", "143 15"},   {"term", "143 15"},
      {"sigsegv", "139 11"}, {"signal 9", "137 9"}, {"signal KILL", "137 9"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(told(exitFrom(text)), expected) << text;
  }
}

TEST(ExitFrom, AnythingElseIsRefused) {
  for (const char* text : {"", "256", "-65", "1x", " 1", "SIG", "signal 0", "signal 65", "signal ", "kil"}) {
    EXPECT_EQ(refused(text), "--exit: \"" + std::string(text) +
                                 "\" is no way for a program to end\nwrite its exit code from 0 to 255, or a "
                                 "signal such as SIGKILL or \"signal 9\"");
  }
}

TEST(ExitText, TellsSignalsByNameWhereTheyHaveOne) {
  EXPECT_EQ(exitText(exitFrom("3")), "exit code 3");
  EXPECT_EQ(exitText(exitFrom("137")), "signal 9 (Killed)");
  EXPECT_EQ(exitText(exitFrom("170")), "signal 42");
}

/// Answers at once: what is wrong with any file.
class SayingInspector final : public ImageInspector {
public:
  explicit SayingInspector(std::string problem) : problem_(std::move(problem)) {}
  void ask(const Path& /*file*/, bool /*refuseFlat*/, Answer answer) override {
    Inspection inspection;
    inspection.problem = problem_;
    answer(inspection);
  }
  int descriptor() const override { return -1; }
  std::optional<Clock::time_point> deadline() const override { return std::nullopt; }
  void advance(Clock::time_point /*now*/) override {}

private:
  std::string problem_;
};

class ReplayTest : public testing::Test {
protected:
  /// Replays a log; the lines are kept as "number what text", "!" behind the
  /// one that decides.
  ReplayResult replay(const std::string& log, const char* exit = "0", ImageInspector* inspector = nullptr) {
    const SmartHandle<Job> job = type_.makeJob();
    for (const auto& [name, value] : parameters_) {
      EXPECT_TRUE(job->SetParameter(name, value)) << name;
    }
    Replay replay(job, [this](const ReplayedLine& line) {
      lines_.push_back(std::to_string(line.number) + " " + nameOf(line.account.What) + " " +
                       std::string(line.text) + (line.decides ? "!" : ""));
    });
    replay.feed(log);
    LocalMachine machine;
    return replay.finish(exitFrom(exit), inspector, machine);
  }

  TestType type_;
  std::map<std::string, std::string> parameters_;
  std::vector<std::string> lines_;
};

TEST_F(ReplayTest, LinesAreThoseThatAJobSees) {
  parameters_ = {{"ErrorStarts", "bad"}};
  const ReplayResult result = replay("one\r\ntwo\rthree\n\n\x1b[31mbad\x1b[0m luck\nbad again\nlast");
  const std::vector<std::string> expected = {"1 ordinary one", "2 ordinary two",    "3 ordinary three",
                                             "4 ordinary ",    "5 error bad luck!", "6 error bad again",
                                             "7 ordinary last"};
  EXPECT_EQ(lines_, expected);
  EXPECT_FALSE(result.good);
  EXPECT_EQ(result.note, "Error line: bad luck");
  EXPECT_EQ(result.rule, VerdictRule::ErrorLine);
  EXPECT_EQ(result.decidingLine, 5U);
  EXPECT_EQ(result.lines, 7U);
}

TEST_F(ReplayTest, TheEndOfTheProgramCounts) {
  EXPECT_TRUE(replay("fine").good);
  const ReplayResult failed = replay("so\nso\n", "3");
  EXPECT_FALSE(failed.good);
  EXPECT_EQ(failed.note, "Exit code 3; last line: so");
  EXPECT_EQ(failed.decidingLine, std::nullopt);
  const ReplayResult killed = replay("so\n", "SIGKILL");
  EXPECT_EQ(killed.note, "Killed by signal 9 (Killed); last line: so");
  EXPECT_EQ(killed.rule, VerdictRule::Signal);
}

TEST_F(ReplayTest, FilesThatNobodyLooksAtAreGood) {
  parameters_ = {{"ExpectedFiles", "/nowhere/a.png;/nowhere/b.png"}};
  const ReplayResult result = replay("image /nowhere/a.png\nimage /nowhere/c.png\nimage /nowhere/a.png\n");
  EXPECT_TRUE(result.good);
  EXPECT_EQ(result.expected, 3U);
  EXPECT_TRUE(result.files.empty());
  EXPECT_EQ(result.images, (std::vector<String>{"/nowhere/a.png", "/nowhere/c.png"}));
}

TEST_F(ReplayTest, FilesThatAreLookedAtMustBeGood) {
  const TemporaryDirectory directory;
  const std::string good = directory.write("a.png", "something");
  SayingInspector inspector("");
  EXPECT_TRUE(replay("image " + good, "0", &inspector).good);

  const std::string empty = directory.write("empty.png", "");
  ReplayResult result = replay("image " + good + "\nimage " + empty + "\n", "0", &inspector);
  EXPECT_FALSE(result.good);
  EXPECT_EQ(result.note, "Empty file: " + empty);
  EXPECT_EQ(result.rule, VerdictRule::Files);
  ASSERT_EQ(result.files.size(), 2U);
  EXPECT_EQ(result.files[0].problem, "");
  EXPECT_EQ(result.files[1].problem, "Empty file");

  SayingInspector refusing("Truncated image (half of it)");
  result = replay("image " + good, "0", &refusing);
  EXPECT_EQ(result.note, "Truncated image (half of it): " + good);
}

TEST_F(ReplayTest, AFramesImageIsMissedWithoutAnyLookAtFiles) {
  parameters_ = {{"SubRange", "7-9"}, {"ExpectedFiles", ""}};
  const ReplayResult result = replay("image /o/a_0007.png\nimage /o/a_0009.png\n");
  EXPECT_FALSE(result.good);
  EXPECT_EQ(result.note, "No file for frame 8");
}

TEST_F(ReplayTest, AJobThatRunsNoProgramIsRefused) {
  EXPECT_THROW(Replay(SmartHandle<Job>(), [](const ReplayedLine&) {}), UsageError);
}

} // namespace
} // namespace trovik
