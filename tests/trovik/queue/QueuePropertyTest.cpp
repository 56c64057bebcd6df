#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/JobModel.h"
#include "tests/trovik/queue/QueueTest.h"
#include "trovik/queue/QueueImpl.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <memory>

namespace trovik {
namespace {

// The queue beside a model. Whatever is done in whatever order, both agree on
// every frame and every job.

class Model {
public:
  Model() : queue(Path(directory.path())), engine(queue.enterEngine(2)) {}

  void submit() {
    ModelJob model;
    NewJob job = someJob(model);
    job.packed = "stream " + std::to_string(given.size());
    begun.push_back(model);
    given.push_back(job);
    enter(given.size() - 1, queue.submit(job));
  }

  /// A command that was given before, perhaps with a check of its files, and
  /// while they are checked anything may happen: twins, kills.
  void giveAgain() {
    if (given.empty()) {
      return;
    }
    const auto command = *rc::gen::inRange<std::size_t>(0, given.size());
    NewJob job = given[command];
    const std::optional<BegunJob> known = queue.begun(job);
    const std::optional<JobId> before = goingOn(command);
    RC_ASSERT((known ? std::optional(known->id) : std::nullopt) == before);
    const std::optional<ModelJob> stood = before ? std::optional(jobs.at(*before)) : std::nullopt;
    const AttemptId newest = lastAttempt;
    for (int steps = *rc::gen::inRange(0, 4); depth < 3 && steps > 0; --steps) {
      ++depth;
      step();
      --depth;
    }
    RunSet found;
    const bool missing = *rc::gen::arbitrary<bool>();
    if (missing) {
      found = someFrames().value_or(RunSet());
      std::vector<FrameRun> works;
      for (const FrameRun& run : job.works) {
        for (const FramePart& part : CutFrames(run, found.runs())) {
          (part.Inside ? job.found : works).push_back(part.Run);
        }
      }
      job.works = works;
      found = RunSet();
      for (const FrameRun& run : job.found) {
        found.add(run);
      }
    }
    const RunSet gone = someFrames().value_or(RunSet());
    const std::optional<JobId> now = goingOn(command);
    const EnteredJob entered = queue.enter(job, known, gone);
    RC_ASSERT(entered.before.has_value() == now.has_value());
    if (now) {
      RC_ASSERT(entered.id == *now);
      const bool same = before && *before == *now;
      ModelJob& model = jobs.at(*now);
      // What the first one found at its submission is found for all.
      for (const FrameRun& run : given[command].found) {
        found.add(run);
      }
      model.goOn(same ? stood : std::nullopt, newest, gone, found);
      model.priority = job.priority;
    } else if (job.works.empty()) {
      RC_ASSERT(entered.id == 0);
    } else {
      ModelJob model = begun[command];
      for (auto& [frame, state] : model.frames) {
        state.state = found.contains(frame) ? WorkState::Good : state.state;
      }
      model.endWhenDone();
      jobs[entered.id] = model;
      commands[entered.id] = command;
    }
  }

  void claim() {
    auto count = static_cast<std::size_t>(*rc::gen::inRange(1, 4));
    ClaimsAhead ahead; // of any job, so that the order stays the same
    if (*rc::gen::arbitrary<bool>()) {
      ahead.count = static_cast<std::size_t>(*rc::gen::inRange(1, 4));
      for (const auto& [id, job] : jobs) {
        ahead.jobs.push_back(id);
      }
    }
    const std::vector<Claim> claims = queue.claim(engine, count, std::nullopt, {}, nullptr, ahead);
    for (std::size_t i = 0; i < claims.size(); ++i) {
      RC_ASSERT(claims[i].ahead == (i >= count));
    }
    count += ahead.count;
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
        earlier[one.attempt][frame] = model.attempt;
        model.attempt = one.attempt;
        RC_ASSERT(model.state == WorkState::Ready);
        RC_ASSERT(model.tries == one.tries);
        model.state = WorkState::Running;
      }
      for (const auto& [frame, model] : job.frames) {
        RC_ASSERT(model.state != WorkState::Ready || model.tries >= one.tries);
      }
      lastAttempt = std::max(lastAttempt, one.attempt);
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
    Outcome outcome = someOutcome(claim.run);
    outcome.attempt = claim.attempt;
    const bool again = queue.settle(outcome);

    ModelJob& job = jobs.at(claim.job);
    bool expectedAgain = false;
    for (int frame = claim.run.First; frame <= claim.run.Last; ++frame) {
      ModelFrame& model = job.frames.at(frame);
      if (outcome.state == AttemptState::Good || outcome.good.contains(frame)) {
        model.state = WorkState::Good;
        continue;
      }
      model.state = job.restOf(outcome, model);
      expectedAgain = expectedAgain || (model.state == WorkState::Ready && isOpen(job.state));
    }
    RC_ASSERT(again == expectedAgain);
    RC_ASSERT(!queue.settle(outcome)); // once
    job.endWhenDone();
  }

  /// A claim is undone, as if it had never been.
  void giveBack() {
    if (running.empty()) {
      return;
    }
    const auto place = static_cast<std::ptrdiff_t>(*rc::gen::inRange<std::size_t>(0, running.size()));
    const Claim claim = running[static_cast<std::size_t>(place)];
    running.erase(running.begin() + place);
    ModelJob& job = jobs.at(claim.job);
    const bool canceling = job.canceling;
    queue.giveBack({claim.attempt});
    for (int frame = claim.run.First; frame <= claim.run.Last; ++frame) {
      ModelFrame& model = job.frames.at(frame);
      model.state = job.restOf(canceledOutcome(claim.attempt), model);
      if (!canceling) {
        RC_ASSERT(model.state == WorkState::Ready);
        model.attempt = earlier.at(claim.attempt).at(frame);
      }
    }
    RC_ASSERT(queue.attempt(claim.attempt).has_value() == canceling);
    for (const WorkRecord& work : queue.works(claim.job)) {
      if (claim.run.First <= work.run.First && work.run.Last <= claim.run.Last) {
        RC_ASSERT(work.attempt == job.frames.at(work.run.First).attempt);
      }
    }
    queue.giveBack({claim.attempt}); // once
    if (queue.attempts(claim.job).empty()) {
      job.started = false;
      job.state = job.state == JobState::Running ? JobState::Waiting : job.state;
    }
    job.endWhenDone();
  }

  void cancel(JobId id, ModelJob& job) {
    RC_ASSERT(queue.cancel(id) == isOpen(job.state));
    job.cancel();
  }

  void stop(JobId id, ModelJob& job) {
    queue.stop(id, "Stopped by the user");
    job.stop();
  }

  void resume(JobId id, ModelJob& job) {
    queue.resume(id);
    job.resume();
  }

  void retry(JobId id, ModelJob& job) {
    const std::optional<RunSet> only = someFrames();
    const std::size_t count = queue.retry(id, only);
    RC_ASSERT(count == job.retry(only));
  }

  void remove(JobId id, const ModelJob& job) {
    const bool runs = job.any(WorkState::Running);
    RC_ASSERT(queueErrorOf([&] { queue.remove(id); }).message.empty() == !runs);
    if (!runs) {
      jobs.erase(id);
    }
  }

  /// The engine dies, and another one takes up what it left.
  void die() {
    Queue other(Path(directory.path()));
    // Its lock is what says that it lives; leaving with works frees it.
    queue.leaveEngine(engine);
    const std::vector<LostAttempt> lostOnes = other.takeLost();
    RC_ASSERT(lostOnes.size() == running.size());
    for (const LostAttempt& one : lostOnes) {
      other.settle(lost(one.attempt.id));
      ModelJob& job = jobs.at(one.attempt.job);
      for (int frame = one.attempt.run.First; frame <= one.attempt.run.Last; ++frame) {
        ModelFrame& model = job.frames.at(frame);
        RC_ASSERT(model.state == WorkState::Running);
        model.state = job.restOf(lost(one.attempt.id), model);
      }
      job.endWhenDone();
    }
    other.releaseLost();
    running.clear();
    engine = queue.enterEngine(2);
  }

  void compare(bool withFile) {
    compareJobs(queue, jobs);
    if (withFile) {
      RC_ASSERT(brokenInvariants(directory.file("queue.db"), framesOf(jobs)) == std::vector<std::string>());
    }
  }

  void step() {
    const int kind = *rc::gen::weightedElement<int>(
        {{2, 0}, {5, 1}, {6, 2}, {1, 3}, {1, 4}, {1, 5}, {2, 6}, {1, 7}, {1, 8}, {4, 9}, {2, 10}});
    if (kind <= 2) {
      kind == 0 ? submit() : kind == 1 ? claim() : settle();
      return;
    }
    if (kind >= 8) {
      kind == 8 ? die() : kind == 9 ? giveAgain() : giveBack();
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
  void enter(std::size_t command, JobId id) {
    jobs[id] = begun[command];
    commands[id] = command;
  }

  /// The job that a command goes on with.
  std::optional<JobId> goingOn(std::size_t command) const {
    std::optional<JobId> newest;
    bool decided = false;
    for (auto one = jobs.rbegin(); one != jobs.rend(); ++one) {
      const auto& [id, job] = *one;
      if (commands.at(id) != command || job.state == JobState::Canceled || job.canceling) {
        continue;
      }
      if (isOpen(job.state)) {
        return id;
      }
      newest = !decided && job.state != JobState::Good ? std::optional(id) : newest;
      decided = true;
    }
    return newest;
  }

  static bool takes(const std::vector<Claim>& claims, JobId id, const ModelJob& job) {
    return std::all_of(job.frames.begin(), job.frames.end(), [&](const auto& one) {
      return one.second.state != WorkState::Ready ||
             std::any_of(claims.begin(), claims.end(), [&](const Claim& claim) {
               return claim.job == id && claim.run.First <= one.first && one.first <= claim.run.Last;
             });
    });
  }

  TemporaryDirectory directory;
  Queue queue;
  EngineId engine;
  ModelJobs jobs;
  std::vector<NewJob> given;   // commands
  std::vector<ModelJob> begun; // the job that each makes
  std::map<JobId, std::size_t> commands;
  AttemptId lastAttempt = 0;
  int depth = 0;                                         // of commands that check files
  std::map<AttemptId, std::map<int, AttemptId>> earlier; // of each frame, the attempt before
  std::vector<Claim> running;
};

RC_GTEST_PROP(QueueProperty, FramesAreConservedWhateverIsDone, ()) {
  Model model;
  const int steps = *rc::gen::inRange(1, 60);
  for (int step = 0; step < steps; ++step) {
    model.step();
    model.compare(step % 5 == 0 || step + 1 == steps);
  }
}

RC_GTEST_PROP(QueueProperty, ACutRunIsItsPartsInOrder, ()) {
  const int first = *rc::gen::inRange(-20, 20);
  const FrameRun run{first, first + *rc::gen::inRange(0, 30)};
  RunSet set;
  for (const int frame : *rc::gen::container<std::vector<int>>(rc::gen::inRange(-30, 60))) {
    set.add({frame, frame});
  }
  const std::vector<FrameRun> runs = set.runs();
  int next = run.First;
  bool inside = false;
  for (const FramePart& part : CutFrames(run, runs)) {
    RC_ASSERT(part.Run.First == next);
    RC_ASSERT(next == run.First || part.Inside != inside);
    inside = part.Inside;
    for (; next <= part.Run.Last; ++next) {
      RC_ASSERT(set.contains(next) == part.Inside);
    }
  }
  RC_ASSERT(next == run.Last + 1);
}

TEST(QueueCut, EndsOfTheIntegersDoNotOverflow) {
  constexpr int lowest = std::numeric_limits<int>::min();
  constexpr int highest = std::numeric_limits<int>::max();
  const std::vector<FrameRun> ends = {{lowest, lowest}, {highest, highest}};
  const std::vector<FramePart> parts = CutFrames({lowest, highest}, ends);
  ASSERT_EQ(parts.size(), 3U);
  EXPECT_TRUE(parts[0].Inside);
  EXPECT_EQ(parts[1].Run, (FrameRun{lowest + 1, highest - 1}));
  EXPECT_EQ(parts[2].Run, (FrameRun{highest, highest}));
}

} // namespace
} // namespace trovik
