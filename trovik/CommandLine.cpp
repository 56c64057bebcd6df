#include "host/foundation/Suggest.h"
#include "trovik/HelpText.h"
#include "trovik/Options.h"
#include "trovik/Text.h"
#include "trovik/UsageError.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <memory>

namespace trovik {
namespace {

constexpr const char* commonGroup = "Common options";

const char* const mainFooter =
    "Examples:\n"
    "  trovik types                      which job types there are\n"
    "  trovik type povray                what a job of a type can be told\n"
    "  trovik run povray shot_0001.pov   render all frames of the sequence\n"
    "  trovik help run                   more about a verb\n"
    "\n"
    "Exit codes: 0 all good, 1 some work failed or was not done, 2 wrong usage or\n"
    "input. Environment: TROVIK_MODULE_PATH, TROVIK_SETTINGS, TROVIK_OPTIONS,\n"
    "NO_COLOR.";

const char* const typesFooter = "Examples:\n"
                                "  trovik types\n"
                                "  trovik types --all --json\n"
                                "  trovik types --module-path ~/mytypes:   my own, then the usual ones";

const char* const typeFooter = "Examples:\n"
                               "  trovik type povray\n"
                               "  trovik type povray --all    also what is hidden from forms\n"
                               "  trovik type povray --json";

const char* const detectFooter = "Examples:\n"
                                 "  trovik detect povray shots/a_0001.pov\n"
                                 "  trovik detect povray shots/a_0001.pov --json";

const char* const findFooter = "Exit code 1 when there is no program.\n"
                               "\n"
                               "Examples:\n"
                               "  trovik find povray\n"
                               "  trovik find povray --json";

const char* const runFooter =
    "Frames: 1-100, every fifth 1-100x5, all but every fifth 1-100y5, interleaved\n"
    "1-100:4, lists 1,4,9-12.\n"
    "\n"
    "Ctrl-C asks the running programs to end and says what is done and what is\n"
    "not; a second one kills them.\n"
    "\n"
    "Exit codes: 0 every frame good, 1 some failed or were not done, 2 wrong usage\n"
    "or input, nothing started.\n"
    "\n"
    "Examples:\n"
    "  trovik run povray shots/a_0001.pov              all frames of the sequence\n"
    "  trovik run povray shots/a_0001.pov --range 1-10 --out images\n"
    "  trovik run povray a.pov --set Width=1920 --set Height=1080\n"
    "  trovik run povray shots/a_0001.pov --dry-run    only show the commands";

/// The options that every verb takes.
void addCommon(CLI::App& app, Options& options) {
  app.add_option("--module-path", options.modulePath,
                 "Directories of modules and types, between colons; an empty one stands for the usual ones")
      ->type_name("DIRS")
      ->group(commonGroup);
  app.add_option("--settings", options.settings, "File of this installation's settings")
      ->type_name("FILE")
      ->group(commonGroup);
  app.add_option("--options", options.options, "File of the engine's options for each type")
      ->type_name("FILE")
      ->group(commonGroup);
  app.add_flag("-v,--verbose", options.verbosity, "Say more; twice for what helps to find faults")
      ->disable_flag_override()
      ->group(commonGroup);
  const std::map<std::string, ColourChoice> choices = {
      {"auto", ColourChoice::Auto}, {"always", ColourChoice::Always}, {"never", ColourChoice::Never}};
  app.add_option_function<std::string>(
         "--color",
         [&options, choices](const std::string& text) {
           const auto choice = choices.find(text);
           if (choice == choices.end()) {
             throw UsageError{"--color: " + inQuotes(text) + " is none of auto, always and never",
                              "leave it out for colours on terminals only"};
           }
           options.colour = choice->second;
         },
         "auto, always or never")
      ->type_name("WHEN")
      ->group(commonGroup);
  app.set_help_flag("-h,--help", "Show this help")->group(commonGroup);
  app.set_version_flag("--version", std::string("trovik ") + TROVIK_VERSION, "Show the version")
      ->group(commonGroup);
}

CLI::App& addVerb(CLI::App& program, Options& options, const char* name, const char* description,
                  const char* footer) {
  CLI::App& verb = *program.add_subcommand(name, description);
  verb.footer(footer);
  verb.allow_extras();
  addCommon(verb, options);
  return verb;
}

void addType(CLI::App& verb, Options& options) {
  verb.add_option("TYPE", options.type, "Name, alias or ID of a job type, in any case")->type_name("");
}

void addJson(CLI::App& verb, Options& options, const char* description) {
  verb.add_flag("--json", options.json, description)->disable_flag_override()->group("Options");
}

void addRun(CLI::App& program, Options& options) {
  CLI::App& run = addVerb(program, options, "run",
                          "Works off a job here: finds the scene's sequence, splits its frames, runs the "
                          "program for them and judges what it did.",
                          runFooter);
  addType(run, options);
  run.add_option("SCENE", options.scene, "The scene file, or any one of a numbered sequence")->type_name("");
  run.add_option("--set", options.sets, "Set a parameter; may be repeated. \"trovik type TYPE\" lists them")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false)
      ->group("Options");
  run.add_option("--range", options.range, "The frames; those of the sequence found by default")
      ->type_name("FRAMES")
      ->group("Options");
  run.add_option("--packet", options.packet, "Frames that one start of the program renders")
      ->type_name("N")
      ->group("Options");
  run.add_option("--slots", options.slots,
                 "Programs that run at the same time; by default what the CPUs carry")
      ->type_name("N")
      ->group("Options");
  run.add_option("--out", options.out, "The folder for what the program writes; made where it is missing")
      ->type_name("DIR")
      ->group("Options");
  run.add_option("--log-dir", options.logDirectory, "The folder for the logs of this run")
      ->type_name("DIR")
      ->group("Options");
  run.add_flag("--dry-run", options.dryRun, "Start nothing; print each command as text for a shell")
      ->disable_flag_override()
      ->group("Options");
  addJson(run, options, "Print events as JSON, one a line, the summary last");
}

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
    for (const CLI::App* known : program.get_subcommands({})) {
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
  const std::string help = "see \"trovik " + options.verb + " --help\"";
  if (options.verb != "types" && (!options.type || options.type->empty())) {
    throw UsageError{"\"trovik " + options.verb + "\" needs the name of a job type",
                     "\"trovik types\" lists them; " + help};
  }
  if (options.verb == "detect" && (!options.scene || options.scene->empty())) {
    throw UsageError{"\"trovik detect\" needs a scene file", help};
  }
}

} // namespace

ParsedLine parseCommandLine(const std::vector<std::string>& arguments, std::size_t width) {
  ParsedLine parsed;
  Options& options = parsed.options;
  CLI::App program("Runs render jobs whose types are described by small text files.", "trovik");
  program.formatter_fn([width](const CLI::App* app, const std::string& /*name*/,
                               CLI::AppFormatMode /*mode*/) { return helpText(*app, width); });
  program.footer(mainFooter);
  program.allow_extras();
  program.require_subcommand(0, 1); // a type may be called like a verb
  addCommon(program, options);

  CLI::App& types = addVerb(program, options, "types", "Lists the job types.", typesFooter);
  types.add_flag("--all", options.all, "Also those that are switched off")
      ->disable_flag_override()
      ->group("Options");
  addJson(types, options, "Print JSON");

  CLI::App& type =
      addVerb(program, options, "type",
              "Describes a job type: its parameters as a form groups them, and its commands.", typeFooter);
  addType(type, options);
  type.add_flag("--all", options.all, "Also what is hidden from forms")
      ->disable_flag_override()
      ->group("Options");
  addJson(type, options, "Print JSON, with the flags of each parameter");

  CLI::App& detect =
      addVerb(program, options, "detect",
              "Shows what would be filled in for a scene: the sequence that it belongs to and what "
              "the type's rules add.",
              detectFooter);
  addType(detect, options);
  detect.add_option("SCENE", options.scene, "The scene file")->type_name("");
  addJson(detect, options, "Print JSON");

  CLI::App& find = addVerb(program, options, "find",
                           "Shows the program that jobs of a type run, and where it was found.", findFooter);
  addType(find, options);
  addJson(find, options, "Print JSON");

  addRun(program, options);

  CLI::App& help = *program.add_subcommand("help", "Explains a verb.");
  std::string helpVerb;
  help.add_option("VERB", helpVerb, "The verb")->type_name("");
  help.allow_extras();
  help.footer("Examples:\n  trovik help run");

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
      for (const CLI::App* verb : program.get_subcommands([](const CLI::App*) { return true; })) {
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
