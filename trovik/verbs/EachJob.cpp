#include "trovik/verbs/EachJob.h"

#include "trovik/text/Console.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"

#include <set>

namespace trovik {

int forEachJob(Session& session, const EachJobOptions& options, const char* kind,
               const std::function<JobDone(Queue& queue, const JobRecord& job)>& action,
               const std::function<std::string(Queue& queue)>& finally) {
  Console& console = session.console();
  for (const std::string& text : options.jobs) {
    jobNumber(text);
  }
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  if (queue != nullptr) {
    settleLost(session, *queue);
  }
  // "last" means the job that was the newest when all began.
  std::string newest = "last";
  if (queue != nullptr) {
    if (const std::vector<JobRecord> jobs = queue->jobs(); !jobs.empty()) {
      newest = std::to_string(jobs.front().id);
    }
  }
  Json document = jsonOfKind(kind);
  document["jobs"] = Json::array();
  document["problems"] = Json::array();
  std::string text;
  std::set<JobId> seen;
  for (const std::string& name : options.jobs) {
    const auto refuse = [&](const UsageError& error) {
      printRefusal(console, error);
      document["problems"].push_back({{"job", name},
                                      {"message", error.message},
                                      {"hint", error.hint.empty() ? Json(nullptr) : Json(error.hint)}});
    };
    try {
      const std::string known = name == "last" ? newest : name;
      if (!seen.insert(jobNumber(known)).second) {
        continue;
      }
      const JobRecord job = findJob(queue.get(), known);
      JobDone done = action(*queue, job);
      document["jobs"].push_back(std::move(done.json));
      text += done.text;
    } catch (const UsageError& error) {
      refuse(error);
    } catch (const QueueError& error) {
      refuse({error.message, error.hint});
    }
  }
  const bool some = !document["jobs"].empty();
  if (some && finally) {
    text += finally(*queue);
  }
  if (options.json) {
    console.print(jsonDocument(document));
  } else if (!text.empty()) {
    console.print(text);
  }
  return document["problems"].empty() ? exitGood : some ? exitFailed : exitUsage;
}

} // namespace trovik
