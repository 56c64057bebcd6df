#pragma once

#include "trovik/text/Console.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace trovik {

// The command line as data: what the parser reads by, what help, manual page
// and completion tell. The library that parses is known to CommandLine.cpp
// alone; it costs seconds wherever it is included.

/// What every verb takes. Each has a struct of its own, derived from this one,
/// so that it can read only what it declares.
struct CommonOptions {
  std::optional<std::string> modulePath;
  std::optional<std::string> settings;
  std::optional<std::string> options;
  std::optional<std::string> state; ///< the directory of the queue and its logs
  int verbosity = 0;                ///< 1: information, 2: also what helps to find faults
  ColourChoice colour = ColourChoice::Auto;
};

/// Where an argument's value goes. Those without a value: a flag is set, a
/// number counts how often it stood there.
struct ShowHelp {};
struct ShowVersion {};
using ArgumentTarget = std::variant<ShowHelp, ShowVersion, bool*, int*, ColourChoice*, std::string*,
                                    std::optional<std::string>*, std::vector<std::string>*>;

/// How it is refused that an argument is missing: `"trovik VERB" ` stands
/// before the message, and where help is behind the hint.
struct Needed {
  std::string message; ///< empty where it may be missing
  std::string hint;
  bool mayBeEmpty = false; ///< an empty text is reported elsewhere
};

/// An option, or an argument by its place.
struct Argument {
  std::string name; ///< "--out"; "SCENE" by place
  char letter = 0;  ///< 'o' for -o
  std::string form; ///< of its value as help shows it: "DIR", "[SCENE]", "JOB..."
  std::string description;
  std::string group; ///< of the help; empty by place
  ArgumentTarget target;
  Needed needed{};

  bool isOption() const { return name.starts_with("--"); }
  bool takesValue() const;
  bool mayRepeat() const;
};

struct Verb {
  std::string name;  ///< empty for the program itself
  std::string group; ///< of the help; empty for what only programs call
  std::string description;
  std::vector<Argument> arguments; ///< the common ones first
  /// The verb's own struct, into which its arguments are read; null for the
  /// program itself and for its help.
  std::shared_ptr<CommonOptions> options;
  /// Does what it says, with what was read; returns the exit code.
  std::function<int(Console& console)> call;

  bool isListed() const { return !group.empty(); }
};

struct CommandForm {
  /// Declares the program's own arguments.
  explicit CommandForm(std::string description);

  Verb program; ///< its arguments stand before any verb
  std::vector<Verb> verbs;
  /// The common options, wherever they stand.
  std::shared_ptr<CommonOptions> common = std::make_shared<CommonOptions>();
  std::shared_ptr<std::string> helpVerb = std::make_shared<std::string>(); ///< that help is asked about

  /// Null where there is none of that name.
  const Verb* find(const std::string& name) const;
  /// Appends a verb with the common options, and those about the queue.
  Verb& add(const char* group, const char* name, const char* description, bool ofQueue);
  /// Appends the verb that explains the others.
  void addHelp();
};

/// One verb being declared, whose values are members of `Options`.
template <typename Options> class VerbForm {
public:
  VerbForm(CommandForm& form, const char* group, const char* name, const char* description, bool ofQueue)
      : form_(form), place_(form.verbs.size()), options_(std::make_shared<Options>()) {
    form.add(group, name, description, ofQueue).options = options_;
  }

  /// An argument by its place, shown as `shape` ("JOB", "[SCENE]") in the usage.
  template <typename Value, typename Owner>
  VerbForm& argument(const char* name, const char* shape, Value Owner::*member, const char* description,
                     Needed needed = {}) {
    return add({name, 0, shape, description, {}, &((*options_).*member), std::move(needed)});
  }
  template <typename Value, typename Owner>
  VerbForm& value(const char* name, const char* shape, Value Owner::*member, const char* description,
                  Needed needed = {}) {
    return add({name, 0, shape, description, "Options", &((*options_).*member), std::move(needed)});
  }
  template <typename Owner> VerbForm& flag(const char* name, bool Owner::*member, const char* description) {
    return value(name, "", member, description);
  }
  /// The one-letter form of the option before.
  VerbForm& letter(char letter) {
    form_.verbs[place_].arguments.back().letter = letter;
    return *this;
  }

  VerbForm& type() {
    return argument("TYPE", "TYPE", &Options::type, "Name, alias or ID of a job type, in any case",
                    neededType());
  }
  static Needed neededType() { return {"needs the name of a job type", "\"trovik types\" lists them"}; }
  VerbForm& job() { return argument("JOB", "JOB", &Options::job, jobDescription, neededJob()); }
  VerbForm& jobs() { return argument("JOB", "[JOB...]", &Options::jobs, jobDescription); }
  /// Jobs by what they are, instead of their numbers.
  VerbForm& chosenJobs() {
    return value("--status", "STATE", &Options::status, "All jobs in this state, as \"trovik jobs\" tells it")
        .value("--type", "NAME", &Options::type, "All jobs of this type; * stands for any letters")
        .value("--name", "NAME", &Options::name, "All jobs of this name; * stands for any letters")
        .flag("--yes", &Options::yes, "Ask nothing where jobs are chosen so")
        .letter('y');
  }
  VerbForm& dryRun() {
    return flag("--dry-run", &Options::dryRun, "Change nothing; tell what would be done");
  }
  static Needed neededJob() {
    return {"needs the number of a job, or \"last\" for the newest", "\"trovik jobs\" lists them", true};
  }
  VerbForm& sets() {
    return value("--set", "NAME=VALUE", &Options::sets,
                 "Set a parameter; may be repeated. \"trovik type TYPE\" lists them");
  }
  VerbForm& json(const char* description = "Print JSON") {
    return flag("--json", &Options::json, description);
  }
  static constexpr const char* jobDescription = "Number of a job, or \"last\" for the newest";

  /// What does it.
  void calls(std::function<int(Console& console, const Options& options)> function) {
    form_.verbs[place_].call = [options = options_, function = std::move(function)](Console& console) {
      return function(console, *options);
    };
  }

private:
  VerbForm& add(Argument argument) {
    form_.verbs[place_].arguments.push_back(std::move(argument));
    return *this;
  }

  CommandForm& form_;
  std::size_t place_;
  std::shared_ptr<Options> options_;
};

} // namespace trovik
