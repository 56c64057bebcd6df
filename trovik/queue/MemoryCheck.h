#pragma once

#include "trovik/machine/Memory.h"
#include "trovik/records/Records.h"

#include <functional>
#include <vector>

namespace trovik {

/// A job of which a work would begin if it had the memory.
struct MemoryWait {
  JobId job = 0;
  std::int64_t needed = 0; ///< bytes, for one work
  std::int64_t free = 0;   ///< that programs do not have or are about to take

  bool operator==(const MemoryWait&) const = default;
};

/// What a machine has of memory, for whoever claims works.
struct MemoryCheck {
  /// Called at most once, and only where the need of a work matters.
  std::function<MemoryNow(const std::vector<int>& groups)> ask;
  std::vector<MemoryWait> waits; ///< what the claim found
};

} // namespace trovik
