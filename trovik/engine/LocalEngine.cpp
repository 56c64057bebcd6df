#include "trovik/engine/LocalEngine.h"

#include "host/foundation/Log.h"
#include "trovik/engine/EndCommand.h"
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
  do {
    tick();
    if (recordTurn()) {
      startWorks();
    }
    if (isDone() || (leaveAt_ && machine_.now() >= *leaveAt_)) {
      break;
    }
    waitForSomething();
    takeInterrupts();
    advanceAttempts();
    advanceRecoveries();
  } while (true);
  for (const auto& attempt : running_) {
    LogWarning("job " + std::to_string(attempt->claim().job) + ", " + attempt->work().title() + ": " +
               (attempt->isChecking() ? "its files were not checked" : "its program has not ended") +
               "; the next engine goes on with it");
  }
  queue_.leaveEngine(engine_);
  return stops_ == 0;
}

/// What has to be looked at now and then, since no descriptor tells of it.
void LocalEngine::tick() {
  const Clock::time_point now = machine_.now();
  if (now < nextTick_) {
    return;
  }
  nextTick_ = now + tickTime;
  try {
    if (const std::int64_t version = queue_.dataVersion(); version != dataVersion_) {
      dataVersion_ = version;
      mayHaveWork_ = true;
      stopCanceled();
    }
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
  if (running_.empty()) {
    return;
  }
  const std::vector<AttemptId> canceled = queue_.canceled(engine_);
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
    LogDebug(error.message); // the next look finds them
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
  auto job = std::make_unique<OpenJob>(queue_, *record);
  RunInfo info = job->info(queue_);
  info.slots = plan_.slots;
  events_.runStarted(info);
  return jobs_.emplace(id, std::move(job)).first->second.get();
}

void LocalEngine::forgetIdleJobs() {
  for (auto job = jobs_.begin(); jobs_.size() > jobsKept && job != jobs_.end();) {
    const bool busy = std::any_of(running_.begin(), running_.end(),
                                  [&](const auto& attempt) { return attempt->claim().job == job->first; });
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
    busy += weightOf(attempt->claim().job);
  }
  return busy;
}

/// False when the queue could not be written; all is kept for the next turn.
bool LocalEngine::recordTurn() {
  const bool wantsWork =
      stops_ == 0 && mayHaveWork_ && !yields_ && claimed_.empty() && busySlots() < plan_.slots;
  const bool putAside = stops_ > 0 && plan_.only && !putAside_;
  if (ended_.empty() && settled_.empty() && notes_.empty() && processes_.empty() && programEnds_.empty() &&
      !wantsWork && !putAside) {
    return true;
  }
  std::vector<Claim> claims;
  std::vector<bool> again;
  try {
    queue_.inTransaction([&] { writeTurn(claims, again); });
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
  tellTurn(again);
  return true;
}

void LocalEngine::writeTurn(std::vector<Claim>& claims, std::vector<bool>& again) {
  if (stops_ > 0 && plan_.only && !putAside_ && interrupts_.byUser()) {
    queue_.stop(*plan_.only, "Stopped by the user");
  }
  for (const auto& [attempt, process] : processes_) {
    queue_.noteProcess(attempt, process);
  }
  for (const auto& [attempt, end] : programEnds_) {
    queue_.noteEnd(attempt, end);
  }
  for (const Note& note : notes_) {
    queue_.noteFile(note.attempt, note.file);
  }
  for (const auto& attempt : ended_) {
    again.push_back(queue_.settle(attempt->outcome()));
  }
  for (const Settled& settled : settled_) {
    again.push_back(queue_.settle(settled.outcome));
  }
  mayHaveWork_ =
      mayHaveWork_ || std::find(again.begin(), again.end(), true) != again.end() || !settled_.empty();
  if (stops_ == 0 && claimed_.empty() && mayHaveWork_ && !yields_) {
    claimWorks(claims);
  }
}

void LocalEngine::claimWorks(std::vector<Claim>& claims) {
  const std::size_t busy = busySlots();
  if (busy >= plan_.slots) {
    mayHaveWork_ = true;
    return;
  }
  // How wide a work is shows only when its job is known, so wide ones are taken
  // one by one; the last of them may have to wait for its slots.
  const std::size_t wanted = plan_.slotsAreCpus ? 1 : plan_.slots - busy;
  claims = queue_.claim(engine_, wanted, plan_.only, refused_);
  mayHaveWork_ = claims.size() == wanted;
}

void LocalEngine::tellTurn(const std::vector<bool>& again) {
  std::size_t place = 0;
  for (const auto& attempt : ended_) {
    WorkResult result = attempt->result();
    result.again = result.verdict == Verdict::Failed && again[place];
    ++place;
    if (const auto job = jobs_.find(attempt->claim().job); job != jobs_.end()) {
      job->second->tell(attempt->job(), result.reason);
    }
    events_.workEnded(attempt->work(), result);
  }
  for (const Settled& settled : settled_) {
    if (settled.work && (!plan_.only || plan_.only == settled.work->job)) {
      tellLost(settled, again[place]);
    }
    ++place;
  }
  // A job of which nothing more was claimed may have ended; its end is told
  // before another one begins.
  const bool perhapsOver = std::any_of(ended_.begin(), ended_.end(), [this](const auto& attempt) {
    return std::none_of(claimed_.begin(), claimed_.end(),
                        [&](const Claim& claim) { return claim.job == attempt->claim().job; });
  });
  const bool anyEnded = !ended_.empty() || !settled_.empty();
  ended_.clear();
  settled_.clear();
  notes_.clear();
  processes_.clear();
  programEnds_.clear();
  if (!recoveries_.empty() && std::all_of(recoveries_.begin(), recoveries_.end(),
                                          [](const auto& one) { return one->isRecorded(); })) {
    recoveries_.clear();
    queue_.releaseLost();
  }
  if (perhapsOver) {
    finishJobs();
  }
  if (anyEnded && running_.empty()) {
    nextTick_ = machine_.now();
  }
}

/// What became of an attempt whose engine died. It began in another run.
void LocalEngine::tellLost(const Settled& lost, bool again) {
  try {
    if (open(lost.work->job) == nullptr) {
      return;
    }
  } catch (Exception* exception) {
    LogDebug(takeText(exception)); // a job that cannot be worked here
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

void LocalEngine::startWorks() {
  while (!claimed_.empty() && stops_ == 0) {
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
    claimed_.erase(claimed_.begin());
    start(claim);
  }
  for (const Claim& claim : claimed_) { // stopped before they began
    Outcome outcome;
    outcome.attempt = claim.attempt;
    outcome.state = AttemptState::Canceled;
    outcome.rule = VerdictRule::Canceled;
    outcome.reason = "Not started";
    settled_.push_back({std::move(outcome), std::nullopt});
  }
  claimed_.clear();
}

void LocalEngine::start(const Claim& claim) {
  std::string problem;
  try {
    OpenJob* job = open(claim.job);
    if (job != nullptr) {
      const WorkInfo work = job->work(claim);
      AttemptListener& listener = *this;
      auto attempt = std::make_unique<Attempt>(
          work, claim, job->works().make(work),
          job->logs().open(work.hasFrames ? std::string(work.run.Text()) : work.title(), claim.number),
          inspector_, listener);
      events_.workStarted(work);
      if (attempt->start(machine_)) {
        processes_.emplace_back(claim.attempt, attempt->process());
        job->tell(attempt->job(), {});
        running_.push_back(std::move(attempt));
      } else {
        ended_.push_back(std::move(attempt));
      }
      return;
    }
    problem = "the job is gone";
  } catch (Exception* exception) {
    problem = takeText(exception);
  }
  // Another engine may know the type.
  LogWarning("job " + std::to_string(claim.job) + " cannot be worked here: " + problem);
  refused_.push_back(claim.job);
  Outcome outcome;
  outcome.attempt = claim.attempt;
  outcome.state = AttemptState::Canceled;
  outcome.rule = VerdictRule::Start;
  outcome.reason = problem;
  settled_.push_back({std::move(outcome), std::nullopt});
}

void LocalEngine::waitForSomething() {
  // Two entries for each attempt, in the order of the list.
  std::vector<pollfd> descriptors = {{interrupts_.descriptor(), POLLIN, 0},
                                     {inspector_.descriptor(), POLLIN, 0}};
  Clock::time_point deadline = nextTick_;
  const auto consider = [&deadline](const std::optional<Clock::time_point>& time) {
    deadline = time ? std::min(deadline, *time) : deadline;
  };
  consider(inspector_.deadline());
  consider(leaveAt_);
  if (std::any_of(recoveries_.begin(), recoveries_.end(),
                  [](const auto& recovery) { return !recovery->isRecorded(); })) {
    consider(machine_.now() + orphanTime);
  }
  for (const auto& attempt : running_) {
    descriptors.push_back({attempt->outputDescriptor(), POLLIN, 0});
    descriptors.push_back({attempt->exitDescriptor(), POLLIN, 0});
    consider(attempt->deadline());
  }
  const bool more =
      !troubled_ &&
      (!ended_.empty() || !settled_.empty() ||
       (mayHaveWork_ && !yields_ && stops_ == 0 && claimed_.empty() && busySlots() < plan_.slots));
  const Duration left = more ? Duration::zero() : deadline - machine_.now();
  machine_.wait(descriptors, std::max(left, Duration::zero()));
  const Clock::time_point now = machine_.now();
  std::size_t place = 2;
  for (const auto& attempt : running_) {
    if (descriptors[place].revents != 0) {
      attempt->readOutput(now);
    }
    place += 2;
  }
  inspector_.advance(now);
}

void LocalEngine::takeInterrupts() {
  if (interrupts_.descriptor() < 0) {
    return;
  }
  const int asked = interrupts_.take();
  if (asked == 0) {
    return;
  }
  const bool kill = stops_ + asked > 1;
  stops_ += asked;
  events_.interrupted(stops_, running_.size());
  const Clock::time_point now = machine_.now();
  if (kill && !leaveAt_) {
    leaveAt_ = now + lastPatience;
  }
  for (const auto& attempt : running_) {
    attempt->cancel(now, kill);
  }
}

void LocalEngine::advanceAttempts() {
  const Clock::time_point now = machine_.now();
  for (auto attempt = running_.begin(); attempt != running_.end();) {
    (*attempt)->advance(now);
    if (std::optional<ProgramEnd> end = (*attempt)->takeEnd(now)) {
      programEnds_.emplace_back((*attempt)->claim().attempt, std::move(*end));
    }
    if ((*attempt)->isOver()) {
      ended_.push_back(std::move(*attempt));
      attempt = running_.erase(attempt);
    } else {
      ++attempt;
    }
  }
}

bool LocalEngine::isDone() {
  const bool quiet = running_.empty() && claimed_.empty() && ended_.empty() && settled_.empty();
  if (stops_ > 0) {
    // Results that cannot be recorded are worked again; a second wish to stop
    // says that this is wanted.
    return quiet || (running_.empty() && troubled_ && stops_ > 1);
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
    if (ours && isOpen(job.state) && std::find(refused_.begin(), refused_.end(), job.id) == refused_.end()) {
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
