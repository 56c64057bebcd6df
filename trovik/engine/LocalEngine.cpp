#include "trovik/engine/LocalEngine.h"

#include "host/foundation/Log.h"
#include "trovik/engine/EndCommand.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

namespace trovik {
namespace {

constexpr Duration tickTime = std::chrono::milliseconds(500);
constexpr Duration recoveryTime = std::chrono::seconds(2);
// A second wish to stop is obeyed within a second: what has not ended by then
// is left to the next engine, which ends it before it begins anything anew.
constexpr Duration lastPatience = std::chrono::milliseconds(700);
constexpr Duration shortagePatience = std::chrono::minutes(1); // with a machine without processes
constexpr Duration stopPatience = std::chrono::seconds(20);    // with a queue that cannot be written
constexpr std::size_t jobsKept = 64; // jobs without running works that stay unpacked

} // namespace

LocalEngine::LocalEngine(Machine& machine, Queue& queue, ImageInspector& inspector,
                         InterruptSource& interrupts, RunEvents& events)
    : machine_(machine), queue_(queue), inspector_(inspector), interrupts_(interrupts), events_(events) {}

LocalEngine::~LocalEngine() = default;

bool LocalEngine::run(const EnginePlan& plan) {
  plan_ = plan;
  engine_ = queue_.enterEngine(plan.slots);
  dataVersion_ = queue_.dataVersion();
  nextTick_ = nextRecovery_ = machine_.now();
  if (plan.only) {
    open(*plan.only);
  }
  const std::unique_ptr<Watchers> watchers = makeWatchers();
  watchers_ = watchers.get();
  std::unique_lock turn = watchers_ == nullptr ? std::unique_lock<std::mutex>() : watchers_->lock();
  do {
    tick();
    if (recordTurn()) {
      startAndTell();
    }
    if (isDone() || (leaveAt_ && machine_.now() >= *leaveAt_)) {
      break;
    }
    makeReady();
    while (!waitForSomething(turn)) {
    }
    takeInterrupts();
    advanceAttempts();
    advanceRecoveries();
  } while (true);
  for (const auto& attempt : running_) {
    LogWarning("job " + std::to_string(attempt->claim().job) + ", " + attempt->work().title() + ": " +
               (attempt->isChecking() ? "its files were not checked" : "its program has not ended") +
               "; the next engine goes on with it");
  }
  try {
    queue_.leaveEngine(engine_);
  } catch (const QueueError& error) {
    if (!error.passes()) {
      throw;
    }
    LogDebug(error.message); // then the next engine finds that this one is gone
  }
  return stops_ == 0;
}

/// What has to be checked now and then, since no descriptor tells of it.
void LocalEngine::tick() {
  const Clock::time_point now = machine_.now();
  if (now < nextTick_) {
    return;
  }
  nextTick_ = now + tickTime;
  if (watchers_ != nullptr) {
    std::vector<pollfd> none;
    machine_.wait(none, Duration::zero()); // for all that it sees to but the waiting
  }
  try {
    if (const std::int64_t version = queue_.dataVersion(); version != dataVersion_) {
      dataVersion_ = version;
      mayHaveWork_ = true;
      stopCanceled();
    }
    // Whoever has the memory says nothing when it is free.
    mayHaveWork_ = mayHaveWork_ || !memoryWaits_.empty();
    if (now >= nextRecovery_ && recoveries_.empty() && stops_ == 0) {
      nextRecovery_ = now + recoveryTime;
      recoveries_ = takeLostAttempts(queue_, inspector_);
      advanceRecoveries();
    }
    yields_ = plan_.follows && plan_.only && queue_.isUnderWay(*plan_.only, engine_);
    queue_.sync();
    finishJobs();
    if (plan_.whenIdle) {
      plan_.whenIdle();
    }
  } catch (const QueueError& error) {
    if (!error.passes()) {
      throw;
    }
    LogDebug(error.message);
  }
  forgetIdleJobs();
}

void LocalEngine::stopCanceled() {
  if (running_.empty() && claimed_.empty()) {
    return;
  }
  const std::vector<AttemptId> canceled = queue_.canceled(engine_);
  takeBackAttempts();
  ready_.clear();
  std::erase_if(claimed_, [&](const Claim& claim) {
    const bool isOver = std::find(canceled.begin(), canceled.end(), claim.attempt) != canceled.end();
    if (isOver) {
      giveUp(claim, AttemptState::Canceled, VerdictRule::Canceled, "Not started");
    }
    return isOver;
  });
  const Clock::time_point now = machine_.now();
  for (const auto& attempt : running_) {
    if (std::find(canceled.begin(), canceled.end(), attempt->claim().attempt) != canceled.end()) {
      attempt->cancel(now, false);
    }
  }
}

void LocalEngine::advanceRecoveries() {
  for (const auto& recovery : recoveries_) {
    if (!recovery->isRecorded() && recovery->advance(machine_)) {
      settled_.push_back({recovery->outcome(), recovery->work()});
      recovery->markRecorded();
    }
  }
}

/// Starts the end commands of jobs that have ended, and tells of those that
/// were worked here.
void LocalEngine::finishJobs() {
  std::vector<JobRecord> over;
  try {
    over = queue_.takeEnded();
  } catch (const QueueError& error) {
    if (!error.passes()) {
      throw;
    }
    LogDebug(error.message); // the next check finds them
  }
  for (const JobRecord& job : over) {
    startEndCommands(job, queue_.summary(job.id));
    if (!plan_.only && jobs_.contains(job.id)) {
      RunSummary summary = queue_.summary(job.id);
      summary.info.slots = plan_.slots;
      if (plan_.untilEmpty) {
        summary.engine = queue_.hasOtherEngine(engine_); // this one ends
      }
      events_.runEnded(summary);
      jobs_.erase(job.id);
    }
  }
}

OpenJob* LocalEngine::open(JobId id) {
  const auto known = jobs_.find(id);
  if (known != jobs_.end()) {
    return known->second.get();
  }
  const std::optional<JobRecord> record = queue_.job(id);
  if (!record) {
    return nullptr;
  }
  std::shared_ptr<ExecutableMemory> searches;
  if (plan_.only == id && plan_.searches) {
    searches = std::exchange(plan_.searches, nullptr); // should it be opened again, all is new
    searches->Doubt();
  }
  auto job = std::make_unique<OpenJob>(queue_, *record, std::move(searches));
  RunInfo info = job->info(queue_);
  info.slots = plan_.slots;
  tellStarts(); // of other jobs
  events_.runStarted(info);
  return jobs_.emplace(id, std::move(job)).first->second.get();
}

void LocalEngine::forgetIdleJobs() {
  for (auto job = jobs_.begin(); jobs_.size() > jobsKept && job != jobs_.end();) {
    const bool busy = std::any_of(running_.begin(), running_.end(),
                                  [&](const auto& attempt) { return attempt->claim().job == job->first; }) ||
                      std::any_of(claimed_.begin(), claimed_.end(),
                                  [&](const Claim& claim) { return claim.job == job->first; });
    job = busy || plan_.only == job->first ? std::next(job) : jobs_.erase(job);
  }
}

std::size_t LocalEngine::weightOf(JobId job) {
  const auto known = jobs_.find(job);
  return plan_.slotsAreCpus && known != jobs_.end() ? std::min(known->second->cpus(), plan_.slots) : 1;
}

std::size_t LocalEngine::busySlots() {
  std::size_t busy = 0;
  for (const auto& attempt : running_) {
    busy += attempt->awaitsVerdict() ? 0 : weightOf(attempt->claim().job);
  }
  return busy;
}

void LocalEngine::startWorks() {
  while (!claimed_.empty() && stops_ == 0) {
    if (claimed_.front().ahead && busySlots() >= plan_.slots) {
      return;
    }
    const Claim claim = claimed_.front();
    if (plan_.slotsAreCpus) {
      // Opening it tells how wide it is; a job that cannot be opened is refused
      // by the start.
      try {
        open(claim.job);
      } catch (Exception* exception) {
        LogDebug(takeText(exception));
      }
      if (!running_.empty() && busySlots() + weightOf(claim.job) > plan_.slots) {
        return;
      }
    }
    if (machine_.now() < startAgain_ || (claim.ahead && !noteBegun(claim.attempt))) {
      return;
    }
    claimed_.pop_front();
    if (!start(claim)) {
      claimed_.push_front(claim);
      return;
    }
  }
  if (stops_ > 0) {
    giveBackAhead();
  }
  for (const Claim& claim : claimed_) { // stopped before they began
    giveUp(claim, AttemptState::Canceled, VerdictRule::Canceled, "Not started");
  }
  claimed_.clear();
}

/// A machine that has no process to give now mostly has some in a moment; only
/// where it has none for long the work fails. Says when to start next.
Attempt::Shortage LocalEngine::shortage() {
  const Clock::time_point now = machine_.now();
  if (shortageSince_ && now >= *shortageSince_ + shortagePatience) {
    shortageSince_ = now;
    return Attempt::Shortage::Fails;
  }
  return Attempt::Shortage::Waits;
}

void LocalEngine::waitForProcesses() {
  if (!shortageSince_) {
    LogWarning("this machine has no more processes to give (EAGAIN); works are started when it has");
    shortageSince_ = machine_.now();
  }
  startAgain_ = machine_.now() + tickTime;
}

/// False where it is to be started later.
bool LocalEngine::start(const Claim& claim) {
  std::string problem;
  try {
    OpenJob* job = open(claim.job);
    if (job != nullptr) {
      std::unique_ptr<Attempt> attempt = takeReady(claim);
      if (attempt == nullptr) {
        attempt = attemptAt(claim, *job);
      }
      if (std::exchange(announced_, claim.attempt) != claim.attempt) {
        const auto judged = std::count_if(running_.begin(), running_.end(),
                                          [](const auto& other) { return other->awaitsVerdict(); });
        begun_.push_back({attempt->work(), ended_.size() + static_cast<std::size_t>(judged)});
      }
      Attempt::Start started = Attempt::Start::Failed;
      if (!guard(*attempt, [&] { started = attempt->start(machine_, shortage()); })) {
        return true;
      }
      if (started == Attempt::Start::Later) {
        waitForProcesses();
        return false;
      }
      if (started == Attempt::Start::Runs) {
        shortageSince_.reset();
        started_.push_back({claim.attempt, attempt->process(), attempt->filesBefore()});
        job->tell(attempt->job(), {}, false);
        running_.push_back(std::move(attempt));
      } else {
        for (Begun& begun : begun_) { // of which it is one
          begun.after = std::min(begun.after, ended_.size());
        }
        putEnded(std::move(attempt));
      }
      return true;
    }
    problem = "the job is gone";
  } catch (Exception* exception) {
    problem = takeText(exception);
  }
  // Another engine may know the type.
  LogWarning("job " + std::to_string(claim.job) + " cannot be worked here: " + problem);
  refused_.push_back(claim.job);
  giveUp(claim, AttemptState::Canceled, VerdictRule::Start, problem);
  return true;
}

void LocalEngine::giveUp(const Claim& claim, AttemptState state, VerdictRule rule,
                         const std::string& reason) {
  Outcome outcome;
  outcome.attempt = claim.attempt;
  outcome.state = state;
  outcome.rule = rule;
  outcome.reason = reason;
  settled_.push_back({std::move(outcome), std::nullopt});
}

/// What the module of an attempt's type has thrown costs that attempt alone. Called
/// where it was caught.
void LocalEngine::giveUpFailed(const Attempt& attempt) {
  const Claim& claim = attempt.claim();
  const std::string reason = "The module of its type failed: " + TakeCaughtText();
  LogWarning("job " + std::to_string(claim.job) + ", " + attempt.work().title() + ": " + reason);
  giveUp(claim, AttemptState::Failed, VerdictRule::Result, reason);
}

void LocalEngine::takeInterrupts() {
  if (interrupts_.descriptor() < 0) {
    return;
  }
  const int asked = interrupts_.take();
  if (asked == 0) {
    return;
  }
  if (stops_ == 0) {
    stopped_ = machine_.now();
  }
  const bool kill = stops_ + asked > 1;
  stops_ += asked;
  events_.interrupted(stops_, running_.size());
  takeBackAttempts();
  const Clock::time_point now = machine_.now();
  if (kill && !leaveAt_) {
    leaveAt_ = now + lastPatience;
  }
  for (const auto& attempt : running_) {
    attempt->cancel(now, kill);
  }
}

void LocalEngine::putEnded(std::unique_ptr<Attempt> attempt) {
  endedWell_ = endedWell_ && attempt->outcome().state == AttemptState::Good;
  ended_.push_back(std::move(attempt));
}

bool LocalEngine::isDone() {
  const bool quiet =
      running_.empty() && claimed_.empty() && ended_.empty() && settled_.empty() && unbegun_.empty();
  if (stops_ > 0) {
    // Results that cannot be recorded are worked again: a recovery finds what
    // is good. A second wish to stop says that this is wanted, and a service
    // manager wishes only once.
    const bool impatient = stops_ > 1 || machine_.now() >= stopped_ + stopPatience;
    if (!quiet && running_.empty() && troubled_ && impatient) {
      LogWarning(counted(ended_.size() + settled_.size(), "result") +
                 " could not be recorded; the next engine looks what is good");
      return true;
    }
    return quiet;
  }
  if (!quiet || mayHaveWork_ || troubled_ || !recoveries_.empty()) {
    return false;
  }
  if (plan_.only) {
    const std::optional<JobRecord> job = queue_.job(*plan_.only);
    if (job && isOpen(job->state)) {
      return false;
    }
    finishJobs();
    return true;
  }
  if (!plan_.untilEmpty) {
    return false;
  }
  for (const JobRecord& job : queue_.jobs()) {
    const bool ours = job.runOn == RunOn::Local || plan_.withCluster;
    if (ours && isOpen(job.state) && !job.blocked &&
        std::find(refused_.begin(), refused_.end(), job.id) == refused_.end()) {
      return false;
    }
  }
  finishJobs();
  return true;
}

void LocalEngine::fileNamed(const Claim& claim, const Path& file, std::optional<int> frame) {
  FileRecord record;
  record.attempt = claim.attempt;
  record.frame = frame;
  record.path = file.Text();
  notes_.push_back({claim.attempt, std::move(record)});
}

void LocalEngine::fileComplete(const WorkInfo& work, const Path& file) {
  events_.image(work, file);
}

} // namespace trovik
