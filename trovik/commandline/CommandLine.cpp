#include "trovik/commandline/CommandLine.h"

#include "trovik/commandline/HelpText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>
#include <type_traits>

namespace trovik {
namespace {

ColourChoice colourChoice(const std::string& text) {
  static const std::map<std::string, ColourChoice> choices = {
      {"auto", ColourChoice::Auto}, {"always", ColourChoice::Always}, {"never", ColourChoice::Never}};
  const auto choice = choices.find(text);
  if (choice == choices.end()) {
    throw UsageError{"--color: " + inQuotes(text) + " is none of auto, always and never",
                     "leave it out for colours on terminals only"};
  }
  return choice->second;
}

/// Reads the form into the library that parses. Its arguments keep the form's
/// order.
void declare(CLI::App& app, const Verb& verb) {
  app.allow_extras();
  for (const Argument& argument : verb.arguments) {
    const std::string name =
        argument.letter == 0 ? argument.name : std::string{'-', argument.letter, ','} + argument.name;
    std::visit(
        [&](auto target) {
          using Target = decltype(target);
          if constexpr (std::is_same_v<Target, ShowHelp>) {
            app.set_help_flag(name);
          } else if constexpr (std::is_same_v<Target, ShowVersion>) {
            app.set_version_flag(name, std::string("trovik ") + TROVIK_VERSION + '\n');
          } else if constexpr (std::is_same_v<Target, bool*> || std::is_same_v<Target, int*>) {
            app.add_flag(name, *target)->disable_flag_override();
          } else if constexpr (std::is_same_v<Target, ColourChoice*>) {
            app.add_option_function<std::string>(
                   name, [target](const std::string& text) { *target = colourChoice(text); })
                ->type_name(argument.form);
          } else {
            CLI::Option* option = app.add_option(name, *target)->type_name(argument.form);
            if (argument.isOption()) {
              option->allow_extra_args(false);
            }
          }
        },
        argument.target);
  }
}

std::vector<String> optionNames(const Verb& verb) {
  std::vector<String> names;
  for (const Argument& argument : verb.arguments) {
    if (argument.isOption()) {
      names.emplace_back(argument.name);
    }
  }
  return names;
}

std::vector<String> verbNames(const CommandForm& form) {
  std::vector<String> names;
  for (const Verb& verb : form.verbs) {
    if (verb.isListed()) {
      names.emplace_back(verb.name);
    }
  }
  return names;
}

bool isOptionOf(const Verb& verb, const std::string& name) {
  return std::any_of(verb.arguments.begin(), verb.arguments.end(), [&](const Argument& argument) {
    return argument.isOption() && (argument.name == name || (argument.letter != 0 && name.size() == 2 &&
                                                             name == std::string{'-', argument.letter}));
  });
}

bool takesScene(const Verb& verb) {
  return std::any_of(verb.arguments.begin(), verb.arguments.end(),
                     [](const Argument& argument) { return argument.name == "SCENE"; });
}

/// How an option of other verbs is called in this one; empty without such.
std::string sameOption(const Verb& verb, const std::string& name) {
  static const std::map<std::string, std::string> same = {
      {"--frames", "--range"}, {"--range", "--frames"}, {"--output", "--out"}};
  const auto found = same.find(name);
  return found != same.end() && isOptionOf(verb, found->second) ? found->second : std::string();
}

[[noreturn]] void refuseOption(const CommandForm& form, const Verb* verb, const std::string& text,
                               const std::string& help) {
  const Verb& owner = verb == nullptr ? form.program : *verb;
  const std::string name = text.substr(0, text.find('='));
  if (isOptionOf(owner, name)) {
    throw UsageError{"one argument too many: " + inQuotes(text),
                     "behind \"--\" nothing is an option; write " + inQuotes(name) + " before it"};
  }
  std::error_code error;
  if (std::filesystem::exists(text, error)) {
    throw UsageError{"unknown option " + inQuotes(name),
                     "if you mean the file, write " + inQuotes("./" + text)};
  }
  const std::string more = '"' + help + "\" lists them all";
  const std::string same = sameOption(owner, name);
  throw UsageError{"unknown option " + inQuotes(name), same.empty()
                                                           ? didYouMean(name, optionNames(owner), more)
                                                           : "did you mean \"" + same + "\"? " + more};
}

/// Refuses what the verb (or the program, before any verb) did not take.
void refuseExtras(const CommandForm& form, const Verb* verb, std::vector<std::string> extras) {
  std::erase(extras, "--"); // the mark behind which nothing is an option
  if (extras.empty()) {
    return;
  }
  // A mistyped option spoils what stands behind it, so it is reported first.
  const auto option = std::find_if(extras.begin(), extras.end(), [](const std::string& text) {
    return text.size() > 1 && text.front() == '-';
  });
  const std::string help = verb == nullptr ? "trovik --help" : "trovik " + verb->name + " --help";
  if (option != extras.end()) {
    refuseOption(form, verb, *option, help);
  }
  if (verb == nullptr) {
    throw UsageError{"unknown verb " + inQuotes(extras.front()),
                     didYouMean(extras.front(), verbNames(form), "\"trovik --help\" lists them all")};
  }
  throw UsageError{
      "one argument too many: " + inQuotes(extras.front()),
      (takesScene(*verb) ? "one scene is enough: the others of its sequence are found; " : std::string()) +
          "see \"" + help + '"'};
}

std::string quotedList(const std::vector<std::string>& texts) {
  std::vector<std::string> quoted(texts.size());
  std::transform(texts.begin(), texts.end(), quoted.begin(), inQuotes);
  return joined(quoted, ", ");
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
    if (option->results().size() > 1) {
      throw UsageError{name + " is given " + (option->results().size() == 2 ? "twice" : "several times") +
                           ": " + quotedList(option->results()),
                       "leave all but one of them out"};
    }
    text = name + " needs a value: " + name + ' ' + option->get_type_name();
  }
  if (const std::size_t end = text.find(" was given a disallowed flag override"); end != std::string::npos) {
    text = "--" + text.substr(0, end) + " takes no value";
  }
  throw UsageError{printable(text, OddBytes::Show),
                   "see \"trovik " + (verbs.empty() ? std::string() : verbs.front()->get_name() + ' ') +
                       "--help\""};
}

bool isMissing(const Argument& argument) {
  if (const auto* text = std::get_if<std::optional<std::string>*>(&argument.target)) {
    return !**text || ((*text)->value().empty() && !argument.needed.mayBeEmpty);
  }
  const auto* texts = std::get_if<std::vector<std::string>*>(&argument.target);
  return texts != nullptr && (*texts)->empty();
}

/// Refuses a verb without what it cannot do without.
void requireArguments(const Verb& verb) {
  for (const Argument& argument : verb.arguments) {
    const Needed& needed = argument.needed;
    if (!needed.message.empty() && isMissing(argument)) {
      throw UsageError{"\"trovik " + verb.name + "\" " + needed.message,
                       needed.hint + (needed.hint.empty() ? "" : "; ") + "see \"trovik " + verb.name +
                           " --help\""};
    }
  }
}

} // namespace

ParsedLine parseCommandLine(const CommandForm& form, const std::vector<std::string>& arguments,
                            std::size_t width) {
  ParsedLine parsed;
  CLI::App program;
  program.require_subcommand(0, 1); // a type may be called like a verb
  declare(program, form.program);
  for (const Verb& verb : form.verbs) {
    declare(*program.add_subcommand(verb.name), verb);
  }
  const auto givenVerb = [&]() -> const Verb* {
    const std::vector<CLI::App*> given = program.get_subcommands();
    return given.empty() ? nullptr : form.find(given.front()->get_name());
  };

  try {
    program.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    parsed.text = helpText(form, givenVerb(), width);
    return parsed;
  } catch (const CLI::CallForVersion& version) {
    parsed.text = version.what();
    return parsed;
  } catch (const CLI::ParseError& error) {
    refuseParse(program, error);
  }
  parsed.common = *form.common;
  const Verb* verb = givenVerb();
  refuseExtras(form, verb, (verb == nullptr ? program : *program.get_subcommands().front()).remaining());
  if (verb == nullptr) {
    parsed.text = helpText(form, nullptr, width);
    return parsed;
  }
  if (verb->options == nullptr) { // the one that helps
    const std::string& wanted = *form.helpVerb;
    const Verb* about = form.find(wanted);
    if (!wanted.empty() && about == nullptr) {
      throw UsageError{"unknown verb " + inQuotes(wanted),
                       didYouMean(wanted, verbNames(form), "\"trovik --help\" lists them all")};
    }
    parsed.text = helpText(form, about, width);
    return parsed;
  }
  requireArguments(*verb);
  static_cast<CommonOptions&>(*verb->options) = *form.common;
  parsed.verb = verb;
  return parsed;
}

} // namespace trovik
