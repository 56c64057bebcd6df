#include "trovik/works/Attempt.h"

#include "host/foundation/Log.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/OutcomeText.h"

#include <cerrno>
#include <utility>

namespace trovik {
namespace {

/// The job as one that renders, or null.
const RenderJob* renderOf(const ProcessJob& job) {
  return dynamic_cast<const RenderJob*>(&job);
}

} // namespace

Attempt::Attempt(const WorkInfo& work, const Claim& claim, SmartHandle<Job> job,
                 std::unique_ptr<AttemptLog> log, ImageInspector& inspector, AttemptListener& listener)
    : work_(work), claim_(claim), job_(std::move(job)), process_(dynamic_cast<ProcessJob*>(job_.Get())),
      log_(std::move(log)), inspector_(inspector), listener_(listener),
      splitter_(static_cast<LineJudge&>(*this)) {
  job_->SetObserver(this);
}

Attempt::~Attempt() {
  job_->SetObserver(nullptr);
}

void Attempt::prepare() {
  if (ready_) {
    return;
  }
  ready_ = process_->PrepareWork(program_);
  if (*ready_) {
    outcome_.command = commandText(program_);
    // By its mark all that it starts is found, also when this engine has died.
    program_.Mark = String(claim_.mark);
    program_.Environment.emplace_back("TROVIK_JOB", String(std::to_string(claim_.job)));
  }
}

Attempt::Start Attempt::start(Machine& machine, Shortage shortage) {
  started_ = machine.now();
  prepare();
  if (!*ready_) {
    conclude(process_->Status(), started_);
    return Start::Failed;
  }
  try {
    if (auto* render = dynamic_cast<RenderJob*>(job_.Get())) {
      render->NoteFilesBefore(work_.attempt > 1);
    }
    const ProgramRun::Patience patience{process_->RunTimeLimit(), process_->SilenceLimit()};
    run_.emplace(machine.start(program_), patience, started_,
                 [this](std::string_view text) { onOutput(text); });
  } catch (Exception* exception) {
    if (exception->Number() == EAGAIN && shortage == Shortage::Waits) {
      delete exception;
      return Start::Later;
    }
    conclude(process_->FailWork(takeText(exception)), started_);
    return Start::Failed;
  }
  process_->WorkSpawned(run_->Id());
  return Start::Runs;
}

std::string Attempt::filesBefore() const {
  const RenderJob* const render = renderOf(*process_);
  return render == nullptr ? std::string() : render->FilesBeforeText();
}

int Attempt::outputDescriptor() const {
  return inspection_ ? -1 : run_->OutputDescriptor();
}
int Attempt::exitDescriptor() const {
  return inspection_ ? -1 : run_->ExitDescriptor();
}

std::optional<Clock::time_point> Attempt::deadline() const {
  // The inspector has a patience of its own.
  return inspection_ ? std::nullopt : run_->Deadline();
}

void Attempt::readOutput(Clock::time_point now) {
  run_->ReadOutput(now);
}

void Attempt::advance(Clock::time_point now) {
  if (inspection_) {
    if (inspection_->isOver()) {
      conclude(judge(), now);
    }
    return;
  }
  advanceProgram(now);
  if (run_->IsOver()) {
    finish(now);
  }
}

void Attempt::advanceProgram(Clock::time_point now) {
  if (inspection_) {
    return;
  }
  if (process_->HasModuleFailed()) {
    run_->Dismiss(now);
  }
  run_->Advance(now);
}

void Attempt::cancel(Clock::time_point now, bool kill) {
  run_->Cancel(now, kill);
}

void Attempt::onOutput(std::string_view text) {
  log_->write(text);
  logBytes_ += static_cast<std::int64_t>(text.size());
  splitter_.Feed(text);
}

const TextFilter* Attempt::WantedTexts() {
  return process_->WantedTexts();
}

void Attempt::OnPlainLines(std::string_view lines) {
  tail_.addLines(lines);
  process_->WorkPlainLines(lines);
}

void Attempt::OnLine(std::string_view line) {
  tail_.add(line);
  process_->WorkLine(line);
  if (!decided_ && !process_->ErrorLine().empty()) {
    decided_ = true;
    tail_.markDeciding();
  }
}

void Attempt::finish(Clock::time_point now) {
  splitter_.Finish();
  if (const RenderJob* const render = renderOf(*process_); render != nullptr) {
    inspection_.emplace(inspector_, *render);
    if (!inspection_->isOver()) {
      return;
    }
  }
  conclude(judge(), now);
}

int Attempt::judge() {
  return process_->FinishWork(run_->Exit(), run_->HowEnded());
}

std::optional<ProgramEnd> Attempt::takeEnd(Clock::time_point now) {
  if (!inspection_ || endTaken_ || over_ || run_->HowEnded() != ProcessJob::Ended::ByItself) {
    return std::nullopt;
  }
  endTaken_ = true;
  ProgramEnd end;
  end.exitCode = run_->Exit().Code;
  end.signal = run_->Exit().Signal;
  end.usage = run_->Exit().Usage;
  end.command = outcome_.command;
  end.log = log_->file().Text();
  end.printed = logBytes_;
  end.duration = std::chrono::duration_cast<std::chrono::microseconds>(now - started_);
  return end;
}

void Attempt::conclude(int status, Clock::time_point now) {
  over_ = true;
  result_.duration = now - started_;
  result_.log = log_->file();
  describe(status);
  if (result_.verdict == Verdict::Good && !announced_.empty() && isFilled(announced_)) {
    confirm(announced_); // the type may have switched the check of files off
  }
  for (const FileRecord& file : outcome_.files) {
    if (file.problem.empty() &&
        (result_.verdict == Verdict::Good || (file.frame && result_.good.contains(*file.frame)))) {
      confirm(Path(file.path));
    }
  }
}

void Attempt::describe(int status) {
  result_.verdict = job_->IsFinished(status)   ? Verdict::Good
                    : job_->IsCanceled(status) ? Verdict::Canceled
                                               : Verdict::Failed;
  result_.rule = ruleOf(*process_, run_ ? run_->HowEnded() : ProcessJob::Ended::ByItself);
  if (result_.verdict != Verdict::Good) {
    result_.reason = process_->Note();
    result_.lines = tail_.lines();
  }
  if (const RenderJob* const render = renderOf(*process_); render != nullptr) {
    outcome_.files = fileRecords(*render);
    if (work_.hasFrames) {
      for (const FrameRun& run : render->GoodFrames()) {
        result_.good.add(run);
      }
    }
  }
  if (result_.verdict == Verdict::Good && work_.hasFrames) {
    result_.good.add(work_.run);
  }
  outcome_.attempt = claim_.attempt;
  outcome_.state = result_.verdict == Verdict::Good     ? AttemptState::Good
                   : result_.verdict == Verdict::Failed ? AttemptState::Failed
                                                        : AttemptState::Canceled;
  outcome_.rule = result_.rule;
  outcome_.reason = process_->Note();
  outcome_.lines = result_.lines;
  outcome_.log = result_.log.Text();
  if (run_) {
    outcome_.exitCode = run_->Exit().Code;
    outcome_.signal = run_->Exit().Signal;
    outcome_.usage = run_->Exit().Usage;
  }
  outcome_.good = result_.good;
  outcome_.retryable = process_->IsWorthRepeating();
  outcome_.alike = alikeKey(result_.reason);
  outcome_.duration = std::chrono::duration_cast<std::chrono::microseconds>(result_.duration);
}

void Attempt::confirm(const Path& file) {
  if (!file.empty() && complete_.insert(file.Text()).second) {
    listener_.fileComplete(work_, file);
  }
}

void Attempt::OnImage(const Job& /*job*/, const Path& file) {
  // Many programs name a file before they write it. When the next one is
  // named, the one before is complete.
  if (isFilled(announced_)) {
    confirm(announced_);
  }
  announced_ = file;
  if (work_.frames() > 1) {
    const RenderJob* const render = renderOf(*process_);
    listener_.fileNamed(claim_, file, render == nullptr ? std::nullopt : render->FrameOf(file));
  }
}

String Attempt::OnCheckFile(const Job& job, const Path& file) {
  return inspection_ ? inspection_->OnCheckFile(job, file) : String();
}

} // namespace trovik
