#pragma once

#include "trovik/commandline/CommandForm.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// What came of reading the command line: a verb to call, or a text (help,
/// version) to print.
struct ParsedLine {
  const Verb* verb = nullptr; ///< of the form; its options are read
  CommonOptions common;
  std::optional<std::string> text;
};

/// Reads the arguments behind the program's name into the options of the
/// form's verbs, once. Help texts are wrapped to `width`. Throws a UsageError,
/// with a suggestion for a mistyped verb or option.
ParsedLine parseCommandLine(const CommandForm& form, const std::vector<std::string>& arguments,
                            std::size_t width);

} // namespace trovik
