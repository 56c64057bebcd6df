#pragma once

#include "trovik/cluster/ClusterEngine.h"
#include "trovik/cluster/JobFolder.h"
#include "trovik/cluster/StagedOutput.h"
#include "trovik/works/Recovery.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The parts of the cluster engine, over one state: who submits, who asks the
// cluster, and who collects what the tasks leave. Each has its turn in every
// turn of the engine; none waits.

namespace trovik {

/// Until the cluster is asked again when it did not answer.
inline constexpr Duration pauseAfterSilence = std::chrono::seconds(10);

/// A work of an array job whose end is awaited.
struct OpenWork {
  ArrayWork record;
  TaskPhase phase = TaskPhase::Unknown;
  ClusterTask task;                             ///< as the cluster described it last
  std::optional<Clock::time_point> overSince;   ///< the cluster says that it is over, or nothing any more
  int claim = 0;                                ///< the newest that was seen
  std::int64_t beats = -1;                      ///< their count as read last
  Clock::time_point alive{};                    ///< when its last sign of life was seen
  std::size_t files = 0;                        ///< of its beats, that were noted
  std::optional<Clock::time_point> read;        ///< its beat
  std::optional<Clock::time_point> interrupted; ///< its end was seen, but not why
};

/// An array job that is not over.
struct OpenArray {
  explicit OpenArray(ArrayFolder itsFolder) : folder(std::move(itsFolder)) {}

  ArrayRecord record;
  ArrayFolder folder;
  std::map<std::size_t, OpenWork> works;     ///< by their positions
  std::size_t next = 0;                      ///< where the rolling check goes on
  bool asking = false;                       ///< its submission is under way here
  std::optional<Clock::time_point> sought;   ///< not known to the cluster since
  std::optional<Clock::time_point> canceled; ///< was asked of the cluster
  bool holdsTasks = false;                   ///< the cluster put one back whose work has an end

  /// The work has an end, or has no task any more.
  void close(std::size_t position);
  /// How many tasks its open works take, at most.
  std::size_t tasks() const { return (works.size() + record.perTask - 1) / record.perTask; }
};

/// An array job that is over, while the cluster may still have tasks of it.
struct LeftArray {
  std::string name;
  std::int64_t cluster = 0;
  Clock::time_point since{};                 ///< it is over, or this process knows of it
  bool holdsTasks = false;                   ///< that nobody wants
  std::optional<Clock::time_point> canceled; ///< was asked of the cluster
};

/// A job that is open, or has arrays that are not over.
struct ClusterJob {
  JobRecord record;
  std::unique_ptr<WorkMaker> works; ///< null where its type is not known here
  std::optional<ClusterRequest> request;
  std::optional<Clock::time_point> readySince;
  std::size_t perTask = 0;  ///< while its works are submitted; 0: to be chosen
  bool trial = false;       ///< only some of its works are submitted now
  bool checked = false;     ///< for works that no array has
  Clock::time_point full{}; ///< until then there is no room for more, most likely
  bool refused = false;
};

/// What the parts share: all that must outlive them, what the queue says, and
/// what this process knows besides.
struct ClusterState {
  ClusterState(Machine& itsMachine, Queue& itsQueue, ClusterClient& itsClient, ImageInspector& itsInspector,
               ClusterSettings itsSettings, ClusterEngine::Duty itsDuty, ClusterEngine::Notices itsNotices);

  Machine& machine;
  Queue& queue;
  ClusterClient& client;
  ImageInspector& inspector;
  ClusterSettings settings;
  ClusterEngine::Duty duty;
  ClusterEngine::Notices notices;

  std::int64_t version = -1; ///< of the queue as it was read; -1: it is to be read again
  std::map<ArrayId, OpenArray> arrays;
  std::map<ArrayId, LeftArray> left;
  std::map<JobId, ClusterJob> jobs;
  bool checkedOnce = false; ///< all of them
  std::set<std::string> notified;

  ClusterContact contact;
  Clock::time_point nextQuestion{};
  Duration pause = ClusterEngine::questionPause; ///< between questions; grows while nothing changes
  bool changed = true;                           ///< something happened since the last question

  /// Takes the queue's word; what is known besides stays.
  void reload();
  /// The job with its type, where that is known here; null for an unknown one.
  ClusterJob* open(JobId id);
  /// Works of the job may be without an array again.
  void checkAgain(JobId job);
  /// The job's record, which this process's own changes may have changed.
  void refresh(JobId job);
  /// Arrays without an open work are over.
  void closeArrays();
  /// Nothing of this array is wanted, should the cluster have it after all.
  void abandon(OpenArray& array);
  /// How the cluster answered, for users and for other processes.
  void noteContact(const ClusterAnswer& answer);
  /// Once for each key, until it is erased from `notified`.
  void notify(JobId job, const std::string& key, const std::string& text, const std::string& hint);
};

/// Gives works to array jobs, and those to the cluster.
class ArraySubmitter {
public:
  explicit ArraySubmitter(ClusterState& state) : state_(state) {}
  void advance();

private:
  bool fitPackets(ClusterJob& job, std::vector<WorkRecord>& works, bool others);
  bool runsLongerThan(JobId id, std::chrono::microseconds time);
  void addArray(ClusterJob& job, std::vector<WorkRecord> works);
  bool knowsSite(const ClusterRequest& request);
  void submit(OpenArray& array, const ClusterJob& job);
  void submitted(ArrayId id, const ClusterAnswer& answer);

  ClusterState& state_;
  std::optional<ClusterSite> site_;
  std::string sitePartition_;
};

/// Asks the cluster how the tasks of arrays stand, and has it end the arrays
/// that nobody wants.
class ArrayMonitor {
public:
  explicit ArrayMonitor(ClusterState& state) : state_(state) {}
  void cancelUnwanted();
  void ask();
  /// No task is known that is to be canceled, and was not yet.
  bool isSettled() const;

private:
  template <typename Arrays> void cancel(Arrays& arrays, ArrayId id, const std::string& name);
  bool mayAsk() const;
  void seek(OpenArray& array);
  void askForAll();
  void answered(const std::vector<ArrayId>& asked, const ClusterAnswer& answer);
  void answeredLeft(const std::vector<ArrayId>& asked, const ClusterAnswer& answer);
  void notifyStuck(const ArrayRecord& array, const std::string& reason, std::size_t tasks);
  void take(OpenWork& work, const ClusterTask& task);
  void takeVanished(OpenWork& work);

  ClusterState& state_;
  bool asking_ = false; // a question about tasks is under way
};

/// Reads from the folders what became of works, and gives up those of which
/// nothing is to be expected any more.
class ResultCollector {
public:
  explicit ResultCollector(ClusterState& state) : state_(state) {}
  void advance();
  /// Until the next turn.
  Duration turnTime() const;
  /// No files of dead processes are being checked.
  bool isIdle() const { return recoveries_.empty(); }

private:
  /// A work that was given up, while its files are checked.
  struct GivenUp {
    ArrayId array = 0;
    std::size_t position = 0;
    WorkEnd end;
    StagedOutput stage;
    std::unique_ptr<Recovery> recovery;
  };

  void checkArray(OpenArray& array);
  bool isWorthACheck(const OpenArray& array, const OpenWork& work) const;
  bool mayHaveStarted(const OpenWork& work) const;
  bool check(OpenArray& array, OpenWork& work);
  bool knowsWhy(OpenWork& work);
  void noteAlive(OpenArray& array, OpenWork& work);
  bool considerDeath(OpenArray& array, OpenWork& work);
  bool giveUp(OpenArray& array, OpenWork& work);
  bool collect(OpenArray& array, OpenWork& work, WorkEnd end);
  void recover(const OpenArray& array, const ArrayWork& work, WorkEnd end, int claims,
               const WorkClaim& newest);
  void advanceRecoveries();
  void settle(const OpenArray& array, std::size_t position, const WorkEnd& end);

  ClusterState& state_;
  std::vector<GivenUp> recoveries_;
  bool many_ = false; // works are under way
};

} // namespace trovik
