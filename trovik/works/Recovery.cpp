#include "trovik/works/Recovery.h"

#include "host/foundation/Log.h"
#include "trovik/text/UsageError.h"
#include "trovik/works/OutcomeText.h"

#include <utility>

namespace trovik {

namespace {

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
    : lost_(std::move(lost)), inspector_(inspector), job_(std::move(job)), hasFrames_(hasFrames) {
  outcome_.attempt = lost_.attempt.id;
  outcome_.state = AttemptState::Lost;
  outcome_.rule = VerdictRule::Engine;
  outcome_.reason = "Its engine died";
  outcome_.log = lost_.attempt.log;
  outcome_.command = lost_.attempt.command;
  outcome_.files = lost_.files;
  outcome_.duration = std::chrono::microseconds(0);
}

Recovery::~Recovery() {
  if (job_) {
    job_->SetObserver(nullptr);
  }
}

bool Recovery::advance(Machine& machine) {
  if (over_) {
    return true;
  }
  if (!programsEnded_) {
    if (lost_.sameBoot && machine.killOrphans({lost_.mark, lost_.process, lost_.attempt.started}) > 0) {
      return false;
    }
    programsEnded_ = true;
    guard([this] { look(); });
  }
  if (look_ && !look_->isOver()) {
    return false;
  }
  guard([this] { judge(); });
  over_ = true;
  return true;
}

/// Where the type's module fails, nothing is known of the files.
template <typename Step> void Recovery::guard(Step step) {
  try {
    step();
  } catch (...) {
    LogWarning("job " + std::to_string(lost_.attempt.job) +
               ": what a lost attempt left is not checked: " + TakeCaughtText());
    job_ = {};
  }
}

void Recovery::look() {
  auto* render = dynamic_cast<RenderJob*>(job_.Get());
  if (render == nullptr) {
    return;
  }
  const auto seconds = std::chrono::floor<std::chrono::seconds>(lost_.attempt.started);
  timespec start{};
  start.tv_sec = static_cast<std::time_t>(seconds.time_since_epoch().count());
  render->CheckFilesSince(start);
  for (const FileRecord& file : lost_.files) {
    render->ProcessNewFilename(Path(file.path));
  }
  look_.emplace(inspector_, *render);
  job_->SetObserver(&*look_);
}

void Recovery::judge() {
  auto* render = dynamic_cast<RenderJob*>(job_.Get());
  if (render == nullptr) {
    return;
  }
  render->FinishWork(ProcessExit(), ProcessJob::Ended::Lost);
  outcome_.files = fileRecords(*render);
  if (hasFrames_) {
    for (const FrameRun& run : render->GoodFrames()) {
      outcome_.good.add(run);
    }
  }
}

std::vector<std::unique_ptr<Recovery>> takeLostAttempts(Queue& queue, ImageInspector& inspector) {
  std::vector<std::unique_ptr<Recovery>> recoveries;
  for (const LostAttempt& lost : queue.takeLost()) {
    const JobId id = lost.attempt.job;
    LogInfo("taking up frames " + std::string(lost.attempt.run.Text()) + " of job " + std::to_string(id) +
            ", whose engine died");
    const std::optional<JobRecord> record = queue.job(id);
    std::unique_ptr<WorkMaker> works;
    if (record) {
      works = std::make_unique<WorkMaker>(record->type, queue.packed(id));
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
