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
JobId enterJob(Queue& queue, const NewJob& job, const RunOptions& options) {
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

int runJob(Session& session, const RunOptions& options) {
  Submission submission(session, options);
  if (options.slots && submission.newJob().runOn == RunOn::Cluster) {
    throw UsageError{"--slots is for programs on this machine",
                     "--set ClusterThrottle=N limits the tasks that run at a time on the cluster"};
  }
  if (options.dryRun && !options.missing) {
    printDryRun(session.console(), submission.newJob(), options.json);
    return exitGood;
  }
  submission.tryFirstWork();
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  Queue queue(session.state());
  if (options.missing && !submission.leaveOutGood(queue, images, machine)) {
    return tellNothingMissing(session.console(), submission.newJob(), options.json);
  }
  if (options.dryRun) {
    printDryRun(session.console(), submission.newJob(), options.json);
    return exitGood;
  }
  if (submission.newJob().runOn == RunOn::Cluster) {
    return followCluster(session, queue, enterJob(queue, submission.newJob(), options), options.json);
  }
  const EnginePlan plan = enginePlan(options.slots);
  const JobId job = enterJob(queue, submission.newJob(), options);
  return workOff(session.console(), queue, images, machine, job, plan, options.json);
}

int submitJob(Session& session, const MakingOptions& options) {
  Console& console = session.console();
  Submission submission(session, options);
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
      return tellNothingMissing(session.console(), submission.newJob(), options.json);
    }
  }
  if (options.dryRun) {
    printDryRun(console, submission.newJob(), options.json);
    return exitGood;
  }
  const JobId job = queue.submit(submission.newJob());
  const JobFrames frames = queue.frames(job);
  if (submission.newJob().runOn == RunOn::Cluster) {
    submitToCluster(session, queue, job, options.json);
  }
  tellSubmitted(console, queue, job, frames, options.json);
  const std::optional<JobRecord> record = queue.job(job);
  return record && record->state == JobState::Stopped ? exitFailed : exitGood;
}

int runEngine(Session& session, const EngineOptions& options) {
  Queue queue(session.state());
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  return workQueue(session, queue, images, machine, options);
}

} // namespace trovik
