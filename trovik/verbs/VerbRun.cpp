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
JobId enterJob(Session& session, Store& store, const NewJob& job) {
  const Options& options = session.options();
  if (!options.fresh && !options.missing) {
    const std::optional<JobId> unfinished = store.unfinished(job.packed);
    const std::optional<JobRecord> record = unfinished ? store.job(*unfinished) : std::nullopt;
    if (record && record->runOn == job.runOn) {
      store.resume(*unfinished);
      store.setPriority(*unfinished, job.priority);
      return *unfinished;
    }
  }
  return store.submit(job);
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
  Store store(session.state());
  if (options.missing && !submission.leaveOutGood(store, images, machine)) {
    return tellNothingMissing(session, submission.newJob());
  }
  if (options.dryRun) {
    printDryRun(session.console(), submission.newJob(), options.json);
    return exitGood;
  }
  if (submission.newJob().runOn == RunOn::Cluster) {
    return followCluster(session, store, enterJob(session, store, submission.newJob()));
  }
  const EnginePlan plan = enginePlan(session);
  const JobId job = enterJob(session, store, submission.newJob());
  return workOff(session, store, images, machine, job, plan);
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
  Store store(session.state());
  if (options.missing) {
    LocalMachine machine;
    ImageHelper images(imageHelper(session));
    if (!submission.leaveOutGood(store, images, machine)) {
      return tellNothingMissing(session, submission.newJob());
    }
  }
  if (options.dryRun) {
    printDryRun(console, submission.newJob(), options.json);
    return exitGood;
  }
  const JobId job = store.submit(submission.newJob());
  const JobFrames frames = store.frames(job);
  if (submission.newJob().runOn == RunOn::Cluster) {
    submitToCluster(session, store, job);
  }
  tellSubmitted(session, store, job, frames);
  const std::optional<JobRecord> record = store.job(job);
  return record && record->state == JobState::Stopped ? exitFailed : exitGood;
}

int runEngine(Session& session) {
  Store store(session.state());
  LocalMachine machine;
  ImageHelper images(imageHelper(session));
  return workQueue(session, store, images, machine);
}

} // namespace trovik
