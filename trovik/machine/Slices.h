#pragma once

#include <cstdint>
#include <sys/types.h>

namespace trovik {

/// How a thread is scheduled, as the kernel tells it (0 for its parts that it does
/// not know).
struct Scheduling {
  std::uint32_t policy = 0;
  std::int32_t nice = 0;
  std::uint64_t slice = 0; ///< nanoseconds that it runs at a time; 0 before Linux 6.12
  bool operator==(const Scheduling&) const = default;
};

/// Of a thread, by its number; 0 for this one.
Scheduling schedulingOf(pid_t thread = 0);

/// Wishes that this thread gets a processor soon, and then for a tenth of a
/// millisecond at a time: as suits one that fills slots, which are mostly as many
/// as there are processors. Programs that it starts do not inherit that. Older
/// kernels than Linux 6.12 leave all as it is, and so does a thread with a
/// negative nice value, which programs are to inherit.
void wishForShortSlices();

} // namespace trovik
