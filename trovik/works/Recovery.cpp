#include "trovik/works/Recovery.h"

#include "host/application/jobs/ProgramRun.h"
#include "host/foundation/Log.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/OutcomeText.h"
#include "trovik/works/RunLogs.h"

#include <csignal>
#include <string>
#include <utility>

namespace trovik {

namespace {

constexpr std::size_t logChunk = std::size_t{256} << 10U;
constexpr int chunksPerTurn = 256; // a log of any size must not hold the engine up

SmartHandle<Job> jobOf(const LostAttempt& lost, const WorkMaker* works, bool hasFrames) {
  if (works == nullptr) {
    return {};
  }
  WorkInfo work;
  work.run = lost.attempt.run;
  work.hasFrames = hasFrames;
  try {
    return works->make(work);
  } catch (Exception* exception) {
    LogDebug("a lost attempt: " + takeText(exception));
    return {};
  }
}

} // namespace

Recovery::Recovery(const LostAttempt& lost, const WorkMaker* works, bool hasFrames, ImageInspector& inspector)
    : Recovery(lost, jobOf(lost, works, hasFrames), hasFrames, inspector) {}

Recovery::Recovery(LostAttempt lost, SmartHandle<Job> job, bool hasFrames, ImageInspector& inspector)
    : lost_(std::move(lost)), inspector_(inspector), job_(std::move(job)), hasFrames_(hasFrames),
      splitter_([this](std::string_view line) { onLine(line); }) {
  outcome_.attempt = lost_.attempt.id;
  outcome_.state = AttemptState::Lost;
  outcome_.rule = VerdictRule::Engine;
  outcome_.reason = "Its engine died";
  outcome_.log = lost_.attempt.log;
  outcome_.command = lost_.attempt.command;
  outcome_.files = lost_.files;
  outcome_.duration = lost_.attempt.duration;
}

Recovery::~Recovery() {
  if (job_) {
    job_->SetObserver(nullptr);
  }
}

WorkInfo Recovery::work() const {
  WorkInfo work;
  work.run = lost_.attempt.run;
  work.hasFrames = hasFrames_;
  work.attempt = work.attempts = lost_.attempt.number;
  work.job = lost_.attempt.job;
  return work;
}

bool Recovery::advance(Machine& machine) {
  if (over_) {
    return true;
  }
  if (!programsEnded_) {
    if (lost_.sameBoot && !orphansEnded(machine)) {
      return false;
    }
    programsEnded_ = true;
    guard([this] { begin(); });
  }
  if (log_) {
    bool all = true;
    guard([this, &all] { all = readLog(); });
    if (!all) {
      return false;
    }
  }
  if (!inspection_) {
    guard([this] { inspect(); });
  }
  if (inspection_ && !inspection_->isOver()) {
    return false;
  }
  guard([this] { judge(); });
  over_ = true;
  return true;
}

/// Kills what the dead engine has left, and names what cannot end.
bool Recovery::orphansEnded(Machine& machine) {
  const std::vector<pid_t> left = machine.killOrphans({lost_.mark, lost_.process, lost_.attempt.started});
  const Clock::time_point now = machine.now();
  killed_ = killed_.value_or(now);
  if (!left.empty() && !stuckNamed_ && now >= *killed_ + ProgramRun::k_StuckPatience) {
    stuckNamed_ = true;
    ProgramRun::NameStuck(left);
  }
  return left.empty();
}

/// Opens the log where it can be trusted to be all that this attempt printed.
void Recovery::begin() {
  LogFile log{Path(lost_.attempt.log)};
  if (!log.isThere()) {
    outcome_.log.clear();
  }
  if (auto* render = dynamic_cast<RenderJob*>(job_.Get())) {
    render->CheckFilesAgainst(lost_.filesBefore, lost_.onThisMachine);
  }
  if (dynamic_cast<ProcessJob*>(job_.Get()) == nullptr || (!lost_.sameBoot && !lost_.logRead)) {
    return;
  }
  if (lost_.logRead) {
    logWasRead_ = true;
    return;
  }
  if (lost_.end && lost_.end->printed == 0) {
    logWasRead_ = true;
    return;
  }
  // Where its end was seen it is known how long the log is. Else one that was
  // written before may be what an earlier queue left under the same name.
  const std::chrono::nanoseconds started = lost_.attempt.started.time_since_epoch();
  if (log.isThere() && (lost_.end ? log.size() == lost_.end->printed : log.modified() >= started.count())) {
    log_.emplace(std::move(log));
  }
}

/// Some of the log; true when all was read.
bool Recovery::readLog() {
  std::string buffer(logChunk, '\0');
  for (int turn = 0; turn < chunksPerTurn; ++turn) {
    const std::size_t count = log_->read(read_, buffer);
    read_ += static_cast<std::int64_t>(count);
    splitter_.Feed(std::string_view(buffer.data(), count));
    if (count == 0) {
      splitter_.Finish();
      // What was left out of a log may have been an error line.
      logWasRead_ = !hasGap_ && (!lost_.end || read_ == lost_.end->printed);
      log_.reset();
      return true;
    }
  }
  return false;
}

void Recovery::onLine(std::string_view line) {
  auto& process = dynamic_cast<ProcessJob&>(*job_);
  hasGap_ = hasGap_ || isGapLine(line);
  tail_.add(line);
  process.WorkLine(line);
  if (!decided_ && !process.ErrorLine().empty()) {
    decided_ = true;
    tail_.markDeciding();
  }
}

/// Where the type's module fails, nothing is known of the files.
template <typename Step> void Recovery::guard(Step step) {
  try {
    step();
  } catch (...) {
    LogWarning("job " + std::to_string(lost_.attempt.job) +
               ": what a lost attempt left is not checked: " + TakeCaughtText());
    job_ = {};
    log_.reset();
    inspection_.reset();
  }
}

void Recovery::inspect() {
  auto* render = dynamic_cast<RenderJob*>(job_.Get());
  if (render == nullptr) {
    return;
  }
  for (const FileRecord& file : lost_.files) {
    render->ProcessNewFilename(Path(file.path));
  }
  inspection_.emplace(inspector_, *render);
  job_->SetObserver(&*inspection_);
}

void Recovery::judge() {
  auto* process = dynamic_cast<ProcessJob*>(job_.Get());
  if (process == nullptr) {
    return;
  }
  if (logWasRead_ && lost_.end) {
    // What it used says nothing of the memory of another machine than its own.
    process->FinishWork(
        {lost_.end->exitCode, lost_.end->signal, lost_.onThisMachine ? lost_.end->usage : std::nullopt});
    takeVerdict(*process);
  } else if (logWasRead_) {
    process->FinishWork({128 + SIGKILL, SIGKILL});
    if (job_->IsFinished(process->Status())) {
      takeVerdict(*process);
      outcome_.reason = "Its engine died after the success text, and every file is good";
    }
  } else {
    process->FinishWork(ProcessExit(), ProcessJob::Ended::Lost);
  }
  const auto* render = dynamic_cast<const RenderJob*>(process);
  if (render == nullptr) {
    return;
  }
  outcome_.files = fileRecords(*render);
  // When a file came is not known any more, so none can be said to have come
  // before an error line.
  if (hasFrames_ && process->ErrorLine().empty()) {
    for (const FrameRun& run : render->GoodFrames()) {
      outcome_.good.add(run);
    }
  }
}

/// As the engine would have put it down.
void Recovery::takeVerdict(const ProcessJob& process) {
  const bool good = process.IsFinished(process.Status());
  outcome_.state = good ? AttemptState::Good : AttemptState::Failed;
  outcome_.rule = ruleOf(process, ProcessJob::Ended::ByItself);
  outcome_.reason = process.Note();
  outcome_.retryable = process.IsWorthRepeating();
  if (lost_.end) {
    outcome_.exitCode = lost_.end->exitCode;
    outcome_.signal = lost_.end->signal;
    outcome_.usage = lost_.end->usage;
  }
  if (!good) {
    outcome_.lines = tail_.lines();
    outcome_.alike = alikeKey(outcome_.reason);
  }
}

std::vector<std::unique_ptr<Recovery>> takeLostAttempts(Queue& queue, ImageInspector& inspector) {
  std::vector<std::unique_ptr<Recovery>> recoveries;
  for (LostAttempt& lost : queue.takeLost()) {
    const JobId id = lost.attempt.job;
    LogInfo("recovering frames " + std::string(lost.attempt.run.Text()) + " of job " + std::to_string(id) +
            ", whose engine died");
    const std::optional<JobRecord> record = queue.job(id);
    std::unique_ptr<WorkMaker> works;
    if (record) {
      works = std::make_unique<WorkMaker>(record->type, queue.packed(id));
    }
    // In a folder that the user named, other jobs may write to the same file.
    if (record && !lost.end && Path(record->logs) == queue.logDirectory(id)) {
      lost.attempt.log = logFile(*record, lost.attempt).Text();
    }
    recoveries.push_back(
        std::make_unique<Recovery>(lost, works.get(), record && record->hasFrames, inspector));
  }
  if (recoveries.empty()) {
    queue.releaseLost();
  }
  return recoveries;
}

void recoverLost(Queue& queue, Machine& machine, ImageInspector& inspector) {
  for (const auto& recovery : takeLostAttempts(queue, inspector)) {
    while (!recovery->advance(machine)) {
      std::vector<pollfd> descriptors = {{inspector.descriptor(), POLLIN, 0}};
      machine.wait(descriptors, std::chrono::milliseconds(100));
      inspector.advance(machine.now());
    }
    queue.settle(recovery->outcome());
  }
  queue.releaseLost();
}

} // namespace trovik
