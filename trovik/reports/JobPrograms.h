#pragma once

#include "trovik/records/Records.h"
#include "trovik/records/RunSet.h"
#include "trovik/text/Json.h"

#include <string>
#include <vector>

namespace trovik {

/// A program and the frames of a job that it rendered.
struct ProgramShare {
  std::string program; ///< its path, whose folder mostly tells the version
  RunSet frames;       ///< empty for a job without frames
};

/// The programs that rendered what is good of a job, in the order of their
/// first attempts; a frame counts for the one that rendered it last. More than
/// one where another version was installed meanwhile, or machines differ.
std::vector<ProgramShare> programsOf(const JobRecord& job, const std::vector<AttemptRecord>& attempts);

/// "rendered by 2 programs: "/opt/paint-1/paint" (1-3), "/opt/paint-2/paint" (4)".
std::string programsText(const std::vector<ProgramShare>& programs);

/// An array of `program` and `frames` (null for a job without).
Json programsJson(const JobRecord& job, const std::vector<ProgramShare>& programs);

} // namespace trovik
