#include "trovik/images/ImageHelper.h"
#include "trovik/reports/DryRun.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Limits.h"
#include "trovik/verbs/ShotFile.h"
#include "trovik/verbs/Submission.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {

int runJob(Session& session, const RunOptions& options) {
  if (isShotFile(*options.type)) {
    throw UsageError{
        inQuotes(*options.type) + " is a shot, which has several jobs",
        "put them into the queue with \"trovik submit\", and start \"trovik engine --until-empty\""};
  }
  Submission submission(session, options);
  const NewJob& job = submission.newJob();
  if (options.slots && job.runOn == RunOn::Cluster) {
    throw UsageError{"--slots is for programs on this machine",
                     "--set ClusterThrottle=N limits the tasks that run at a time on the cluster"};
  }
  if (options.dryRun && !options.missing) {
    printDryRun(session.console(), job, options.json);
    return exitGood;
  }
  submission.tryFirstWork();
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  Queue queue(session.state());
  tellLimits(queue);
  submission.checkFiles(queue, images, machine);
  if (options.dryRun && !job.works.empty()) {
    printDryRun(session.console(), job, options.json);
    return exitGood;
  }
  EnginePlan plan = enginePlan(options.slots);
  plan.searches = submission.searches();
  const EnteredJob entered = options.dryRun ? EnteredJob() : submission.enter(queue);
  if (entered.id == 0) {
    return tellNothingMissing(session.console(), job, options.json);
  }
  if (entered.before) {
    plan.follows = true;
    tellGoesOn(session.console(), job, entered, options.json);
  }
  if (job.runOn == RunOn::Cluster) {
    return followCluster(session, queue, entered.id, options.json);
  }
  return workOff(session.console(), queue, images, machine, entered.id, plan, options.json);
}

int submitJob(Session& session, const MakingOptions& options) {
  if (isShotFile(*options.type)) {
    return submitShot(session, options);
  }
  Console& console = session.console();
  Submission submission(session, options);
  const NewJob& job = submission.newJob();
  if (options.dryRun && !options.missing) {
    printDryRun(console, job, options.json);
    return exitGood;
  }
  submission.tryFirstWork();
  Queue queue(session.state());
  tellLimits(queue);
  LocalMachine machine;
  ImageHelper images(options.missing ? imageHelper(session) : session.locations().imageHelper());
  submission.checkFiles(queue, images, machine);
  if (options.dryRun && !job.works.empty()) {
    printDryRun(console, job, options.json);
    return exitGood;
  }
  const EnteredJob entered = options.dryRun ? EnteredJob() : submission.enter(queue);
  if (entered.id == 0) {
    return tellNothingMissing(console, job, options.json);
  }
  if (job.runOn == RunOn::Cluster) {
    submitToCluster(session, queue, entered.id, options.json);
  }
  tellSubmitted(console, queue, job, entered, options.json);
  const std::optional<JobRecord> record = queue.job(entered.id);
  return record && record->state == JobState::Stopped ? exitFailed : exitGood;
}

int runEngine(Session& session, const EngineOptions& options) {
  Queue queue(session.state());
  tellLimits(queue);
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  return workQueue(session, queue, images, machine, options);
}

} // namespace trovik
