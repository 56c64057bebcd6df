#include "trovik/cluster/ClusterEngine.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/cluster/LeftFiles.h"
#include "trovik/cluster/TaskRun.h"
#include "trovik/records/Moments.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

// What became of the works that the cluster has: read from the folders.

namespace trovik {
namespace {

/// Files that are looked at in one turn: what is left has its turn later, so
/// that ten thousand works cost no more than some hundreds.
constexpr std::size_t looksPerTurn = 400;
constexpr std::size_t rollingLooks = 50;               // of them at works that most likely wait
constexpr Duration beatTime = std::chrono::seconds(2); // between readings of one beat
constexpr Duration beatTimeOfMany = std::chrono::seconds(10);
constexpr Duration turnTime = std::chrono::milliseconds(500);
constexpr Duration turnTimeOfMany = std::chrono::seconds(1);
constexpr std::size_t manyWorks = 50;

/// What another machine wrote, by this one's path maps.
void translate(Outcome& outcome) {
  outcome.log = Path(outcome.log).TranslateToLocal().Text();
  for (FileRecord& file : outcome.files) {
    file.path = Path(file.path).TranslateToLocal().Text();
  }
}

WorkEnd endAsOf(AttemptState state, VerdictRule rule, std::string reason) {
  WorkEnd end;
  end.by = WorkEnd::By::GivenUp;
  end.ended = momentNow();
  end.outcome.state = state;
  end.outcome.rule = rule;
  end.outcome.reason = std::move(reason);
  return end;
}

std::string withHint(const TaskDeath& death) {
  return death.hint.empty() ? death.text : death.text + "; " + death.hint;
}

} // namespace

void ClusterEngine::lookAtPlaces() {
  if (arrays_.empty()) {
    return; // the right to write is for those who have something to write
  }
  std::size_t active = 0;
  for (const auto& [id, array] : arrays_) {
    active += static_cast<std::size_t>(
        std::count_if(array.places.begin(), array.places.end(),
                      [](const auto& place) { return place.second.phase == TaskPhase::Active; }));
  }
  beatTime_ = active > manyWorks ? beatTimeOfMany : beatTime;
  turnTime_ = active > manyWorks ? turnTimeOfMany : turnTime;
  // No transaction around it: a folder of a network may take its time, and what
  // is written of a work is whole by itself.
  for (auto array = arrays_.begin(); array != arrays_.end();) {
    lookAt(array->second);
    array = array->second.places.empty() ? arrays_.erase(array) : std::next(array);
  }
}

void ClusterEngine::lookAt(Array& array) {
  std::vector<std::size_t> chosen;
  std::size_t rolling = 0;
  // From where the last turn came to its end, once around.
  auto place = array.places.lower_bound(array.next);
  for (std::size_t i = 0; i < array.places.size() && chosen.size() < looksPerTurn; ++i, ++place) {
    place = place == array.places.end() ? array.places.begin() : place;
    if (isWorthALook(array, place->second)) {
      chosen.push_back(place->first);
    } else if (mayHaveStarted(place->second) && rolling < rollingLooks) {
      ++rolling;
      chosen.push_back(place->first);
    } else {
      continue;
    }
    array.next = place->first + 1;
  }
  bool reached = true;
  for (const std::size_t number : chosen) {
    const auto found = array.places.find(number);
    try {
      if (look(array, found->second)) {
        array.places.erase(found);
      }
    } catch (Exception* exception) {
      reached = false;
      const std::string problem = takeText(exception);
      found->second.alive = machine_.now(); // nothing is known, so nothing is dead
      tell(array.record.job, "folder " + array.record.name,
           "job " + std::to_string(array.record.job) + ": its folder cannot be read: " + problem,
           "works are neither done nor given up until it can");
    }
  }
  if (reached && !chosen.empty()) {
    told_.erase("folder " + array.record.name);
  }
}

/// Its task runs, has run, or may well do so by now.
bool ClusterEngine::isWorthALook(const Array& array, const Place& place) const {
  switch (place.phase) {
  case TaskPhase::Waiting:
    return place.record.restarts > 0 || place.claim > 0;
  case TaskPhase::Unknown:
    return place.claim > 0 || !lookedOnce_;
  case TaskPhase::Over:
  case TaskPhase::Retry:
    return true;
  case TaskPhase::Active:
    break;
  }
  // A task does its works one after another.
  const std::size_t perTask = std::max<std::size_t>(array.record.perTask, 1);
  return place.claim > 0 || place.record.place % perTask == 0 ||
         !array.places.contains(place.record.place - 1);
}

/// What the cluster said last may be out of date.
bool ClusterEngine::mayHaveStarted(const Place& place) const {
  return place.phase == TaskPhase::Unknown ||
         (place.phase == TaskPhase::Waiting && !contact_.problem.empty());
}

/// True when the place is closed and can be forgotten.
bool ClusterEngine::look(Array& array, Place& place) {
  std::optional<WorkEnd> end;
  std::string damage;
  try {
    end = array.folder.endOf(place.record.place);
  } catch (Exception* exception) {
    damage = takeText(exception);
  }
  if (!damage.empty() && !array.folder.hasEnded(place.record.place)) {
    RaiseException("ClusterEngine::look", k_ErrorSystem, damage);
  }
  if (!damage.empty()) {
    // No other one can take its place any more.
    end = endAsOf(AttemptState::Lost, VerdictRule::Cluster, "What it left cannot be read: " + damage);
  }
  if (end && end->by == WorkEnd::By::Interrupted && !knowsWhy(place)) {
    return false;
  }
  if (end) {
    return collect(array, place, std::move(*end));
  }
  noteAlive(array, place);
  return considerDeath(array, place);
}

/// Whether the cluster has said why it ended a task that left an end when it
/// was told to; it says so a few seconds later. Waits no longer than a process
/// may be silent.
bool ClusterEngine::knowsWhy(Place& place) {
  if (place.phase != TaskPhase::Active && place.phase != TaskPhase::Unknown) {
    return true;
  }
  if (!place.interrupted) {
    place.interrupted = machine_.now();
    pause_ = questionPause;
  }
  return machine_.now() - *place.interrupted >= settings_.patience;
}

/// What the cluster says of a task that it ended.
void ClusterEngine::judgeInterrupted(const Array& array, const Place& place, Outcome& outcome) {
  if (place.phase != TaskPhase::Over || array.record.canceling || outcome.state != AttemptState::Lost) {
    return;
  }
  const TaskDeath death = taskDeath(place.task);
  if (death.limits || death.byHand) {
    outcome.state = AttemptState::Failed;
    outcome.reason = withHint(death);
    outcome.alike = outcome.reason;
    outcome.retryable = !death.byHand;
  }
}

void ClusterEngine::noteAlive(Array& array, Place& place) {
  const Clock::time_point now = machine_.now();
  if (place.claim > 0 && place.read && now - *place.read < beatTime_) {
    return;
  }
  PlacedWork& work = place.record;
  const int claim = array.folder.lastClaim(work.place, place.claim);
  if (claim == 0) {
    return;
  }
  place.read = now;
  if (claim != place.claim) {
    place.claim = claim;
    place.alive = now;
    place.beats = -1;
  }
  if (work.attempt == 0) {
    const std::optional<WorkClaim> taken = array.folder.claimOf(work.place, claim);
    work.attempt = queue_.beginPlaced(array.record.id, work.place,
                                      taken ? std::min(taken->started, momentNow()) : momentNow());
  }
  const std::optional<WorkBeat> beat = array.folder.beatOf(work.place);
  if (!beat || beat->claim != claim || beat->count == place.beats) {
    return;
  }
  place.alive = now;
  place.beats = beat->count;
  PlacedBeat noted;
  noted.attempt = work.attempt;
  noted.log = Path(beat->log).TranslateToLocal().Text();
  noted.logBytes = beat->logBytes;
  noted.stage = beat->stage;
  noted.silent = beat->silent;
  noted.seen = momentNow();
  queue_.noteBeat(noted);
  const std::string stage =
      "/.trovik-" + taskMark(queue_.queueId(), array.record.job, array.folder, work.place, claim) + '/';
  for (; place.files < beat->files.size(); ++place.files) {
    FileRecord file = beat->files[place.files];
    if (file.path.find(stage) != std::string::npos) {
      continue; // it is not where users look for it before its work has ended
    }
    file.path = Path(file.path).TranslateToLocal().Text();
    queue_.noteFile(work.attempt, file);
  }
}

/// Gives up works whose task has ended, or whose process has died, without
/// leaving an end. True when the place is closed.
bool ClusterEngine::considerDeath(Array& array, Place& place) {
  const Clock::time_point now = machine_.now();
  const Duration patience = settings_.patience;
  const bool over = place.overSince.has_value();
  if (place.claim == 0) {
    if (!over) {
      return false;
    }
    if (array.record.canceling && array.canceled) {
      // The mark in the folder keeps back whatever may start after all.
      queue_.closePlace(array.record.id, place.record.place);
      forgetLook(array.record.job);
      return true;
    }
    return now - *place.overSince >= patience && giveUp(array, place);
  }
  const Duration silent = now - std::max(place.alive, over ? *place.overSince : place.alive);
  if (over) {
    return silent >= patience && giveUp(array, place);
  }
  if (place.phase != TaskPhase::Active || silent < 2 * patience || place.task.state != "RUNNING") {
    return false; // a task that waits again takes its work up by itself, one that is suspended goes on
  }
  // The cluster believes that it runs, but its process is dead: the task's
  // supervisor was killed.
  return giveUp(array, place);
}

/// Leaves an end for a work of which none comes. True when the place is closed.
bool ClusterEngine::giveUp(Array& array, Place& place) {
  const PlacedWork& work = place.record;
  const std::size_t perTask = std::max<std::size_t>(array.record.perTask, 1);
  const bool notReached = place.claim == 0 && work.place % perTask != 0;
  TaskDeath death = taskDeath(place.task);
  WorkEnd end;
  if (array.record.canceling) {
    end = endAsOf(AttemptState::Canceled, VerdictRule::Canceled, "Canceled");
  } else if (death.byHand) {
    end = endAsOf(AttemptState::Failed, VerdictRule::Cluster, withHint(death));
    end.outcome.retryable = false;
  } else if (death.limits || (place.claim == 0 && death.neverBegan)) {
    end = endAsOf(AttemptState::Failed, VerdictRule::Cluster, withHint(death));
  } else if (!place.overSince) {
    end = endAsOf(AttemptState::Lost, VerdictRule::Cluster,
                  "Its process on " + (work.node.empty() ? std::string("the node") : work.node) +
                      " died, or cannot reach the shared folder");
  } else {
    end = endAsOf(AttemptState::Lost, VerdictRule::Cluster, withHint(death));
  }
  end.node = work.node;
  if (!array.folder.leave(work.place, end)) {
    return false; // it lived all the same; the next look finds what it left
  }
  if (notReached && !array.record.canceling) {
    // The task ended with an earlier work; nothing can be said of this one.
    queue_.closePlace(array.record.id, work.place);
    forgetLook(array.record.job);
    return true;
  }
  return collect(array, place, std::move(end));
}

/// Writes the end of a work down, after a look at its files where its process
/// did not come to judging them. True when the place is closed.
bool ClusterEngine::collect(Array& array, Place& place, WorkEnd end) {
  const PlacedWork& work = place.record;
  translate(end.outcome);
  if (end.by == WorkEnd::By::Interrupted) {
    judgeInterrupted(array, place, end.outcome);
  }
  if (end.by != WorkEnd::By::GivenUp) {
    settle(array, work.place, end);
    return true;
  }
  if (end.outcome.state == AttemptState::Lost && !array.record.canceling && place.overSince) {
    // Another process may have left this end before it died; the reason is
    // the same one.
    end.outcome.reason = end.outcome.reason.empty() ? withHint(taskDeath(place.task)) : end.outcome.reason;
  }
  const bool known = std::any_of(rescues_.begin(), rescues_.end(), [&](const Rescue& rescue) {
    return rescue.array == array.record.id && rescue.place == work.place;
  });
  if (known) {
    return false;
  }
  const int claim = array.folder.lastClaim(work.place, place.claim);
  const std::optional<WorkClaim> taken = claim > 0 ? array.folder.claimOf(work.place, claim) : std::nullopt;
  ClusterJob* job = open(array.record.job);
  if (!taken || job == nullptr) {
    settle(array, work.place, end); // nothing was rendered
    return true;
  }
  end.started = std::min(taken->started, momentNow());
  startRescue(array, work, std::move(end), claim, *taken);
  return false;
}

/// Begins to look at what the dead processes of a work have left.
void ClusterEngine::startRescue(const Array& array, const PlacedWork& work, WorkEnd end, int claims,
                                const WorkClaim& newest) {
  const ClusterJob& job = *open(array.record.job);
  const TaskSelf here = taskSelf();
  LeftBehind left;
  left.since = end.started;
  for (int number = 1; number <= claims; ++number) {
    left.marks.push_back(taskMark(queue_.queueId(), array.record.job, array.folder, work.place, number));
  }
  if (const std::optional<WorkBeat> beat = array.folder.beatOf(work.place)) {
    end.outcome.log = Path(beat->log).TranslateToLocal().Text();
    end.outcome.command = beat->command;
    if (!end.outcome.log.empty()) {
      left.logs.push_back(end.outcome.log);
    }
    for (FileRecord file : beat->files) {
      file.path = Path(file.path).TranslateToLocal().Text();
      left.named.push_back(std::move(file));
    }
  }
  LostAttempt lost;
  lost.attempt.run = work.run;
  lost.attempt.job = array.record.job;
  lost.attempt.started = end.started;
  lost.mark = left.marks.back();
  lost.sameBoot = newest.host == here.host && newest.boot == here.boot;
  Rescue rescue{array.record.id, work.place, std::move(end), {}, nullptr};
  SmartHandle<Job> object;
  if (job.works) {
    try {
      WorkInfo info;
      info.run = work.run;
      info.hasFrames = job.record.hasFrames;
      object = job.works->make(info);
      const std::string mark = taskMark(queue_.queueId(), array.record.job, array.folder, work.place, 0);
      LeftFiles found = takeLeft(*object, job.request->stage, mark, left);
      rescue.stage = std::move(found.staged);
      lost.files = std::move(found.files);
      lost.attempt.started = found.since;
    } catch (Exception* exception) {
      LogWarning("job " + std::to_string(job.record.id) +
                 ": what a dead task left is not looked at: " + takeText(exception));
      object = SmartHandle<Job>();
    }
  }
  rescue.recovery =
      std::make_unique<Recovery>(std::move(lost), std::move(object), job.record.hasFrames, inspector_);
  rescues_.push_back(std::move(rescue));
}

void ClusterEngine::advanceRescues() {
  for (auto rescue = rescues_.begin(); rescue != rescues_.end();) {
    if (!rescue->recovery->advance(machine_)) {
      ++rescue;
      continue;
    }
    const auto array = arrays_.find(rescue->array);
    if (array != arrays_.end() && array->second.places.contains(rescue->place)) {
      const Outcome& found = rescue->recovery->outcome();
      rescue->end.outcome.good = found.good;
      rescue->end.outcome.files = found.files;
      if (rescue->stage.isUsed()) {
        rescue->stage.publish(rescue->end.outcome);
      }
      settle(array->second, rescue->place, rescue->end);
      array->second.places.erase(rescue->place);
    }
    rescue = rescues_.erase(rescue);
  }
  std::erase_if(arrays_, [](const auto& array) { return array.second.places.empty(); });
}

void ClusterEngine::settle(const Array& array, std::size_t place, const WorkEnd& end) {
  Outcome outcome = end.outcome;
  if (outcome.alike.empty()) {
    outcome.alike = outcome.reason;
  }
  const Moment started = end.started == Moment{} ? momentNow() : std::min(end.started, momentNow());
  queue_.settlePlaced(array.record.id, place, started, std::move(outcome));
  forgetLook(array.record.job);
  refreshJob(array.record.job);
}

void ClusterEngine::forgetLook(JobId job) {
  if (const auto known = jobs_.find(job); known != jobs_.end()) {
    known->second.looked = false;
  }
}

/// Its state, which this process's own changes may have changed.
void ClusterEngine::refreshJob(JobId job) {
  if (const auto known = jobs_.find(job); known != jobs_.end()) {
    if (std::optional<JobRecord> record = queue_.job(job)) {
      known->second.record = std::move(*record);
    }
  }
}

} // namespace trovik
