#include "trovik/images/ImageHelper.h"
#include "trovik/reports/DryRun.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EngineRun.h"
#include "trovik/verbs/Submission.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

/// The job to be worked: the same one, where it was begun and not finished,
/// else a new one.
JobId enterJob(Session& session, Queue& queue, const NewJob& job) {
  const Options& options = session.options();
  if (!options.fresh && !options.missing) {
    const std::optional<JobId> unfinished = queue.unfinished(job.packed);
    const std::optional<JobRecord> record = unfinished ? queue.job(*unfinished) : std::nullopt;
    if (record && record->runOn == job.runOn) {
      queue.resume(*unfinished);
      queue.setPriority(*unfinished, job.priority);
      return *unfinished;
    }
  }
  return queue.submit(job);
}

} // namespace

int runJob(Session& session) {
  const Options& options = session.options();
  Submission submission(session);
  if (options.dryRun && !options.missing) {
    printDryRun(session.console(), submission.newJob(), options.json);
    return exitGood;
  }
  submission.tryFirstWork();
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  Queue queue(session.state());
  if (options.missing && !submission.leaveOutGood(queue, images, machine)) {
    return tellNothingMissing(session, submission.newJob());
  }
  if (options.dryRun) {
    printDryRun(session.console(), submission.newJob(), options.json);
    return exitGood;
  }
  if (submission.newJob().runOn == RunOn::Cluster) {
    return followCluster(session, queue, enterJob(session, queue, submission.newJob()));
  }
  const EnginePlan plan = enginePlan(session);
  const JobId job = enterJob(session, queue, submission.newJob());
  return workOff(session, queue, images, machine, job, plan);
}

int submitJob(Session& session) {
  const Options& options = session.options();
  Console& console = session.console();
  Submission submission(session);
  if (options.dryRun && !options.missing) {
    printDryRun(console, submission.newJob(), options.json);
    return exitGood;
  }
  submission.tryFirstWork();
  Queue queue(session.state());
  if (options.missing) {
    LocalMachine machine;
    ImageHelper images(imageHelper(session));
    if (!submission.leaveOutGood(queue, images, machine)) {
      return tellNothingMissing(session, submission.newJob());
    }
  }
  if (options.dryRun) {
    printDryRun(console, submission.newJob(), options.json);
    return exitGood;
  }
  const JobId job = queue.submit(submission.newJob());
  const JobFrames frames = queue.frames(job);
  if (submission.newJob().runOn == RunOn::Cluster) {
    submitToCluster(session, queue, job);
  }
  tellSubmitted(session, queue, job, frames);
  const std::optional<JobRecord> record = queue.job(job);
  return record && record->state == JobState::Stopped ? exitFailed : exitGood;
}

int runEngine(Session& session) {
  Queue queue(session.state());
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  return workQueue(session, queue, images, machine);
}

} // namespace trovik
