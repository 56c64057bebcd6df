#pragma once

#include "host/application/RenderJob.h"
#include "trovik/Attempt.h"
#include "trovik/Interrupts.h"
#include "trovik/Machine.h"
#include "trovik/RunEvents.h"
#include "trovik/RunLogs.h"
#include "trovik/WorkJob.h"

#include <deque>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace trovik {

/// What an engine is to work off.
struct RunPlan {
  SmartHandle<Job> job; ///< set up and valid; a ProcessJob
  std::size_t slots = 1;
  int retries = 0; ///< further attempts at a work that failed
};

/// Works off a job on this machine: so many programs at a time as there are
/// slots, all watched by one poll loop.
///
/// Each attempt is a fresh job object that unpacks the job's stream, since an
/// object remembers what it saw in the output. Works that failed are tried
/// again after all others had their first turn: what made them fail may have
/// passed by then.
class LocalEngine {
public:
  /// All must outlive the engine.
  LocalEngine(Machine& machine, RunLogs& logs, InterruptSource& interrupts, RunEvents& events);

  /// Runs until all is done or the user stopped it. `info` goes to the events
  /// with the numbers of frames and works filled in. Raises Exception* when
  /// the job's range is malformed.
  RunSummary run(const RunPlan& plan, RunInfo info);

private:
  struct Waiting {
    FrameRun run;
    bool hasFrames = true;
    int attempt = 1;
  };

  bool nextWork(Waiting& work);
  bool hasWork();
  void fillSlots(const RunPlan& plan);
  void startAttempt(const RunPlan& plan, const Waiting& waiting);
  void waitForSomething();
  void takeInterrupts();
  void settle(const RunPlan& plan, Attempt& attempt);
  void noteImage(const WorkInfo& work, const Path& file);
  void noteFailure(const WorkInfo& work, const WorkResult& result);
  void tellJob(const RunPlan& plan, const Attempt& attempt);
  void countNotDone(const WorkInfo& work);

  Machine& machine_;
  RunLogs& logs_;
  InterruptSource& interrupts_;
  RunEvents& events_;

  std::unique_ptr<WorkMaker> maker_;
  std::unique_ptr<Distributor> distributor_;
  std::optional<Waiting> ahead_; // the distributor's next work
  std::deque<Waiting> again_;
  std::list<std::unique_ptr<Attempt>> running_;
  std::unordered_set<std::string> images_;
  std::unordered_map<std::string, std::size_t> failureGroups_; // reason to place in the summary
  int stops_ = 0;
  RunSummary summary_;
};

} // namespace trovik
