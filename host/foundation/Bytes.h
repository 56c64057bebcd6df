#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <cstdint>

/// "812 bytes", "64 kB", "11.8 GB": a thousand of one is one of the next.
String BytesText(std::int64_t bytes);

/// The main memory of this machine in bytes; 0 where the system does not tell.
std::int64_t MachineMemory();

/// The least memory in bytes that a control group of this process may hold, of
/// its own and of those that this one is in, as containers and clusters set it;
/// 0 without such a limit. Knows both forms of control groups. The paths are for
/// tests.
std::int64_t GroupMemoryLimit(const Path& groups = Path("/proc/self/cgroup"),
                              const Path& mount = Path("/sys/fs/cgroup"));
