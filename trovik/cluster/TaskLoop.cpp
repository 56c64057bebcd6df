#include "trovik/cluster/TaskLoop.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Log.h"
#include "trovik/records/Moments.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

/// In bytes: the beat is written again every few seconds.
constexpr std::size_t longestFilesBefore = std::size_t{64} << 10U;

} // namespace

/// Checks files by another inspector until there is no time left: from then on
/// every file that has no answer yet has a problem, so that a work is judged
/// at once and none of its frames counts as good without a check.
class TaskLoop::HurriedInspector final : public ImageInspector {
public:
  explicit HurriedInspector(ImageInspector& inspector) : inspector_(inspector) {}

  void ask(const Path& file, bool refuseFlat, Answer answer) override {
    if (hurried_) {
      answer(unchecked());
      return;
    }
    auto open = std::make_shared<Answer>(std::move(answer));
    open_.push_back(open);
    inspector_.ask(file, refuseFlat, [open](const Inspection& inspection) {
      if (const Answer once = std::exchange(*open, nullptr)) {
        once(inspection);
      }
    });
  }
  int descriptor() const override { return inspector_.descriptor(); }
  std::optional<Clock::time_point> deadline() const override { return inspector_.deadline(); }
  void advance(Clock::time_point now) override {
    inspector_.advance(now);
    std::erase_if(open_, [](const auto& open) { return *open == nullptr; });
  }

  /// There is time again.
  void relax() { hurried_ = false; }
  /// There is no time left.
  void hurry() {
    hurried_ = true;
    for (const auto& open : std::exchange(open_, {})) {
      if (const Answer once = std::exchange(*open, nullptr)) {
        once(unchecked());
      }
    }
  }

private:
  static Inspection unchecked() { return {"Not checked: the task had to end", false, 0, 0}; }

  ImageInspector& inspector_;
  std::vector<std::shared_ptr<Answer>> open_;
  bool hurried_ = false;
};

TaskLoop::TaskLoop(const ArrayFolder& folder, Machine& machine, ImageInspector& inspector,
                   InterruptSource& interrupts, TaskGuard* guard, const TaskTimes& times)
    : folder_(folder), machine_(machine), interrupts_(interrupts), guard_(guard), times_(times),
      inspector_(std::make_unique<HurriedInspector>(inspector)) {}

TaskLoop::~TaskLoop() = default;

void TaskLoop::setPatience(std::chrono::seconds patience) {
  patience_ = patience;
  times_.beat = std::min<Duration>(times_.beat, patience_ / 4);
  lastTurn_ = machine_.now();
}

void TaskLoop::approach(std::size_t position) {
  position_ = position;
  claim_ = 0;
  stop_ = Stop::No;
}

std::optional<WorkBeat> TaskLoop::begin(int claim) {
  std::optional<WorkBeat> before = folder_.beatOf(position_);
  claim_ = claim;
  beat_ = WorkBeat();
  beat_.claim = claim;
  beat_.count = before ? before->count : 0;
  beat_.stage = "starting";
  beat_.filesBefore = before ? before->filesBefore : std::string();
  noted_ = before ? before->files : std::vector<FileRecord>();
  stalled_ = false;
  inspector_->relax();
  killAt_.reset();
  hurryAt_.reset();
  beat(nullptr);
  return before;
}

ImageInspector& TaskLoop::inspector() {
  return *inspector_;
}

void TaskLoop::beginProgram(const std::string& mark) {
  stalled_ = false;
  beat_.end.reset();
  lastTurn_ = machine_.now();
  if (guard_ != nullptr) {
    guard_->begin(mark, std::chrono::duration_cast<std::chrono::seconds>(patience_));
  }
}

void TaskLoop::endProgram() {
  if (guard_ != nullptr) {
    guard_->end();
  }
}

void TaskLoop::noteFilesBefore(std::string text) {
  if (beat_.filesBefore.empty() && text.size() <= longestFilesBefore) {
    beat_.filesBefore = std::move(text);
  }
}

void TaskLoop::note(FileRecord file) {
  noted_.push_back(std::move(file));
  beatSoon();
}

void TaskLoop::beatWhenDue() {
  if (machine_.now() >= nextBeat_) {
    beat(nullptr);
  }
}

void TaskLoop::beatSoon() {
  nextBeat_ = std::min(nextBeat_, lastBeat_ + times_.leastBeat);
}

void TaskLoop::turn(Attempt* attempt, std::optional<Clock::time_point> until) {
  std::vector<pollfd> descriptors = {{interrupts_.descriptor(), POLLIN, 0},
                                     {inspector_->descriptor(), POLLIN, 0}};
  Clock::time_point deadline = machine_.now() + times_.beat;
  const auto consider = [&deadline](const std::optional<Clock::time_point>& time) {
    deadline = time ? std::min(deadline, *time) : deadline;
  };
  consider(until);
  consider(inspector_->deadline());
  consider(killAt_);
  consider(hurryAt_);
  if (claim_ > 0) {
    consider(nextBeat_);
  }
  if (attempt != nullptr) {
    descriptors.push_back({attempt->outputDescriptor(), POLLIN, 0});
    descriptors.push_back({attempt->exitDescriptor(), POLLIN, 0});
    consider(attempt->deadline());
  }
  machine_.wait(descriptors, std::max<Duration>(deadline - machine_.now(), Duration::zero()));
  const Clock::time_point now = machine_.now();
  if (now - lastTurn_ > patience_ / 2) { // its guard may have lost patience
    stalled_ = true;
    nextBeat_ = now;
  }
  lastTurn_ = now;
  takeInterrupts(attempt);
  if (hurryAt_ && now >= *hurryAt_) {
    inspector_->hurry();
    hurryAt_.reset();
  }
  if (killAt_ && now >= *killAt_) {
    killAt_.reset();
    if (attempt != nullptr) {
      attempt->cancel(now, true);
    }
  }
  inspector_->advance(now);
  if (attempt != nullptr) {
    if (descriptors[2].revents != 0) {
      attempt->readOutput(now);
    }
    const bool wasChecking = attempt->isChecking();
    attempt->advance(now);
    if (attempt->isChecking() != wasChecking) {
      noteEnd(*attempt);
    }
  }
  if (claim_ > 0 && now >= nextBeat_) {
    checkClaim(attempt);
    beat(attempt);
  }
}

/// From now on who finds this process dead can give the verdict in its place,
/// so nobody has to wait for the next beat; but a log that may get lost with
/// this machine is none to judge by.
void TaskLoop::noteEnd(Attempt& attempt) {
  beatSoon();
  const std::optional<ProgramEnd> end = attempt.takeEnd(machine_.now());
  if (!end) {
    return;
  }
  if (!end->log.empty()) {
    const Descriptor log(open(end->log.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!log.IsOpen() || fsync(log.Number()) != 0) {
      return;
    }
  }
  beat_.end = ProcessExit{end->exitCode, end->signal, end->usage};
  nextBeat_ = lastTurn_; // in this turn
}

void TaskLoop::takeInterrupts(Attempt* attempt) {
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

void TaskLoop::checkClaim(Attempt* attempt) {
  try {
    if (!seemsMine()) {
      supersede(attempt);
    } else if (folder_.isCanceled()) {
      stop(Stop::Canceled, attempt);
    }
  } catch (Exception* exception) {
    LogDebug(takeText(exception)); // it says nothing about the work
  }
}

bool TaskLoop::seemsMine() const {
  return !folder_.hasEnded(position_) && folder_.lastClaim(position_, claim_) == claim_;
}

bool TaskLoop::isMine() {
  for (;;) {
    try {
      return seemsMine();
    } catch (Exception* exception) {
      LogWarning(takeText(exception));
    }
    if (ending_) {
      return false;
    }
    pause(times_.again);
  }
}

void TaskLoop::supersede(Attempt* attempt) {
  if (stop_ != Stop::Superseded) {
    LogInfo("work " + std::to_string(position_) + " of the array is another process's now, or has ended");
  }
  stop_ = Stop::Superseded;
  inspector_->hurry();
  if (attempt != nullptr) {
    attempt->cancel(machine_.now(), true);
  }
}

void TaskLoop::stop(Stop why, Attempt* attempt) {
  const Clock::time_point now = machine_.now();
  const bool first = stop_ == Stop::No;
  if (first) {
    stop_ = why;
    killAt_ = now + times_.ending;
    hurryAt_ = now + times_.checking;
  }
  if (attempt != nullptr) {
    attempt->cancel(now, !first);
  }
}

void TaskLoop::beat(const Attempt* attempt) {
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
  beat_.files = noted_;
  try {
    folder_.beat(position_, beat_);
    beatFails_ = false;
  } catch (Exception* exception) {
    const std::string text = takeText(exception);
    if (!std::exchange(beatFails_, true)) {
      LogWarning(text);
    }
  }
}

} // namespace trovik
