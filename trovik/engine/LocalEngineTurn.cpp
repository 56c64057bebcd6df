#include "trovik/engine/LocalEngine.h"

#include "host/foundation/Bytes.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"

#include <algorithm>
#include <utility>

// What each turn of the engine's loop writes into the queue, and tells once it
// is written.
//
// Problem: a slot is empty from the end of its program to the start of the next
// one, and with works of a millisecond that time is what a job takes.
//
// Model: the next program must not start before the queue knows of it, and the
// end of the last one is written in the same transaction. So what lies between
// the two is to take an end, one transaction, one expansion and one start.
// Everything else can be done while programs run, and on a machine whose slots
// are its processors even that is not free.
//
// Choice: a turn commits, starts its programs, and only then tells what it has
// written, puts away the objects of what has ended, syncs the log where that is
// due, and makes job objects for as many works as have just begun. Only where a
// job may have ended, one begins that was not open, or an attempt was lost, is it
// told before anything starts, since readers of the events hear of one job after
// the other. What is only to be found at the end of all (other engines, ended
// jobs) is checked for twice a second and when nothing begins any more.
//
// Of works that are all good and last a few milliseconds, more are claimed than
// there are slots, so that one transaction is enough for many of them and a slot
// is filled at once. For the queue they run: nobody else takes them. Which of them
// have begun is noted in the engine's lock file before each start, a write of
// twenty bytes, so that what had not begun when an engine died was never lost, and
// does not count as an attempt. What does not begin within a twentieth of a second
// is given back, as if it had never been claimed, and so is all of it when an
// attempt is not good, since a job may then be stopped. What has ended waits for
// the next claim to be recorded, and is told after that: a crash takes the verdicts
// of works of some milliseconds, and their files tell whether they were good.
//
// The first of them are made ready while programs run: their job objects, command
// lines and output folders. Where slots are all processors, programs often end
// while this thread waits for one, so two slots are empty at once: each is filled
// as soon as nothing is left of what was in it, and only then that is judged, and
// the other one looked at.
//
// 2,000 works of /bin/true took 1.52 of the time of a loop of posix_spawn and poll
// before, 1.27 when they were claimed ahead, 1.19 since they are made ready, and 1.09
// since threads wait for them, too (Watchers.cpp).

namespace trovik {
namespace {

constexpr std::size_t mostReady = 4;

} // namespace

/// False when the queue could not be written; all is kept for the next turn.
bool LocalEngine::recordTurn() {
  beginAhead();
  if (mayWait()) {
    return false;
  }
  if (!mayKeepAhead()) {
    giveBackAhead();
  }
  const bool wantsWork = stops_ == 0 && mayHaveWork_ && !yields_ && claimed_.empty() &&
                         (busySlots() < plan_.slots || wishAhead().count > 0);
  const bool putAside = stops_ > 0 && plan_.only && !putAside_;
  if (ended_.empty() && settled_.empty() && notes_.empty() && started_.empty() && programEnds_.empty() &&
      unbegun_.empty() && !wantsWork && !putAside) {
    return true;
  }
  std::vector<Claim> claims;
  std::vector<Recorded> recorded;
  try {
    queue_.inTransaction([&] { writeTurn(claims, recorded); }, Queue::Sync::Later);
  } catch (const QueueError& error) {
    if (!error.passes()) {
      throw;
    }
    mayHaveWork_ = true;
    if (!troubled_) {
      LogWarning(error.message + "; nothing is started until it can be written again");
    }
    troubled_ = true;
    return false;
  }
  if (troubled_) {
    LogWarning("the queue can be written again");
    troubled_ = false;
  }
  putAside_ = putAside_ || putAside;
  claimed_.insert(claimed_.end(), claims.begin(), claims.end());
  for (const Claim& claim : claims) {
    ++lastBegun_[claim.job];
  }
  if (!claims.empty()) {
    claimedAhead_ = machine_.now();
  }
  tellMemoryWaits();
  keepTurn(std::move(recorded));
  return true;
}

/// Begins what was claimed ahead in the slots that are free.
void LocalEngine::beginAhead() {
  if (hasAhead() && stops_ == 0 && !troubled_) {
    startWorks();
  }
}

/// Whether what has ended may wait for the next works to be claimed, since slots
/// are filled meanwhile.
bool LocalEngine::mayWait() const {
  return hasAhead() && !troubled_ && settled_.empty() && notes_.empty() && programEnds_.empty() &&
         unbegun_.empty() && mayKeepAhead();
}

/// A failure may change which works are to begin, and what does not begin in
/// time may be wanted by other engines.
bool LocalEngine::mayKeepAhead() const {
  return stops_ == 0 && endedWell_ && machine_.now() < claimedAhead_ + aheadPatience;
}

void LocalEngine::giveBackAhead() {
  ready_.clear();
  std::erase_if(claimed_, [this](const Claim& claim) {
    if (!claim.ahead) {
      return false;
    }
    unbegun_.push_back(claim.attempt);
    if (const auto job = jobs_.find(claim.job); job != jobs_.end()) {
      job->second->noteDelay();
    }
    return true;
  });
}

ClaimsAhead LocalEngine::wishAhead() {
  ClaimsAhead ahead;
  if (plan_.slotsAreCpus || !claimsAhead_) {
    return ahead;
  }
  for (const auto& [id, job] : jobs_) {
    if (const std::size_t count = job->worksAhead(plan_.slots); count > 0) {
      ahead.count = ahead.jobs.empty() ? count : std::min(ahead.count, count);
      ahead.jobs.push_back(id);
    }
  }
  if (ahead.count > 0 && !notesBegun_) {
    notesBegun_ = noteBegun(0);
  }
  return claimsAhead_ ? ahead : ClaimsAhead();
}

/// False where it cannot be noted: then nothing begins that was claimed ahead.
bool LocalEngine::noteBegun(AttemptId attempt) {
  try {
    queue_.noteBegun(engine_, attempt);
    return true;
  } catch (const QueueError& error) {
    LogDebug(error.message);
    claimsAhead_ = false;
    giveBackAhead();
    return false;
  }
}

void LocalEngine::writeTurn(std::vector<Claim>& claims, std::vector<Recorded>& recorded) {
  if (stops_ > 0 && plan_.only && !putAside_ && interrupts_.byUser()) {
    queue_.stop(*plan_.only, "Stopped by the user");
  }
  if (!unbegun_.empty()) {
    queue_.giveBack(unbegun_);
  }
  for (const Started& started : started_) {
    // Of what has ended already nothing is left for another engine to find.
    if (std::any_of(ended_.begin(), ended_.end(),
                    [&](const auto& attempt) { return attempt->claim().attempt == started.attempt; })) {
      continue;
    }
    queue_.noteProcess(started.attempt, started.process, started.filesBefore);
  }
  for (const auto& [attempt, end] : programEnds_) {
    queue_.noteEnd(attempt, end);
  }
  for (const Note& note : notes_) {
    queue_.noteFile(note.attempt, note.file);
  }
  for (const auto& attempt : ended_) {
    recorded.push_back(record(attempt->outcome()));
  }
  for (const Settled& settled : settled_) {
    recorded.push_back(record(settled.outcome));
  }
  // What has ended may be tried again, or others may have waited for it.
  mayHaveWork_ = mayHaveWork_ || !recorded.empty();
  if (stops_ == 0 && claimed_.empty() && mayHaveWork_ && !yields_) {
    claimWorks(claims);
  }
}

/// What was written is out of the way of what happens next, and is told.
void LocalEngine::keepTurn(std::vector<Recorded>&& recorded) {
  Turn turn;
  turn.recorded = std::move(recorded);
  turn.begun = std::exchange(begun_, {});
  turn.ended = std::exchange(ended_, {});
  endedWell_ = true;
  unbegun_.clear();
  turn.settled = std::exchange(settled_, {});
  notes_.clear();
  started_.clear();
  programEnds_.clear();
  // A job of which nothing more was claimed may have ended; its end is reported
  // before another one begins.
  turn.perhapsOver = std::any_of(turn.ended.begin(), turn.ended.end(), [this](const auto& attempt) {
    return std::none_of(claimed_.begin(), claimed_.end(),
                        [&](const Claim& claim) { return claim.job == attempt->claim().job; });
  });
  // What was to be told after an end that did not come with this turn.
  for (Begun& begun : turn.begun) {
    begun.after = std::min(begun.after, turn.ended.size());
  }
  written_ = std::move(turn);
}

LocalEngine::Recorded LocalEngine::record(const Outcome& outcome) {
  Recorded recorded;
  recorded.again = queue_.settle(outcome, &recorded.corrected);
  return recorded;
}

void LocalEngine::claimWorks(std::vector<Claim>& claims) {
  const std::size_t busy = busySlots();
  const ClaimsAhead ahead = wishAhead();
  if (busy >= plan_.slots && ahead.count == 0) {
    mayHaveWork_ = true;
    return;
  }
  // How wide a work is shows only when its job is known, so wide ones are taken
  // one by one; the last of them may have to wait for its slots.
  const std::size_t wanted = plan_.slotsAreCpus ? 1 : plan_.slots - std::min(busy, plan_.slots);
  MemoryCheck memory;
  memory.ask = [this](const std::vector<int>& groups) { return machine_.memory(groups); };
  claims = queue_.claim(engine_, wanted, plan_.only, refused_, &memory, ahead);
  mayHaveWork_ = claims.size() == wanted + ahead.count;
  memoryWaits_ = std::move(memory.waits);
}

/// Each job once, until its works begin again.
void LocalEngine::tellMemoryWaits() {
  std::erase_if(toldOfMemory_, [this](JobId job) {
    return std::none_of(memoryWaits_.begin(), memoryWaits_.end(),
                        [job](const MemoryWait& wait) { return wait.job == job; });
  });
  for (const MemoryWait& wait : memoryWaits_) {
    if (std::find(toldOfMemory_.begin(), toldOfMemory_.end(), wait.job) == toldOfMemory_.end()) {
      toldOfMemory_.push_back(wait.job);
      LogWarning("job " + std::to_string(wait.job) + " waits for memory: a work needs " +
                 BytesText(wait.needed) + ", and " + BytesText(wait.free) + " is free");
    }
  }
}

/// Programs first: what is told and put away meanwhile costs a slot nothing. But
/// the end of a job is told before another one begins, and what began before
/// what else comes of it.
void LocalEngine::startAndTell() {
  const bool startsFirst =
      !written_ || (!written_->perhapsOver && written_->settled.empty() &&
                    std::all_of(claimed_.begin(), claimed_.end(),
                                [this](const Claim& claim) { return jobs_.contains(claim.job); }));
  if (startsFirst) {
    startWorks();
    lendAttempts();
  }
  if (written_) {
    tellTurn(*written_);
    written_.reset();
  }
  if (!startsFirst) {
    startWorks();
  }
  tellStarts();
  queue_.syncWhenDue();
  makeAhead();
}

void LocalEngine::tellStarts() {
  for (const Begun& begun : std::exchange(begun_, {})) {
    events_.workStarted(begun.work);
  }
}

/// Job objects for as many works as are likely to begin next.
void LocalEngine::makeAhead() {
  const auto begun = std::exchange(lastBegun_, {});
  if (!mayHaveWork_ || stops_ > 0) {
    return;
  }
  try {
    for (const auto& [id, count] : begun) {
      if (const auto job = jobs_.find(id); job != jobs_.end()) {
        job->second->makeAhead(count);
      }
    }
  } catch (...) {
    LogDebug(TakeCaughtText()); // the work for which it fails again tells it
  }
}

std::unique_ptr<Attempt> LocalEngine::attemptAt(const Claim& claim, OpenJob& job) {
  const WorkInfo work = job.work(queue_, claim);
  AttemptListener& listener = *this;
  return std::make_unique<Attempt>(
      work, claim, job.make(work),
      job.logs().open(work.hasFrames ? std::string(work.run.Text()) : work.title(), claim.number), inspector_,
      listener);
}

/// Makes ready, while programs run, what is to start when they end, which they
/// often do at once: where slots are all processors this thread waits, too.
void LocalEngine::makeReady() {
  if (!hasAhead() || stops_ > 0) {
    return;
  }
  const std::size_t wanted = std::min({plan_.slots, mostReady, claimed_.size()});
  for (std::size_t place = 0; place < wanted; ++place) {
    const Claim& claim = claimed_[place];
    const bool isReady = std::any_of(ready_.begin(), ready_.end(), [&claim](const auto& attempt) {
      return attempt->claim().attempt == claim.attempt;
    });
    if (isReady) {
      continue;
    }
    const auto job = jobs_.find(claim.job);
    if (job == jobs_.end()) {
      return;
    }
    try {
      std::unique_ptr<Attempt> attempt = attemptAt(claim, *job->second);
      attempt->prepare();
      ready_.push_back(std::move(attempt));
    } catch (...) {
      LogDebug(TakeCaughtText()); // its start tells it
      return;
    }
  }
}

/// What was made for a claim; nothing where there is no such thing.
std::unique_ptr<Attempt> LocalEngine::takeReady(const Claim& claim) {
  const auto made = std::find_if(ready_.begin(), ready_.end(), [&claim](const auto& attempt) {
    return attempt->claim().attempt == claim.attempt;
  });
  if (made == ready_.end()) {
    return nullptr;
  }
  std::unique_ptr<Attempt> attempt = std::move(*made);
  ready_.erase(made);
  return attempt;
}

void LocalEngine::tellTurn(const Turn& turn) {
  std::size_t place = 0;
  auto begun = turn.begun.begin();
  const auto tellBegun = [&] {
    for (; begun != turn.begun.end() && begun->after <= place; ++begun) {
      events_.workStarted(begun->work);
    }
  };
  tellBegun();
  for (const auto& attempt : turn.ended) {
    WorkResult result = attempt->result();
    const auto& [again, corrected] = turn.recorded[place++];
    if (corrected) {
      result.verdict = verdictOf(corrected->state);
      result.rule = corrected->rule;
      result.reason = corrected->state == AttemptState::Good ? std::string() : corrected->reason;
      result.good = corrected->good;
    }
    result.again = result.verdict == Verdict::Failed && again;
    if (const auto job = jobs_.find(attempt->claim().job); job != jobs_.end()) {
      job->second->tell(attempt->job(), result.reason, corrected && result.verdict == Verdict::Failed);
    }
    events_.workEnded(attempt->work(), result);
    tellBegun();
  }
  for (const Settled& settled : turn.settled) {
    if (settled.work && (!plan_.only || plan_.only == settled.work->job)) {
      const auto& [again, corrected] = turn.recorded[place];
      tellLost({corrected.value_or(settled.outcome), settled.work}, again);
    }
    ++place;
  }
  if (!recoveries_.empty() && std::all_of(recoveries_.begin(), recoveries_.end(),
                                          [](const auto& one) { return one->isRecorded(); })) {
    recoveries_.clear();
    queue_.releaseLost();
  }
  if (turn.perhapsOver) {
    finishJobs();
  }
  // Whether that was the last work is not left to wait for; but where others
  // begin at once, a check after each of them would cost more than a short one,
  // above all its sync.
  if (!turn.recorded.empty() && running_.empty() && claimed_.empty()) {
    nextTick_ = machine_.now();
  }
}

/// What became of an attempt whose engine died. It began in another run.
void LocalEngine::tellLost(const Settled& lost, bool again) {
  try {
    if (open(lost.work->job) == nullptr) {
      return;
    }
  } catch (...) {
    LogDebug(TakeCaughtText()); // a job that cannot be worked here
    return;
  }
  WorkResult result;
  result.verdict = verdictOf(lost.outcome.state);
  result.rule = lost.outcome.rule;
  result.good = lost.outcome.good;
  result.again = again;
  result.reason = lost.outcome.reason;
  result.lines = lost.outcome.lines;
  result.log = Path(lost.outcome.log);
  result.duration = lost.outcome.duration;
  events_.workEnded(*lost.work, result);
}

} // namespace trovik
