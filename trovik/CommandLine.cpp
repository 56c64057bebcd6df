#include "host/foundation/Suggest.h"
#include "trovik/HelpFooters.h"
#include "trovik/HelpText.h"
#include "trovik/Options.h"
#include "trovik/Text.h"
#include "trovik/UsageError.h"
#include "trovik/VerbOptions.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <set>

namespace trovik {
namespace {

std::vector<String> optionNames(const CLI::App& app) {
  std::vector<String> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.emplace_back("--" + name);
    }
  }
  return names;
}

std::string suggestion(const std::string& unknown, const std::vector<String>& known) {
  const String near = SuggestName(unknown, known);
  return near.empty() ? std::string() : "did you mean \"" + near + "\"? ";
}

/// Refuses what the verb (or the program, before any verb) did not take.
void refuseExtras(const CLI::App& program, const CLI::App* verb) {
  const CLI::App& app = verb == nullptr ? program : *verb;
  std::vector<std::string> extras = app.remaining();
  std::erase(extras, "--"); // the mark behind which nothing is an option
  if (extras.empty()) {
    return;
  }
  // A mistyped option spoils what stands behind it, so it is told first.
  const auto option = std::find_if(extras.begin(), extras.end(), [](const std::string& text) {
    return text.size() > 1 && text.front() == '-';
  });
  const std::string help = verb == nullptr ? "trovik --help" : "trovik " + verb->get_name() + " --help";
  if (option != extras.end()) {
    const std::string name = option->substr(0, option->find('='));
    throw UsageError{"unknown option " + inQuotes(name),
                     suggestion(name, optionNames(app)) + '"' + help + "\" lists them all"};
  }
  if (verb == nullptr) {
    std::vector<String> verbs;
    for (const CLI::App* known : program.get_subcommands(isListed)) {
      verbs.emplace_back(known->get_name());
    }
    throw UsageError{"unknown verb " + inQuotes(extras.front()),
                     suggestion(extras.front(), verbs) + "\"trovik --help\" lists them all"};
  }
  throw UsageError{"one argument too many: " + inQuotes(extras.front()), "see \"" + help + '"'};
}

/// Says in our own words what the parser refused.
[[noreturn]] void refuseParse(const CLI::App& program, const CLI::ParseError& error) {
  const auto verbs = program.get_subcommands();
  const CLI::App& app = verbs.empty() ? program : *verbs.front();
  std::string text = error.what();
  // The parser's texts begin with the option's name.
  const CLI::Option* option = app.get_option_no_throw(text.substr(0, text.find_first_of(": ")));
  if (option != nullptr && dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    const std::string name = "--" + option->get_lnames().front();
    text = name + " needs a value: " + name + ' ' + option->get_type_name();
  }
  if (const std::size_t end = text.find(" was given a disallowed flag override"); end != std::string::npos) {
    text = "--" + text.substr(0, end) + " takes no value";
  }
  throw UsageError{printable(text, OddBytes::Show),
                   "see \"trovik " + (verbs.empty() ? std::string() : verbs.front()->get_name() + ' ') +
                       "--help\""};
}

/// What each verb cannot do without.
void requireArguments(const Options& options) {
  static const std::set<std::string> typeVerbs = {"type", "detect", "find", "replay", "run", "submit"};
  static const std::set<std::string> jobVerbs = {"show",  "log",    "images", "watch",
                                                 "retry", "cancel", "delete", "sheet"};
  const std::string verb = "\"trovik " + options.verb + '"';
  const std::string help = "see \"trovik " + options.verb + " --help\"";
  if (typeVerbs.contains(options.verb) && (!options.type || options.type->empty())) {
    throw UsageError{verb + " needs the name of a job type", "\"trovik types\" lists them; " + help};
  }
  if (options.verb == "new" && !options.type) {
    throw UsageError{verb + " needs a name for the type", "such as trovik new Sketch; " + help};
  }
  if (options.verb == "detect" && (!options.scene || options.scene->empty())) {
    throw UsageError{verb + " needs a scene file", help};
  }
  if (options.verb == "replay" && (!options.log || options.log->empty())) {
    throw UsageError{verb + " needs a saved log, or - for standard input", help};
  }
  if (jobVerbs.contains(options.verb) && !options.job && options.jobs.empty()) {
    throw UsageError{verb + " needs the number of a job, or \"last\" for the newest",
                     "\"trovik jobs\" lists them; " + help};
  }
  if (options.verb == "task" && (!options.folder || options.folder->empty())) {
    throw UsageError{verb + " needs the folder of an array job", help};
  }
  if (options.verb == "sheet" && (!options.file || options.file->empty())) {
    throw UsageError{verb + " needs the name of the image to write", "such as -o sheet.png; " + help};
  }
}

} // namespace

ParsedLine parseCommandLine(const std::vector<std::string>& arguments, std::size_t width) {
  ParsedLine parsed;
  Options& options = parsed.options;
  CLI::App program("Runs render jobs whose types are described by small text files.", "trovik");
  program.formatter_fn([width](const CLI::App* app, const std::string& /*name*/,
                               CLI::AppFormatMode /*mode*/) { return helpText(*app, width); });
  program.footer(helpFooter(""));
  program.allow_extras();
  program.require_subcommand(0, 1); // a type may be called like a verb
  std::string helpVerb;
  declareVerbs(program, options, helpVerb);

  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    program.parse(std::move(reversed));
  } catch (const CLI::CallForHelp&) {
    parsed.text = program.help();
    return parsed;
  } catch (const CLI::CallForVersion& version) {
    parsed.text = std::string(version.what()) + '\n';
    return parsed;
  } catch (const CLI::ParseError& error) {
    refuseParse(program, error);
  }
  const std::vector<CLI::App*> verbs = program.get_subcommands();
  refuseExtras(program, verbs.empty() ? nullptr : verbs.front());
  if (verbs.empty()) {
    parsed.text = program.help();
    return parsed;
  }
  options.verb = verbs.front()->get_name();
  if (options.verb == "help") {
    const auto known =
        program.get_subcommands([&](const CLI::App* app) { return app->get_name() == helpVerb; });
    if (!helpVerb.empty() && known.empty()) {
      std::vector<String> names;
      for (const CLI::App* verb : program.get_subcommands(isListed)) {
        names.emplace_back(verb->get_name());
      }
      throw UsageError{"unknown verb " + inQuotes(helpVerb),
                       suggestion(helpVerb, names) + "\"trovik --help\" lists them all"};
    }
    parsed.text = helpText(helpVerb.empty() ? program : *known.front(), width);
    return parsed;
  }
  requireArguments(options);
  return parsed;
}

} // namespace trovik
