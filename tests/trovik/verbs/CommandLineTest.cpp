#include "trovik/commandline/CommandLine.h"

#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/verbs/Verbs.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

/// What the verb, whose struct that must be, is told by the arguments.
template <typename Options> Options parse(const std::vector<std::string>& arguments) {
  const CommandForm form = allVerbs();
  const ParsedLine line = parseCommandLine(form, arguments, 80);
  EXPECT_FALSE(line.text.has_value());
  EXPECT_EQ(line.verb, form.find(arguments.front().starts_with("-") ? arguments.at(2) : arguments.front()));
  return static_cast<const Options&>(*line.verb->options);
}

std::string textOf(const std::vector<std::string>& arguments) {
  return parseCommandLine(allVerbs(), arguments, 80).text.value_or("");
}

Refusal refusal(const std::vector<std::string>& arguments) {
  return refusalOf([&] { parseCommandLine(allVerbs(), arguments, 80); });
}

TEST(CommandLine, RunTakesAllItsOptions) {
  const auto options = parse<RunOptions>(
      {"run",       "pov",      "a b.pov",   "--set",   "Width=1", "--set=Note==x", "--range",
       "-5--1",     "--packet", "4",         "--slots", "2",       "--out",         "o",
       "--log-dir", "l",        "--dry-run", "--json",  "-vv",     "--color",       "never"});
  EXPECT_EQ(options.type, "pov");
  EXPECT_EQ(options.scene, "a b.pov");
  EXPECT_EQ(options.sets, (std::vector<std::string>{"Width=1", "Note==x"}));
  EXPECT_EQ(options.range, "-5--1");
  EXPECT_EQ(options.packet, "4");
  EXPECT_EQ(options.slots, "2");
  EXPECT_EQ(options.out, "o");
  EXPECT_EQ(options.logDirectory, "l");
  EXPECT_TRUE(options.dryRun);
  EXPECT_TRUE(options.json);
  EXPECT_EQ(options.verbosity, 2);
  EXPECT_EQ(options.colour, ColourChoice::Never);
}

const std::vector<std::string> allVerbs = {"types",  "type",   "detect", "find",  "new",    "run",
                                           "submit", "engine", "jobs",   "show",  "log",    "images",
                                           "watch",  "stats",  "sheet",  "retry", "cancel", "delete"};

TEST(CommandLine, RunAndSubmitTakeWhatMakesAJob) {
  for (const char* verb : {"run", "submit"}) {
    const std::vector<std::string> line = {verb,         "pov", "a.pov",    "--missing",         "--new",
                                           "--priority", "80",  "--on-end", "mail -s 'a b' ada", "--notify",
                                           "--state",    "q"};
    const MakingOptions options =
        line.front() == "run" ? parse<RunOptions>(line) : parse<MakingOptions>(line);
    EXPECT_TRUE(options.missing);
    EXPECT_TRUE(options.fresh);
    EXPECT_EQ(options.priority, "80");
    EXPECT_EQ(options.endCommand, "mail -s 'a b' ada");
    EXPECT_TRUE(options.notify);
    EXPECT_EQ(options.state, "q");
  }
  EXPECT_EQ(refusal({"submit", "t", "--slots", "2"}).message, "unknown option \"--slots\"");
}

TEST(CommandLine, EngineTakesItsOptions) {
  const auto options =
      parse<EngineOptions>({"engine", "--slots", "3", "--job", "last", "--until-empty", "--json"});
  EXPECT_EQ(options.slots, "3");
  EXPECT_EQ(options.job, "last");
  EXPECT_TRUE(options.untilEmpty);
  EXPECT_TRUE(options.json);
}

TEST(CommandLine, LogTakesAFrameAndAnAttempt) {
  const auto options = parse<LogOptions>({"log", "3", "--attempt", "2", "--all", "--", "-5"});
  EXPECT_EQ(options.job, "3");
  EXPECT_EQ(options.frame, "-5");
  EXPECT_EQ(options.attempt, "2");
  EXPECT_TRUE(options.all);
}

TEST(CommandLine, SheetTakesItsOptions) {
  const auto options = parse<SheetOptions>(
      {"sheet", "last", "-o", "a.png", "--width", "900", "--columns", "4", "--frames", "-3-9"});
  EXPECT_EQ(options.job, "last");
  EXPECT_EQ(options.file, "a.png");
  EXPECT_EQ(options.width, "900");
  EXPECT_EQ(options.columns, "4");
  EXPECT_EQ(options.frames, "-3-9");
}

TEST(CommandLine, SteeringVerbsTakeSeveralJobs) {
  const std::vector<std::string> jobs = {"3", "last", "7"};
  EXPECT_EQ(parse<RetryOptions>({"retry", "3", "last", "7", "--json"}).jobs, jobs);
  for (const char* verb : {"cancel", "delete"}) {
    EXPECT_EQ(parse<EachJobOptions>({verb, "3", "last", "7", "--json"}).jobs, jobs);
  }
}

TEST(CommandLine, TheQueueIsNamedBeforeOrBehindTheVerb) {
  EXPECT_EQ(parse<JobsOptions>({"--state", "q", "jobs"}).state, "q");
  EXPECT_EQ(parse<JobsOptions>({"jobs", "--state", "q"}).state, "q");
  EXPECT_EQ(refusal({"types", "--state", "q"}).message, "unknown option \"--state\"");
}

TEST(CommandLine, SetTakesOneValueAndLeavesThePositionals) {
  const auto options = parse<RunOptions>({"run", "--set", "A=1", "pov", "scene"});
  EXPECT_EQ(options.sets, std::vector<std::string>{"A=1"});
  EXPECT_EQ(options.type, "pov");
  EXPECT_EQ(options.scene, "scene");
}

TEST(CommandLine, ValuesAreTakenAsTheyAre) {
  const auto options =
      parse<RunOptions>({"run", "t", "--set", "A=[1,2]", "--set", "B=\"x\"", "--set", "C=", "--out", ""});
  EXPECT_EQ(options.sets, (std::vector<std::string>{"A=[1,2]", "B=\"x\"", "C="}));
  EXPECT_EQ(options.out, "");
}

TEST(CommandLine, ATypeMayBeCalledLikeAVerb) {
  EXPECT_EQ(parse<TypeOptions>({"type", "run"}).type, "run");
  EXPECT_EQ(parse<RunOptions>({"run", "types", "help"}).type, "types");
}

TEST(CommandLine, NamesBehindTwoDashesMayBeginWithOne) {
  EXPECT_EQ(parse<RunOptions>({"run", "t", "--", "-scene.pov"}).scene, "-scene.pov");
}

TEST(CommandLine, CommonOptionsGoWithEveryVerb) {
  const std::vector<std::vector<std::string>> lines = {
      {"types"}, {"type", "T"}, {"detect", "T", "S"}, {"find", "T"}, {"run", "T"}};
  for (std::vector<std::string> line : lines) {
    line.insert(line.end(), {"--module-path", "m", "--settings", "s", "--options", "o"});
    const auto options = parse<CommonOptions>(line);
    EXPECT_EQ(options.modulePath, "m");
    EXPECT_EQ(options.settings, "s");
    EXPECT_EQ(options.options, "o");
  }
}

TEST(CommandLine, NothingGivesTheHelp) {
  EXPECT_EQ(textOf({}), textOf({"--help"}));
  EXPECT_EQ(textOf({}).substr(0, 30), "usage: trovik VERB [options]\n\n");
}

TEST(CommandLine, HelpOfAVerbCanBeAskedForInTwoWays) {
  for (const std::string& verb : allVerbs) {
    EXPECT_EQ(textOf({"help", verb}), textOf({verb, "--help"}));
    EXPECT_NE(textOf({verb, "-h"}).find("Examples:\n  trovik " + verb), std::string::npos);
  }
}

TEST(CommandLine, HelpFitsItsWidth) {
  std::vector<std::vector<std::string>> lines = {{"--help"}, {"help", "--help"}};
  for (const std::string& verb : allVerbs) {
    lines.push_back({verb, "--help"});
  }
  for (const std::vector<std::string>& line : lines) {
    const std::string text = textOf(line);
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = text.find('\n', begin);
      EXPECT_LE(end - begin, 80U) << text.substr(begin, end - begin);
      begin = end + 1;
    }
  }
}

TEST(CommandLine, VersionIsToldByEveryVerb) {
  EXPECT_EQ(textOf({"--version"}), textOf({"run", "--version"}));
  EXPECT_EQ(textOf({"--version"}).substr(0, 7), "trovik ");
}

TEST(CommandLine, MistypedVerbIsRefusedWithASuggestion) {
  EXPECT_EQ(refusal({"rnu", "x"}).message, "unknown verb \"rnu\"");
  EXPECT_EQ(refusal({"rnu", "x"}).hint, "did you mean \"run\"? \"trovik --help\" lists them all");
  EXPECT_EQ(refusal({"help", "tpye"}).message, "unknown verb \"tpye\"");
}

TEST(CommandLine, MistypedOptionIsRefusedWithASuggestion) {
  const Refusal refused = refusal({"run", "t", "s", "--rnage", "1-5"});
  EXPECT_EQ(refused.message, "unknown option \"--rnage\"");
  EXPECT_EQ(refused.hint, "did you mean \"--range\"? \"trovik run --help\" lists them all");
}

TEST(CommandLine, OneArgumentTooManyIsNamed) {
  EXPECT_EQ(refusal({"run", "t", "s", "extra"}).message, "one argument too many: \"extra\"");
  EXPECT_EQ(refusal({"types", "x"}).message, "one argument too many: \"x\"");
}

TEST(CommandLine, OptionWithoutItsValueSaysWhatItWants) {
  EXPECT_EQ(refusal({"run", "t", "--set"}).message, "--set needs a value: --set NAME=VALUE");
  EXPECT_EQ(refusal({"run", "t", "--set"}).hint, "see \"trovik run --help\"");
  EXPECT_EQ(refusal({"types", "--json=no"}).message, "--json takes no value");
}

TEST(CommandLine, MissingTypeAndSceneAreAskedFor) {
  EXPECT_EQ(refusal({"run"}).message, "\"trovik run\" needs the name of a job type");
  EXPECT_EQ(refusal({"run"}).hint, "\"trovik types\" lists them; see \"trovik run --help\"");
  EXPECT_EQ(refusal({"type", ""}).message, "\"trovik type\" needs the name of a job type");
  EXPECT_EQ(refusal({"detect", "t"}).message, "\"trovik detect\" needs a scene file");
}

TEST(CommandLine, MissingJobAndFileAreAskedFor) {
  for (const std::string verb : {"show", "log", "images", "watch", "sheet"}) {
    const Refusal refused = refusal({verb});
    EXPECT_EQ(refused.message,
              "\"trovik " + verb + "\" needs the number of a job, or \"last\" for the newest");
    EXPECT_EQ(refused.hint, "\"trovik jobs\" lists them; see \"trovik " + verb + " --help\"");
  }
  EXPECT_EQ(refusal({"sheet", "3"}).message, "\"trovik sheet\" needs the name of the image to write");
  EXPECT_EQ(refusal({"sheet", "3"}).hint, "such as -o sheet.png; see \"trovik sheet --help\"");
  EXPECT_EQ(refusal({"submit"}).message, "\"trovik submit\" needs the name of a job type");
}

TEST(CommandLine, UnknownColourChoiceIsRefused) {
  EXPECT_EQ(refusal({"types", "--color", "maybe"}).message,
            "--color: \"maybe\" is none of auto, always and never");
}

} // namespace
} // namespace trovik
