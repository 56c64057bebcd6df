#include "trovik/cluster/TaskRun.h"

#include "host/foundation/Log.h"
#include "trovik/records/Moments.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/MissingFrames.h"
#include "trovik/works/OutcomeText.h"
#include "trovik/works/Recovery.h"

#include <algorithm>
#include <utility>

namespace trovik {
namespace {

constexpr int folderTries = 5; // where the folder cannot be read or written

Path withoutSlash(const Path& folder) {
  String text = folder.Text();
  while (text.size() > 1 && text.ends_with('/')) {
    text.pop_back();
  }
  return {text};
}

} // namespace

TaskRun::TaskRun(const Path& folder, std::size_t index, TaskSelf self, Machine& machine,
                 ImageInspector& inspector, InterruptSource& interrupts, TaskGuard* guard,
                 const TaskTimes& times)
    : folder_(withoutSlash(folder)), index_(index), self_(std::move(self)), machine_(machine), times_(times),
      loop_(folder_, machine, inspector, interrupts, guard, times) {}

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
  loop_.setPatience(plan_.patience);
  const std::size_t first = index_ * plan_.perTask;
  const std::size_t end = first + std::min(plan_.perTask, plan_.works.size() - first);
  bool all = true;
  for (std::size_t position = first; position < end; ++position) {
    all = work(position) && all;
  }
  return all || folder_.isCanceled();
}

bool TaskRun::work(std::size_t position) {
  position_ = position;
  for (int left = folderTries;; --left) {
    loop_.approach(position);
    try {
      return takeWork();
    } catch (Exception* exception) {
      // A network file system has bad moments.
      if (left == 1 || loop_.isEnding()) {
        throw;
      }
      LogWarning(takeText(exception) + "; it is tried again");
    }
    loop_.pause(times_.again);
  }
}

/// Claims the work as soon as nobody else is at it.
bool TaskRun::takeWork() {
  for (int last = 0;;) {
    if (folder_.hasEnded(position_) || folder_.isCanceled()) {
      return true;
    }
    loop_.pause(Duration::zero());
    if (loop_.isEnding()) {
      return false;
    }
    last = folder_.lastClaim(position_, last);
    if (last > 0 && !waitForDeath(last)) {
      continue;
    }
    WorkClaim claim = makeClaim(last + 1);
    if (folder_.claim(position_, claim)) {
      claim_ = std::move(claim);
      return workClaimed();
    }
  }
}

/// False when there is something to see to instead: a result, a newer claim,
/// the wish to end.
bool TaskRun::waitForDeath(int number) {
  const std::optional<WorkClaim> claim = readClaim(number);
  Silence silence(2 * times_.watch);
  bool said = false;
  while (!folder_.hasEnded(position_) && !folder_.isCanceled() && !loop_.isEnding() &&
         folder_.lastClaim(position_, number) == number) {
    if (claim && self_.outlived(*claim)) {
      return true;
    }
    if (silence.since(folder_.beatOf(position_), machine_.now()) >= plan_.patience) {
      LogInfo("the process at work " + std::to_string(position_) +
              " of the array is silent and counts as dead");
      return true;
    }
    if (!std::exchange(said, true)) {
      LogInfo("work " + std::to_string(position_) + " of the array is done by another process" +
              (claim ? " on " + inQuotes(claim->host) : "") + "; waiting for it");
    }
    loop_.pause(times_.watch);
  }
  return false;
}

std::string TaskRun::markOf(int number) const {
  return taskMark(job_.queue, job_.job, folder_, position_, number);
}

std::optional<WorkClaim> TaskRun::readClaim(int number) const {
  try {
    return folder_.claimOf(position_, number);
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
      claim.stage = StagedOutput::stageOf(*makeJob(plan_.works[position_].run), claim.mark).Text();
    } catch (...) {               // also what a type's module throws
      LogDebug(TakeCaughtText()); // the start of the work tells it
    }
  }
  return claim;
}

WorkInfo TaskRun::infoOf(const FrameRun& run) const {
  WorkInfo info;
  info.run = run;
  info.hasFrames = job_.hasFrames;
  info.attempt = info.attempts = plan_.works[position_].attempt;
  info.job = job_.job;
  info.imagesBefore = plan_.works[position_].imagesBefore;
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
  beatBefore_ = loop_.begin(claim_.number).value_or(WorkBeat());
  merged_ = Outcome();
  complete_ = false;
  if (!problem_.empty()) {
    Outcome failed;
    failed.state = AttemptState::Failed;
    failed.rule = VerdictRule::Start;
    failed.reason = problem_;
    merge(failed);
    return leave();
  }
  try {
    recover();
    renderRest();
  } catch (...) {
    merge(failure(false));
  }
  return loop_.stopped() == Stop::Superseded ? folder_.hasEnded(position_) : leave();
}

/// Recovers what the processes with earlier claims have left.
void TaskRun::recover() {
  if (claim_.number == 1) {
    return;
  }
  const LeftBehind left = endOthers();
  if (loop_.stopped() != Stop::No) {
    return;
  }
  SmartHandle<Job> job = makeJob(plan_.works[position_].run);
  LeftFiles found = takeLeft(*job, plan_.stage, claim_.mark, left);
  StagedOutput& staged = found.staged;
  if (!job_.hasFrames) {
    staged.discard(); // there is no part of it that could be good
    return;
  }
  LostAttempt lost;
  lost.attempt.run = plan_.works[position_].run;
  lost.filesBefore = found.filesBefore;
  lost.onThisMachine = left.onThisMachine;
  lost.sameBoot = false; // what could be ended has ended
  lost.files = std::move(found.files);
  Recovery recovery(std::move(lost), job, job_.hasFrames, loop_.inspector());
  while (!recovery.advance(machine_)) {
    loop_.turn();
  }
  Outcome outcome = recovery.outcome();
  std::erase_if(outcome.files, [&outcome](const FileRecord& file) {
    return !file.problem.empty() || !file.frame || !outcome.good.contains(*file.frame);
  });
  loop_.setNoted(outcome.files); // whoever takes over from this process checks them
  if (loop_.stopped() == Stop::Superseded || !loop_.isMine() || !publish(staged, outcome)) {
    loop_.supersede();
    staged.discard();
    return;
  }
  merged_.good = outcome.good;
  merged_.files = outcome.files;
  LogInfo("recovered from a process that died: " +
          (outcome.good.empty() ? std::string("nothing") : "frames " + outcome.good.text(10)));
}

/// Ends the programs of earlier claims, as far as they run on this machine.
LeftBehind TaskRun::endOthers() {
  const PlannedWork& work = plan_.works[position_];
  LeftBehind left;
  left.named = loop_.noted();
  left.filesBefore = beatBefore_.filesBefore;
  left.onThisMachine = true;
  for (int number = 1; number < claim_.number; ++number) {
    left.marks.push_back(markOf(number));
    left.logs.push_back(logFile(Path(plan_.logs), logName(work.run, number), work.attempt).Text());
    if (const std::optional<WorkClaim> claim = readClaim(number)) {
      if (self_.sharesMachine(*claim)) {
        killPrograms(markOf(number));
      } else {
        left.onThisMachine = false;
      }
    } else {
      left.onThisMachine = false;
    }
  }
  if (const std::string& log = beatBefore_.log;
      !log.empty() && std::find(left.logs.begin(), left.logs.end(), log) == left.logs.end()) {
    left.logs.push_back(log); // of a part of the work
  }
  return left;
}

void TaskRun::killPrograms(const std::string& mark) {
  const Clock::time_point until = machine_.now() + times_.orphans;
  while (!machine_.killOrphans({mark, 0, {}}).empty() && machine_.now() < until &&
         loop_.stopped() == Stop::No) {
    loop_.pause(orphanTime);
  }
}

void TaskRun::renderRest() {
  const FrameRun& run = plan_.works[position_].run;
  const std::vector<FrameRun> rest =
      job_.hasFrames ? FramesOutside(run, merged_.good.runs()) : std::vector<FrameRun>{run};
  if (rest.empty()) {
    merged_.rule = VerdictRule::Files; // all was there
  }
  for (const FrameRun& left : rest) {
    if (loop_.stopped() != Stop::No) {
      return;
    }
    render(left);
  }
  complete_ = loop_.stopped() != Stop::Superseded;
}

void TaskRun::render(const FrameRun& run) {
  StagedOutput staged;
  Outcome outcome;
  try {
    outcome = attempt(run, staged);
  } catch (...) {
    outcome = failure(false);
  }
  loop_.endProgram();
  if (outcome.state != AttemptState::Good) {
    hearOfInterrupt();
  }
  if (loop_.stopped() == Stop::Superseded || !loop_.isMine()) {
    loop_.supersede();
    staged.discard();
    return;
  }
  if (outcome.state != AttemptState::Good && (loop_.stopped() != Stop::No || loop_.hasStalled())) {
    judgeStop(outcome);
  }
  if (!publish(staged, outcome)) {
    loop_.supersede();
    return;
  }
  merge(outcome);
}

/// A machine that has no process to give now mostly has some in a moment; only
/// where it has none for long the attempt fails.
Outcome TaskRun::attempt(const FrameRun& run, StagedOutput& staged) {
  const WorkInfo info = infoOf(run);
  Claim claim;
  claim.job = job_.job;
  claim.run = run;
  claim.number = info.attempt;
  claim.mark = claim_.mark;
  AttemptListener& listener = *this;
  for (std::optional<Clock::time_point> until; loop_.stopped() == Stop::No; loop_.pause(times_.again)) {
    const SmartHandle<Job> job = makeJob(run);
    if (plan_.stage) {
      staged = StagedOutput(*job, claim.mark);
    }
    Attempt attempt(info, claim, job, logs_->open(logName(run, claim_.number), info.attempt),
                    loop_.inspector(), listener);
    loop_.beginProgram(claim.mark);
    const bool last = until && machine_.now() >= *until;
    try {
      const Attempt::Start started =
          attempt.start(machine_, last ? Attempt::Shortage::Fails : Attempt::Shortage::Waits);
      if (started == Attempt::Start::Runs) {
        loop_.noteFilesBefore(attempt.filesBefore());
      }
      loop_.beatSoon();
      while (started == Attempt::Start::Runs && !attempt.isOver()) {
        loop_.turn(&attempt);
      }
      if (started != Attempt::Start::Later) {
        return attempt.outcome();
      }
    } catch (...) { // as the local engine has it
      return failure(true);
    }
    loop_.endProgram();
    if (!until) {
      LogWarning("this node has no more processes to give (EAGAIN); the work is started when it has");
      until = machine_.now() + times_.shortage;
    }
  }
  Outcome never;
  never.state = AttemptState::Lost; // why is judged as for one that was ended
  return never;
}

/// What an attempt comes to where this is thrown. Modules may throw anything.
Outcome TaskRun::failure(bool ofModule) const {
  Outcome failed;
  failed.state = AttemptState::Failed;
  failed.rule = ofModule ? VerdictRule::Result : VerdictRule::Start;
  try {
    throw;
  } catch (Exception* exception) {
    failed.reason = takeText(exception);
  } catch (...) {
    ofModule = true;
    failed.reason = TakeCaughtText();
  }
  if (ofModule) {
    failed.reason = "The module of the type " + inQuotes(job_.typeName) + " failed: " + failed.reason;
  }
  return failed;
}

/// A cluster tells all processes of a task to end, so that the program may
/// have died of what this one has not heard yet.
void TaskRun::hearOfInterrupt() {
  const Clock::time_point until = machine_.now() + times_.aftermath;
  while (machine_.now() < until && loop_.stopped() == Stop::No) {
    loop_.turn(nullptr, until);
  }
}

bool TaskRun::publish(StagedOutput& staged, Outcome& outcome) {
  return staged.publish(outcome, [this] {
    loop_.beatWhenDue(); // many files take their time
    return loop_.isMine();
  });
}

/// What an attempt came to that was ended from outside, or whose program was.
void TaskRun::judgeStop(Outcome& outcome) const {
  outcome.retryable = true;
  if (loop_.stopped() == Stop::Canceled) {
    outcome.state = AttemptState::Canceled;
    outcome.rule = VerdictRule::Canceled;
    outcome.reason = "Canceled";
  } else {
    outcome.state = AttemptState::Lost;
    outcome.rule = VerdictRule::Cluster;
    outcome.reason = loop_.stopped() == Stop::Interrupted ? "The cluster ended its task"
                                                          : "Its task stood still for too long";
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
  if (!complete_ && loop_.stopped() != Stop::No) {
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
  for (bool warned = false;;) {
    end.ended = momentNow();
    try {
      folder_.leave(position_, end);
      return true;
    } catch (Exception* exception) {
      const std::string text = takeText(exception);
      if (!std::exchange(warned, true)) {
        LogWarning(text + "; it is tried again until it can be written");
      }
    }
    if (loop_.isEnding()) {
      return false; // the cluster does not wait
    }
    loop_.pause(times_.again);
  }
}

void TaskRun::fileNamed(const Claim& /*claim*/, const Path& file, std::optional<int> frame) {
  FileRecord record;
  record.frame = frame;
  record.path = file.Text();
  loop_.note(std::move(record));
}

void TaskRun::fileComplete(const WorkInfo& /*work*/, const Path& /*file*/) {}

} // namespace trovik
