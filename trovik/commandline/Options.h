#pragma once

#include "trovik/text/Console.h"

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

  std::optional<std::string> state; ///< the directory of the queue and its logs

  bool json = false;
  bool all = false;   ///< also what is usually left out
  bool yes = false;   ///< ask nothing
  bool force = false; ///< replace a file

  // For the verbs that check type files and replay logs.
  std::vector<std::string> files;
  std::optional<std::string> name; ///< of the text on standard input
  bool strict = false;             ///< warnings count as errors
  bool noPrograms = false;         ///< do not look for programs on this machine
  bool lookAtFiles = false;        ///< at those that a log names, too

  // For the verbs that make jobs.
  std::optional<std::string> type;
  std::optional<std::string> scene;
  std::vector<std::string> sets; ///< NAME=VALUE, in their order
  std::optional<std::string> range;
  std::optional<std::string> packet;
  std::optional<std::string> slots;
  std::optional<std::string> engine; ///< local or slurm
  std::optional<std::string> shared; ///< the folder that a cluster's nodes see as well
  std::optional<std::string> out;
  std::optional<std::string> logDirectory;
  bool dryRun = false;
  bool missing = false; ///< only the frames without a good file; images: those frames themselves
  bool fresh = false;   ///< a new job even where the same one is unfinished
  bool notify = false;
  std::optional<std::string> priority;
  std::optional<std::string> endCommand;

  // For the replay of a saved log.
  std::optional<std::string> log;  ///< "-" for standard input
  std::optional<std::string> exit; ///< how the program ended

  // For the verbs about jobs in the queue.
  std::optional<std::string> job; ///< a number, or "last"
  std::vector<std::string> jobs;  ///< the same for verbs that take several
  std::optional<std::string> frame;
  std::optional<std::string> frames;
  std::optional<std::string> attempt;
  std::optional<std::string> limit;
  bool untilEmpty = false;
  std::optional<std::string> file; ///< to be written
  std::optional<std::string> width;
  std::optional<std::string> columns;

  // For the verb that a cluster's tasks run.
  std::optional<std::string> folder; ///< of the array job
  std::optional<std::string> index;  ///< of the task

  // For the verb that writes a type; what it takes besides is above.
  std::optional<std::string> program;
  std::optional<std::string> output;
  std::optional<std::string> extension;
  std::optional<std::string> imageText;
  std::vector<std::string> success;
  std::vector<std::string> errors;
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
