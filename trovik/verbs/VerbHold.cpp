#include "trovik/reports/ForerunnerText.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/verbs/ClusterRun.h"
#include "trovik/verbs/EachJob.h"
#include "trovik/verbs/Steer.h"
#include "trovik/verbs/Verbs.h"

namespace trovik {
namespace {

std::string titleOf(JobId job) {
  return "job " + std::to_string(job);
}

} // namespace

JobDone holdJob(Queue& queue, const JobRecord& job) {
  if (!isOpen(job.state)) {
    throw UsageError{titleOf(job.id) + " is " + nameOf(job.state) + "; there is nothing to hold",
                     "\"trovik show " + std::to_string(job.id) + "\" tells how it stands"};
  }
  queue.stop(job.id, heldNote);
  const std::size_t running = queue.frames(job.id).runningWorks;
  std::string text = titleOf(job.id) + "  held";
  if (job.runOn == RunOn::Cluster) {
    text += queue.openArrays(job.id).empty() ? "" : "; its tasks are ended";
  } else if (running > 0) {
    text += "; " + counted(running, "program") + (running == 1 ? " goes" : " go") + " on to " +
            (running == 1 ? "its end" : "their ends");
  }
  return {text + '\n', {{"job", job.id}, {"running", running}}};
}

JobDone releaseJob(Queue& queue, const JobRecord& job) {
  const std::vector<ForerunnerStand> stands = standsOf(queue, job.id);
  const std::vector<JobId> awaited = awaitedIn(stands);
  const bool stopped = job.state == JobState::Stopped;
  if (!stopped && (awaited.empty() || !isOpen(job.state))) {
    throw UsageError{titleOf(job.id) + " is " + nameOf(job.state) +
                         "; it is neither held nor waits for a job",
                     "\"trovik show " + std::to_string(job.id) + "\" tells how it stands"};
  }
  std::string text = titleOf(job.id) + "  released";
  if (stopped) {
    queue.resume(job.id);
    text += awaited.empty() ? "" : "; it waits for " + jobsText(awaited) + " all the same";
  } else {
    queue.release(job.id);
    text += "; it waits for " + jobsText(awaited) + " no more";
  }
  const JobFrames frames = queue.frames(job.id);
  return {text + '\n',
          {{"job", job.id},
           {"after", stopped ? awaited : std::vector<JobId>()},
           {"waiting", job.hasFrames ? Json(frames.ready.text()) : Json(nullptr)}}};
}

int holdJobs(Session& session, const EachJobOptions& options) {
  return forEachJob(session, options, "hold", holdJob, [&](Queue& queue) {
    cancelOnCluster(session, queue, options.json);
    return std::string();
  });
}

int releaseJobs(Session& session, const EachJobOptions& options) {
  std::vector<JobId> onCluster;
  bool local = false;
  return forEachJob(
      session, options, "release",
      [&](Queue& queue, const JobRecord& job) {
        JobDone done = releaseJob(queue, job);
        if (job.runOn == RunOn::Cluster) {
          onCluster.push_back(job.id);
        }
        local = local || job.runOn == RunOn::Local;
        return done;
      },
      [&](Queue& queue) {
        for (const JobId job : onCluster) {
          submitToCluster(session, queue, job, options.json);
        }
        return local ? engineAdvice(queue) : std::string();
      });
}

} // namespace trovik
