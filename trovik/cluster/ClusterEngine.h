#pragma once

#include "trovik/cluster/ClusterClient.h"
#include "trovik/cluster/ClusterSettings.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/queue/Queue.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace trovik {

class ArrayMonitor;
class ArraySubmitter;
class ResultCollector;
struct ClusterState;

/// Something that the user should know: given when it begins, once.
struct ClusterNotice {
  JobId job = 0; ///< 0: all
  std::string text;
  std::string hint;
};

/// The submitting side of jobs that run on a cluster: gives their works to
/// array jobs, and writes down in the queue what became of them.
///
/// It may come and go. All that it relies on is in the queue, in the folders of
/// the jobs and with the cluster; a process that is killed at any moment leaves
/// them so that the next one goes on. One process at a time has the cluster's
/// lock; another one's engine does nothing and waits for it.
///
/// - A work belongs to at most one task that is not known to be over. So two
///   tasks never get the same frames.
/// - What a work came to is in the end that its task left in the folder,
///   of which the first one counts. The cluster's own state only says whether
///   one is to be expected. No answer means that nothing is known.
/// - A work is given up when the cluster has ended its task, or says nothing of
///   it any more, and its process gave no sign of life for a while. Giving up
///   means to leave an end oneself: a process that lives all the same finds it
///   and leaves nothing. Then the files are checked, and what is not good is
///   worked again.
/// - A submission whose answer did not come is looked up by its name before
///   anything is submitted again; what is abandoned is marked so in its folder,
///   and its tasks do nothing should they ever start.
/// - An array that is over is asked about until the cluster has no task of it
///   any more: one that was put back and is held would stay there for ever. It
///   is canceled.
class ClusterEngine {
public:
  enum class Duty {
    All,     ///< submits, cancels, collects
    Collect, ///< only what is there: for verbs that show jobs
  };
  using Notices = std::function<void(const ClusterNotice& notice)>;

  /// No two questions to the cluster begin closer together than this.
  static constexpr Duration questionPause = std::chrono::seconds(2);

  /// All must outlive the engine.
  ClusterEngine(Machine& machine, Queue& queue, ClusterClient& client, ImageInspector& inspector,
                const ClusterSettings& settings, Duty duty, Notices notices = {});
  ~ClusterEngine();
  ClusterEngine(const ClusterEngine&) = delete;
  ClusterEngine& operator=(const ClusterEngine&) = delete;

  /// Goes on as far as it can without waiting. Throws QueueError where the
  /// queue is of no use any more.
  void advance();
  void addDescriptors(std::vector<pollfd>& descriptors) const;
  /// When `advance` is wanted at the latest.
  Clock::time_point deadline() const;
  /// Waits for whatever `advance` is wanted for, half a second at most; also
  /// for the interrupts, where they are given.
  void wait(InterruptSource* interrupts = nullptr);
  /// Advances until `done` or the time is over. True for the first.
  bool advanceUntil(const std::function<bool()>& done, Duration limit);

  /// Whether this process is the one that does it.
  bool isInCharge() const { return inCharge_; }
  /// Nothing is under way just now: all was checked once, and no answer is
  /// awaited.
  bool isSettled() const;

private:
  bool takeCharge();
  void turn();
  void finishJobs();

  std::unique_ptr<ClusterState> state_;
  std::unique_ptr<ArraySubmitter> submitter_;
  std::unique_ptr<ArrayMonitor> monitor_;
  std::unique_ptr<ResultCollector> collector_;
  bool inCharge_ = false;
  Clock::time_point nextTurn_{};
  Clock::time_point nextCharge_{};
};

} // namespace trovik
