#pragma once

#include "trovik/commandline/CommandForm.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace trovik {

/// The help of a verb, or of the program for null: usage, description,
/// arguments, options by group and worked examples, wrapped to the width.
std::string helpText(const CommandForm& form, const Verb* verb, std::size_t width);

/// What stands at the end of a verb's help: notes, exit codes, worked
/// examples. The empty name stands for the program's own help.
const char* helpFooter(std::string_view verb);

} // namespace trovik
