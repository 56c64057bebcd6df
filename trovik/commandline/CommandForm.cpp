#include "trovik/commandline/CommandForm.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr const char* commonGroup = "Common options";

std::vector<Argument> commonArguments(CommonOptions& options, bool ofQueue) {
  std::vector<Argument> arguments;
  const auto add = [&](const char* name, const char* form, const char* description, ArgumentTarget target) {
    arguments.push_back({name, 0, form, description, commonGroup, target});
  };
  if (ofQueue) {
    add("--state", "DIR", "Directory of the queue and its logs", &options.state);
  }
  add("--module-path", "DIRS",
      "Directories of modules and types, between colons; an empty one stands for the usual ones",
      &options.modulePath);
  add("--settings", "FILE", "File of this installation's settings", &options.settings);
  add("--options", "FILE", "File of the engine's options for each type", &options.options);
  add("--verbose", "", "Say more; twice for what helps to find faults", &options.verbosity);
  arguments.back().letter = 'v';
  add("--color", "WHEN", "auto, always or never", &options.colour);
  add("--help", "", "Show this help", ShowHelp());
  arguments.back().letter = 'h';
  add("--version", "", "Show the version", ShowVersion());
  return arguments;
}

} // namespace

bool Argument::takesValue() const {
  return !form.empty();
}

bool Argument::mayRepeat() const {
  return std::holds_alternative<std::vector<std::string>*>(target) || std::holds_alternative<int*>(target);
}

CommandForm::CommandForm(std::string description) {
  program.description = std::move(description);
  program.arguments = commonArguments(*common, true);
}

const Verb* CommandForm::find(const std::string& name) const {
  const auto found =
      std::find_if(verbs.begin(), verbs.end(), [&](const Verb& verb) { return verb.name == name; });
  return found == verbs.end() ? nullptr : &*found;
}

Verb& CommandForm::add(const char* group, const char* name, const char* description, bool ofQueue) {
  Verb verb;
  verb.name = name;
  verb.group = group;
  verb.description = description;
  verb.arguments = commonArguments(*common, ofQueue);
  return verbs.emplace_back(std::move(verb));
}

void CommandForm::addHelp() {
  Verb help;
  help.name = "help";
  help.group = "Help";
  help.description = "Explains a verb.";
  help.arguments = {{"--help", 'h', "", "Show this help", commonGroup, ShowHelp()},
                    {"VERB", 0, "[VERB]", "The verb", {}, helpVerb.get()}};
  verbs.push_back(std::move(help));
}

} // namespace trovik
