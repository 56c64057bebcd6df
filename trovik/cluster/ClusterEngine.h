#pragma once

#include "trovik/cluster/ClusterClient.h"
#include "trovik/cluster/ClusterRequest.h"
#include "trovik/cluster/ClusterSettings.h"
#include "trovik/cluster/JobFolder.h"
#include "trovik/cluster/StagedOutput.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/queue/Queue.h"
#include "trovik/works/Recovery.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace trovik {

/// Something that the user should know: told when it begins, once.
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
/// - What a work came to is told by the end that its task left in the folder,
///   of which the first one counts. The cluster's own state only says whether
///   one is to be expected. No answer means that nothing is known.
/// - A work is given up when the cluster has ended its task, or says nothing of
///   it any more, and its process gave no sign of life for a while. Giving up
///   means to leave an end oneself: a process that lives all the same finds it
///   and leaves nothing. Then the files are looked at, and what is not good is
///   worked again.
/// - A submission whose answer did not come is looked up by its name before
///   anything is submitted again; what is abandoned is marked so in its folder,
///   and its tasks do nothing should they ever start.
class ClusterEngine {
public:
  enum class Duty {
    All,     ///< submits, cancels, collects
    Collect, ///< only what is there: for verbs that look at jobs
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
  Clock::time_point deadline() const { return std::min(nextTurn_, client_.deadline().value_or(nextTurn_)); }

  /// Whether this process is the one that does it.
  bool isInCharge() const { return inCharge_; }
  /// Nothing is under way just now: all was looked at once, and no answer is
  /// awaited.
  bool isSettled() const;
  /// The array jobs of the job that the cluster has, and whether works wait
  /// for their submission.
  bool isSubmitted(JobId job) const;

private:
  struct Place {
    PlacedWork record;
    TaskPhase phase = TaskPhase::Unknown;
    ClusterTask task;                             // as told last
    std::optional<Clock::time_point> overSince;   // the cluster says that it is over, or nothing any more
    int claim = 0;                                // the newest that was seen
    std::int64_t beats = -1;                      // their count as read last
    Clock::time_point alive{};                    // when its last sign of life was seen
    std::size_t files = 0;                        // of its beats, that were noted
    std::optional<Clock::time_point> read;        // its beat
    std::optional<Clock::time_point> interrupted; // its end was seen, but not why
  };
  struct Array {
    ArrayRecord record;
    ArrayFolder folder;
    std::map<std::size_t, Place> places;         // that are open
    std::size_t next = 0;                        // where the rolling look goes on
    bool asking = false;                         // its submission is under way here
    std::optional<Clock::time_point> sought;     // not known to the cluster since
    std::optional<Clock::time_point> answeredAt; // the submission; tasks show only after it
    std::optional<Clock::time_point> canceled;   // was asked of the cluster
  };
  struct ClusterJob {
    JobRecord record;
    std::unique_ptr<WorkMaker> works; // null where its type is not known here
    std::optional<ClusterRequest> request;
    std::optional<Clock::time_point> readySince;
    std::size_t perTask = 0;  // while its works are placed; 0: to be chosen
    bool looked = false;      // for works without a place
    Clock::time_point full{}; // until then there is no room for more, most likely
    bool refused = false;
  };
  struct Rescue {
    ArrayId array = 0;
    std::size_t place = 0;
    WorkEnd end;
    StagedOutput stage;
    std::unique_ptr<Recovery> recovery;
  };

  bool takeCharge();
  void reload();
  ClusterJob* open(JobId id);
  void lookAtPlaces();
  void lookAt(Array& array);
  bool look(Array& array, Place& place);
  bool isWorthALook(const Array& array, const Place& place) const;
  bool mayHaveStarted(const Place& place) const;
  bool knowsWhy(Place& place);
  static void judgeInterrupted(const Array& array, const Place& place, Outcome& outcome);
  void noteAlive(Array& array, Place& place);
  bool considerDeath(Array& array, Place& place);
  bool giveUp(Array& array, Place& place);
  bool collect(Array& array, Place& place, WorkEnd end);
  void startRescue(const Array& array, const PlacedWork& work, WorkEnd end, int claims,
                   const WorkClaim& newest);
  void advanceRescues();
  void settle(const Array& array, std::size_t place, const WorkEnd& end);
  void forgetLook(JobId job);
  void refreshJob(JobId job);
  void finishJobs();
  void place();
  void placeWorks(ClusterJob& job, std::vector<WorkRecord> works);
  void submit(Array& array, ClusterJob& job);
  void submitted(ArrayId id, const ClusterAnswer& answer);
  void abandon(Array& array);
  void ask();
  bool mayAsk() const;
  void seek(Array& array);
  void queryAll();
  void answered(const std::vector<ArrayId>& asked, const ClusterAnswer& answer);
  void take(Place& place, const ClusterTask& task);
  void takeVanished(Place& place);
  void noteContact(const ClusterAnswer& answer);
  void cancelArrays();
  void tell(JobId job, const std::string& key, const std::string& text, const std::string& hint);

  Machine& machine_;
  Queue& queue_;
  ClusterClient& client_;
  ImageInspector& inspector_;
  ClusterSettings settings_;
  Duty duty_;
  Notices notices_;

  bool inCharge_ = false;
  Clock::time_point nextTurn_{};
  Clock::time_point nextCharge_{};
  std::int64_t version_ = -1;
  std::map<ArrayId, Array> arrays_; // that are not over
  std::map<JobId, ClusterJob> jobs_;
  std::vector<Rescue> rescues_;
  std::optional<ClusterSite> site_;
  std::string sitePartition_;
  bool asking_ = false; // a question about tasks is under way
  Clock::time_point nextQuestion_{};
  Duration pause_ = questionPause;
  Duration beatTime_{};
  Duration turnTime_ = std::chrono::milliseconds(500);
  ClusterContact contact_;
  bool changed_ = true; // something happened since the last question
  bool lookedOnce_ = false;
  std::set<std::string> told_;
};

} // namespace trovik
