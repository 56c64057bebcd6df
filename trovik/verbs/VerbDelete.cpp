#include "host/foundation/Log.h"
#include "trovik/cluster/JobFolder.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Steer.h"
#include "trovik/verbs/Verbs.h"

#include <filesystem>
#include <system_error>

namespace trovik {
namespace {

/// Logs in the queue's own directory belong to the job; a folder that the user
/// named may hold anything.
bool hasOwnLogs(const Queue& queue, const JobRecord& job) {
  return job.runOn == RunOn::Cluster ? job.logs == JobFolder(Path(job.folder)).logs().Text()
                                     : queue.ownsLogs(job);
}

/// True when they are gone.
bool removeLogs(const Queue& queue, const JobRecord& job) {
  if (!hasOwnLogs(queue, job)) {
    return false;
  }
  std::error_code error;
  std::filesystem::remove_all(job.logs, error);
  if (error) {
    LogWarning("cannot remove the logs " + inQuotes(job.logs) + ": " + error.message());
  }
  return !error;
}

/// Whether what lies there is what was made for this very job.
bool isFolderOf(const Queue& queue, const JobRecord& job) {
  if (!job.own) {
    return false;
  }
  try {
    const FolderJob there = JobFolder(Path(job.folder)).read();
    return there.queue == queue.queueId() && there.job == job.id;
  } catch (Exception* exception) {
    LogDebug(takeText(exception));
    return false;
  }
}

/// What the nodes were given.
void removeFolder(const JobRecord& job) {
  std::error_code error;
  std::filesystem::remove_all(job.folder, error);
  if (error) {
    LogWarning("cannot remove the folder " + inQuotes(job.folder) + ": " + error.message());
  }
}

/// A task that starts later finds that nothing is wanted of it.
void endOnCluster(Session& session, Queue& queue, const JobRecord& job, bool json) {
  const std::vector<ArrayRecord> arrays = queue.openArrays(job.id);
  for (const ArrayRecord& array : arrays) {
    queue.cancelArray(array.id);
  }
  if (!arrays.empty()) {
    cancelOnCluster(session, queue, json);
  }
}

void refuseWhileRunning(Queue& queue, const JobRecord& job) {
  const std::string id = std::to_string(job.id);
  if (queue.frames(job.id).runningWorks > 0) {
    throw UsageError{"works of job " + id + " are running",
                     job.runOn == RunOn::Cluster || queue.hasOtherEngine(0)
                         ? "\"trovik cancel " + id + "\" ends them; then delete it"
                         : "their engine died; \"trovik engine --job " + id +
                               "\" takes them up, or, after \"trovik cancel " + id + "\", ends them"};
  }
}

JobDone deleted(const JobRecord& job, bool logs) {
  std::string text = "job " + std::to_string(job.id) + "  deleted";
  if (!logs && !job.logs.empty()) {
    text += "; its logs stay in " + printable(job.logs, OddBytes::Keep);
  }
  return {text + '\n', {{"job", job.id}, {"logs", logs ? Json(nullptr) : Json(job.logs)}}};
}

} // namespace

JobDone deleteJob(Session& session, Queue& queue, const JobRecord& job, bool json) {
  refuseWhileRunning(queue, job);
  const bool onCluster = job.runOn == RunOn::Cluster;
  if (onCluster && job.own) {
    endOnCluster(session, queue, job, json);
  }
  // Asked before the record goes, which says whose it is.
  std::error_code ignored;
  const bool isThere = onCluster && std::filesystem::exists(job.folder, ignored);
  const bool removesFolder = isThere && isFolderOf(queue, job);
  queue.remove(job.id);
  const bool logs = (removesFolder || !isThere) && removeLogs(queue, job);
  if (removesFolder) {
    removeFolder(job);
  } else if (isThere) {
    LogWarning("the folder " + inQuotes(job.folder) + " was not made for this job here, and stays");
  }
  return deleted(job, logs);
}

JobDone deletionOf(Queue& queue, const JobRecord& job) {
  refuseWhileRunning(queue, job);
  std::error_code ignored;
  const bool isThere = job.runOn == RunOn::Cluster && std::filesystem::exists(job.folder, ignored);
  return deleted(job, (!isThere || isFolderOf(queue, job)) && hasOwnLogs(queue, job));
}

int deleteJobs(Session& session, const EachJobOptions& options) {
  return forEachJob(session, options, "delete", [&](Queue& queue, const JobRecord& job) {
    return deleteJob(session, queue, job, options.json);
  });
}

} // namespace trovik
