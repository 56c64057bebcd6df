#include "trovik/reports/AttemptTable.h"
#include "trovik/reports/JobStats.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

#include <string>
#include <vector>

namespace trovik {
namespace {

void printAttempts(Console& console, Queue& queue, const JobRecord& job) {
  constexpr std::size_t printedAtOnce = 65536;
  std::string text;
  const auto print = [&] {
    if (!text.empty()) {
      console.print(text);
      text.clear();
    }
  };
  queue.eachAttempt(job.id, [&](const AttemptRecord& attempt) {
    if (attempt.state != AttemptState::Running) {
      text += attemptTableRow(job, attempt);
    }
    if (text.size() >= printedAtOnce) {
      print();
    }
  });
  print();
}

} // namespace

int showStats(Session& session, const StatsOptions& options) {
  Console& console = session.console();
  if (options.csv && options.json) {
    throw UsageError{"--csv and --json exclude each other", "leave one of them out"};
  }
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  const bool several = !options.job;
  std::vector<JobRecord> jobs;
  if (!several) {
    jobs.push_back(findJob(queue.get(), *options.job));
  } else if (queue != nullptr) {
    jobs = queue->jobs();
  }
  if (options.csv) {
    console.print(attemptTableHead());
    for (const JobRecord& job : jobs) {
      printAttempts(console, *queue, job);
    }
    return exitGood;
  }
  JobStats stats;
  for (const JobRecord& job : jobs) {
    stats.add(job, [&](const auto& take) { queue->eachAttempt(job.id, take); });
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
