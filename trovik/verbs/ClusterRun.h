#pragma once

#include "trovik/cluster/ClusterEngine.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/queue/Queue.h"
#include "trovik/text/Json.h"
#include "trovik/verbs/Session.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

// What the verbs do about jobs on a cluster.

/// A cluster engine with all that it needs, for one verb.
class ClusterDesk {
public:
  /// Loads the modules, where they can be: a cluster's jobs can be followed
  /// where their type is not known, but not submitted. Throws a UsageError for
  /// settings that cannot be, and, for Duty::All, where the cluster's own
  /// programs are missing.
  ClusterDesk(Session& session, Queue& queue, ClusterEngine::Duty duty, ClusterEngine::Notices notices = {});
  ~ClusterDesk();

  ClusterEngine& engine() { return *engine_; }
  Machine& machine() { return machine_; }
  /// Turns the engine until `done` or the time is over. True for the first.
  bool turnUntil(const std::function<bool()>& done, Duration limit);
  /// Waits until the engine wants its next turn; also for the interrupts.
  void wait(InterruptSource* interrupts);

private:
  LocalMachine machine_;
  std::unique_ptr<ClusterClient> client_;
  std::unique_ptr<ImageInspector> inspector_;
  std::unique_ptr<ClusterEngine> engine_;
};

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
std::unique_ptr<ClusterDesk> deskForEngine(Session& session, Queue& queue, bool json);

/// The queue for verbs that look at jobs, with what has become of those on a
/// cluster; null where there is none yet. Takes no longer than a few seconds.
std::unique_ptr<Queue> collectedQueue(Session& session);

/// Ends the tasks of canceled jobs.
void cancelOnCluster(Session& session, Queue& queue, bool json);

} // namespace trovik
