#include "trovik/engine/OpenJob.h"

#include "host/application/jobs/RenderJob.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "host/foundation/WholeNumber.h"
#include "trovik/queue/JobView.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <utility>

namespace trovik {
namespace {

std::unique_ptr<RunLogs> logsOf(const Queue& queue, const JobRecord& record) {
  try {
    return std::make_unique<RunLogDirectory>(Path(record.logs), queue.ownsLogs(record)
                                                                    ? RunLogDirectory::Access::Private
                                                                    : RunLogDirectory::Access::Usual);
  } catch (const UsageError& error) {
    LogWarning("job " + std::to_string(record.id) + " has no logs: " + error.message);
    return noLogs();
  }
}

constexpr int quickEndsBefore = 8; // it is taken for a job of short works
constexpr Duration quickEnd = std::chrono::milliseconds(20);
constexpr Duration workedAhead = std::chrono::milliseconds(20); // what is claimed ahead should last
constexpr std::size_t mostAhead = 32;

/// Whatever such a job names would be started as if this user had written it.
const JobRecord& ownOrRefused(const JobRecord& record) {
  if (!record.own) {
    RaiseException("OpenJob", k_ErrorReference, foreignJobText(record.id));
  }
  return record;
}

std::size_t cpusOf(const Job& job) {
  try {
    const String text = job.FormatStringWithParameters(job.GetParameterOrOption(p_CPUs, true, true));
    return std::max<std::size_t>(1, ReadWholeNumber<std::size_t>(trimmed(text)).value_or(1));
  } catch (...) {
    LogDebug(TakeCaughtText()); // each work tells it
    return 1;
  }
}

} // namespace

OpenJob::OpenJob(Queue& queue, const JobRecord& record, std::shared_ptr<ExecutableMemory> searches)
    : record_(ownOrRefused(record)), works_(record.type, queue.packed(record.id), std::move(searches)),
      job_(works_.makeWhole()), logs_(logsOf(queue, record)), cpus_(cpusOf(*job_)),
      follows_(!queue.forerunners(record.id).empty()) {}

RunInfo OpenJob::info(Queue& queue) const {
  return runInfoOf(viewOf(queue, record_));
}

WorkInfo OpenJob::work(Queue& queue, const Claim& claim) const {
  WorkInfo work;
  work.run = claim.run;
  work.hasFrames = record_.hasFrames;
  work.attempt = claim.number;
  // What was lost with an engine does not count against the work.
  work.attempts = record_.retries + 1 + (claim.number - 1 - claim.tries);
  work.job = record_.id;
  if (follows_) { // which is said when it is submitted
    work.imagesBefore = queue.imagesBefore(record_.id, claim.run);
  }
  return work;
}

SmartHandle<Job> OpenJob::make(const WorkInfo& work) {
  if (ahead_.empty()) {
    return works_.make(work);
  }
  SmartHandle<Job> job = std::move(ahead_.back());
  ahead_.pop_back();
  return works_.make(work, std::move(job));
}

void OpenJob::makeAhead(std::size_t count) {
  while (ahead_.size() < count) {
    ahead_.push_back(works_.makeWhole());
  }
}

void OpenJob::noteEnd(bool good, Duration took) {
  quickEnds_ = good && took < quickEnd ? std::min(quickEnds_ + 1, quickEndsBefore) : 0;
  longest_ = std::max(took, longest_ - longest_ / 8);
}

std::size_t OpenJob::worksAhead(std::size_t slots) const {
  constexpr Duration shortest = std::chrono::microseconds(100);
  if (quickEnds_ < quickEndsBefore) {
    return 0;
  }
  return std::min(mostAhead, slots * static_cast<std::size_t>(workedAhead / std::max(longest_, shortest)));
}

void OpenJob::tell(const SmartHandle<const Job>& work, const std::string& note, bool refused) {
  try {
    job_->OnChildChange(work, "Status", std::to_string(refused ? k_StatusFailed : work->Status()));
    if (!note.empty()) {
      job_->OnChildChange(work, p_Note, note);
    }
  } catch (...) { // the queue knows how the work stands
    LogDebug("job " + std::to_string(record_.id) + ": " + TakeCaughtText());
  }
}

} // namespace trovik
