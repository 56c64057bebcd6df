#include "trovik/records/Moments.h"
#include "trovik/reports/JobTable.h"
#include "trovik/reports/UsageText.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

#include <algorithm>

namespace trovik {
namespace {

constexpr std::size_t usualLimit = 20;

/// The jobs to list, the newest first. Without a wish these are the last ones
/// and every older one that is still open: what waits is never out of sight.
std::vector<JobRecord> chosen(std::vector<JobRecord> jobs, const JobsOptions& options) {
  const std::size_t limit =
      options.limit ? positiveNumber("--limit", *options.limit, 1'000'000'000) : usualLimit;
  std::size_t place = 0;
  std::erase_if(jobs, [&](const JobRecord& job) {
    const bool tooOld = ++place > limit && !options.all;
    return tooOld && (options.limit || !isOpen(job.state));
  });
  return jobs;
}

} // namespace

int listJobs(Session& session, const JobsOptions& options) {
  Console& console = session.console();
  if (options.all && options.limit) {
    throw UsageError{"--all and --limit exclude each other", "leave one of them out"};
  }
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  std::vector<JobRecord> all;
  if (queue != nullptr) {
    all = queue->jobs();
  }
  const std::size_t known = all.size();
  std::vector<JobView> views;
  for (JobRecord& job : chosen(std::move(all), options)) {
    views.push_back(viewOf(*queue, std::move(job)));
  }
  std::reverse(views.begin(), views.end());

  const Moment now = momentNow();
  if (options.json) {
    Json document = jsonOfKind("jobs");
    document["jobs"] = Json::array();
    for (const JobView& view : views) {
      document["jobs"].push_back(jobJson(view, now));
      if (options.wide) {
        document["jobs"].back()["usage"] = usageJson(queue->usage(view.job.id));
      }
    }
    document["more"] = known - views.size();
    console.print(jsonDocument(document));
    return exitGood;
  }
  if (views.empty()) {
    console.print("no jobs\n");
    return exitGood;
  }
  std::optional<JobUsages> usages;
  if (options.wide) {
    usages.emplace();
    for (const JobView& view : views) {
      usages->push_back(queue->usage(view.job.id));
    }
  }
  console.print(jobTable(console, views, now, usages));
  if (known > views.size() && console.traits().terminal) {
    console.print(
        console.coloured(Colour::Faint, counted(known - views.size(), "older job") + " with --all") + '\n');
  }
  return exitGood;
}

} // namespace trovik
