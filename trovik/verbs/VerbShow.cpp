#include "trovik/records/Moments.h"
#include "trovik/reports/JobReport.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/Queue.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

int showJob(Session& session) {
  Console& console = session.console();
  Queue queue(session);
  JobRecord job = queue.job(*session.options().job);
  const JobReport report = reportOn(*queue.store(), std::move(job));
  if (session.options().json) {
    console.print(jsonDocument(reportJson(report, momentNow())));
  } else {
    console.print(reportText(console, report, momentNow()));
  }
  return exitGood;
}

} // namespace trovik
