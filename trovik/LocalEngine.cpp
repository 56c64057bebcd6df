#include "trovik/LocalEngine.h"

#include <algorithm>
#include <utility>

namespace trovik {

LocalEngine::LocalEngine(Machine& machine, RunLogs& logs, InterruptSource& interrupts, RunEvents& events)
    : machine_(machine), logs_(logs), interrupts_(interrupts), events_(events) {}

RunSummary LocalEngine::run(const RunPlan& plan, RunInfo info) {
  const Clock::time_point begin = machine_.now();
  maker_ = std::make_unique<WorkMaker>(*plan.job);

  RunSet all;
  info.hasFrames = true;
  info.frames = 0;
  const std::unique_ptr<Distributor> counter = plan.job->DoGetDistributor();
  info.works = counter->Count();
  for (FrameRun run; counter->Next(run, info.hasFrames) && info.hasFrames;) {
    all.add(run);
  }
  info.hasFrames = !all.empty() || info.works == 0;
  info.frames = info.hasFrames ? all.count() : 1;
  info.range = all.text();
  info.slots = plan.slots;
  summary_ = RunSummary();
  summary_.info = info;
  distributor_ = plan.job->DoGetDistributor();
  ahead_.reset();
  again_.clear();
  images_.clear();
  failureGroups_.clear();
  stops_ = 0;

  events_.runStarted(info);
  while (!running_.empty() || (stops_ == 0 && hasWork())) {
    fillSlots(plan);
    waitForSomething();
    takeInterrupts();
    const Clock::time_point now = machine_.now();
    for (auto attempt = running_.begin(); attempt != running_.end();) {
      (*attempt)->advance(now);
      if ((*attempt)->isOver()) {
        settle(plan, **attempt);
        attempt = running_.erase(attempt);
      } else {
        ++attempt;
      }
    }
  }
  for (Waiting left; nextWork(left);) {
    countNotDone({left.run, left.hasFrames, left.attempt, plan.retries + 1});
  }
  summary_.interrupted = stops_ > 0;
  summary_.duration = machine_.now() - begin;
  events_.runEnded(summary_);
  return summary_;
}

bool LocalEngine::hasWork() {
  if (!ahead_ && distributor_ != nullptr) {
    Waiting next;
    if (distributor_->Next(next.run, next.hasFrames)) {
      ahead_ = next;
    } else {
      distributor_.reset();
    }
  }
  return ahead_.has_value() || !again_.empty();
}

bool LocalEngine::nextWork(Waiting& work) {
  if (!hasWork()) {
    return false;
  }
  if (ahead_) {
    work = *ahead_;
    ahead_.reset();
  } else {
    work = again_.front();
    again_.pop_front();
  }
  return true;
}

void LocalEngine::fillSlots(const RunPlan& plan) {
  // Works that cannot be started leave their slot free. Only so many are tried
  // in one turn that the user can stop a thousand of them.
  for (std::size_t tries = 0; stops_ == 0 && tries < plan.slots && running_.size() < plan.slots; ++tries) {
    Waiting work;
    if (!nextWork(work)) {
      return;
    }
    startAttempt(plan, work);
  }
}

void LocalEngine::startAttempt(const RunPlan& plan, const Waiting& waiting) {
  const WorkInfo work{waiting.run, waiting.hasFrames, waiting.attempt, plan.retries + 1};
  const SmartHandle<Job> job = maker_->make(work);
  events_.workStarted(work);
  auto attempt = std::make_unique<Attempt>(
      work, job, logs_.open(work.hasFrames ? std::string(work.run.Text()) : work.title(), work.attempt),
      [this](const WorkInfo& from, const Path& file) { noteImage(from, file); });
  if (attempt->start(machine_)) {
    job->SetStatus(k_StatusRunning);
    tellJob(plan, *attempt);
    running_.push_back(std::move(attempt));
  } else {
    settle(plan, *attempt);
  }
}

void LocalEngine::waitForSomething() {
  // Two entries for each attempt, in the order of the list.
  std::vector<pollfd> descriptors = {{interrupts_.descriptor(), POLLIN, 0}};
  std::optional<Clock::time_point> deadline;
  for (const auto& attempt : running_) {
    descriptors.push_back({attempt->outputDescriptor(), POLLIN, 0});
    descriptors.push_back({attempt->exitDescriptor(), POLLIN, 0});
    if (const auto own = attempt->deadline(); own && (!deadline || *own < *deadline)) {
      deadline = own;
    }
  }
  std::optional<Duration> timeout;
  if (running_.empty()) {
    timeout = Duration::zero();
  } else if (deadline) {
    timeout = std::max(Duration(*deadline - machine_.now()), Duration::zero());
  }
  machine_.wait(descriptors, timeout);
  const Clock::time_point now = machine_.now();
  std::size_t place = 1;
  for (const auto& attempt : running_) {
    if (descriptors[place].revents != 0) {
      attempt->readOutput(now);
    }
    place += 2;
  }
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
  for (const auto& attempt : running_) {
    attempt->cancel(now, kill);
  }
}

void LocalEngine::settle(const RunPlan& plan, Attempt& attempt) {
  const WorkInfo& work = attempt.work();
  WorkResult result = attempt.result();
  result.again = result.verdict == Verdict::Failed && attempt.isWorthRepeating() &&
                 work.attempt < work.attempts && stops_ == 0;
  tellJob(plan, attempt);
  switch (result.verdict) {
  case Verdict::Good:
    ++summary_.goodWorks;
    if (work.hasFrames) {
      summary_.good.add(work.run);
    }
    break;
  case Verdict::Canceled:
    countNotDone(work);
    break;
  case Verdict::Failed:
    if (result.again) {
      again_.push_back({work.run, work.hasFrames, work.attempt + 1});
    } else {
      noteFailure(work, result);
    }
    break;
  }
  events_.workEnded(work, result);
}

void LocalEngine::noteFailure(const WorkInfo& work, const WorkResult& result) {
  ++summary_.failedWorks;
  if (work.hasFrames) {
    summary_.failed.add(work.run);
  }
  const auto [place, isNew] = failureGroups_.try_emplace(result.reason, summary_.failures.size());
  if (isNew) {
    summary_.failures.push_back({result.reason, {}, 0, result.log});
  }
  FailureGroup& group = summary_.failures[place->second];
  ++group.works;
  if (work.hasFrames) {
    group.frames.add(work.run);
  }
}

void LocalEngine::countNotDone(const WorkInfo& work) {
  ++summary_.notDoneWorks;
  if (work.hasFrames) {
    summary_.notDone.add(work.run);
  }
}

void LocalEngine::noteImage(const WorkInfo& work, const Path& file) {
  if (images_.insert(file.Text()).second) {
    ++summary_.images[file.Branch(true, true)];
    events_.image(work, file);
  }
}

void LocalEngine::tellJob(const RunPlan& plan, const Attempt& attempt) {
  const SmartHandle<const Job> work = attempt.job();
  plan.job->OnChildChange(work, "Status", std::to_string(work->Status()));
  if (attempt.isOver() && !attempt.result().reason.empty()) {
    plan.job->OnChildChange(work, p_Note, attempt.result().reason);
  }
}

} // namespace trovik
