#include "trovik/Attempt.h"

#include "host/foundation/Log.h"
#include "trovik/UsageError.h"

#include <algorithm>
#include <array>
#include <sys/stat.h>
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

bool isFilled(const Path& file) {
  struct stat status {};
  return stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
}

} // namespace

Attempt::Attempt(const WorkInfo& work, SmartHandle<Job> job, std::unique_ptr<AttemptLog> log,
                 ImageReceiver images)
    : work_(work), job_(std::move(job)), process_(dynamic_cast<ProcessJob*>(job_.Get())),
      log_(std::move(log)), images_(std::move(images)),
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
    worthRepeating_ = false;
    conclude(process_->Status(), started_);
    return false;
  }
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
  return outputOver_ ? -1 : program_->outputDescriptor();
}
int Attempt::exitDescriptor() const {
  return exited_ ? -1 : program_->exitDescriptor();
}

std::optional<Clock::time_point> Attempt::deadline() const {
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
    splitter_.Feed(bytes);
  }
}

void Attempt::advance(Clock::time_point now) {
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
  conclude(process_->FinishWork(exit_, ended_), now);
}

void Attempt::conclude(int status, Clock::time_point now) {
  status_ = status;
  over_ = true;
  result_.duration = now - started_;
  result_.log = log_->file();
  if (job_->IsFinished(status)) {
    result_.verdict = Verdict::Good;
    confirm(announced_);
    if (const auto* render = dynamic_cast<RenderJob*>(process_); render != nullptr) {
      try {
        for (const Path& file : render->ExpectedFiles()) {
          confirm(file);
        }
      } catch (Exception* exception) {
        LogDebug("expected files: " + takeText(exception));
      }
    }
    return;
  }
  result_.verdict = job_->IsCanceled(status) ? Verdict::Canceled : Verdict::Failed;
  result_.reason = process_->Note();
  result_.lines = tail_.lines();
}

void Attempt::confirm(const Path& file) {
  if (!file.empty() && isFilled(file)) {
    images_(work_, file);
  }
}

void Attempt::OnWorkParameter(const Job& /*job*/, const String& /*name*/, const String& /*value*/) {}

void Attempt::OnImage(const Job& /*job*/, const Path& file) {
  // Many programs name a file before they write it. When the next one is
  // named, the one before is complete.
  confirm(announced_);
  announced_ = file;
}

} // namespace trovik
