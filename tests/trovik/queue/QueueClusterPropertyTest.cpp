#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/JobModel.h"
#include "tests/trovik/queue/QueueTest.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

namespace trovik {
namespace {

// Jobs of a cluster beside a model: works are submitted, begin, end, are canceled,
// retried in parts and removed in any order, and results come late, twice, or
// for works whose start nobody saw.

struct ModelArrayWork {
  ArrayId array = 0;
  std::size_t position = 0;
  JobId job = 0;
  FrameRun run;
  AttemptId attempt = 0;
};

class ClusterModel {
public:
  ClusterModel() : queue(Path(directory.path())), engine(queue.enterEngine(2)) {}

  void submit() {
    ModelJob model;
    NewJob job = someJob(model);
    job.runOn = RunOn::Cluster;
    job.folder = "/shared";
    jobs[queue.submit(job)] = model;
  }

  void addArray(JobId id, const ModelJob& job) {
    const std::vector<WorkRecord> free = queue.worksToSubmit(id);
    RunSet found;
    for (const WorkRecord& work : free) {
      found.add(work.run);
    }
    RC_ASSERT(found.text() == expectedFree(id, job).text());
    std::vector<ArrayWork> works;
    for (const WorkRecord& work : free) {
      if (*rc::gen::weightedElement<bool>({{3, true}, {1, false}})) {
        ArrayWork& given = works.emplace_back();
        given.work = work.id;
        given.run = work.run;
        given.number = work.attempts + 1;
      }
    }
    if (works.empty()) {
      return;
    }
    const ArrayRecord array = queue.addArray(id, static_cast<std::size_t>(*rc::gen::inRange(1, 4)), works);
    for (std::size_t at = 0; at < works.size(); ++at) {
      givenWorks.push_back({array.id, at, id, works[at].run, 0});
    }
  }

  void begin() {
    ModelArrayWork* const given = someWork();
    if (given == nullptr) {
      return;
    }
    ModelJob& job = jobs.at(given->job);
    const bool begins = given->attempt == 0 && isWhole(*given);
    const AttemptId attempt = queue.beginArrayWork(given->array, given->position, Moment());
    if (!begins) {
      RC_ASSERT(attempt == given->attempt);
      return;
    }
    RC_ASSERT(attempt != 0);
    given->attempt = attempt;
    for (int frame = given->run.First; frame <= given->run.Last; ++frame) {
      job.frames.at(frame).state = WorkState::Running;
    }
    hasStarted(job);
  }

  void beat() {
    if (ModelArrayWork* const given = someWork()) {
      AttemptBeat beat;
      beat.attempt = given->attempt;
      queue.noteBeat(beat);
      FileRecord named = file("/out/1.png");
      queue.noteFile(given->attempt, named);
    }
  }

  void settle() {
    ModelArrayWork* const given = someWork();
    if (given == nullptr) {
      return;
    }
    const ModelArrayWork ended = *given;
    close(given);
    const Outcome outcome = someOutcome(ended.run);
    const bool again = queue.settleArrayWork(ended.array, ended.position, Moment(), outcome);
    ModelJob& job = jobs.at(ended.job);
    hasStarted(job);
    bool expectedAgain = false;
    for (int frame = ended.run.First; frame <= ended.run.Last; ++frame) {
      ModelFrame& model = job.frames.at(frame);
      RC_ASSERT(model.state != WorkState::Good && model.state != WorkState::Failed);
      if (outcome.state == AttemptState::Good || outcome.good.contains(frame)) {
        model.state = WorkState::Good;
      } else if (model.state != WorkState::Canceled) {
        model.state = job.restOf(outcome, model);
        expectedAgain = expectedAgain || (model.state == WorkState::Ready && isOpen(job.state));
      }
    }
    RC_ASSERT(again == expectedAgain);
    job.endWhenDone();
  }

  /// A result of a work that is closed, or of none: says nothing.
  void settleAgain() {
    const auto array = static_cast<ArrayId>(*rc::gen::inRange(0, 8));
    const auto at = static_cast<std::size_t>(*rc::gen::inRange(0, 5));
    if (std::none_of(givenWorks.begin(), givenWorks.end(),
                     [&](const ModelArrayWork& one) { return one.array == array && one.position == at; })) {
      RC_ASSERT(!queue.settleArrayWork(array, at, Moment(), good(0)));
      RC_ASSERT(queue.beginArrayWork(array, at, Moment()) == 0);
      queue.closeArrayWork(array, at);
    }
  }

  void closeOne() {
    ModelArrayWork* const given = someWork();
    if (given == nullptr) {
      return;
    }
    const bool refused =
        !queueErrorOf([&] { queue.closeArrayWork(given->array, given->position); }).message.empty();
    RC_ASSERT(refused == (given->attempt != 0));
    if (!refused) {
      close(given);
    }
  }

  void drop() {
    ModelArrayWork* const given = someWork();
    if (given == nullptr) {
      return;
    }
    const ArrayId array = given->array;
    queue.dropArray(array);
    std::erase_if(givenWorks,
                  [array](const ModelArrayWork& one) { return one.array == array && one.attempt == 0; });
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
      std::erase_if(givenWorks, [id](const ModelArrayWork& one) { return one.job == id; });
      jobs.erase(id);
    }
  }

  void compare() {
    compareJobs(queue, jobs);
    RC_ASSERT(brokenInvariants(directory.file("queue.db"), framesOf(jobs)) == std::vector<std::string>());
    RC_ASSERT(queue.claim(engine, 1, std::nullopt).empty());
    RC_ASSERT(!queue.hasLost());
    std::map<ArrayId, std::size_t> expected;
    for (const ModelArrayWork& given : givenWorks) {
      ++expected[given.array];
    }
    const std::vector<ArrayRecord> arrays = queue.openArrays();
    RC_ASSERT(arrays.size() == expected.size());
    for (const ArrayRecord& array : arrays) {
      const std::vector<ArrayWork> open = queue.openArrayWorks(array.id);
      RC_ASSERT(open.size() == expected[array.id]);
      for (const ArrayWork& one : open) {
        const ModelArrayWork* const given = find(one.array, one.position);
        RC_ASSERT(given != nullptr);
        RC_ASSERT(one.attempt == given->attempt);
        RC_ASSERT(one.run == given->run);
        RC_ASSERT((one.workState == WorkState::Running) == (given->attempt != 0));
        RC_ASSERT((one.workState == WorkState::Ready) == (given->attempt == 0 && isWhole(*given)));
      }
    }
  }

  void step() {
    const int kind = *rc::gen::weightedElement<int>({{2, 0},
                                                     {4, 1},
                                                     {5, 2},
                                                     {2, 3},
                                                     {1, 4},
                                                     {1, 5},
                                                     {1, 6},
                                                     {5, 7},
                                                     {2, 8},
                                                     {1, 9},
                                                     {1, 10},
                                                     {3, 11},
                                                     {1, 12}});
    switch (kind) {
    case 0:
      return submit();
    case 1:
      return begin();
    case 2:
      return settle();
    case 3:
      return beat();
    case 4:
      return settleAgain();
    case 5:
      return closeOne();
    case 6:
      return drop();
    default:
      break;
    }
    if (jobs.empty()) {
      return;
    }
    const auto at = static_cast<std::ptrdiff_t>(*rc::gen::inRange<std::size_t>(0, jobs.size()));
    auto& [id, job] = *std::next(jobs.begin(), at);
    switch (kind) {
    case 7:
      return addArray(id, job);
    case 8:
      RC_ASSERT(queue.cancel(id) == isOpen(job.state));
      return job.cancel();
    case 9:
      queue.stop(id, "Stopped by the user");
      return job.stop();
    case 10:
      queue.resume(id);
      return job.resume();
    case 11:
      return retry(id, job);
    default:
      return remove(id, job);
    }
  }

private:
  static void hasStarted(ModelJob& job) {
    job.started = true;
    if (job.state == JobState::Waiting) {
      job.state = JobState::Running;
    }
  }
  /// Whether the work that was given waits, and all its frames belong to it.
  bool isWhole(const ModelArrayWork& given) {
    const std::vector<WorkRecord> works = queue.works(given.job);
    return std::any_of(works.begin(), works.end(), [&](const WorkRecord& work) {
      return work.run == given.run && work.state == WorkState::Ready;
    });
  }
  RunSet expectedFree(JobId id, const ModelJob& job) const {
    RunSet given;
    for (const ModelArrayWork& one : givenWorks) {
      if (one.job == id) {
        given.add(one.run);
      }
    }
    RunSet free;
    for (const auto& [frame, model] : job.frames) {
      if (isOpen(job.state) && model.state == WorkState::Ready && !given.contains(frame)) {
        free.add({frame, frame});
      }
    }
    return free;
  }
  const ModelArrayWork* find(ArrayId array, std::size_t at) const {
    for (const ModelArrayWork& one : givenWorks) {
      if (one.array == array && one.position == at) {
        return &one;
      }
    }
    return nullptr;
  }
  ModelArrayWork* someWork() {
    return givenWorks.empty() ? nullptr : &givenWorks[*rc::gen::inRange<std::size_t>(0, givenWorks.size())];
  }
  void close(ModelArrayWork* given) { givenWorks.erase(givenWorks.begin() + (given - givenWorks.data())); }

  TemporaryDirectory directory;
  Queue queue;
  EngineId engine;
  ModelJobs jobs;
  std::vector<ModelArrayWork> givenWorks; ///< the open ones
};

RC_GTEST_PROP(QueueClusterProperty, FramesAreConservedWhateverIsDone, ()) {
  ClusterModel model;
  const int steps = *rc::gen::inRange(1, 80);
  for (int step = 0; step < steps; ++step) {
    model.step();
    if (step % 5 == 0 || step + 1 == steps) {
      model.compare();
    }
  }
}

} // namespace
} // namespace trovik
