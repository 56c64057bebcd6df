#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace trovik {

// What the texts of the cluster's parameters come to. Both throw UsageError
// for a text that cannot be; it names the parameter.

/// Mebibytes of ClusterMemory, "500M", "1.5G", "2T" or a number of mebibytes,
/// rounded up; 0 for an empty text.
std::int64_t memoryOf(const std::string& text);

/// Minutes that a task may take: ClusterTimeLimit, rounded up, where it is not
/// empty. Else enough that each of its works reaches its own limit
/// (`workSeconds`, RunTimeLimit) first, with its files checked. 0 where neither
/// says anything: then it is for the partition to say.
int minutesOf(const std::string& timeLimit, double workSeconds, std::size_t worksPerTask);

} // namespace trovik
