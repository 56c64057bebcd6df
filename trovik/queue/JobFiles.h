#pragma once

#include "trovik/queue/JobView.h"

#include <vector>

namespace trovik {

/// The last word on each file of the job, in the order of frames; what belongs
/// to no frame comes last.
std::vector<FileRecord> filesOf(Queue& queue, JobId job);

inline bool isGood(const FileRecord& file) {
  return file.checked && file.problem.empty();
}

/// The frames that are not good, and those whose files are gone or empty by
/// now: a look that costs one call a file. What is in a file was checked when
/// it was made.
RunSet missingFrames(const JobView& view, const std::vector<FileRecord>& files);

/// Of good frames, those that lost a file since: it is gone, or was changed by
/// somebody else, so that nobody knows what is in it. A call a file. Where a
/// cluster rendered them, a folder that this machine does not see says nothing.
RunSet framesThatLostFiles(const RunSet& good, const std::vector<FileRecord>& files, RunOn runOn);

} // namespace trovik
