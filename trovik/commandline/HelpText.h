#pragma once

#include "trovik/commandline/CommandForm.h"

#include <cstddef>
#include <string>

namespace trovik {

/// The help of a verb, or of the program for null: usage, description,
/// arguments, options by group and worked examples, wrapped to the width.
std::string helpText(const CommandForm& form, const Verb* verb, std::size_t width);

} // namespace trovik
