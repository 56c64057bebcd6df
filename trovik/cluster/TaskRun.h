#pragma once

#include "trovik/cluster/TaskLoop.h"
#include "trovik/cluster/TaskProcess.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/works/Attempt.h"
#include "trovik/works/RunLogs.h"

#include <memory>
#include <optional>
#include <string>

namespace trovik {

/// One task of an array job: does its works one after the other and leaves how
/// each has ended.
///
/// The cluster may start the same task a second time while the first one still
/// runs somewhere. The claims of a work settle which of its processes is the
/// newest; it alone renders and publishes, and it takes over only from one that
/// is dead or silent for the plan's patience. Everybody else sees the newer
/// claim, or a result, at the next beat and ends without a trace. For one
/// thread.
class TaskRun final : private AttemptListener {
public:
  /// Works without Slurm, too; `folder` is that of the array. The references
  /// must outlive this; the guard may be null.
  TaskRun(const Path& folder, std::size_t index, TaskSelf self, Machine& machine, ImageInspector& inspector,
          InterruptSource& interrupts, TaskGuard* guard, const TaskTimes& times = {});
  ~TaskRun() override;

  /// This machine cannot work: every work fails to start, with this reason.
  void refuse(const std::string& problem) { problem_ = problem; }

  /// Whether every work has a result at the end, whatever it says, or the
  /// array was canceled. Raises Exception* where plan or job cannot be read,
  /// and throws a UsageError for an index that the plan does not have.
  bool run();

private:
  using Stop = TaskLoop::Stop;

  bool work(std::size_t position);
  bool takeWork();
  bool waitForDeath(int number);
  WorkClaim makeClaim(int number) const;
  std::optional<WorkClaim> readClaim(int number) const;
  bool workClaimed();
  void recover();
  LeftBehind endOthers();
  void killPrograms(const std::string& mark);
  void renderRest();
  void render(const FrameRun& run);
  Outcome attempt(const FrameRun& run, StagedOutput& staged);
  Outcome failure(bool ofModule) const;
  void hearOfInterrupt();
  bool publish(StagedOutput& staged, Outcome& outcome);
  void judgeStop(Outcome& outcome) const;
  void merge(const Outcome& outcome);
  bool leave();

  SmartHandle<Job> makeJob(const FrameRun& run) const;
  WorkInfo infoOf(const FrameRun& run) const;
  std::string markOf(int number) const;
  std::string logName(const FrameRun& run, int number) const;

  void fileNamed(const Claim& claim, const Path& file, std::optional<int> frame) override;
  void fileComplete(const WorkInfo& work, const Path& file) override;

  ArrayFolder folder_;
  std::size_t index_;
  TaskSelf self_;
  Machine& machine_;
  TaskTimes times_;
  TaskLoop loop_;
  std::string problem_;

  FolderJob job_;
  ArrayPlan plan_;
  std::unique_ptr<WorkMaker> works_;
  std::unique_ptr<RunLogs> logs_;

  // The work at hand.
  std::size_t position_ = 0; // in the plan
  WorkClaim claim_;
  WorkBeat beatBefore_; // the last of the processes before
  Outcome merged_;
  bool complete_ = false; // every frame of it was rendered, or was there
};

} // namespace trovik
