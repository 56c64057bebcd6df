#pragma once

#include "trovik/machine/Machine.h"

#include <functional>
#include <sys/types.h>

namespace trovik {

/// Runs the action in a process of its own, for what may hang: a call that asks
/// a network folder whose server is gone neither returns nor can be ended.
/// False where it has not come to its end in time, or where there is no
/// process to be had. Then it is killed, and not waited for.
///
/// What the action changes in memory is lost with its process, so it throws
/// nothing and prints through descriptors only. It touches no queue, whose locks
/// are those of one process. To be called where there is one thread.
bool runAside(const std::function<void()>& action, Duration limit);

/// Whether a child of this process ends within the time; it is not reaped.
bool endsWithin(pid_t child, Duration limit);

} // namespace trovik
