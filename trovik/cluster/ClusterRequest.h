#pragma once

#include "host/application/Job.h"
#include "trovik/cluster/ClusterClient.h"
#include "trovik/records/Records.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

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

} // namespace trovik
