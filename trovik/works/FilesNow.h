#pragma once

#include "trovik/images/ImageInspector.h"
#include "trovik/queue/JobFiles.h"
#include "trovik/works/FileInspection.h"

#include <vector>

namespace trovik {

/// The files of a job as they are now, and the frames that are not good by them.
struct FilesNow {
  /// As filesOf has them. `problem` also tells what is wrong with a file that
  /// counts as it is now: missing, empty, damaged.
  std::vector<JobFile> files;
  RunSet missing; ///< not good, or with a file that is not good now; none for a job without frames
};

/// What `images`, `sheet`, `show` and `retry --missing` tell of a job's files. A
/// call a file, and the decoding. A file of a cluster's job in a folder that this
/// machine does not see is left as it was recorded. Throws QueueError.
FilesNow filesNow(Queue& queue, const JobView& view, Decode decode, ImageInspector& inspector);

} // namespace trovik
