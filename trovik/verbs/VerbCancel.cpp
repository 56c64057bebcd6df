#include "trovik/reports/ForerunnerText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Steer.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

/// One of them, in a line for people.
std::string cancelOne(Queue& queue, const JobRecord& job, std::size_t& running) {
  const std::string title = "job " + std::to_string(job.id);
  if (!queue.cancel(job.id)) {
    throw UsageError{title + " is " + nameOf(job.state) + " already; there is nothing to cancel",
                     "\"trovik delete " + std::to_string(job.id) + "\" removes it"};
  }
  running = queue.frames(job.id).runningWorks;
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
  return text + '\n';
}

} // namespace

JobDone cancelJob(Queue& queue, const JobRecord& job, bool withFollowers) {
  const std::vector<JobId> followers = queue.followers(job.id, true);
  std::size_t running = 0;
  JobDone done;
  done.text = cancelOne(queue, job, running);
  std::vector<JobId> waiting;
  std::vector<JobId> canceled;
  for (const JobId follower : followers) {
    const std::optional<JobRecord> record = queue.job(follower);
    if (!record || (!isOpen(record->state) && record->state != JobState::Stopped)) {
      continue;
    }
    if (!withFollowers || !isOpen(record->state)) {
      waiting.push_back(follower);
      continue;
    }
    std::size_t programs = 0;
    done.text += cancelOne(queue, *record, programs);
    canceled.push_back(follower);
  }
  if (!waiting.empty()) {
    done.text += jobsText(waiting) + (waiting.size() == 1 ? " waits" : " wait") + " for it; \"trovik cancel" +
                 numbersText(waiting) + "\" ends " + (waiting.size() == 1 ? "it" : "them") +
                 ", \"trovik release" + numbersText(queue.followers(job.id, false)) + "\" goes on without\n";
  }
  done.json = {{"job", job.id}, {"running", running}, {"followers", canceled}, {"waiting", waiting}};
  return done;
}

int cancelJobs(Session& session, const CancelOptions& options) {
  const auto cancelEach = [&](Queue& queue, const JobRecord& job) {
    return cancelJob(queue, job, options.withFollowers);
  };
  return forEachJob(session, options, "cancel", cancelEach, [&](Queue& queue) {
    cancelOnCluster(session, queue, options.json);
    return std::string();
  });
}

} // namespace trovik
