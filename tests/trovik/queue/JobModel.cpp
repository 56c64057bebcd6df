#include "tests/trovik/queue/JobModel.h"

#include "tests/trovik/queue/QueueTest.h"

#include <rapidcheck.h>

#include <algorithm>

namespace trovik {

bool ModelJob::any(WorkState wanted) const {
  return std::any_of(frames.begin(), frames.end(),
                     [&](const auto& one) { return one.second.state == wanted; });
}

void ModelJob::endWhenDone() {
  if (any(WorkState::Ready) || any(WorkState::Running)) {
    return;
  }
  const bool failedOnes = any(WorkState::Failed);
  const bool canceledOnes = any(WorkState::Canceled);
  const bool wasCanceled = canceling || state == JobState::Canceled;
  state = !failedOnes && !canceledOnes ? JobState::Good
          : failedOnes && !wasCanceled ? JobState::Failed
                                       : JobState::Canceled;
  canceling = false;
}

void ModelJob::open() {
  state = started ? JobState::Running : JobState::Waiting;
  canceling = false;
}

WorkState ModelJob::restOf(const Outcome& outcome, ModelFrame& frame) const {
  switch (outcome.state) {
  case AttemptState::Failed:
    ++frame.tries;
    return outcome.retryable && frame.tries <= retries && !canceling ? WorkState::Ready : WorkState::Failed;
  case AttemptState::Lost:
    ++frame.losses;
    return canceling ? WorkState::Canceled : frame.losses >= 5 ? WorkState::Failed : WorkState::Ready;
  default:
    return canceling ? WorkState::Canceled : WorkState::Ready;
  }
}

void ModelJob::cancel() {
  if (!isOpen(state)) {
    return;
  }
  for (auto& [frame, model] : frames) {
    if (model.state == WorkState::Ready) {
      model.state = WorkState::Canceled;
    }
  }
  canceling = true;
  endWhenDone();
}

void ModelJob::stop() {
  if (isOpen(state) && !canceling) {
    state = JobState::Stopped;
  }
}

void ModelJob::resume() {
  if (state == JobState::Stopped) {
    open();
  }
}

std::size_t ModelJob::retry(const std::optional<RunSet>& only) {
  std::size_t count = 0;
  for (auto& [frame, model] : frames) {
    const bool wanted = !only || only->contains(frame);
    if (wanted && (model.state == WorkState::Failed || model.state == WorkState::Canceled ||
                   (only && model.state == WorkState::Good))) {
      model.state = WorkState::Ready;
    }
    if (model.state == WorkState::Ready) {
      model.tries = model.losses = 0;
      count += wanted ? 1 : 0;
    }
  }
  if (any(WorkState::Ready) || (canceling && any(WorkState::Running))) {
    open();
  }
  return count;
}

void ModelJob::goOn(const std::optional<ModelJob>& known, AttemptId newest, const RunSet& gone,
                    const RunSet& found) {
  const ModelJob before = *this;
  const bool wasOpen = isOpen(state);
  if ((any(WorkState::Failed) || any(WorkState::Canceled)) && !(wasOpen && any(WorkState::Running))) {
    retry(std::nullopt);
  }
  for (auto& [number, frame] : frames) {
    const ModelFrame& last = before.frames.at(number);
    if (!known || last.attempt > newest || last.state == WorkState::Running) {
      continue;
    }
    const WorkState then = known->frames.at(number).state;
    const bool isGood = last.state == WorkState::Good;
    if (isGood && then == WorkState::Good && gone.contains(number)) {
      frame = {WorkState::Ready, 0, 0, last.attempt};
    } else if (!isGood && then != WorkState::Good && then != WorkState::Running && found.contains(number)) {
      frame.state = WorkState::Good;
    }
  }
  if (!wasOpen && (any(WorkState::Ready) || any(WorkState::Running))) {
    open();
  }
  endWhenDone();
}

NewJob someJob(ModelJob& model) {
  NewJob job = jobOf("");
  const int works = *rc::gen::inRange(0, 5);
  for (int work = 0, next = *rc::gen::inRange(-5, 5); work < works; ++work) {
    const int last = next + *rc::gen::inRange(0, 5);
    const bool found = *rc::gen::weightedElement<bool>({{4, false}, {1, true}});
    (found ? job.found : job.works).push_back({next, last});
    for (int frame = next; frame <= last; ++frame) {
      model.frames[frame].state = found ? WorkState::Good : WorkState::Ready;
    }
    next = last + *rc::gen::inRange(1, 4);
  }
  job.priority = model.priority = *rc::gen::inRange(49, 52);
  job.retries = model.retries = *rc::gen::inRange(0, 3);
  model.endWhenDone();
  return job;
}

std::optional<RunSet> someFrames() {
  std::optional<RunSet> only;
  if (*rc::gen::arbitrary<bool>()) {
    only.emplace();
    for (int frame = -6; frame < 30; ++frame) {
      if (*rc::gen::weightedElement<bool>({{3, false}, {1, true}})) {
        only->add({frame, frame});
      }
    }
  }
  return only;
}

Outcome someOutcome(const FrameRun& run) {
  Outcome outcome;
  outcome.state =
      *rc::gen::element(AttemptState::Good, AttemptState::Failed, AttemptState::Canceled, AttemptState::Lost);
  outcome.reason = "It broke";
  outcome.retryable = *rc::gen::weightedElement<bool>({{4, true}, {1, false}});
  for (int frame = run.First - 1; frame <= run.Last + 1; ++frame) {
    if (*rc::gen::weightedElement<bool>({{2, false}, {1, true}})) {
      outcome.good.add({frame, frame});
    }
  }
  return outcome;
}

void compareJobs(Queue& queue, const ModelJobs& jobs) {
  RC_ASSERT(queue.jobs().size() == jobs.size());
  for (const auto& [id, job] : jobs) {
    std::map<WorkState, RunSet> expected;
    for (const auto& [frame, model] : job.frames) {
      expected[model.state].add({frame, frame});
    }
    const JobFrames frames = queue.frames(id);
    RC_ASSERT(frames.ready.text() == expected[WorkState::Ready].text());
    RC_ASSERT(frames.running.text() == expected[WorkState::Running].text());
    RC_ASSERT(frames.good.text() == expected[WorkState::Good].text());
    RC_ASSERT(frames.failed.text() == expected[WorkState::Failed].text());
    RC_ASSERT(frames.canceled.text() == expected[WorkState::Canceled].text());
    RC_ASSERT(std::string(nameOf(queue.job(id).value().state)) == nameOf(job.state));
  }
}

std::map<JobId, RunSet> framesOf(const ModelJobs& jobs) {
  std::map<JobId, RunSet> frames;
  for (const auto& [id, job] : jobs) {
    for (const auto& [frame, model] : job.frames) {
      frames[id].add({frame, frame});
    }
  }
  return frames;
}

} // namespace trovik
