#include "trovik/images/ImageHelper.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/JobReport.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

int showJob(Session& session, const JobOptions& options) {
  Console& console = session.console();
  const std::unique_ptr<Queue> queue = collectedQueue(session);
  JobRecord job = findJob(queue.get(), *options.job);
  ImageHelper images(session.locations().imageHelper());
  const JobReport report = reportOn(*queue, std::move(job), images);
  if (options.json) {
    console.print(jsonDocument(reportJson(report, momentNow())));
  } else {
    console.print(reportText(console, report, momentNow()));
  }
  return exitGood;
}

} // namespace trovik
