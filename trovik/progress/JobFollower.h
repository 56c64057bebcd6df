#pragma once

#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/records/RunEvents.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace trovik {

/// Turns what other processes write into the queue about a job into the events
/// of a run, so that a job looks the same whoever works on it.
///
/// The queue holds states, not events: what begins and ends between two checks
/// is reported all the same, one after the other; a file is reported once, when the
/// program has gone on to another one or the attempt has left it good. For one
/// thread; the queue and the events must outlive it.
class JobFollower {
public:
  /// Attempts of the engine `without` are left out; 0 leaves out none.
  JobFollower(Queue& queue, JobId job, RunEvents& events, EngineId without = 0);

  /// Tells the start of the run, then the attempts that are under way. Not for
  /// runs whose engine tells that itself.
  void beginRun();

  /// Tells what has changed since the last call; at the first one, unless
  /// `beginRun` was called, the attempts that are under way. What had ended
  /// before is never reported. Cheap where nothing has changed.
  void poll();

  /// The job is not open any more, and no attempt that is followed runs.
  bool isOver() const { return !open_ && running_.empty() && unbegun_.empty(); }

private:
  struct Running {
    WorkInfo work;
    std::string pending; // the file that it named last
  };

  RunInfo takeStock();
  void tellStarts() const;
  bool check();
  std::vector<AttemptRecord> takeNew();
  std::set<AttemptId> runningIds() const;
  void tellFile(const FileRecord& file);
  void tellImage(const Running& running, const std::string& path);
  void tellEnd(const AttemptRecord& attempt);
  WorkInfo workOf(const AttemptRecord& attempt) const;

  Queue& queue_;
  JobId job_;
  RunEvents& events_;
  EngineId without_;
  JobRecord record_;
  bool begun_ = false;
  bool open_ = true;
  std::int64_t version_ = -1;
  AttemptId lastAttempt_ = 0;
  std::int64_t lastFile_ = 0;
  std::map<AttemptId, Running> running_;
  std::set<AttemptId> unbegun_;    // claimed ahead: they begin, or vanish
  std::set<std::string> reported_; // files
};

/// Follows to the end of the job. `polled` is called after each look (may be empty), and
/// `engineGone` when no engine is at
/// work that could go on with it, again after one was. False when the user
/// asked to leave before.
bool followToEnd(JobFollower& follower, Queue& queue, Machine& machine, InterruptSource& interrupts,
                 const std::function<void()>& engineGone, const std::function<void()>& polled = {});

} // namespace trovik
