#pragma once

#include "trovik/cluster/ClusterEngine.h"
#include "trovik/queue/Queue.h"
#include "trovik/text/Json.h"
#include "trovik/verbs/Session.h"

#include <memory>
#include <optional>
#include <string>

namespace trovik {

// What the verbs do about jobs on a cluster.

/// Refuses what would make every work of a job on a cluster fail: a shared
/// folder that cannot be written, no Slurm, a parameter that cannot be.
void tryCluster(Session& session, const Job& job, const std::optional<std::string>& shared);

/// Waits until the cluster has the works of the job that are ready, or it is
/// clear that it takes none of them just now.
void submitToCluster(Session& session, Queue& queue, JobId job, bool json);

/// Which array jobs have a job's works, a line each, and what has none yet.
std::string arraysText(Console& console, Queue& queue, const JobRecord& job);
/// Their numbers; null for one that the cluster does not have yet.
Json arraysJson(Queue& queue, JobId job);

/// Follows a job to its end and sees to it meanwhile. Returns the exit code.
int followCluster(Session& session, Queue& queue, JobId job, bool json);

/// What an engine that works off the queue does besides for jobs on a cluster;
/// null where Slurm's programs are missing.
std::shared_ptr<ClusterEngine> engineBeside(Session& session, Queue& queue, bool json);

/// The queue for verbs that show jobs, with what has become of those on a
/// cluster; null where there is none yet. Takes no longer than a few seconds.
std::unique_ptr<Queue> collectedQueue(Session& session);

/// Ends the tasks of canceled jobs.
void cancelOnCluster(Session& session, Queue& queue, bool json);

} // namespace trovik
