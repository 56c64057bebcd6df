#include "trovik/progress/JobFollower.h"

#include "trovik/queue/JobView.h"
#include "trovik/records/Moments.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace trovik {
namespace {

constexpr Duration pause = std::chrono::milliseconds(500);
constexpr int checksForAnEngine = 10; // one in so many checks of the queue; it takes a lock

WorkResult resultOf(const AttemptRecord& attempt) {
  WorkResult result;
  result.verdict = verdictOf(attempt.state);
  result.rule = attempt.rule;
  result.good = attempt.good;
  result.again = attempt.again;
  result.reason = attempt.reason;
  if (attempt.state == AttemptState::Lost && attempt.reason.empty()) {
    result.reason = "Its engine died";
  }
  result.lines = attempt.lines;
  result.log = Path(attempt.log);
  result.duration = durationOf(attempt.duration);
  return result;
}

} // namespace

JobFollower::JobFollower(Queue& queue, JobId job, RunEvents& events, EngineId without)
    : queue_(queue), job_(job), events_(events), without_(without) {}

void JobFollower::beginRun() {
  const RunInfo info = takeStock();
  events_.runStarted(info);
  tellStarts();
}

/// All of one moment: an attempt that ends while this is read must either
/// count as ended or be followed.
RunInfo JobFollower::takeStock() {
  RunInfo info;
  begun_ = true;
  queue_.inSnapshot([&] {
    std::optional<JobRecord> record = queue_.job(job_);
    open_ = record.has_value();
    if (!record) {
      return;
    }
    record_ = *record;
    open_ = isOpen(record_.state);
    info = runInfoOf(viewOf(queue_, std::move(*record)));
    std::set<EngineId> engines;
    queue_.eachAttempt(job_, [&](AttemptRecord&& attempt) {
      lastAttempt_ = std::max(lastAttempt_, attempt.id);
      if (attempt.state == AttemptState::Running) {
        engines.insert(attempt.engine);
        if (attempt.engine != without_ && !attempt.begun) {
          unbegun_.insert(attempt.id);
        } else if (attempt.engine != without_) {
          running_[attempt.id] = {workOf(attempt), {}};
        }
      }
    });
    info.slots = 0;
    for (const EngineId engine : engines) {
      info.slots += queue_.slots(engine);
    }
    for (const FileRecord& file : queue_.files(job_)) {
      lastFile_ = std::max(lastFile_, file.id);
      if (const auto running = running_.find(file.attempt); running != running_.end()) {
        running->second.pending = file.path;
      }
    }
  });
  return info;
}

void JobFollower::tellStarts() const {
  for (const auto& [id, running] : running_) {
    events_.workStarted(running.work);
  }
}

void JobFollower::poll() {
  if (!begun_) {
    takeStock();
    tellStarts();
  }
  const std::int64_t version = queue_.dataVersion();
  if (version == version_) {
    return;
  }
  version_ = version;
  while (check()) {
  }
}

/// Attempts are asked for their state first, then the files are read, then the
/// new attempts: so an attempt that is seen to have ended has all its files
/// among those read, and every file belongs to an attempt that is known. A new
/// attempt that has ended already takes a further check; true then.
bool JobFollower::check() {
  std::vector<AttemptRecord> ended;
  const std::vector<AttemptId> stillRunning = queue_.runningAttempts(job_);
  for (const auto& [id, running] : running_) {
    if (std::binary_search(stillRunning.begin(), stillRunning.end(), id)) {
      continue;
    }
    std::optional<AttemptRecord> attempt = queue_.attempt(id);
    if (attempt && attempt->state != AttemptState::Running) {
      ended.push_back(std::move(*attempt));
    }
  }
  const std::vector<FileRecord> files = queue_.files(job_, lastFile_);
  const std::vector<AttemptRecord> attempts = takeNew();
  const std::optional<JobRecord> record = queue_.job(job_);

  // What ended did so before what began in its slot.
  const std::set<AttemptId> known = runningIds();
  const auto tellFiles = [&](bool ofKnown) {
    for (const FileRecord& file : files) {
      lastFile_ = std::max(lastFile_, file.id);
      if (known.contains(file.attempt) == ofKnown) {
        tellFile(file);
      }
    }
  };
  tellFiles(true);
  for (const AttemptRecord& attempt : ended) {
    tellEnd(attempt);
  }
  bool again = false;
  for (const AttemptRecord& attempt : attempts) {
    again = again || attempt.state != AttemptState::Running;
    events_.workStarted((running_[attempt.id] = {workOf(attempt), {}}).work);
  }
  tellFiles(false);
  if (!record) { // deleted: what ran of it has nothing left to be reported
    running_.clear();
    unbegun_.clear();
  } else {
    record_ = *record;
  }
  open_ = record && isOpen(record->state);
  return again;
}

/// The attempts that have begun since the last call, or are known to since then.
std::vector<AttemptRecord> JobFollower::takeNew() {
  std::vector<AttemptRecord> begun;
  for (auto id = unbegun_.begin(); id != unbegun_.end();) {
    std::optional<AttemptRecord> attempt = queue_.attempt(*id);
    if (attempt && !attempt->begun) {
      ++id;
      continue;
    }
    if (attempt) {
      begun.push_back(std::move(*attempt));
    }
    id = unbegun_.erase(id);
  }
  queue_.eachAttempt(
      job_,
      [&](AttemptRecord&& attempt) {
        lastAttempt_ = std::max(lastAttempt_, attempt.id);
        if (attempt.engine == without_) {
          return;
        }
        if (attempt.begun) {
          begun.push_back(std::move(attempt));
        } else {
          unbegun_.insert(attempt.id);
        }
      },
      lastAttempt_);
  return begun;
}

std::set<AttemptId> JobFollower::runningIds() const {
  std::set<AttemptId> ids;
  for (const auto& [id, running] : running_) {
    ids.insert(id);
  }
  return ids;
}

void JobFollower::tellFile(const FileRecord& file) {
  const auto place = running_.find(file.attempt);
  if (place == running_.end()) {
    return;
  }
  Running& running = place->second;
  if (file.checked) {
    if (running.pending == file.path) {
      running.pending.clear();
    }
    if (file.problem.empty()) {
      tellImage(running, file.path);
    }
    return;
  }
  if (!running.pending.empty() && running.pending != file.path) {
    tellImage(running, running.pending);
  }
  running.pending = file.path;
}

void JobFollower::tellImage(const Running& running, const std::string& path) {
  if (reported_.insert(path).second) {
    events_.image(running.work, Path(path));
  }
}

void JobFollower::tellEnd(const AttemptRecord& attempt) {
  const auto node = running_.extract(attempt.id);
  const Running& running = node.mapped();
  if (attempt.state == AttemptState::Good && !running.pending.empty()) {
    tellImage(running, running.pending);
  }
  events_.workEnded(running.work, resultOf(attempt));
}

WorkInfo JobFollower::workOf(const AttemptRecord& attempt) const {
  WorkInfo work;
  work.run = attempt.run;
  work.hasFrames = record_.hasFrames;
  work.attempt = attempt.number;
  work.attempts = std::max(attempt.number, std::clamp(record_.retries, 0, 1'000'000) + 1);
  work.job = job_;
  return work;
}

bool followToEnd(JobFollower& follower, Queue& queue, Machine& machine, InterruptSource& interrupts,
                 const std::function<void()>& engineGone, const std::function<void()>& polled) {
  bool engine = true;
  for (int checks = 0; !follower.isOver(); ++checks) {
    if (checks % checksForAnEngine == 0) {
      const bool lives = queue.hasOtherEngine(0);
      if (engine && !lives) {
        engineGone();
      }
      engine = lives;
    }
    std::vector<pollfd> descriptors;
    if (interrupts.descriptor() >= 0) {
      descriptors.push_back({interrupts.descriptor(), POLLIN, 0});
    }
    machine.wait(descriptors, pause);
    if (interrupts.take() > 0) {
      return false;
    }
    follower.poll();
    if (polled) {
      polled();
    }
  }
  return true;
}

} // namespace trovik
