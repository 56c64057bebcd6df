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

// Jobs of a cluster beside a model: works are placed, begin, end, are canceled,
// retried in parts and removed in any order, and results come late, twice, or
// for works whose start nobody saw.

struct ModelPlace {
  ArrayId array = 0;
  std::size_t place = 0;
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

  void place(JobId id, const ModelJob& job) {
    const std::vector<WorkRecord> free = queue.unplaced(id);
    RunSet found;
    for (const WorkRecord& work : free) {
      found.add(work.run);
    }
    RC_ASSERT(found.text() == expectedFree(id, job).text());
    std::vector<PlacedWork> works;
    for (const WorkRecord& work : free) {
      if (*rc::gen::weightedElement<bool>({{3, true}, {1, false}})) {
        PlacedWork& placed = works.emplace_back();
        placed.work = work.id;
        placed.run = work.run;
        placed.number = work.attempts + 1;
      }
    }
    if (works.empty()) {
      return;
    }
    const ArrayRecord array = queue.addArray(id, static_cast<std::size_t>(*rc::gen::inRange(1, 4)), works);
    for (std::size_t at = 0; at < works.size(); ++at) {
      places.push_back({array.id, at, id, works[at].run, 0});
    }
  }

  void begin() {
    ModelPlace* const place = somePlace();
    if (place == nullptr) {
      return;
    }
    ModelJob& job = jobs.at(place->job);
    const bool begins = place->attempt == 0 && isWhole(*place);
    const AttemptId attempt = queue.beginPlaced(place->array, place->place, Moment());
    if (!begins) {
      RC_ASSERT(attempt == place->attempt);
      return;
    }
    RC_ASSERT(attempt != 0);
    place->attempt = attempt;
    for (int frame = place->run.First; frame <= place->run.Last; ++frame) {
      job.frames.at(frame).state = WorkState::Running;
    }
    hasStarted(job);
  }

  void beat() {
    if (ModelPlace* const place = somePlace()) {
      PlacedBeat beat;
      beat.attempt = place->attempt;
      queue.noteBeat(beat);
      FileRecord named = file("/out/1.png");
      queue.noteFile(place->attempt, named);
    }
  }

  void settle() {
    ModelPlace* const place = somePlace();
    if (place == nullptr) {
      return;
    }
    const ModelPlace ended = *place;
    close(place);
    const Outcome outcome = someOutcome(ended.run);
    const bool again = queue.settlePlaced(ended.array, ended.place, Moment(), outcome);
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

  /// A result of a place that is closed, or of none: says nothing.
  void settleAgain() {
    const auto array = static_cast<ArrayId>(*rc::gen::inRange(0, 8));
    const auto at = static_cast<std::size_t>(*rc::gen::inRange(0, 5));
    if (std::none_of(places.begin(), places.end(),
                     [&](const ModelPlace& one) { return one.array == array && one.place == at; })) {
      RC_ASSERT(!queue.settlePlaced(array, at, Moment(), good(0)));
      RC_ASSERT(queue.beginPlaced(array, at, Moment()) == 0);
      queue.closePlace(array, at);
    }
  }

  void closeOne() {
    ModelPlace* const place = somePlace();
    if (place == nullptr) {
      return;
    }
    const bool refused = !queueErrorOf([&] { queue.closePlace(place->array, place->place); }).message.empty();
    RC_ASSERT(refused == (place->attempt != 0));
    if (!refused) {
      close(place);
    }
  }

  void drop() {
    ModelPlace* const place = somePlace();
    if (place == nullptr) {
      return;
    }
    const ArrayId array = place->array;
    queue.dropArray(array);
    std::erase_if(places, [array](const ModelPlace& one) { return one.array == array && one.attempt == 0; });
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
      std::erase_if(places, [id](const ModelPlace& one) { return one.job == id; });
      jobs.erase(id);
    }
  }

  void compare() {
    compareJobs(queue, jobs);
    RC_ASSERT(brokenInvariants(directory.file("queue.db"), framesOf(jobs)) == std::vector<std::string>());
    RC_ASSERT(queue.claim(engine, 1, std::nullopt).empty());
    RC_ASSERT(!queue.hasLost());
    std::map<ArrayId, std::size_t> expected;
    for (const ModelPlace& place : places) {
      ++expected[place.array];
    }
    const std::vector<ArrayRecord> arrays = queue.openArrays();
    RC_ASSERT(arrays.size() == expected.size());
    for (const ArrayRecord& array : arrays) {
      const std::vector<PlacedWork> open = queue.openPlaces(array.id);
      RC_ASSERT(open.size() == expected[array.id]);
      for (const PlacedWork& one : open) {
        const ModelPlace* const place = find(one.array, one.place);
        RC_ASSERT(place != nullptr);
        RC_ASSERT(one.attempt == place->attempt);
        RC_ASSERT(one.run == place->run);
        RC_ASSERT((one.workState == WorkState::Running) == (place->attempt != 0));
        RC_ASSERT((one.workState == WorkState::Ready) == (place->attempt == 0 && isWhole(*place)));
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
      return place(id, job);
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
  /// Whether the work that was placed waits, and all its frames belong to it.
  bool isWhole(const ModelPlace& place) {
    const std::vector<WorkRecord> works = queue.works(place.job);
    return std::any_of(works.begin(), works.end(), [&](const WorkRecord& work) {
      return work.run == place.run && work.state == WorkState::Ready;
    });
  }
  RunSet expectedFree(JobId id, const ModelJob& job) const {
    RunSet placed;
    for (const ModelPlace& one : places) {
      if (one.job == id) {
        placed.add(one.run);
      }
    }
    RunSet free;
    for (const auto& [frame, model] : job.frames) {
      if (isOpen(job.state) && model.state == WorkState::Ready && !placed.contains(frame)) {
        free.add({frame, frame});
      }
    }
    return free;
  }
  const ModelPlace* find(ArrayId array, std::size_t at) const {
    for (const ModelPlace& one : places) {
      if (one.array == array && one.place == at) {
        return &one;
      }
    }
    return nullptr;
  }
  ModelPlace* somePlace() {
    return places.empty() ? nullptr : &places[*rc::gen::inRange<std::size_t>(0, places.size())];
  }
  void close(ModelPlace* place) { places.erase(places.begin() + (place - places.data())); }

  TemporaryDirectory directory;
  Queue queue;
  EngineId engine;
  ModelJobs jobs;
  std::vector<ModelPlace> places; ///< the open ones
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
