#pragma once

#include "host/foundation/Path.h"
#include "trovik/machine/Machine.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace trovik {

/// How the cluster manager sees a task. What a task has come to is in its
/// result file alone; this only says whether to wait for one.
enum class TaskPhase {
  Waiting, ///< not started yet
  Active,  ///< started and not over
  Over,    ///< ended, for good or ill
  Retry,   ///< ended by no fault of its own: the node failed, it was preempted
  Unknown, ///< a state that is not known here; nothing is done about it
};

/// One task of an array job, as a query gives it.
struct ClusterTask {
  std::int64_t array = 0; ///< the number of the array job
  int index = 0;
  TaskPhase phase = TaskPhase::Unknown;
  std::string state;  ///< the manager's word, "PENDING"
  std::string reason; ///< the manager's word, "Priority"; empty for none
  int waitStatus = 0; ///< as of waitpid
  int restarts = 0;
  std::string node; ///< empty before the start
};

/// The limits and shares of a site.
struct ClusterSite {
  int arraySize = 1001; ///< indices are below it
  int jobCount = 10000; ///< tasks that the manager keeps, of all users
  /// Mebibytes of memory for each CPU, so that a work takes no more than its
  /// share of the smallest node; 0 when that is not known.
  std::int64_t memoryPerCpu = 0;
};

/// What to submit. Texts of a job never get here, but for the options.
struct ClusterSubmission {
  std::string name; ///< unique; what the array job is found by
  std::string comment;
  Path folder;                         ///< of the array job (ArrayFolder)
  Path program;                        ///< trovik on the nodes
  Path taskLog;                        ///< with "%a" for the index
  int tasks = 1;                       ///< indices from 0 on
  std::string licenses;                ///< "renderer:1,floating:2"; empty for none
  int throttle = 0;                    ///< tasks that may run at a time; 0 for no limit
  std::string partition, account, qos; ///< empty for the site's default
  std::int64_t memory = 0;             ///< mebibytes of a task; 0 leaves it to the cluster
  int cpus = 1;
  int minutes = 0;                  ///< 0 for the partition's own limit
  std::vector<std::string> options; ///< further ones of sbatch
};

/// The answer of a command of the manager.
struct ClusterAnswer {
  /// False: it failed, hung or could not be started. Says nothing about tasks.
  bool answered = false;
  std::string problem;            ///< what it said then, in one line
  bool refused = false;           ///< of a submission: it will be refused again (a bad option, a limit)
  std::int64_t array = 0;         ///< of a submission: the number of the array job
  std::vector<ClusterTask> tasks; ///< of a query
  ClusterSite site;               ///< of that question
};

/// The cluster manager, asked through its command line programs. Questions wait
/// for each other, so that there is never more than one program at a time; each
/// has a limit of time of its own. The answers come from `advance`, in the
/// thread of the caller.
class ClusterClient {
public:
  using Answer = std::function<void(const ClusterAnswer& answer)>;
  virtual ~ClusterClient() = default;

  virtual void submit(const ClusterSubmission& submission, Answer answer) = 0;
  /// All tasks of the array jobs with these names that the manager still
  /// knows. One that it does not tell of has ended some time ago, or never
  /// began.
  virtual void query(const std::vector<std::string>& names, Answer answer) = 0;
  /// Ends array jobs, with all of their tasks.
  virtual void cancel(const std::vector<std::string>& names, Answer answer) = 0;
  virtual void askSite(const std::string& partition, Answer answer) = 0;

  /// Whether an answer is awaited.
  virtual bool isBusy() const = 0;
  /// What to wait for (poll, readable).
  virtual void addDescriptors(std::vector<pollfd>& descriptors) const = 0;
  virtual std::optional<Clock::time_point> deadline() const = 0;
  virtual void advance(Clock::time_point now) = 0;
};

/// What a waiting task waits for, for people: whether somebody has to do
/// something, and what. From the manager's word for the reason.
struct WaitingReason {
  bool stuck = false; ///< it will not start by itself
  std::string text;   ///< "its account may run no more CPUs at a time"
  std::string hint;   ///< what to do, "ID" for the array job; empty for nothing

  /// What to do about that array job.
  std::string hintFor(std::int64_t array) const;
};
WaitingReason waitingReason(const std::string& state, const std::string& reason);

/// Why a task ended without a result, for people, and what to do about it.
struct TaskDeath {
  bool limits = false;     ///< it was the work's own fault: too much memory or time
  bool byHand = false;     ///< somebody canceled it, not with trovik
  bool neverBegan = false; ///< only meaningful together with the lack of a claim
  std::string text;
  std::string hint;
};
TaskDeath taskDeath(const ClusterTask& task);

} // namespace trovik
