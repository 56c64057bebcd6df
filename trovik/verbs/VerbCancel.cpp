#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

JobDone cancel(Queue& queue, const JobRecord& job) {
  const std::string title = "job " + std::to_string(job.id);
  if (!queue.cancel(job.id)) {
    throw UsageError{title + " is " + nameOf(job.state) + " already; there is nothing to cancel",
                     "\"trovik delete " + std::to_string(job.id) + "\" removes it"};
  }
  const std::size_t running = queue.frames(job.id).runningWorks;
  std::string text = title + "  canceled";
  if (job.runOn == RunOn::Cluster) {
    if (const std::size_t arrays = queue.openArrays(job.id).size(); arrays > 0) {
      text += "; its tasks are ended";
    }
  } else if (running > 0) {
    text += queue.hasOtherEngine(0)
                ? "; " + counted(running, "program") + (running == 1 ? " is" : " are") + " asked to end"
                : "; no engine is at work, so the next one ends what is left of it";
  }
  return {text + '\n', {{"job", job.id}, {"running", running}}};
}

} // namespace

int cancelJobs(Session& session, const EachJobOptions& options) {
  return forEachJob(session, options, "cancel", cancel, [&](Queue& queue) {
    cancelOnCluster(session, queue, options.json);
    return std::string();
  });
}

} // namespace trovik
