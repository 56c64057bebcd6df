#pragma once

#include "trovik/queue/JobView.h"

#include <vector>

namespace trovik {

/// A file of a job, as its records have it.
struct JobFile : FileRecord {
  /// Whether frames are good by it: it is one of those with which the attempt
  /// ended that made them good, or that were found. `problem` then tells what
  /// has become of it since. Of every other file it tells why it is none.
  bool counts = false;
  RunSet frames; ///< of one that counts: those that are not good without it
};

inline bool isGood(const JobFile& file) {
  return file.counts && file.problem.empty();
}

/// The files of the job in the order of their frames; what belongs to no frame
/// comes last. Each file that counts, and the last word on every other one. What
/// happened to them outside the queue is not checked.
std::vector<JobFile> filesOf(Queue& queue, const JobView& view);

/// Of good frames, those that lost a file since: it is gone, or was changed by
/// somebody else, so that nobody knows what is in it. A call a file. Where a
/// cluster rendered them, a folder that this machine does not see says nothing.
RunSet framesThatLostFiles(const std::vector<JobFile>& files, RunOn runOn);

/// Whether a file is what it was when it was checked. A call.
bool isAsRecorded(const FileRecord& file);

/// The same, where the file's time can tell. One in whole seconds comes from a
/// file system or a tool that keeps no finer ones, and would not show a file of
/// the same size that was written within the same second, or two.
bool isSurelyAsRecorded(const FileRecord& file);

/// Whether the folder of a file is seen here; of a local job it always counts as.
bool isSeen(const FileRecord& file, RunOn runOn);

} // namespace trovik
