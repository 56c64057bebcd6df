#pragma once

#include <string_view>

namespace trovik {

/// What stands at the end of a verb's help: notes, exit codes, worked
/// examples. The empty name stands for the program's own help.
const char* helpFooter(std::string_view verb);

} // namespace trovik
