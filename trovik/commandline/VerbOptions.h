#pragma once

#include "trovik/commandline/Options.h"

#include <string>
#include <variant>
#include <vector>

namespace trovik {

// The command line as data: what the parser reads by, what help, manual page
// and completion tell. The library that parses is known to CommandLine.cpp
// alone; it costs seconds wherever it is included.

/// Where an argument's value goes. Those without a value: a flag is set, a
/// number counts how often it stood there.
struct ShowHelp {};
struct ShowVersion {};
using ArgumentTarget = std::variant<ShowHelp, ShowVersion, bool*, int*, ColourChoice*, std::string*,
                                    std::optional<std::string>*, std::vector<std::string>*>;

/// An option, or an argument by its place.
struct Argument {
  std::string name; ///< "--out"; "SCENE" by place
  char letter = 0;  ///< 'o' for -o
  std::string form; ///< of its value as help shows it: "DIR", "[SCENE]", "JOB..."
  std::string description;
  std::string group; ///< of the help; empty by place
  ArgumentTarget target;

  bool isOption() const { return name.starts_with("--"); }
  bool takesValue() const;
  bool mayRepeat() const;
};

struct Verb {
  std::string name;  ///< empty for the program itself
  std::string group; ///< of the help; empty for what only programs call
  std::string description;
  std::vector<Argument> arguments; ///< the common ones first

  bool isListed() const { return !group.empty(); }
};

struct CommandForm {
  Verb program; ///< its arguments stand before any verb
  std::vector<Verb> verbs;

  /// Null where there is none of that name.
  const Verb* find(const std::string& name) const;
};

/// The program's verbs and their options; a parse writes to `options` and (of
/// "help") to `helpVerb`, which must outlive the form.
CommandForm declareVerbs(Options& options, std::string& helpVerb);

} // namespace trovik
