#include "trovik/Options.h"

#include "tests/trovik/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace trovik {
namespace {

Options parse(const std::vector<std::string>& arguments) {
  const ParsedLine line = parseCommandLine(arguments, 80);
  EXPECT_FALSE(line.text.has_value());
  return line.options;
}

std::string textOf(const std::vector<std::string>& arguments) {
  return parseCommandLine(arguments, 80).text.value_or("");
}

Refusal refusal(const std::vector<std::string>& arguments) {
  return refusalOf([&] { parseCommandLine(arguments, 80); });
}

TEST(CommandLine, RunTakesAllItsOptions) {
  const Options options =
      parse({"run",       "pov",      "a b.pov",   "--set",   "Width=1", "--set=Note==x", "--range",
             "-5--1",     "--packet", "4",         "--slots", "2",       "--out",         "o",
             "--log-dir", "l",        "--dry-run", "--json",  "-vv",     "--color",       "never"});
  EXPECT_EQ(options.verb, "run");
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

TEST(CommandLine, SetTakesOneValueAndLeavesThePositionals) {
  const Options options = parse({"run", "--set", "A=1", "pov", "scene"});
  EXPECT_EQ(options.sets, std::vector<std::string>{"A=1"});
  EXPECT_EQ(options.type, "pov");
  EXPECT_EQ(options.scene, "scene");
}

TEST(CommandLine, ValuesAreTakenAsTheyAre) {
  const Options options =
      parse({"run", "t", "--set", "A=[1,2]", "--set", "B=\"x\"", "--set", "C=", "--out", ""});
  EXPECT_EQ(options.sets, (std::vector<std::string>{"A=[1,2]", "B=\"x\"", "C="}));
  EXPECT_EQ(options.out, "");
}

TEST(CommandLine, ATypeMayBeCalledLikeAVerb) {
  EXPECT_EQ(parse({"type", "run"}).type, "run");
  EXPECT_EQ(parse({"run", "types", "help"}).type, "types");
}

TEST(CommandLine, NamesBehindTwoDashesMayBeginWithOne) {
  EXPECT_EQ(parse({"run", "t", "--", "-scene.pov"}).scene, "-scene.pov");
}

TEST(CommandLine, CommonOptionsGoWithEveryVerb) {
  const std::vector<std::vector<std::string>> lines = {
      {"types"}, {"type", "T"}, {"detect", "T", "S"}, {"find", "T"}, {"run", "T"}};
  for (std::vector<std::string> line : lines) {
    line.insert(line.end(), {"--module-path", "m", "--settings", "s", "--options", "o"});
    const Options options = parse(line);
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
  for (const char* verb : {"types", "type", "detect", "find", "run"}) {
    EXPECT_EQ(textOf({"help", verb}), textOf({verb, "--help"}));
    EXPECT_NE(textOf({verb, "-h"}).find("Examples:\n  trovik "), std::string::npos);
  }
}

TEST(CommandLine, HelpFitsItsWidth) {
  for (const char* verb : {"types", "type", "detect", "find", "run", "help"}) {
    const std::string text = textOf({verb, "--help"});
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

TEST(CommandLine, UnknownColourChoiceIsRefused) {
  EXPECT_EQ(refusal({"types", "--color", "maybe"}).message,
            "--color: \"maybe\" is none of auto, always and never");
}

} // namespace
} // namespace trovik
