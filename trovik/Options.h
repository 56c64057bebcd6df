#pragma once

#include "trovik/Console.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// The command line as the user wrote it, sorted into its parts.
struct Options {
  std::string verb;

  // For all verbs.
  std::optional<std::string> modulePath;
  std::optional<std::string> settings;
  std::optional<std::string> options;
  int verbosity = 0; ///< 1: information, 2: also what helps to find faults
  ColourChoice colour = ColourChoice::Auto;

  bool json = false;
  bool all = false; ///< types and type: also what is hidden

  std::optional<std::string> type;
  std::optional<std::string> scene;
  std::vector<std::string> sets; ///< NAME=VALUE, in their order
  std::optional<std::string> range;
  std::optional<std::string> packet;
  std::optional<std::string> slots;
  std::optional<std::string> out;
  std::optional<std::string> logDirectory;
  bool dryRun = false;
};

/// What came of reading the command line: options to act on, or a text (help,
/// version) to print.
struct ParsedLine {
  Options options;
  std::optional<std::string> text;
};

/// Reads the arguments behind the program's name. Help texts are wrapped to
/// `width`. Throws a UsageError, with a suggestion for a mistyped verb or
/// option.
ParsedLine parseCommandLine(const std::vector<std::string>& arguments, std::size_t width);

} // namespace trovik
