#include "trovik/works/Attempt.h"

#include "host/foundation/Log.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/OutcomeText.h"

#include <algorithm>
#include <array>
#include <utility>

namespace trovik {
namespace {

constexpr std::size_t readSize = std::size_t{256} << 10U;
constexpr int readsPerTurn = 8;

// One buffer for all attempts: the engine is one thread.
std::array<char, readSize>& readBuffer() {
  static std::array<char, readSize> buffer;
  return buffer;
}

/// A limit in seconds, where 0 is none.
std::optional<Duration> limitOf(double seconds) {
  if (seconds <= 0) {
    return std::nullopt;
  }
  // A century is as good as for ever, and fits the clock.
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(std::min(seconds, 3.0e9)));
}

} // namespace

Attempt::Attempt(const WorkInfo& work, const Claim& claim, SmartHandle<Job> job,
                 std::unique_ptr<AttemptLog> log, ImageInspector& inspector, AttemptListener& listener)
    : work_(work), claim_(claim), job_(std::move(job)), process_(dynamic_cast<ProcessJob*>(job_.Get())),
      log_(std::move(log)), inspector_(inspector), listener_(listener),
      splitter_([this](std::string_view line) { onLine(line); }) {
  job_->SetObserver(this);
}

Attempt::~Attempt() {
  job_->SetObserver(nullptr);
}

bool Attempt::start(Machine& machine) {
  started_ = lastOutput_ = machine.now();
  ProcessStart start;
  if (!process_->PrepareWork(start)) {
    conclude(process_->Status(), started_);
    return false;
  }
  outcome_.command = commandText(start);
  // By its mark a process is found again when this engine has died.
  start.Environment.emplace_back("TROVIK_ATTEMPT", String(claim_.mark));
  start.Environment.emplace_back("TROVIK_JOB", String(std::to_string(claim_.job)));
  try {
    runTimeLimit_ = limitOf(process_->RunTimeLimit());
    silenceLimit_ = limitOf(process_->SilenceLimit());
    program_ = machine.start(start);
  } catch (Exception* exception) {
    conclude(process_->FailWork(takeText(exception)), started_);
    return false;
  }
  process_->WorkSpawned(program_->id());
  return true;
}

int Attempt::outputDescriptor() const {
  return outputOver_ || look_ ? -1 : program_->outputDescriptor();
}
int Attempt::exitDescriptor() const {
  return exited_ ? -1 : program_->exitDescriptor();
}

std::optional<Clock::time_point> Attempt::deadline() const {
  if (look_) {
    return std::nullopt; // the inspector has a patience of its own
  }
  std::optional<Clock::time_point> earliest = exited_ ? drainUntil_ : killAt_;
  if (!exited_ && ended_ == ProcessJob::Ended::ByItself) {
    const auto consider = [&earliest](Clock::time_point begin, const std::optional<Duration>& limit) {
      if (limit && (!earliest || begin + *limit < *earliest)) {
        earliest = begin + *limit;
      }
    };
    consider(started_, runTimeLimit_);
    consider(lastOutput_, silenceLimit_);
  }
  return earliest;
}

void Attempt::readOutput(Clock::time_point now) {
  std::array<char, readSize>& buffer = readBuffer();
  for (int turn = 0; turn < readsPerTurn && !outputOver_; ++turn) {
    const ssize_t got = program_->readOutput(buffer.data(), buffer.size());
    if (got < 0) {
      return;
    }
    if (got == 0) {
      outputOver_ = true;
      return;
    }
    lastOutput_ = now;
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(got));
    log_->write(bytes);
    logBytes_ += got;
    splitter_.Feed(bytes);
  }
}

void Attempt::advance(Clock::time_point now) {
  if (look_) {
    if (look_->isOver()) {
      conclude(process_->FinishWork(exit_, ended_), now);
    }
    return;
  }
  if (!exited_ && program_->ended(exit_)) {
    exited_ = true;
    drainUntil_ = now + strayGrace;
    readOutput(now);
  }
  if (exited_) {
    if (outputOver_ || now >= *drainUntil_) {
      finish(now);
    }
    return;
  }
  if (killAt_ && now >= *killAt_) {
    program_->kill();
    killAt_.reset();
  }
  if (ended_ == ProcessJob::Ended::ByItself) {
    if (runTimeLimit_ && now >= started_ + *runTimeLimit_) {
      end(ProcessJob::Ended::TimedOut, now);
    } else if (silenceLimit_ && now >= lastOutput_ + *silenceLimit_) {
      end(ProcessJob::Ended::Silent, now);
    }
  }
}

void Attempt::cancel(Clock::time_point now, bool kill) {
  if (exited_) {
    return; // its own end came first and counts
  }
  if (kill) {
    if (ended_ == ProcessJob::Ended::ByItself) {
      ended_ = ProcessJob::Ended::Canceled;
    }
    program_->kill();
    killAt_.reset();
  } else if (ended_ == ProcessJob::Ended::ByItself) {
    end(ProcessJob::Ended::Canceled, now);
  }
}

void Attempt::end(ProcessJob::Ended why, Clock::time_point now) {
  ended_ = why;
  program_->terminate();
  killAt_ = now + endingGrace;
}

void Attempt::onLine(std::string_view line) {
  tail_.add(line);
  process_->WorkLine(line);
  if (!decided_ && !process_->ErrorLine().empty()) {
    decided_ = true;
    tail_.markDeciding();
  }
}

void Attempt::finish(Clock::time_point now) {
  splitter_.Finish();
  if (const auto* render = dynamic_cast<const RenderJob*>(process_); render != nullptr) {
    look_.emplace(inspector_, *render);
    if (!look_->isOver()) {
      return;
    }
  }
  conclude(process_->FinishWork(exit_, ended_), now);
}

std::optional<ProgramEnd> Attempt::takeEnd(Clock::time_point now) {
  if (!look_ || endTaken_ || over_ || ended_ != ProcessJob::Ended::ByItself) {
    return std::nullopt;
  }
  endTaken_ = true;
  ProgramEnd end;
  end.exitCode = exit_.Code;
  end.signal = exit_.Signal;
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
  if (result_.verdict == Verdict::Good && isFilled(announced_)) {
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
  result_.rule = ruleOf(*process_, ended_);
  if (result_.verdict != Verdict::Good) {
    result_.reason = process_->Note();
    result_.lines = tail_.lines();
  }
  if (const auto* render = dynamic_cast<const RenderJob*>(process_); render != nullptr) {
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
  outcome_.exitCode = exit_.Code;
  outcome_.signal = exit_.Signal;
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
    const auto* render = dynamic_cast<const RenderJob*>(process_);
    listener_.fileNamed(claim_, file, render == nullptr ? std::nullopt : render->FrameOf(file));
  }
}

String Attempt::OnCheckFile(const Job& job, const Path& file) {
  return look_ ? look_->OnCheckFile(job, file) : String();
}

} // namespace trovik
