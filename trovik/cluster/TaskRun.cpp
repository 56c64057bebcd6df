#include "trovik/cluster/TaskRun.h"

#include "host/foundation/Log.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/MissingFrames.h"
#include "trovik/works/OutcomeText.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

constexpr int folderTries = 5; // where the folder cannot be read or written

std::string environmentText(const char* name) {
  const char* text = std::getenv(name);
  return text == nullptr ? std::string() : std::string(text);
}

std::optional<int> environmentNumber(const char* name) {
  const std::string text = environmentText(name);
  int number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  return problem == std::errc() && end == text.data() + text.size() && !text.empty() ? std::optional(number)
                                                                                     : std::nullopt;
}

Path withoutSlash(const Path& folder) {
  String text = folder.Text();
  while (text.size() > 1 && text.ends_with('/')) {
    text.pop_back();
  }
  return {text};
}

/// A part of a mark, which becomes part of a file's name.
std::string plain(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](unsigned char c) { return !(std::isalnum(c) != 0 && c < 0x80) && c != '-' && c != '_'; }, '-');
  return text;
}

/// For how long something has not changed. Time in which this process itself
/// stood still is no evidence: a cluster suspends whole jobs.
class Stillness {
public:
  explicit Stillness(Duration mostCounted) : most_(mostCounted) {}

  Duration look(const std::string& state, Clock::time_point now) {
    if (!state_ || *state_ != state) {
      still_ = Duration::zero();
    } else {
      still_ += std::min<Duration>(now - last_, most_);
    }
    state_ = state;
    last_ = now;
    return still_;
  }

private:
  Duration most_;
  std::optional<std::string> state_;
  Clock::time_point last_{};
  Duration still_{};
};

} // namespace

std::string taskMark(const std::string& queue, JobId job, const ArrayFolder& array, std::size_t place,
                     int number) {
  return plain(queue) + '-' + std::to_string(job) + '.' + plain(array.directory().Leaf(true)) + '.' +
         std::to_string(place) + '.' + std::to_string(number);
}

TaskSelf taskSelf() {
  TaskSelf self;
  char text[256] = {};
  if (gethostname(text, sizeof text - 1) == 0) {
    self.host = text;
  }
  std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), self.boot);
  // Process numbers mean something within one namespace only.
  if (struct stat status{}; stat("/proc/self/ns/pid", &status) == 0) {
    self.boot += '/' + std::to_string(status.st_ino);
  }
  self.process = getpid();
  self.node = environmentText("SLURMD_NODENAME");
  if (const std::string array = environmentText("SLURM_ARRAY_JOB_ID"); !array.empty()) {
    self.task = array + '_' + environmentText("SLURM_ARRAY_TASK_ID");
  }
  self.restarts = std::max(0, environmentNumber("SLURM_RESTART_COUNT").value_or(0));
  self.cpus = environmentNumber("SLURM_CPUS_ON_NODE");
  if (self.cpus && *self.cpus < 1) {
    self.cpus.reset();
  }
  return self;
}

TaskRun::TaskRun(const Path& folder, std::size_t index, TaskSelf self, Machine& machine,
                 ImageInspector& inspector, InterruptSource& interrupts, TaskGuard* guard,
                 const TaskTimes& times)
    : folder_(withoutSlash(folder)), index_(index), self_(std::move(self)), machine_(machine),
      interrupts_(interrupts), guard_(guard), times_(times), inspector_(inspector) {}

TaskRun::~TaskRun() = default;

bool TaskRun::run() {
  plan_ = folder_.plan();
  if (index_ >= plan_.tasks()) {
    throw UsageError{"the array job in " + inQuotes(folder_.directory().Text()) + " has no task " +
                         std::to_string(index_),
                     "it has " + std::to_string(plan_.tasks()) + ", counted from 0"};
  }
  job_ = JobFolder(Path(folder_.directory().Branch(false, true))).read();
  works_ = std::make_unique<WorkMaker>(job_.type, job_.packed);
  try {
    logs_ = std::make_unique<RunLogDirectory>(Path(plan_.logs));
  } catch (const UsageError& error) {
    LogWarning("this task has no logs: " + error.message);
    logs_ = noLogs();
  }
  times_.beat = std::min<Duration>(times_.beat, Duration(plan_.patience) / 4);
  lastTurn_ = machine_.now();
  const std::size_t first = index_ * plan_.perTask;
  const std::size_t end = first + std::min(plan_.perTask, plan_.works.size() - first);
  bool all = true;
  for (std::size_t place = first; place < end; ++place) {
    all = work(place) && all;
  }
  return all || folder_.isCanceled();
}

bool TaskRun::work(std::size_t place) {
  place_ = place;
  for (int left = folderTries;; --left) {
    claim_ = WorkClaim();
    claim_.number = 0;
    stop_ = Stop::No;
    try {
      return takeUp();
    } catch (Exception* exception) {
      // A network file system has bad moments.
      if (left == 1 || ending_) {
        throw;
      }
      LogWarning(takeText(exception) + "; it is tried again");
    }
    turn(nullptr, machine_.now() + times_.again);
  }
}

bool TaskRun::takeUp() {
  for (int last = 0;;) {
    if (folder_.hasEnded(place_) || folder_.isCanceled()) {
      return true;
    }
    turn(nullptr, machine_.now());
    if (ending_) {
      return false;
    }
    last = folder_.lastClaim(place_, last);
    if (last > 0 && !waitForDeath(last)) {
      continue;
    }
    WorkClaim claim = makeClaim(last + 1);
    if (folder_.claim(place_, claim)) {
      claim_ = std::move(claim);
      return workClaimed();
    }
  }
}

/// False when there is something to look at instead: a result, a newer claim,
/// the wish to end.
bool TaskRun::waitForDeath(int number) {
  const std::optional<WorkClaim> claim = readClaim(number);
  Stillness stillness(2 * times_.watch);
  bool told = false;
  while (!folder_.hasEnded(place_) && !folder_.isCanceled() && !ending_ &&
         folder_.lastClaim(place_, number) == number) {
    if (isDead(claim)) {
      return true;
    }
    const std::optional<WorkBeat> beat = folder_.beatOf(place_);
    const std::string state = beat ? std::to_string(beat->claim) + '.' + std::to_string(beat->count) : "";
    if (stillness.look(state, machine_.now()) >= plan_.patience) {
      LogInfo("the process at work on place " + std::to_string(place_) + " is silent and counts as dead");
      return true;
    }
    if (!std::exchange(told, true)) {
      LogInfo("place " + std::to_string(place_) + " is worked by another process" +
              (claim ? " on " + inQuotes(claim->host) : "") + "; waiting for it");
    }
    turn(nullptr, machine_.now() + times_.watch);
  }
  return false;
}

/// Whether its process is known to be gone. This task has no other claim on
/// the place, so that its own number is somebody's who is dead.
bool TaskRun::isDead(const std::optional<WorkClaim>& claim) const {
  return claim && !self_.boot.empty() && claim->host == self_.host && claim->boot == self_.boot &&
         (claim->process == self_.process || (kill(claim->process, 0) != 0 && errno == ESRCH));
}

std::string TaskRun::markOf(int number) const {
  return taskMark(job_.queue, job_.job, folder_, place_, number);
}

std::optional<WorkClaim> TaskRun::readClaim(int number) const {
  try {
    return folder_.claimOf(place_, number);
  } catch (Exception* exception) {
    LogWarning(takeText(exception)); // its beat tells whether it lives
    return std::nullopt;
  }
}

WorkClaim TaskRun::makeClaim(int number) const {
  WorkClaim claim;
  claim.number = number;
  claim.host = self_.host;
  claim.boot = self_.boot;
  claim.process = self_.process;
  claim.mark = markOf(number);
  claim.node = self_.node;
  claim.task = self_.task;
  claim.restarts = self_.restarts;
  claim.started = momentNow();
  if (plan_.stage && problem_.empty()) {
    try {
      claim.stage = StagedOutput::stageOf(*makeJob(plan_.works[place_].run), claim.mark).Text();
    } catch (Exception* exception) {
      LogDebug(takeText(exception)); // the start of the work tells it
    }
  }
  return claim;
}

WorkInfo TaskRun::infoOf(const FrameRun& run) const {
  WorkInfo info;
  info.run = run;
  info.hasFrames = job_.hasFrames;
  info.attempt = info.attempts = plan_.works[place_].attempt;
  info.job = job_.job;
  return info;
}

/// What the log of an attempt at these frames is called, by the process with
/// that claim.
std::string TaskRun::logName(const FrameRun& run, int number) const {
  return (job_.hasFrames ? std::string(run.Text()) : infoOf(run).title()) +
         (number > 1 ? ".restart" + std::to_string(number - 1) : "");
}

SmartHandle<Job> TaskRun::makeJob(const FrameRun& run) const {
  SmartHandle<Job> job = works_->make(infoOf(run));
  if (self_.cpus) {
    job->SetParameter(p_CPUs, std::to_string(*self_.cpus));
  }
  return job;
}

bool TaskRun::workClaimed() {
  const std::optional<WorkBeat> before = folder_.beatOf(place_);
  beat_ = WorkBeat();
  beat_.claim = claim_.number;
  beat_.count = before ? before->count : 0;
  beat_.stage = "starting";
  logBefore_ = before ? before->log : std::string();
  named_ = before ? before->files : std::vector<FileRecord>(); // for whoever comes after this process
  merged_ = Outcome();
  complete_ = false;
  stalled_ = false;
  inspector_.relax();
  killAt_.reset();
  hurryAt_.reset();
  beat(nullptr);
  Outcome failed;
  failed.state = AttemptState::Failed;
  failed.rule = VerdictRule::Start;
  if (!problem_.empty()) {
    failed.reason = problem_;
    merge(failed);
    return leave();
  }
  try {
    rescue();
    renderRest();
  } catch (...) { // also what a type's module throws
    failed.reason = TakeCaughtText();
    merge(failed);
  }
  return stop_ == Stop::Superseded ? folder_.hasEnded(place_) : leave();
}

void TaskRun::renderRest() {
  const FrameRun& run = plan_.works[place_].run;
  const std::vector<FrameRun> rest =
      job_.hasFrames ? FramesOutside(run, merged_.good.runs()) : std::vector<FrameRun>{run};
  if (rest.empty()) {
    merged_.rule = VerdictRule::Files; // all was there
  }
  for (const FrameRun& left : rest) {
    if (stop_ != Stop::No) {
      return;
    }
    render(left);
  }
  complete_ = stop_ != Stop::Superseded;
}

void TaskRun::render(const FrameRun& run) {
  const WorkInfo info = infoOf(run);
  trovik::Claim claim;
  claim.job = job_.job;
  claim.run = run;
  claim.number = info.attempt;
  claim.mark = claim_.mark;
  SmartHandle<Job> job = makeJob(run);
  StagedOutput staged;
  if (plan_.stage) {
    staged = StagedOutput(*job, claim.mark);
  }
  AttemptListener& listener = *this;
  Attempt attempt(info, claim, job, logs_->open(logName(run, claim_.number), info.attempt), inspector_,
                  listener);
  stalled_ = false;
  lastTurn_ = machine_.now();
  if (guard_ != nullptr) {
    guard_->begin(claim.mark, plan_.patience);
  }
  if (attempt.start(machine_) == Attempt::Start::Runs) {
    if (auto* render = dynamic_cast<RenderJob*>(job.Get()); render != nullptr && staged.isUsed()) {
      render->CheckFilesSince(staged.made());
    }
    nextBeat_ = std::min(nextBeat_, lastBeat_ + times_.leastBeat);
    while (!attempt.isOver()) {
      turn(&attempt);
    }
  }
  if (guard_ != nullptr) {
    guard_->end();
  }
  Outcome outcome = attempt.outcome();
  if (outcome.state != AttemptState::Good && stop_ == Stop::No) {
    // A cluster tells all processes of a task to end, so that the program may
    // have died of what this one has not heard yet.
    const Clock::time_point until = machine_.now() + times_.aftermath;
    while (machine_.now() < until && stop_ == Stop::No) {
      turn(nullptr, until);
    }
  }
  if (stop_ == Stop::Superseded || !isMine()) {
    stop(Stop::Superseded, nullptr);
    staged.discard();
    return;
  }
  if (outcome.state != AttemptState::Good && (stop_ != Stop::No || stalled_)) {
    judgeStop(outcome);
  }
  if (!publish(staged, outcome)) {
    stop(Stop::Superseded, nullptr);
    return;
  }
  merge(outcome);
}

bool TaskRun::publish(StagedOutput& staged, Outcome& outcome) {
  return staged.publish(outcome, [this] {
    if (machine_.now() >= nextBeat_) {
      beat(nullptr); // many files take their time
    }
    return isMine();
  });
}

bool TaskRun::looksMine() const {
  return !folder_.hasEnded(place_) && folder_.lastClaim(place_, claim_.number) == claim_.number;
}

/// Whether this process is still the one that may write. Where that cannot be
/// known there is no hurry; but with no time left it is not.
bool TaskRun::isMine() {
  for (;;) {
    try {
      return looksMine();
    } catch (Exception* exception) {
      LogWarning(takeText(exception));
    }
    if (ending_) {
      return false;
    }
    turn(nullptr, machine_.now() + times_.again);
  }
}

/// What an attempt came to that was ended from outside, or whose program was.
void TaskRun::judgeStop(Outcome& outcome) const {
  outcome.retryable = true;
  if (stop_ == Stop::Canceled) {
    outcome.state = AttemptState::Canceled;
    outcome.rule = VerdictRule::Canceled;
    outcome.reason = "Canceled";
  } else {
    outcome.state = AttemptState::Lost;
    outcome.rule = VerdictRule::Cluster;
    outcome.reason =
        stop_ == Stop::Interrupted ? "The cluster ended its task" : "Its task stood still for too long";
  }
  outcome.alike = alikeKey(outcome.reason);
}

/// Adds an attempt at a part of the work; the first bad one speaks for all.
void TaskRun::merge(const Outcome& outcome) {
  Outcome all = merged_.state == AttemptState::Good ? outcome : merged_;
  all.good = merged_.good;
  all.good.add(outcome.good);
  all.files = merged_.files;
  all.files.insert(all.files.end(), outcome.files.begin(), outcome.files.end());
  all.duration = merged_.duration + outcome.duration;
  merged_ = std::move(all);
}

bool TaskRun::leave() {
  if (!complete_ && stop_ != Stop::No) {
    judgeStop(merged_); // some of it was never begun
  }
  WorkEnd end;
  end.by = merged_.state == AttemptState::Canceled ? WorkEnd::By::Canceled
           : merged_.state == AttemptState::Lost   ? WorkEnd::By::Interrupted
                                                   : WorkEnd::By::Itself;
  end.claim = claim_.number;
  end.node = self_.node.empty() ? self_.host : self_.node;
  end.started = claim_.started;
  end.outcome = merged_;
  for (bool told = false;;) {
    end.ended = momentNow();
    try {
      folder_.leave(place_, end);
      return true;
    } catch (Exception* exception) {
      const std::string text = takeText(exception);
      if (!std::exchange(told, true)) {
        LogWarning(text + "; it is tried again until it can be written");
      }
    }
    if (ending_) {
      return false; // the cluster does not wait
    }
    turn(nullptr, machine_.now() + times_.again);
  }
}

/// One wait for whatever comes first, and what follows from it; at most until
/// then.
void TaskRun::turn(Attempt* attempt, std::optional<Clock::time_point> until) {
  std::vector<pollfd> descriptors = {{interrupts_.descriptor(), POLLIN, 0},
                                     {inspector_.descriptor(), POLLIN, 0}};
  Clock::time_point deadline = machine_.now() + times_.beat;
  const auto consider = [&deadline](const std::optional<Clock::time_point>& time) {
    deadline = time ? std::min(deadline, *time) : deadline;
  };
  consider(until);
  consider(inspector_.deadline());
  consider(killAt_);
  consider(hurryAt_);
  if (claim_.number > 0) {
    consider(nextBeat_);
  }
  if (attempt != nullptr) {
    descriptors.push_back({attempt->outputDescriptor(), POLLIN, 0});
    descriptors.push_back({attempt->exitDescriptor(), POLLIN, 0});
    consider(attempt->deadline());
  }
  machine_.wait(descriptors, std::max<Duration>(deadline - machine_.now(), Duration::zero()));
  const Clock::time_point now = machine_.now();
  if (now - lastTurn_ > Duration(plan_.patience) / 2) { // its guard may have lost patience
    stalled_ = true;
    nextBeat_ = now;
  }
  lastTurn_ = now;
  takeInterrupts(attempt);
  if (hurryAt_ && now >= *hurryAt_) {
    inspector_.hurry();
    hurryAt_.reset();
  }
  if (killAt_ && now >= *killAt_) {
    killAt_.reset();
    if (attempt != nullptr) {
      attempt->cancel(now, true);
    }
  }
  inspector_.advance(now);
  if (attempt != nullptr) {
    if (descriptors[2].revents != 0) {
      attempt->readOutput(now);
    }
    const bool wasChecking = attempt->isChecking();
    attempt->advance(now);
    if (attempt->isChecking() != wasChecking) {
      nextBeat_ = std::min(nextBeat_, lastBeat_ + times_.leastBeat);
    }
  }
  if (claim_.number > 0 && now >= nextBeat_) {
    lookAround(attempt);
    beat(attempt);
  }
}

void TaskRun::takeInterrupts(Attempt* attempt) {
  const int asked = interrupts_.descriptor() < 0 ? 0 : interrupts_.take();
  if (asked == 0) {
    return;
  }
  ending_ = true;
  bool canceled = false;
  try {
    canceled = folder_.isCanceled();
  } catch (Exception* exception) {
    LogDebug(takeText(exception));
  }
  stop(canceled ? Stop::Canceled : Stop::Interrupted, attempt);
}

void TaskRun::lookAround(Attempt* attempt) {
  try {
    if (!looksMine()) {
      stop(Stop::Superseded, attempt);
    } else if (folder_.isCanceled()) {
      stop(Stop::Canceled, attempt);
    }
  } catch (Exception* exception) {
    LogDebug(takeText(exception)); // it says nothing about the work
  }
}

void TaskRun::stop(Stop why, Attempt* attempt) {
  const Clock::time_point now = machine_.now();
  if (why == Stop::Superseded) {
    if (stop_ != Stop::Superseded) {
      LogInfo("place " + std::to_string(place_) + " is another process's now, or has ended");
    }
    stop_ = why;
    inspector_.hurry();
    if (attempt != nullptr) {
      attempt->cancel(now, true);
    }
    return;
  }
  const bool first = stop_ == Stop::No;
  if (first) {
    stop_ = why;
    killAt_ = now + times_.ending;
    hurryAt_ = now + times_.looking;
  }
  if (attempt != nullptr) {
    attempt->cancel(now, !first);
  }
}

void TaskRun::beat(const Attempt* attempt) {
  const Clock::time_point now = machine_.now();
  lastBeat_ = now;
  nextBeat_ = now + times_.beat;
  if (guard_ != nullptr) {
    guard_->beat();
  }
  if (stop_ == Stop::Superseded) {
    return;
  }
  ++beat_.count;
  if (attempt != nullptr) {
    beat_.stage = attempt->isChecking() ? "checking" : "running";
    beat_.log = attempt->log().Text();
    beat_.logBytes = attempt->logBytes();
    beat_.silent = secondsOf(Duration(now - attempt->lastOutput()));
    beat_.running = secondsOf(Duration(now - attempt->started()));
    beat_.command = attempt->command();
  }
  beat_.files = named_;
  try {
    folder_.beat(place_, beat_);
    beatFails_ = false;
  } catch (Exception* exception) {
    const std::string text = takeText(exception);
    if (!std::exchange(beatFails_, true)) {
      LogWarning(text);
    }
  }
}

void TaskRun::fileNamed(const trovik::Claim& /*claim*/, const Path& file, std::optional<int> frame) {
  FileRecord record;
  record.frame = frame;
  record.path = file.Text();
  named_.push_back(std::move(record));
  nextBeat_ = std::min(nextBeat_, lastBeat_ + times_.leastBeat);
}

void TaskRun::fileComplete(const WorkInfo& /*work*/, const Path& /*file*/) {}

} // namespace trovik
