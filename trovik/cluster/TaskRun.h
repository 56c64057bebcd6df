#pragma once

#include "trovik/cluster/HurriedInspector.h"
#include "trovik/cluster/JobFolder.h"
#include "trovik/cluster/LeftFiles.h"
#include "trovik/cluster/StagedOutput.h"
#include "trovik/cluster/TaskGuard.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/works/Attempt.h"
#include "trovik/works/Recovery.h"
#include "trovik/works/RunLogs.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// Who works: what a claim tells of its process.
struct TaskSelf {
  std::string host;
  std::string boot; ///< the machine's start and the namespace of its process numbers
  int process = 0;
  std::string node;
  std::string task;
  int restarts = 0;
  std::optional<int> cpus; ///< that the cluster gave to the task
};

/// This process, as its environment (SLURM_…) and its machine tell.
TaskSelf taskSelf();

/// What the programs of a claim carry in TROVIK_ATTEMPT. Made by whoever needs
/// it and never taken from a claim: what carries it is going to be killed.
std::string taskMark(const std::string& queue, JobId job, const ArrayFolder& array, std::size_t place,
                     int number);

/// The patience of a task with everything around it.
struct TaskTimes {
  Duration beat = std::chrono::seconds(5);             ///< between two beats
  Duration leastBeat = std::chrono::seconds(1);        ///< even where there is news
  Duration watch = std::chrono::seconds(2);            ///< between two looks at another process
  Duration ending = std::chrono::milliseconds(1500);   ///< from asking a program to end to killing it
  Duration looking = std::chrono::seconds(3);          ///< from an interrupt to the verdict
  Duration aftermath = std::chrono::milliseconds(300); ///< for the interrupt that a program died of, too
  Duration orphans = std::chrono::seconds(10);         ///< for programs of a dead process to be gone
  Duration again = std::chrono::seconds(2); ///< until a result that could not be written is tried again
};

/// One task of an array job: works its places one after the other and leaves
/// how each has ended.
///
/// The cluster may start the same task a second time while the first one still
/// runs somewhere. The claims of a place settle which of its processes is the
/// newest; it alone renders and publishes, and it takes over only from one that
/// is dead or silent for the plan's patience. Everybody else sees the newer
/// claim, or a result, at the next beat and ends without a trace. For one
/// thread.
class TaskRun final : private AttemptListener {
public:
  /// Works for places without Slurm, too; `folder` is that of the array. The
  /// references must outlive this; the guard may be null.
  TaskRun(const Path& folder, std::size_t index, TaskSelf self, Machine& machine, ImageInspector& inspector,
          InterruptSource& interrupts, TaskGuard* guard, const TaskTimes& times = {});
  ~TaskRun() override;

  /// This machine cannot work: every place fails to start, with this reason.
  void refuse(const std::string& problem) { problem_ = problem; }

  /// Whether every place has a result at the end, whatever it says, or the
  /// array was canceled. Raises Exception* where plan or job cannot be read,
  /// and throws a UsageError for an index that the plan does not have.
  bool run();

private:
  enum class Stop { No, Canceled, Interrupted, Superseded };

  bool work(std::size_t place);
  bool takeUp();
  bool waitForDeath(int number);
  bool isDead(const std::optional<WorkClaim>& claim) const;
  WorkClaim makeClaim(int number) const;
  std::optional<WorkClaim> readClaim(int number) const;
  bool workClaimed();
  void rescue();
  LeftBehind endOthers();
  void killPrograms(const std::string& mark);
  void renderRest();
  void render(const FrameRun& run);
  bool publish(StagedOutput& staged, Outcome& outcome);
  bool looksMine() const;
  bool isMine();
  void judgeStop(Outcome& outcome) const;
  void merge(const Outcome& outcome);
  bool leave();

  SmartHandle<Job> makeJob(const FrameRun& run) const;
  WorkInfo infoOf(const FrameRun& run) const;
  std::string markOf(int number) const;
  std::string logName(const FrameRun& run, int number) const;

  void turn(Attempt* attempt, std::optional<Clock::time_point> until = std::nullopt);
  void takeInterrupts(Attempt* attempt);
  void lookAround(Attempt* attempt);
  void stop(Stop why, Attempt* attempt);
  void beat(const Attempt* attempt);

  void fileNamed(const trovik::Claim& claim, const Path& file, std::optional<int> frame) override;
  void fileComplete(const WorkInfo& work, const Path& file) override;

  ArrayFolder folder_;
  std::size_t index_;
  TaskSelf self_;
  Machine& machine_;
  InterruptSource& interrupts_;
  TaskGuard* guard_;
  TaskTimes times_;
  HurriedInspector inspector_;
  std::string problem_;

  FolderJob job_;
  ArrayPlan plan_;
  std::unique_ptr<WorkMaker> works_;
  std::unique_ptr<RunLogs> logs_;
  bool ending_ = false; // the cluster or a user wants the task to end
  Stop stop_ = Stop::No;
  std::optional<Clock::time_point> killAt_;
  std::optional<Clock::time_point> hurryAt_;

  // The place at hand.
  std::size_t place_ = 0;
  WorkClaim claim_;               // its number is 0 until it is claimed
  WorkBeat beat_;                 // the last one
  std::string logBefore_;         // of the last of the processes before
  std::vector<FileRecord> named_; // by its program, or by those of earlier processes
  Outcome merged_;
  bool complete_ = false; // every frame of it was rendered, or was there
  Clock::time_point nextBeat_{};
  Clock::time_point lastBeat_{};
  Clock::time_point lastTurn_{};
  bool stalled_ = false;   // this process stood still for so long that it counted as dead
  bool beatFails_ = false; // and that was told
};

} // namespace trovik
