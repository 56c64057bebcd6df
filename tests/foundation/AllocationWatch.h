#pragma once

#include <cstddef>

/// Starts the watch anew. This program's operator new counts for the host's
/// libraries too.
void StartAllocationWatch();

/// The largest single allocation since then, in bytes, of all threads.
std::size_t LargestAllocation();

/// The number of allocations since then.
std::size_t AllocationCount();
