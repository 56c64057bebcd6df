#include "trovik/engine/LocalEngine.h"

#include "host/foundation/Log.h"

#include <algorithm>

// What an engine waits for, and what comes of it: on its own thread, and on those
// that wait for short works beside it.

namespace trovik {
namespace {

// A turn takes a tenth of the time of a short program, so that more threads
// would wait for each other.
constexpr std::size_t mostWatchers = 7;

} // namespace

/// Null where one thread is to wait for all.
std::unique_ptr<Watchers> LocalEngine::makeWatchers() {
  const std::size_t threads = plan_.slotsAreCpus ? 1 : std::min(plan_.slots, machine_.processors());
  return threads < 2 ? nullptr
                     : std::make_unique<Watchers>(machine_, std::min(threads - 1, mostWatchers),
                                                  [this](Attempt& attempt) { return turnBeside(attempt); });
}

bool LocalEngine::isWatched(const Attempt& attempt) const {
  return watchers_ != nullptr && watchers_->watches(attempt);
}

void LocalEngine::takeBackAttempts() {
  if (watchers_ != nullptr) {
    watchers_->takeBack();
  }
}

/// Short works but one to the threads that are free.
void LocalEngine::lendAttempts() {
  if (watchers_ == nullptr || stops_ > 0) {
    return;
  }
  bool hasOwn = false;
  for (const auto& attempt : running_) {
    if (attempt->awaitsVerdict() || attempt->isChecking() || isWatched(*attempt)) {
      continue;
    }
    if (hasOwn && attempt->claim().ahead && !watchers_->lend(*attempt)) {
      return;
    }
    hasOwn = true;
  }
}

/// False where nothing came but the end of outputs: mostly their programs end some
/// microseconds later, and nothing is to be done before.
bool LocalEngine::waitForSomething(std::unique_lock<std::mutex>& turn) {
  lendAttempts();
  std::vector<pollfd>& descriptors = descriptors_;
  descriptors.assign({{interrupts_.descriptor(), POLLIN, 0},
                      {inspector_.descriptor(), POLLIN, 0},
                      {watchers_ == nullptr ? -1 : watchers_->descriptor(), POLLIN, 0}});
  const std::size_t others = descriptors.size();
  Clock::time_point deadline = nextTick_;
  const auto consider = [&deadline](const std::optional<Clock::time_point>& time) {
    deadline = time ? std::min(deadline, *time) : deadline;
  };
  consider(inspector_.deadline());
  consider(leaveAt_);
  if (hasAhead()) {
    consider(claimedAhead_ + aheadPatience);
  }
  if (std::any_of(recoveries_.begin(), recoveries_.end(),
                  [](const auto& recovery) { return !recovery->isRecorded(); })) {
    consider(machine_.now() + orphanTime);
  }
  // Two entries for each attempt that no other thread waits for, in the order of
  // the list, which stays: others put new ones behind, and take their own.
  std::vector<const Attempt*>& awaited = awaited_;
  awaited.clear();
  for (const auto& attempt : running_) {
    if (!isWatched(*attempt)) {
      awaited.push_back(attempt.get());
      descriptors.push_back({attempt->outputDescriptor(), POLLIN, 0});
      descriptors.push_back({attempt->exitDescriptor(), POLLIN, 0});
      consider(attempt->deadline());
    }
  }
  const bool more =
      !troubled_ && !mayWait() &&
      (!ended_.empty() || !settled_.empty() || !unbegun_.empty() ||
       (mayHaveWork_ && !yields_ && stops_ == 0 && claimed_.empty() && busySlots() < plan_.slots));
  const Duration left = std::max(more ? Duration::zero() : deadline - machine_.now(), Duration::zero());
  if (watchers_ == nullptr) {
    machine_.wait(descriptors, left);
  } else {
    turn.unlock();
    machine_.waitBeside(descriptors, left);
    turn.lock();
    if (descriptors[2].revents != 0) {
      watchers_->takeCall();
    }
  }
  const Clock::time_point now = machine_.now();
  bool isClosing = false;
  bool isOther = std::any_of(descriptors.begin(), descriptors.begin() + static_cast<std::ptrdiff_t>(others),
                             [](const pollfd& descriptor) { return descriptor.revents != 0; });
  std::size_t place = 0;
  std::erase_if(running_, [&](const auto& attempt) {
    if (place == awaited.size() || awaited[place] != attempt.get()) {
      return false;
    }
    const bool waits = descriptors[others + 2 * place].revents != 0;
    isOther = isOther || descriptors[others + 2 * place + 1].revents != 0;
    ++place;
    if (!waits) {
      return false;
    }
    const bool isSound = guard(*attempt, [&] { attempt->readOutput(now); });
    const bool closes = isSound && attempt->outputDescriptor() < 0 && attempt->exitDescriptor() >= 0;
    isClosing = isClosing || closes;
    isOther = isOther || !closes;
    return !isSound;
  });
  inspector_.advance(now);
  return isOther || !isClosing;
}

/// A slot that is empty is filled at once, if there is something made ready for it,
/// and only then it is judged what was in it.
void LocalEngine::advanceAttempts() {
  const Clock::time_point now = machine_.now();
  std::size_t left = running_.size();
  for (auto attempt = running_.begin(); left > 0; --left) {
    if (!isWatched(**attempt)) {
      if (!guard(**attempt, [&] { (*attempt)->advanceProgram(now); })) {
        attempt = running_.erase(attempt);
        continue;
      }
      if ((*attempt)->awaitsVerdict()) {
        beginAhead();
      }
    }
    ++attempt;
  }
  for (auto attempt = running_.begin(); attempt != running_.end();) {
    attempt = isWatched(**attempt) ? std::next(attempt) : judge(attempt, now);
  }
}

/// Goes on with an attempt whose program has ended. Returns the place behind it.
LocalEngine::Attempts::iterator LocalEngine::judge(Attempts::iterator attempt, Clock::time_point now) {
  const bool isDue = (*attempt)->awaitsVerdict() || (*attempt)->isChecking();
  if (isDue && !guard(**attempt, [&] { (*attempt)->advance(now); })) {
    return running_.erase(attempt);
  }
  if (std::optional<ProgramEnd> end = (*attempt)->takeEnd(now)) {
    programEnds_.emplace_back((*attempt)->claim().attempt, std::move(*end));
  }
  if (!(*attempt)->isOver()) {
    return std::next(attempt);
  }
  if (const auto job = jobs_.find((*attempt)->claim().job); job != jobs_.end()) {
    job->second->noteEnd((*attempt)->result().verdict == Verdict::Good, (*attempt)->result().duration);
  }
  putEnded(std::move(*attempt));
  return running_.erase(attempt);
}

/// A turn on a thread that waits for this attempt. It does what must not wait for
/// the engine's own thread, and calls that for all else. Returns the attempt that
/// has been begun in the slot.
Attempt* LocalEngine::turnBeside(Attempt& attempt) {
  const Clock::time_point now = machine_.now();
  const auto place = std::find_if(running_.begin(), running_.end(),
                                  [&attempt](const auto& one) { return one.get() == &attempt; });
  const bool isSound = guard(attempt, [&] {
    attempt.readOutput(now);
    attempt.advanceProgram(now);
  });
  if (isSound && !attempt.awaitsVerdict()) {
    return &attempt;
  }
  Attempt* next = nullptr;
  bool isPlain = false;
  if (!isSound) {
    running_.erase(place);
  } else {
    const std::size_t before = running_.size();
    if (mayKeepAhead() && !claimed_.empty() && claimed_.front().ahead &&
        jobs_.contains(claimed_.front().job)) {
      beginAhead();
    }
    if (running_.size() > before) {
      next = std::next(running_.begin(), static_cast<std::ptrdiff_t>(before))->get();
    }
    isPlain = next != nullptr && running_.back().get() == next;
    judge(place, now);
    isPlain = isPlain && attempt.isOver();
    makeReady();
  }
  if (!isPlain || !mayWait()) {
    watchers_->callOwner();
  }
  return next;
}

} // namespace trovik
