#pragma once

#include <cstddef>

namespace trovik {

/// How many cores are idle, or busy with processes of our own, of which at most
/// `own` run: as many as this process may use, without those that others run on
/// in this moment. At least one.
///
/// The kernel is asked what is runnable, since that is all that matters: a
/// renderer may have one thread or a hundred, wait for a disk, or belong to
/// somebody else.
std::size_t idleCores(std::size_t own);

/// The same from what the kernel said: the cores of the machine, those that
/// this process may use, and what runs, this process included, as
/// /proc/loadavg tells it ("0.20 0.18 0.12 3/80 11206"). One where that is not
/// understood.
std::size_t idleCores(std::size_t own, std::size_t all, std::size_t usable, const char* loads);

} // namespace trovik
