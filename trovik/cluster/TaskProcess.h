#pragma once

#include "trovik/cluster/JobFolder.h"
#include "trovik/cluster/StagedOutput.h"
#include "trovik/machine/Machine.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

// The processes of tasks: who one is, what its programs are known by, and what
// it leaves behind when it dies.

/// A process of a task: what its claims say of it.
struct TaskSelf {
  std::string host;
  std::string boot; ///< the machine's start and the namespace of its process numbers
  int process = 0;
  std::string node;
  std::string task;
  int restarts = 0;
  std::optional<int> cpus; ///< that the cluster gave to the task

  /// Whether the claim is of a process beside this one, whose number means
  /// something here.
  bool sharesMachine(const WorkClaim& claim) const { return claim.host == host && claim.boot == boot; }
  /// Whether the claim's process is known to be gone. For a process without
  /// another claim on the work, so that its own number is somebody's who is
  /// dead.
  bool outlived(const WorkClaim& claim) const;
};

/// This process, as its environment (SLURM_…) and its machine tell.
TaskSelf taskSelf();

/// What the programs of a claim carry in TROVIK_ATTEMPT. Made by whoever needs
/// it and never taken from a claim: what carries it is going to be killed.
std::string taskMark(const std::string& queue, JobId job, const ArrayFolder& array, std::size_t position,
                     int number);

/// For how long a process gave no sign of life. Time in which this one itself
/// stood still is no evidence: a cluster suspends whole jobs.
class Silence {
public:
  /// Between two calls of `since` no more than that counts.
  explicit Silence(Duration mostCounted) : most_(mostCounted) {}

  /// How long its beat has not changed.
  Duration since(const std::optional<WorkBeat>& beat, Clock::time_point now);

private:
  Duration most_;
  std::optional<std::pair<int, std::int64_t>> last_; // claim and count; 0 for no beat
  Clock::time_point asked_{};
  Duration silence_{};
};

/// What is known of dead processes that were at one work.
struct LeftBehind {
  std::vector<std::string> marks; ///< of their claims
  std::vector<std::string> logs;  ///< their output; files that are not there are passed over
  std::vector<FileRecord> named;  ///< by their last beat
  std::string filesBefore;        ///< what was there before the first of them, as it has noted
  bool onThisMachine = false;     ///< that was noted
};

/// What they left, ready to be checked.
struct LeftFiles {
  StagedOutput staged;           ///< all that was in their stages; unused without stages
  std::vector<FileRecord> files; ///< that were named, by the names that they have now
  std::string filesBefore;       ///< what tells their files from older ones
  std::int64_t logBytes = 0;     ///< of their logs, that the job has read
};

/// Recovers what such processes have left, to be checked by `job`, which is
/// the whole work's own object: moves the files of their stages into one of
/// the mark's own (where `stage`), and has the job read their logs, since the
/// last beat may be a few seconds old. Raises Exception* where the stage
/// cannot be made or the expected files cannot be known.
LeftFiles takeLeft(Job& job, bool stage, const std::string& mark, const LeftBehind& left);

} // namespace trovik
