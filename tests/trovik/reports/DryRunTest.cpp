#include "trovik/reports/DryRun.h"

#include "host/foundation/Quoting.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"
#include "trovik/text/Json.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace trovik {
namespace {

ProcessStart startOf(std::vector<String> arguments, const std::string& directory = "") {
  ProcessStart start;
  start.Arguments = std::move(arguments);
  start.StartDirectory = Path(directory);
  return start;
}

TEST(ShellText, TellsDirectoryEnvironmentAndArguments) {
  ProcessStart start = startOf({"povray", "+Ia b.pov", "$(x)"}, "/s/a b");
  start.Environment = {{"THREADS", String("2 3")}, {"DISPLAY", std::nullopt}};
  EXPECT_EQ(shellText(start),
            "(cd \"/s/a b\" && env -u DISPLAY -u LANGUAGE LC_ALL=C.UTF-8 THREADS=\"2 3\" povray "
            "\"+Ia b.pov\" \"\\$(x)\")");
}

TEST(ShellText, LastChangeOfAVariableCounts) {
  ProcessStart start = startOf({"p"});
  start.Environment = {
      {"LC_ALL", String("C")}, {"LC_ALL", std::nullopt}, {"A", std::nullopt}, {"A", String("1")}};
  EXPECT_EQ(shellText(start), "env -u LANGUAGE -u LC_ALL A=1 p");
}

TEST(ShellText, ProgramThatLooksLikeAVariableIsStartedThroughAShell) {
  EXPECT_EQ(shellText(startOf({"/opt/a=b", "x"})),
            "env -u LANGUAGE LC_ALL=C.UTF-8 sh -c 'exec \"$0\" \"$@\"' \"/opt/a=b\" x");
}

TEST(ShellText, ExclamationMarkIsSafeAtAPrompt) {
  EXPECT_EQ(shellText(startOf({"p", "it's!"})), "env -u LANGUAGE LC_ALL=C.UTF-8 p 'it'\\''s!'");
}

class DryRun : public testing::Test {
protected:
  std::vector<std::string> run(bool json) {
    std::vector<std::string> writes;
    Console console([&](std::string_view bytes) { writes.emplace_back(bytes); }, [](std::string_view) {},
                    ConsoleTraits(), [] { return std::size_t{80}; });
    printDryRun(console, TestType::newJob(*job), json);
    return writes;
  }
  DryRun() {
    job->SetParameter(p_Executable, "/bin/echo");
    job->SetParameter("CommandString", "$(SubRange)");
    job->SetParameter(p_Range, "1-3");
    job->SetParameter(p_PacketSize, "2");
    job->SetParameter(p_StartDirectory, directory.file("start"));
    job->SetParameter(p_OutputFolder, directory.file("out"));
  }

  TemporaryDirectory directory;
  TestType type;
  SmartHandle<Job> job = type.makeJob();
};

TEST_F(DryRun, EachWorkIsOneLineAndNothingIsMade) {
  const std::string head =
      "(cd " + EnquoteWord(directory.file("start")) + " && env -u LANGUAGE LC_ALL=C.UTF-8 /bin/echo ";
  EXPECT_EQ(run(false), (std::vector<std::string>{head + "1-2)\n", head + "3-3)\n"}));
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(DryRun, JsonHasTheArgumentVector) {
  const std::vector<std::string> lines = run(true);
  ASSERT_EQ(lines.size(), 2U);
  const Json command = Json::parse(lines[1]);
  EXPECT_EQ(command.at("version"), 1);
  EXPECT_EQ(command.at("kind"), "work.command");
  EXPECT_EQ(command.at("frames"), "3");
  EXPECT_EQ(command.at("arguments"), (Json{"/bin/echo", "3-3"}));
  EXPECT_EQ(command.at("directory"), directory.file("start"));
  EXPECT_EQ(command.at("environment").dump(), "{\"set\":{\"LC_ALL\":\"C.UTF-8\"},\"unset\":[\"LANGUAGE\"]}");
}

TEST_F(DryRun, UnknownReferenceIsRefused) {
  job->SetParameter("CommandString", "$(SubRagne)");
  EXPECT_EQ(refusalOf([this] { run(false); }).message, "command line:1: nobody answers $(SubRagne); did you "
                                                       "mean \"SubRange\"?\n    1 | $(SubRagne)\n      | ^");
}

} // namespace
} // namespace trovik
