#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

// Amounts as users write them. What cannot be is refused with a UsageError that
// begins with the name of the parameter.

/// Mebibytes of "500M", "1.5G", "2T" or a number of mebibytes, rounded up; 0 for
/// an empty text. `otherwise` says what an empty one gives.
std::int64_t memoryOf(const std::string& parameter, const std::string& text, const std::string& otherwise);

/// The most of something scarce that there can be.
constexpr int mostOfALimit = 1'000'000;

/// Whether something scarce can have the name: it goes onto command lines,
/// between commas and colons.
bool isLimitName(const std::string& name);

/// Names, in small letters, and how much of each: "renderer;floating=2".
/// Sorted, each once.
std::vector<std::pair<std::string, int>> amountsOf(const std::string& parameter, const std::string& text);

} // namespace trovik
