#pragma once

#include "trovik/queue/Queue.h"
#include "trovik/text/Json.h"

namespace trovik {

/// What is told of the machine: engines and what they run, memory, load, disks,
/// limits, and the cluster where jobs are on one. Throws QueueError.
Json machineJson(Queue& queue);

} // namespace trovik
