#pragma once

#include "host/application/Job.h"
#include "trovik/machine/Locations.h"
#include "trovik/records/Records.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

// What users want of a cluster: for an installation in its settings, for a job
// in its parameters.

/// What an installation says of its cluster: the section "Slurm" of the
/// settings, and what the user says instead.
///
///   [Slurm]
///   Default=Yes            jobs go there when neither job nor type says where
///   Folder=/shared/trovik  a folder that this machine and all nodes see
///   Program=/apps/trovik   trovik on the nodes; the same file as here by default
///   Patience=90            seconds without a sign of life after which a process
///                          counts as dead
struct ClusterSettings {
  bool isDefault = false;
  Path folder;
  Path program;
  std::chrono::seconds patience{90};
};

/// The folder is `shared`, which is what --shared says, else that of
/// $TROVIK_SHARED, of the settings, or "$XDG_DATA_HOME/trovik/cluster": homes
/// are shared nearly everywhere. Throws a UsageError for what cannot be.
ClusterSettings clusterSettings(const Locations& locations, const std::optional<std::string>& shared);

/// What a job asks a cluster for, from its parameters.
struct ClusterRequest {
  std::string partition, account, qos; ///< empty for the site's own choice
  std::int64_t memory = 0;             ///< mebibytes of a work; 0 for its share of a node
  int cpus = 1;
  double runTimeLimit = 0;          ///< seconds of a work; 0 for none
  std::string timeLimit;            ///< of a task, as the user wants it; empty: by the run-time limit
  int throttle = 0;                 ///< tasks at a time; 0 for no limit
  std::size_t worksPerTask = 0;     ///< 0: to be chosen
  std::vector<std::string> options; ///< further ones for sbatch
  bool stage = true;
};

/// Throws a UsageError that names the parameter for a value that cannot be.
ClusterRequest clusterRequest(const Job& job);

/// Where a job is to run by its own parameter, by its type's option, or by the
/// type itself; `usual` where neither job nor option says.
RunOn runOnOf(const Job& job, RunOn usual);

/// How many works each task gets. A task costs the cluster about a second and
/// a place in its lists, so works that are short go together until a task takes
/// about a minute; but never so many that the job could not use a few dozen
/// nodes at once, unless the site keeps no longer lists. What the user wants
/// counts more than all of that.
/// `seconds` is what a work of this job takes, where that is known.
std::size_t worksPerTask(const ClusterRequest& request, std::size_t works, std::optional<double> seconds,
                         std::size_t tasksAllowed);

/// Minutes that a task may take: ClusterTimeLimit, rounded up, where it is not
/// empty. Else enough that each of its works reaches its own limit
/// (`workSeconds`, RunTimeLimit) first, with its files checked. 0 where neither
/// says anything: then it is for the partition to say.
int minutesOf(const std::string& timeLimit, double workSeconds, std::size_t worksPerTask);

} // namespace trovik
