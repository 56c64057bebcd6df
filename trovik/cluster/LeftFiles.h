#pragma once

#include "trovik/cluster/StagedOutput.h"

#include <string>
#include <vector>

namespace trovik {

/// What is known of dead processes that were at one work.
struct LeftBehind {
  std::vector<std::string> marks; ///< of their claims
  std::vector<std::string> logs;  ///< their output; files that are not there are passed over
  std::vector<FileRecord> named;  ///< by their last beat
  Moment since{};                 ///< when the first of them began
};

/// What they left, ready for a look.
struct LeftFiles {
  StagedOutput staged;           ///< all that was in their stages; unused without stages
  std::vector<FileRecord> files; ///< that were named, by the names that they have now
  Moment since{};                ///< files that are older are not theirs
};

/// Takes up what such processes have left, for a look at it by `job`, which is
/// the whole work's own object: moves the files of their stages into one of
/// the mark's own (where `stage`), and has the job read their logs, since the
/// last beat may be a few seconds old. Raises Exception* where the stage
/// cannot be made or the expected files cannot be told.
LeftFiles takeLeft(Job& job, bool stage, const std::string& mark, const LeftBehind& left);

} // namespace trovik
