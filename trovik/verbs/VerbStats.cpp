#include "trovik/reports/JobStats.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

int showStats(Session& session, const JobOptions& options) {
  Console& console = session.console();
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  const bool several = !options.job;
  std::vector<JobRecord> jobs;
  if (!several) {
    jobs.push_back(findJob(queue.get(), *options.job));
  } else if (queue != nullptr) {
    jobs = queue->jobs();
  }
  JobStats stats;
  for (const JobRecord& job : jobs) {
    stats.add(job, queue->attempts(job.id));
  }
  const JobStats::SlotsOf slots = [&queue](EngineId engine) { return queue->slots(engine); };
  if (options.json) {
    Json document = jsonOfKind("stats");
    document["job"] = several ? Json(nullptr) : Json(jobs.front().id);
    stats.fill(document, slots);
    console.print(jsonDocument(document));
    return exitGood;
  }
  if (stats.empty()) {
    console.print("nothing has been rendered yet\n");
    return exitGood;
  }
  console.print(stats.text(slots, several));
  return exitGood;
}

} // namespace trovik
