#pragma once

#include <cstdint>
#include <map>
#include <vector>

namespace trovik {

/// The main memory that programs may have, in bytes.
struct MemoryNow {
  std::int64_t total = 0;     ///< of the machine, or of the control group; 0 where it is not known
  std::int64_t available = 0; ///< for programs that start now
  /// What the processes of the groups that were asked about hold now.
  std::map<int, std::int64_t> used{};
};

/// Of this machine, in the control groups of this process. Each group is given
/// by the number of its leader.
MemoryNow memoryNow(const std::vector<int>& groups);

} // namespace trovik
