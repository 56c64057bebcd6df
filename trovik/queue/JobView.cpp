#include "trovik/queue/JobView.h"

#include "trovik/records/Moments.h"

#include <utility>

namespace trovik {

std::vector<ForerunnerStand> standsOf(Queue& queue, JobId job) {
  std::vector<ForerunnerStand> stands;
  for (const Forerunner& forerunner : queue.forerunners(job)) {
    const std::optional<JobRecord> record = queue.job(forerunner.job);
    stands.push_back({forerunner, record ? std::optional(record->state) : std::nullopt});
  }
  return stands;
}

std::vector<JobId> awaitedIn(const std::vector<ForerunnerStand>& stands) {
  std::vector<JobId> jobs;
  for (const ForerunnerStand& stand : stands) {
    if (stand.isAwaited()) {
      jobs.push_back(stand.forerunner.job);
    }
  }
  return jobs;
}

JobView viewOf(Queue& queue, JobRecord job) {
  if (job.logs.empty()) {
    job.logs = queue.logDirectory(job.id).Text();
  }
  JobFrames frames = queue.frames(job.id);
  std::vector<ForerunnerStand> forerunners = standsOf(queue, job.id);
  return {std::move(job), std::move(frames), std::move(forerunners)};
}

std::string titleOf(const JobRecord& job) {
  if (!job.name.empty()) {
    return job.name;
  }
  if (!job.scene.empty()) {
    return job.scene.substr(job.scene.rfind('/') + 1);
  }
  return "job " + std::to_string(job.id);
}

RunSet allFrames(const JobFrames& frames) {
  RunSet all = frames.good;
  for (const RunSet* set : {&frames.ready, &frames.running, &frames.failed, &frames.canceled}) {
    all.add(*set);
  }
  return all;
}

RunInfo runInfoOf(const JobView& view) {
  const JobRecord& job = view.job;
  RunInfo info;
  info.job = job.id;
  info.name = job.name;
  info.type = job.typeName;
  info.scene = job.scene;
  info.hasFrames = job.hasFrames;
  info.onCluster = job.runOn == RunOn::Cluster;
  info.range = job.hasFrames ? allFrames(view.frames).text() : std::string();
  info.frames = job.hasFrames ? view.total() : 1;
  info.works = view.frames.works();
  info.goodBefore = view.good();
  info.failedBefore = view.failed();
  info.logs = Path(job.logs);
  return info;
}

std::optional<Duration> timeOf(const JobRecord& job, Moment now) {
  if (!job.started) {
    return std::nullopt;
  }
  return between(*job.started, job.ended.value_or(now));
}

JobState shownState(const JobView& view) {
  return isOpen(view.job.state) && view.frames.runningWorks == 0 ? JobState::Waiting : view.job.state;
}

} // namespace trovik
