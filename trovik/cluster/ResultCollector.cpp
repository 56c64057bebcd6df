#include "trovik/cluster/ClusterEngineImpl.h"

#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/cluster/TaskProcess.h"
#include "trovik/records/Moments.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

// What became of the works that the cluster has: read from the folders.

namespace trovik {
namespace {

/// Files that are checked in one turn: what is left has its turn later, so
/// that ten thousand works cost no more than some hundreds.
constexpr std::size_t checksPerTurn = 400;
constexpr std::size_t rollingChecks = 50;              // of them of works that most likely wait
constexpr Duration beatTime = std::chrono::seconds(2); // between readings of one beat
constexpr Duration beatTimeOfMany = std::chrono::seconds(10);
constexpr Duration usualTurnTime = std::chrono::milliseconds(500);
constexpr Duration turnTimeOfMany = std::chrono::seconds(1);
constexpr Duration busyTurnTime = std::chrono::milliseconds(100); // files are being checked
constexpr std::size_t manyWorks = 50;

/// A path that another machine wrote, by this one's path maps.
std::string localPath(const std::string& path) {
  return Path(path).TranslateToLocal().Text();
}

void translate(Outcome& outcome) {
  outcome.log = localPath(outcome.log);
  for (FileRecord& file : outcome.files) {
    file.path = localPath(file.path);
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

/// The end of a work of which none comes any more.
WorkEnd endWithoutResult(const OpenArray& array, const OpenWork& work) {
  const TaskDeath death = taskDeath(work.task);
  WorkEnd end;
  if (array.record.canceling) {
    end = endAsOf(AttemptState::Canceled, VerdictRule::Canceled, "Canceled");
  } else if (death.byHand) {
    end = endAsOf(AttemptState::Failed, VerdictRule::Cluster, withHint(death));
    end.outcome.retryable = false;
  } else if (death.limits || (work.claim == 0 && death.neverBegan)) {
    end = endAsOf(AttemptState::Failed, VerdictRule::Cluster, withHint(death));
  } else if (!work.overSince) {
    const std::string& node = work.record.node;
    end = endAsOf(AttemptState::Lost, VerdictRule::Cluster,
                  "Its process on " + (node.empty() ? std::string("the node") : node) +
                      " died, or cannot reach the shared folder");
  } else {
    end = endAsOf(AttemptState::Lost, VerdictRule::Cluster, withHint(death));
  }
  end.node = work.record.node;
  return end;
}

/// What the cluster says of a task that it ended.
void judgeInterrupted(const OpenArray& array, const OpenWork& work, Outcome& outcome) {
  if (work.phase != TaskPhase::Over || array.record.canceling || outcome.state != AttemptState::Lost) {
    return;
  }
  const TaskDeath death = taskDeath(work.task);
  if (death.limits || death.byHand) {
    outcome.state = AttemptState::Failed;
    outcome.reason = withHint(death);
    outcome.alike = outcome.reason;
    outcome.retryable = !death.byHand;
  }
}

} // namespace

void ResultCollector::advance() {
  if (!state_.arrays.empty()) {
    std::ptrdiff_t active = 0;
    for (const auto& [id, array] : state_.arrays) {
      active += std::count_if(array.works.begin(), array.works.end(),
                              [](const auto& work) { return work.second.phase == TaskPhase::Active; });
    }
    many_ = active > static_cast<std::ptrdiff_t>(manyWorks);
    // No transaction around it: a folder of a network may take its time, and
    // what is written of a work is whole by itself.
    for (auto& [id, array] : state_.arrays) {
      checkArray(array);
    }
    state_.closeArrays();
  }
  advanceRecoveries();
}

Duration ResultCollector::turnTime() const {
  return !isIdle() ? busyTurnTime : many_ ? turnTimeOfMany : usualTurnTime;
}

void ResultCollector::checkArray(OpenArray& array) {
  std::vector<std::size_t> chosen;
  std::size_t rolling = 0;
  // From where the last turn came to its end, once around.
  auto work = array.works.lower_bound(array.next);
  for (std::size_t i = 0; i < array.works.size() && chosen.size() < checksPerTurn; ++i, ++work) {
    work = work == array.works.end() ? array.works.begin() : work;
    if (isWorthACheck(array, work->second)) {
      chosen.push_back(work->first);
    } else if (mayHaveStarted(work->second) && rolling < rollingChecks) {
      ++rolling;
      chosen.push_back(work->first);
    } else {
      continue;
    }
    array.next = work->first + 1;
  }
  bool reached = true;
  for (const std::size_t position : chosen) {
    const auto found = array.works.find(position);
    try {
      if (check(array, found->second)) {
        array.close(position);
      }
    } catch (Exception* exception) {
      reached = false;
      const std::string problem = takeText(exception);
      found->second.alive = state_.machine.now(); // nothing is known, so nothing is dead
      state_.notify(array.record.job, "folder " + array.record.name,
                    "job " + std::to_string(array.record.job) + ": its folder cannot be read: " + problem,
                    "works are neither done nor given up until it can");
    }
  }
  if (reached && !chosen.empty()) {
    state_.notified.erase("folder " + array.record.name);
  }
}

/// Its task runs, has run, or may well do so by now.
bool ResultCollector::isWorthACheck(const OpenArray& array, const OpenWork& work) const {
  switch (work.phase) {
  case TaskPhase::Waiting:
    return work.record.restarts > 0 || work.claim > 0;
  case TaskPhase::Unknown:
    return work.claim > 0 || !state_.checkedOnce;
  case TaskPhase::Over:
  case TaskPhase::Retry:
    return true;
  case TaskPhase::Active:
    break;
  }
  // A task does its works one after another.
  return work.claim > 0 || work.record.position % array.record.perTask == 0 ||
         !array.works.contains(work.record.position - 1);
}

/// What the cluster said last may be out of date.
bool ResultCollector::mayHaveStarted(const OpenWork& work) const {
  return work.phase == TaskPhase::Unknown ||
         (work.phase == TaskPhase::Waiting && !state_.contact.problem.empty());
}

/// True when the work is settled or without a task again, and can be forgotten.
bool ResultCollector::check(OpenArray& array, OpenWork& work) {
  std::optional<WorkEnd> end;
  std::string damage;
  try {
    end = array.folder.endOf(work.record.position);
  } catch (Exception* exception) {
    damage = takeText(exception);
  }
  if (!damage.empty() && !array.folder.hasEnded(work.record.position)) {
    RaiseException("ResultCollector::check", k_ErrorSystem, damage);
  }
  if (!damage.empty()) {
    // No other one can take its place any more.
    end = endAsOf(AttemptState::Lost, VerdictRule::Cluster, "What it left cannot be read: " + damage);
  }
  if (end && end->by == WorkEnd::By::Interrupted && !knowsWhy(work)) {
    return false;
  }
  if (end) {
    return collect(array, work, std::move(*end));
  }
  noteAlive(array, work);
  return considerDeath(array, work);
}

/// Whether the cluster has said why it ended a task that left an end when it
/// was asked to end; it says so a few seconds later. Waits no longer than a
/// process may be silent.
bool ResultCollector::knowsWhy(OpenWork& work) {
  if (work.phase != TaskPhase::Active && work.phase != TaskPhase::Unknown) {
    return true;
  }
  if (!work.interrupted) {
    work.interrupted = state_.machine.now();
    state_.pause = ClusterEngine::questionPause;
  }
  return state_.machine.now() - *work.interrupted >= state_.settings.patience;
}

void ResultCollector::noteAlive(OpenArray& array, OpenWork& work) {
  const Clock::time_point now = state_.machine.now();
  if (work.claim > 0 && work.read && now - *work.read < (many_ ? beatTimeOfMany : beatTime)) {
    return;
  }
  ArrayWork& record = work.record;
  const int claim = array.folder.lastClaim(record.position, work.claim);
  if (claim == 0) {
    return;
  }
  work.read = now;
  if (claim != work.claim) {
    work.claim = claim;
    work.alive = now;
    work.beats = -1;
  }
  if (record.attempt == 0) {
    const std::optional<WorkClaim> taken = array.folder.claimOf(record.position, claim);
    record.attempt = state_.queue.beginArrayWork(array.record.id, record.position,
                                                 taken ? std::min(taken->started, momentNow()) : momentNow());
  }
  const std::optional<WorkBeat> beat = array.folder.beatOf(record.position);
  if (!beat || beat->claim != claim || beat->count == work.beats) {
    return;
  }
  work.alive = now;
  work.beats = beat->count;
  AttemptBeat noted;
  noted.attempt = record.attempt;
  noted.log = localPath(beat->log);
  noted.logBytes = beat->logBytes;
  noted.stage = beat->stage;
  noted.silent = beat->silent;
  noted.seen = momentNow();
  state_.queue.noteBeat(noted);
  const std::string stage =
      "/.trovik-" + taskMark(state_.queue.queueId(), array.record.job, array.folder, record.position, claim) +
      '/';
  for (; work.files < beat->files.size(); ++work.files) {
    FileRecord file = beat->files[work.files];
    if (file.path.find(stage) != std::string::npos) {
      continue; // it is not where users expect it before its work has ended
    }
    file.path = localPath(file.path);
    state_.queue.noteFile(record.attempt, file);
  }
}

/// Gives up a work whose task has ended, or whose process has died, without
/// leaving an end. True when the work can be forgotten.
bool ResultCollector::considerDeath(OpenArray& array, OpenWork& work) {
  const Clock::time_point now = state_.machine.now();
  const Duration patience = state_.settings.patience;
  const bool over = work.overSince.has_value();
  if (work.claim == 0) {
    if (!over) {
      return false;
    }
    if (array.record.canceling && array.canceled) {
      // The mark in the folder keeps back whatever may start after all.
      state_.queue.closeArrayWork(array.record.id, work.record.position);
      state_.checkAgain(array.record.job);
      return true;
    }
    return now - *work.overSince >= patience && giveUp(array, work);
  }
  const Duration silent = now - std::max(work.alive, over ? *work.overSince : work.alive);
  if (over) {
    return silent >= patience && giveUp(array, work);
  }
  if (work.phase != TaskPhase::Active || silent < 2 * patience || work.task.state != "RUNNING") {
    return false; // a task that waits again recovers its work by itself, one that is suspended goes on
  }
  // The cluster believes that it runs, but its process is dead: the task's
  // supervisor was killed.
  return giveUp(array, work);
}

/// Leaves an end for a work of which none comes. True when the work can be
/// forgotten.
bool ResultCollector::giveUp(OpenArray& array, OpenWork& work) {
  WorkEnd end = endWithoutResult(array, work);
  if (!array.folder.leave(work.record.position, end)) {
    return false; // it lived all the same; the next check finds what it left
  }
  const bool notReached = work.claim == 0 && work.record.position % array.record.perTask != 0;
  if (notReached && !array.record.canceling) {
    // The task ended with an earlier work; nothing can be said of this one.
    state_.queue.closeArrayWork(array.record.id, work.record.position);
    state_.checkAgain(array.record.job);
    return true;
  }
  return collect(array, work, std::move(end));
}

/// Writes the end of a work down, after a check of its files where its process
/// did not come to judging them. True when the work can be forgotten.
bool ResultCollector::collect(OpenArray& array, OpenWork& work, WorkEnd end) {
  const ArrayWork& record = work.record;
  translate(end.outcome);
  if (end.by == WorkEnd::By::Interrupted) {
    judgeInterrupted(array, work, end.outcome);
  }
  if (end.by != WorkEnd::By::GivenUp) {
    settle(array, record.position, end);
    return true;
  }
  if (end.outcome.state == AttemptState::Lost && end.outcome.reason.empty() && !array.record.canceling &&
      work.overSince) {
    end.outcome.reason = withHint(taskDeath(work.task)); // as another process left it before it died
  }
  const bool known = std::any_of(recoveries_.begin(), recoveries_.end(), [&](const GivenUp& other) {
    return other.array == array.record.id && other.position == record.position;
  });
  if (known) {
    return false;
  }
  const int claim = array.folder.lastClaim(record.position, work.claim);
  const std::optional<WorkClaim> taken =
      claim > 0 ? array.folder.claimOf(record.position, claim) : std::nullopt;
  if (!taken || state_.open(array.record.job) == nullptr) {
    settle(array, record.position, end); // nothing was rendered
    return true;
  }
  end.started = std::min(taken->started, momentNow());
  recover(array, record, std::move(end), claim, *taken);
  return false;
}

/// Begins to check what the dead processes of a work have left.
void ResultCollector::recover(const OpenArray& array, const ArrayWork& work, WorkEnd end, int claims,
                              const WorkClaim& newest) {
  const ClusterJob& job = *state_.open(array.record.job);
  const auto markOf = [&](int number) {
    return taskMark(state_.queue.queueId(), array.record.job, array.folder, work.position, number);
  };
  const TaskSelf here = taskSelf();
  LeftBehind left;
  left.onThisMachine = here.sharesMachine(newest) && claims == 1;
  for (int number = 1; number <= claims; ++number) {
    left.marks.push_back(markOf(number));
  }
  const std::optional<WorkBeat> beat = array.folder.beatOf(work.position);
  if (beat) {
    end.outcome.log = localPath(beat->log);
    end.outcome.command = beat->command;
    left.filesBefore = beat->filesBefore;
    if (!end.outcome.log.empty()) {
      left.logs.push_back(end.outcome.log);
    }
    for (FileRecord file : beat->files) {
      file.path = localPath(file.path);
      left.named.push_back(std::move(file));
    }
  }
  LostAttempt lost;
  lost.attempt.run = work.run;
  lost.attempt.job = array.record.job;
  lost.attempt.started = end.started;
  lost.mark = left.marks.back();
  lost.sameBoot = here.sharesMachine(newest);
  GivenUp entry{array.record.id, work.position, std::move(end), {}, nullptr};
  SmartHandle<Job> object;
  if (job.works) {
    try {
      WorkInfo info;
      info.run = work.run;
      info.hasFrames = job.record.hasFrames;
      object = job.works->make(info);
      LeftFiles found = takeLeft(*object, job.request->stage, markOf(0), left);
      entry.stage = std::move(found.staged);
      lost.files = std::move(found.files);
      lost.filesBefore = std::move(found.filesBefore);
      lost.onThisMachine = left.onThisMachine;
      // Its verdict can be given as it would have given it; but what a process
      // before it printed says nothing of this one.
      if (beat && beat->end && beat->claim == claims && claims == 1 && found.logBytes == beat->logBytes) {
        lost.logRead = true;
        lost.end = ProgramEnd{beat->end->Code, beat->end->Signal, beat->end->Usage,          beat->command,
                              beat->log,       beat->logBytes,    entry.end.outcome.duration};
      }
    } catch (Exception* exception) {
      LogWarning("job " + std::to_string(job.record.id) +
                 ": what a dead task left is not checked: " + takeText(exception));
      object = SmartHandle<Job>();
    }
  }
  entry.recovery =
      std::make_unique<Recovery>(std::move(lost), std::move(object), job.record.hasFrames, state_.inspector);
  recoveries_.push_back(std::move(entry));
}

void ResultCollector::advanceRecoveries() {
  for (auto entry = recoveries_.begin(); entry != recoveries_.end();) {
    if (!entry->recovery->advance(state_.machine)) {
      ++entry;
      continue;
    }
    const auto array = state_.arrays.find(entry->array);
    if (array != state_.arrays.end() && array->second.works.contains(entry->position)) {
      const Outcome& found = entry->recovery->outcome();
      Outcome& outcome = entry->end.outcome;
      if (outcome.state == AttemptState::Lost && found.state == AttemptState::Good) {
        outcome.state = found.state;
        outcome.rule = found.rule;
        outcome.reason = found.reason;
        outcome.alike.clear();
        outcome.exitCode = found.exitCode;
        outcome.signal = found.signal;
        outcome.usage = found.usage;
      }
      outcome.good = found.good;
      outcome.files = found.files;
      if (entry->stage.isUsed()) {
        entry->stage.publish(outcome);
      }
      settle(array->second, entry->position, entry->end);
      array->second.close(entry->position);
    }
    entry = recoveries_.erase(entry);
  }
  state_.closeArrays();
}

void ResultCollector::settle(const OpenArray& array, std::size_t position, const WorkEnd& end) {
  Outcome outcome = end.outcome;
  if (outcome.alike.empty()) {
    outcome.alike = outcome.reason;
  }
  const Moment started = end.started == Moment{} ? momentNow() : std::min(end.started, momentNow());
  state_.queue.settleArrayWork(array.record.id, position, started, std::move(outcome));
  state_.checkAgain(array.record.job);
  state_.refresh(array.record.job);
}

} // namespace trovik
