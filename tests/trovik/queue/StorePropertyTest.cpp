#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/QueueTest.h"
#include "trovik/queue/StoreImpl.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <memory>

namespace trovik {
namespace {

// The queue beside a model that knows no works: each frame by itself has a
// state and its tries. Whatever is done in whatever order, both agree on every
// frame and every job.

struct ModelFrame {
  WorkState state = WorkState::Ready;
  int tries = 0;
  int losses = 0;
};

struct ModelJob {
  std::map<int, ModelFrame> frames;
  int priority = 50;
  int retries = 0;
  JobState state = JobState::Waiting;
  bool started = false;
  bool canceling = false;

  bool any(WorkState wanted) const {
    return std::any_of(frames.begin(), frames.end(),
                       [&](const auto& one) { return one.second.state == wanted; });
  }
  void endWhenDone() {
    if (any(WorkState::Ready) || any(WorkState::Running)) {
      return;
    }
    const bool failedOnes = any(WorkState::Failed);
    const bool canceledOnes = any(WorkState::Canceled);
    state = !failedOnes && !canceledOnes ? JobState::Good
            : failedOnes && !canceling   ? JobState::Failed
                                         : JobState::Canceled;
    canceling = false;
  }
  void open() {
    state = started ? JobState::Running : JobState::Waiting;
    canceling = false;
  }
};

class Model {
public:
  Model() : store(Path(directory.path())), engine(store.enterEngine(2)) {}

  void submit() {
    NewJob job = jobOf("");
    ModelJob model;
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
    jobs[store.submit(job)] = model;
  }

  void claim() {
    const auto count = static_cast<std::size_t>(*rc::gen::inRange(1, 4));
    const std::vector<Claim> claims = store.claim(engine, count, std::nullopt);
    if (claims.size() < count) {
      RC_ASSERT(std::none_of(jobs.begin(), jobs.end(), [&](const auto& one) {
        return isOpen(one.second.state) && !takes(claims, one.first, one.second);
      }));
    }
    for (const Claim& one : claims) {
      ModelJob& job = jobs.at(one.job);
      RC_ASSERT(isOpen(job.state));
      // None with a higher priority, or as high and older, had work left.
      for (const auto& [id, other] : jobs) {
        const bool before = other.priority > job.priority || (other.priority == job.priority && id < one.job);
        RC_ASSERT(!before || !isOpen(other.state) || !other.any(WorkState::Ready));
      }
      for (int frame = one.run.First; frame <= one.run.Last; ++frame) {
        ModelFrame& model = job.frames.at(frame);
        RC_ASSERT(model.state == WorkState::Ready);
        RC_ASSERT(model.tries == one.tries);
        model.state = WorkState::Running;
      }
      for (const auto& [frame, model] : job.frames) {
        RC_ASSERT(model.state != WorkState::Ready || model.tries >= one.tries);
      }
      job.started = true;
      job.state = JobState::Running;
      running.push_back(one);
    }
  }

  void settle() {
    if (running.empty()) {
      return;
    }
    const auto place = static_cast<std::ptrdiff_t>(*rc::gen::inRange<std::size_t>(0, running.size()));
    const Claim claim = running[static_cast<std::size_t>(place)];
    running.erase(running.begin() + place);
    Outcome outcome;
    outcome.attempt = claim.attempt;
    outcome.state = *rc::gen::element(AttemptState::Good, AttemptState::Failed, AttemptState::Canceled,
                                      AttemptState::Lost);
    outcome.reason = "It broke";
    outcome.retryable = *rc::gen::weightedElement<bool>({{4, true}, {1, false}});
    for (int frame = claim.run.First - 1; frame <= claim.run.Last + 1; ++frame) {
      if (*rc::gen::weightedElement<bool>({{2, false}, {1, true}})) {
        outcome.good.add({frame, frame});
      }
    }
    const bool again = store.settle(outcome);

    ModelJob& job = jobs.at(claim.job);
    bool expectedAgain = false;
    for (int frame = claim.run.First; frame <= claim.run.Last; ++frame) {
      ModelFrame& model = job.frames.at(frame);
      if (outcome.state == AttemptState::Good || outcome.good.contains(frame)) {
        model.state = WorkState::Good;
        continue;
      }
      model.state = restOf(outcome, job, model);
      expectedAgain = expectedAgain || (model.state == WorkState::Ready && isOpen(job.state));
    }
    RC_ASSERT(again == expectedAgain);
    RC_ASSERT(!store.settle(outcome)); // once
    job.endWhenDone();
  }

  void cancel(JobId id, ModelJob& job) {
    RC_ASSERT(store.cancel(id) == isOpen(job.state));
    if (isOpen(job.state)) {
      change(job, WorkState::Ready, WorkState::Canceled);
      job.canceling = true;
      job.endWhenDone();
    }
  }

  void stop(JobId id, ModelJob& job) {
    store.stop(id, "Stopped by the user");
    if (isOpen(job.state) && !job.canceling) {
      job.state = JobState::Stopped;
    }
  }

  void resume(JobId id, ModelJob& job) {
    store.resume(id);
    if (job.state == JobState::Stopped) {
      job.open();
    }
  }

  void retry(JobId id, ModelJob& job) {
    std::optional<RunSet> only;
    if (*rc::gen::arbitrary<bool>()) {
      only.emplace();
      for (int frame = -6; frame < 30; ++frame) {
        if (*rc::gen::weightedElement<bool>({{3, false}, {1, true}})) {
          only->add({frame, frame});
        }
      }
    }
    const std::size_t count = store.retry(id, only);
    std::size_t expected = 0;
    for (auto& [frame, model] : job.frames) {
      const bool wanted = !only || only->contains(frame);
      if (wanted && (model.state == WorkState::Failed || model.state == WorkState::Canceled ||
                     (only && model.state == WorkState::Good))) {
        model.state = WorkState::Ready;
      }
      if (model.state == WorkState::Ready) {
        model.tries = model.losses = 0;
        expected += wanted ? 1 : 0;
      }
    }
    RC_ASSERT(count == expected);
    if (job.any(WorkState::Ready) || (job.canceling && job.any(WorkState::Running))) {
      job.open();
    }
  }

  void remove(JobId id, const ModelJob& job) {
    const bool runs = job.any(WorkState::Running);
    RC_ASSERT(storeErrorOf([&] { store.remove(id); }).message.empty() == !runs);
    if (!runs) {
      jobs.erase(id);
    }
  }

  /// The engine dies, and another one takes up what it left.
  void die() {
    Store other(Path(directory.path()));
    // Its lock is what says that it lives; leaving with works frees it.
    store.leaveEngine(engine);
    const std::vector<LostAttempt> lostOnes = other.takeLost();
    RC_ASSERT(lostOnes.size() == running.size());
    for (const LostAttempt& one : lostOnes) {
      other.settle(lost(one.attempt.id));
      ModelJob& job = jobs.at(one.attempt.job);
      for (int frame = one.attempt.run.First; frame <= one.attempt.run.Last; ++frame) {
        ModelFrame& model = job.frames.at(frame);
        RC_ASSERT(model.state == WorkState::Running);
        model.state = restOf(lost(one.attempt.id), job, model);
      }
      job.endWhenDone();
    }
    other.releaseLost();
    running.clear();
    engine = store.enterEngine(2);
  }

  void compare(bool withFile) {
    RC_ASSERT(store.jobs().size() == jobs.size());
    std::map<JobId, RunSet> submitted;
    for (const auto& [id, job] : jobs) {
      std::map<WorkState, RunSet> expected;
      for (const auto& [frame, model] : job.frames) {
        expected[model.state].add({frame, frame});
        submitted[id].add({frame, frame});
      }
      const JobFrames frames = store.frames(id);
      RC_ASSERT(frames.ready.text() == expected[WorkState::Ready].text());
      RC_ASSERT(frames.running.text() == expected[WorkState::Running].text());
      RC_ASSERT(frames.good.text() == expected[WorkState::Good].text());
      RC_ASSERT(frames.failed.text() == expected[WorkState::Failed].text());
      RC_ASSERT(frames.canceled.text() == expected[WorkState::Canceled].text());
      RC_ASSERT(std::string(nameOf(store.job(id).value().state)) == nameOf(job.state));
    }
    if (withFile) {
      RC_ASSERT(brokenInvariants(directory.file("queue.db"), submitted) == std::vector<std::string>());
    }
  }

  void step() {
    const int kind = *rc::gen::weightedElement<int>(
        {{2, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 6}, {1, 7}, {1, 8}});
    if (kind <= 2) {
      kind == 0 ? submit() : kind == 1 ? claim() : settle();
      return;
    }
    if (kind == 8) {
      die();
      return;
    }
    if (jobs.empty()) {
      return;
    }
    const auto place = static_cast<std::ptrdiff_t>(*rc::gen::inRange<std::size_t>(0, jobs.size()));
    auto& [id, job] = *std::next(jobs.begin(), place);
    switch (kind) {
    case 3:
      return cancel(id, job);
    case 4:
      return stop(id, job);
    case 5:
      return resume(id, job);
    case 6:
      return retry(id, job);
    default:
      return remove(id, job);
    }
  }

private:
  static WorkState restOf(const Outcome& outcome, const ModelJob& job, ModelFrame& frame) {
    switch (outcome.state) {
    case AttemptState::Failed:
      ++frame.tries;
      return outcome.retryable && frame.tries <= job.retries && !job.canceling ? WorkState::Ready
                                                                               : WorkState::Failed;
    case AttemptState::Lost:
      ++frame.losses;
      return job.canceling ? WorkState::Canceled : frame.losses >= 5 ? WorkState::Failed : WorkState::Ready;
    default:
      return job.canceling ? WorkState::Canceled : WorkState::Ready;
    }
  }
  static bool takes(const std::vector<Claim>& claims, JobId id, const ModelJob& job) {
    return std::all_of(job.frames.begin(), job.frames.end(), [&](const auto& one) {
      return one.second.state != WorkState::Ready ||
             std::any_of(claims.begin(), claims.end(), [&](const Claim& claim) {
               return claim.job == id && claim.run.First <= one.first && one.first <= claim.run.Last;
             });
    });
  }
  static void change(ModelJob& job, WorkState from, WorkState to) {
    for (auto& [frame, model] : job.frames) {
      if (model.state == from) {
        model.state = to;
      }
    }
  }

  TemporaryDirectory directory;
  Store store;
  EngineId engine;
  std::map<JobId, ModelJob> jobs;
  std::vector<Claim> running;
};

RC_GTEST_PROP(StoreProperty, FramesAreConservedWhateverIsDone, ()) {
  Model model;
  const int steps = *rc::gen::inRange(1, 60);
  for (int step = 0; step < steps; ++step) {
    model.step();
    model.compare(step % 5 == 0 || step + 1 == steps);
  }
}

RC_GTEST_PROP(StoreProperty, ACutRunIsItsPartsInOrder, ()) {
  const int first = *rc::gen::inRange(-20, 20);
  const FrameRun run{first, first + *rc::gen::inRange(0, 30)};
  RunSet set;
  for (const int frame : *rc::gen::container<std::vector<int>>(rc::gen::inRange(-30, 60))) {
    set.add({frame, frame});
  }
  const std::vector<FrameRun> runs = set.runs();
  int next = run.First;
  bool inside = false;
  for (const RunPart& part : cutBy(run, runs)) {
    RC_ASSERT(part.run.First == next);
    RC_ASSERT(next == run.First || part.inside != inside);
    inside = part.inside;
    for (; next <= part.run.Last; ++next) {
      RC_ASSERT(set.contains(next) == part.inside);
    }
  }
  RC_ASSERT(next == run.Last + 1);
}

TEST(StoreCut, EndsOfTheIntegersDoNotOverflow) {
  constexpr int lowest = std::numeric_limits<int>::min();
  constexpr int highest = std::numeric_limits<int>::max();
  const std::vector<FrameRun> ends = {{lowest, lowest}, {highest, highest}};
  const std::vector<RunPart> parts = cutBy({lowest, highest}, ends);
  ASSERT_EQ(parts.size(), 3U);
  EXPECT_TRUE(parts[0].inside);
  EXPECT_EQ(parts[1].run, (FrameRun{lowest + 1, highest - 1}));
  EXPECT_EQ(parts[2].run, (FrameRun{highest, highest}));
}

} // namespace
} // namespace trovik
