#pragma once

#include "trovik/queue/Queue.h"

#include <memory>
#include <string>

namespace trovik {

/// The queue in the directory; null where there is none yet: looking at it
/// makes nothing.
std::unique_ptr<Queue> existingQueue(const Path& directory);

/// A job as users name it: its number, or 0 for "last". Throws a UsageError
/// for any other text.
JobId jobNumber(const std::string& text);

/// The job of that name, in a queue that may not be there yet. Throws a
/// UsageError for one that is not there.
JobRecord findJob(Queue* queue, const std::string& text);

} // namespace trovik
