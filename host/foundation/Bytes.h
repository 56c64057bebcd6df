#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <cstdint>

/// "812 bytes", "64 kB", "11.8 GB": a thousand of one is one of the next.
String BytesText(std::int64_t bytes);

/// The main memory of this machine in bytes; 0 where the system does not tell.
std::int64_t MachineMemory();

/// What a control group of this process may hold, in bytes: the least of its own
/// and of those that this one is in, as containers and clusters set it.
struct GroupMemory {
  std::int64_t Limit = 0; ///< 0 without one
  std::int64_t Free = 0;  ///< what is left of it, with what the kernel would give back; only with a limit
};

/// Knows both forms of control groups. The paths are for tests.
GroupMemory GroupMemoryNow(const Path& groups = Path("/proc/self/cgroup"),
                           const Path& mount = Path("/sys/fs/cgroup"));
/// The limit alone.
std::int64_t GroupMemoryLimit(const Path& groups = Path("/proc/self/cgroup"),
                              const Path& mount = Path("/sys/fs/cgroup"));
