#pragma once

#include "trovik/images/ImageInspector.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/works/FileInspection.h"

#include <map>
#include <string>
#include <vector>

namespace trovik {

/// The frames of a job that have good files, whoever made them.
struct FoundFrames {
  RunSet good;
  bool whole = false;            ///< a job whose files do not stand for frames: all of it is done
  std::vector<FileRecord> files; ///< of the good frames
};

/// Files by the frame that they belong to: what earlier attempts named. One that
/// two frames had is neither's.
using KnownFiles = std::multimap<int, std::string>;
KnownFiles knownFiles(Queue& queue, JobId job);

/// Looks at the files that the frames of a job must leave: those that the type
/// expects, else the known ones. A frame is good when it has a file and all of
/// its files exist, are not empty and decode whole, or did so when the queue last
/// heard of them. A file that a failed attempt left, and nobody has changed since,
/// is not trusted.
///
/// Throws a UsageError for a type of which no file is checked, and QueueError.
/// Raises Exception* for expected files that cannot be expanded.
FoundFrames findGoodFrames(const WorkMaker& works, const std::vector<FrameRun>& runs, bool hasFrames,
                           const KnownFiles& known, Decode decode, Queue& queue, ImageInspector& inspector,
                           Machine& machine);

} // namespace trovik
