#include "host/foundation/Log.h"
#include "trovik/cluster/JobFolder.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

#include <filesystem>
#include <system_error>

namespace trovik {
namespace {

/// Logs in the queue's own directory belong to the job; a folder that the user
/// named may hold anything. True when they are gone.
bool removeLogs(const Queue& queue, const JobRecord& job) {
  const Path own =
      job.runOn == RunOn::Cluster ? JobFolder(Path(job.folder)).logs() : queue.logDirectory(job.id);
  if (!job.logs.empty() && job.logs != own.Text()) {
    return false;
  }
  std::error_code error;
  std::filesystem::remove_all(own.c_str(), error);
  if (error) {
    LogWarning("cannot remove the logs " + inQuotes(own.Text()) + ": " + error.message());
  }
  return !error;
}

/// What the nodes were told.
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

JobDone remove(Session& session, Queue& queue, const JobRecord& job, bool json) {
  const std::string id = std::to_string(job.id);
  if (queue.frames(job.id).runningWorks > 0) {
    throw UsageError{"works of job " + id + " are running",
                     job.runOn == RunOn::Cluster || queue.hasOtherEngine(0)
                         ? "\"trovik cancel " + id + "\" ends them; then delete it"
                         : "their engine died; \"trovik engine --job " + id +
                               "\" takes them up, or, after \"trovik cancel " + id + "\", ends them"};
  }
  if (job.runOn == RunOn::Cluster) {
    endOnCluster(session, queue, job, json);
  }
  queue.remove(job.id);
  const bool logs = removeLogs(queue, job);
  if (job.runOn == RunOn::Cluster) {
    removeFolder(job);
  }
  std::string text = "job " + id + "  deleted";
  if (!logs && !job.logs.empty()) {
    text += "; its logs stay in " + printable(job.logs, OddBytes::Keep);
  }
  return {text + '\n', {{"job", job.id}, {"logs", logs ? Json(nullptr) : Json(job.logs)}}};
}

} // namespace

int deleteJobs(Session& session, const EachJobOptions& options) {
  return forEachJob(session, options, "delete", [&](Queue& queue, const JobRecord& job) {
    return remove(session, queue, job, options.json);
  });
}

} // namespace trovik
