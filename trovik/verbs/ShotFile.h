#pragma once

#include "host/foundation/Path.h"
#include "trovik/verbs/Verbs.h"

#include <string>
#include <vector>

namespace trovik {

/// One job of a shot, as its section of the file says.
struct ShotJob {
  std::string name; ///< of the section
  MakingOptions options;
  /// What it waits for, as --after and --after-frames take it, but with names of
  /// other sections where the options have numbers.
  std::vector<std::string> after;
  std::vector<std::string> afterFrames;
};

/// Whether a word in the place of a type names such a file, which ends with
/// ".ini". Throws a UsageError for one that is not there.
bool isShotFile(const std::string& word);

/// Reads a shot: each section a job. Those that others wait for come first, else
/// they keep their order. Paths count from the folder of the file. `common` is
/// what the command line says for all of them.
///
/// Throws a UsageError that names the place for whatever is wrong in the file:
/// a key that means nothing is a parameter, and is judged with the job.
std::vector<ShotJob> readShot(const std::string& file, const MakingOptions& common);

/// Puts all jobs of a shot into the queue, or none; goes on with those that the
/// same file began. Returns the exit code.
int submitShot(Session& session, const MakingOptions& options);

} // namespace trovik
