#pragma once

#include "trovik/queue/Queue.h"
#include "trovik/records/RunEvents.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// A job that another one waits or waited for, as it stands.
struct ForerunnerStand {
  Forerunner forerunner;
  std::optional<JobState> state; ///< nothing for one that was deleted

  /// Its follower still waits for it.
  bool isAwaited() const { return !forerunner.released && state != JobState::Good; }
  /// It does not become good by itself.
  bool isStuck() const { return isAwaited() && (!state || !isOpen(*state)); }
};

std::vector<ForerunnerStand> standsOf(Queue& queue, JobId job);
std::vector<JobId> awaitedIn(const std::vector<ForerunnerStand>& stands);

/// A job with the state of its frames, as lists and reports show it. Numbers
/// are frames; works of a job without.
struct JobView {
  JobRecord job; ///< `logs` is never empty
  JobFrames frames;
  std::vector<ForerunnerStand> forerunners{};

  std::size_t good() const { return job.hasFrames ? frames.good.count() : frames.goodWorks; }
  std::size_t failed() const { return job.hasFrames ? frames.failed.count() : frames.failedWorks; }
  std::size_t canceled() const { return job.hasFrames ? frames.canceled.count() : frames.canceledWorks; }
  std::size_t running() const { return job.hasFrames ? frames.running.count() : frames.runningWorks; }
  std::size_t ready() const { return job.hasFrames ? frames.ready.count() : frames.readyWorks; }
  std::size_t waiting() const { return job.hasFrames ? frames.waiting.count() : frames.waitingWorks; }
  std::size_t total() const { return good() + failed() + canceled() + running() + ready(); }
};

JobView viewOf(Queue& queue, JobRecord job);

/// The job's own name, else that of its scene's file; "job 3" where it has
/// neither.
std::string titleOf(const JobRecord& job);

/// All frames of a job, whatever their state.
RunSet allFrames(const JobFrames& frames);

/// What readers of events are told of the job.
RunInfo runInfoOf(const JobView& view);

/// Since its first attempt, to its end or until now; nothing before.
std::optional<Duration> timeOf(const JobRecord& job, Moment now);

/// The state for people. An open job of which nothing runs just now waits,
/// whatever it has done before.
JobState shownState(const JobView& view);

} // namespace trovik
