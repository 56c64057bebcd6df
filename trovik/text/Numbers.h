#pragma once

#include <cstddef>
#include <string>

namespace trovik {

/// A number of at least 1 behind an option. Throws a UsageError.
std::size_t positiveNumber(const std::string& option, const std::string& text, std::size_t limit);

} // namespace trovik
