#pragma once

#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/records/RunEvents.h"
#include "trovik/works/RunLogs.h"

#include <memory>
#include <string>
#include <vector>

namespace trovik {

/// A job of the queue that an engine works on: read from its stream once, for
/// all of its works.
class OpenJob {
public:
  /// Raises Exception* where the type is not known here, the stream cannot be
  /// read, or the job is not this queue's own. The searches may be null.
  OpenJob(Queue& queue, const JobRecord& record, std::shared_ptr<ExecutableMemory> searches);

  const JobRecord& record() const { return record_; }
  const WorkMaker& works() const { return works_; }
  RunLogs& logs() { return *logs_; }
  /// The slots that one of its works takes where slots are CPUs.
  std::size_t cpus() const { return cpus_; }
  /// What readers of events are given of the job, but for the engine's slots.
  RunInfo info(Queue& queue) const;
  WorkInfo work(Queue& queue, const Claim& claim) const;
  /// A fresh object for a work: one that was made ahead, where there is one.
  SmartHandle<Job> make(const WorkInfo& work);
  /// Makes objects ahead until there are so many.
  void makeAhead(std::size_t count);
  /// An attempt at one of its works has ended, in so much time.
  void noteEnd(bool good, Duration took);
  /// How many works may be claimed ahead for an engine of so many slots: none but
  /// where they are all good and short of late.
  std::size_t worksAhead(std::size_t slots) const;
  /// Works of it that were claimed ahead did not begin in time.
  void noteDelay() { quickEnds_ = 0; }

  /// Tells the job object how one of its works stands: as the work's own object
  /// says, or failed where the queue refused what that takes for good.
  void tell(const SmartHandle<const Job>& work, const std::string& note, bool refused);

private:
  JobRecord record_;
  WorkMaker works_;
  SmartHandle<Job> job_;
  std::unique_ptr<RunLogs> logs_;
  std::size_t cpus_ = 1;
  bool follows_ = false;
  std::vector<SmartHandle<Job>> ahead_;
  int quickEnds_ = 0;  // one after the other
  Duration longest_{}; // of late
};

} // namespace trovik
