#include "host/foundation/Log.h"
#include "trovik/EachJob.h"
#include "trovik/Session.h"
#include "trovik/Text.h"
#include "trovik/UsageError.h"
#include "trovik/Verbs.h"

#include <filesystem>
#include <system_error>

namespace trovik {
namespace {

/// Logs in the queue's own directory belong to the job; a folder that the user
/// named may hold anything. True when they are gone.
bool removeLogs(const Store& store, const JobRecord& job) {
  const Path own = store.logDirectory(job.id);
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

JobDone remove(Store& store, const JobRecord& job) {
  const std::string id = std::to_string(job.id);
  if (store.frames(job.id).runningWorks > 0) {
    throw UsageError{"works of job " + id + " are running",
                     store.hasOtherEngine(0)
                         ? "\"trovik cancel " + id + "\" ends them; then delete it"
                         : "their engine died; \"trovik engine --job " + id +
                               "\" takes them up, or, after \"trovik cancel " + id + "\", ends them"};
  }
  store.remove(job.id);
  const bool logs = removeLogs(store, job);
  std::string text = "job " + id + "  deleted";
  if (!logs && !job.logs.empty()) {
    text += "; its logs stay in " + printable(job.logs, OddBytes::Keep);
  }
  return {text + '\n', {{"job", job.id}, {"logs", logs ? Json(nullptr) : Json(job.logs)}}};
}

} // namespace

int deleteJobs(Session& session) {
  return forEachJob(session, "delete", remove);
}

} // namespace trovik
