#include "trovik/progress/JobFollower.h"
#include "trovik/progress/Progress.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Forerunners.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

int watchJob(Session& session, const JobOptions& options) {
  const bool json = options.json;
  Console& console = session.console();
  const std::unique_ptr<Queue> existing = collectedQueue(session);
  const JobRecord job = findJob(existing.get(), *options.job);
  Queue& queue = *existing;
  if (job.runOn == RunOn::Cluster) {
    return followCluster(session, queue, job.id, json);
  }
  const std::string title = "job " + std::to_string(job.id);

  LocalMachine machine;
  SignalInterrupts interrupts;
  const std::unique_ptr<RunEvents> progress = progressFor(console, json);
  JobFollower follower(queue, job.id, *progress);
  follower.beginRun();
  BlockTeller block(console, queue, job.id, json);
  block.poll();
  const auto engineGone = [&] {
    tellWatcher(console, json, job.id, "watch.waiting", "waiting",
                "no engine is at work; start one with \"trovik engine\"");
  };
  const bool ended = followToEnd(follower, queue, machine, interrupts, engineGone, [&] { block.poll(); });
  if (!ended) {
    console.setLive({});
    tellWatcher(console, json, job.id, "watch.left", "left", title + " stays in the queue");
    return exitFailed;
  }
  if (!queue.job(job.id)) {
    console.setLive({});
    tellWatcher(console, json, job.id, "watch.deleted", "gone", title + " was deleted");
    return exitFailed;
  }
  const RunSummary summary = queue.summary(job.id);
  progress->runEnded(summary);
  return summary.allGood() ? exitGood : exitFailed;
}

} // namespace trovik
