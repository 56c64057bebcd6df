#pragma once

#include "trovik/queue/Queue.h"

#include <map>
#include <optional>

namespace trovik {

/// A frame of a model that knows no works: each frame by itself has a state
/// and its tries.
struct ModelFrame {
  WorkState state = WorkState::Ready;
  int tries = 0;
  int losses = 0;
  AttemptId attempt = 0; ///< the last
};

/// What a job is to be like, whatever is done to it in whatever order.
struct ModelJob {
  std::map<int, ModelFrame> frames;
  int priority = 50;
  int retries = 0;
  JobState state = JobState::Waiting;
  bool started = false;
  bool canceling = false;

  bool any(WorkState wanted) const;
  void endWhenDone();
  void open();
  /// The state of a frame that an attempt did not leave good.
  WorkState restOf(const Outcome& outcome, ModelFrame& frame) const;
  void cancel();
  void stop();
  void resume();
  /// The number of frames that are to be worked.
  std::size_t retry(const std::optional<RunSet>& only);
  /// The same command again; `known` is the job as it was when its files were
  /// checked, or nothing where it was another one.
  void goOn(const std::optional<ModelJob>& known, AttemptId newest, const RunSet& gone, const RunSet& found);
};

using ModelJobs = std::map<JobId, ModelJob>;

// To be called within properties.

/// A job of some works, and its model.
NewJob someJob(ModelJob& model);
/// Some frames of such a job, or nothing.
std::optional<RunSet> someFrames();
/// A way for an attempt at these frames to end, with some good frames within
/// and about.
Outcome someOutcome(const FrameRun& run);
/// The jobs of the queue are those, and in each every frame's state agrees.
void compareJobs(Queue& queue, const ModelJobs& jobs);
std::map<JobId, RunSet> framesOf(const ModelJobs& jobs);

} // namespace trovik
