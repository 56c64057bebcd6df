#pragma once

#include "trovik/engine/OpenJob.h"
#include "trovik/engine/Watchers.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/records/RunEvents.h"
#include "trovik/works/Attempt.h"
#include "trovik/works/Recovery.h"

#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

/// What an engine is to do.
struct EnginePlan {
  std::optional<JobId> only; ///< works of this job alone, until it has ended
  bool follows = false;      ///< takes none of them while an older engine is at work at it
  std::size_t slots = 1;
  bool slotsAreCpus = false;      ///< a work takes as many slots as its CPUs, else one
  bool untilEmpty = false;        ///< ends when no job is open
  bool withCluster = false;       ///< also none of a cluster, which `whenIdle` sees to
  std::function<void()> whenIdle; ///< called about twice a second; may be empty
  /// What was found for the one job when it was submitted, which serves on where
  /// that still holds; may be null.
  std::shared_ptr<ExecutableMemory> searches;
};

/// Works off the queue on this machine: so many programs at a time as there
/// are slots, all watched by one poll loop, and short ones by threads beside it
/// (see Watchers).
///
/// Each turn of the loop writes what has happened since the last one, and what
/// is going to be started, in one transaction; only then are the programs
/// started and the events reported. So whatever moment this process dies in, the
/// queue knows every work that may have been begun, and nothing was reported
/// that it does not know. Works of a few milliseconds are claimed ahead, many in
/// one transaction (see LocalEngineTurn.cpp). Works of engines that died are recovered by the next
/// one (see Recovery), from its start on and about every two seconds.
///
/// Each attempt is a fresh job object that unpacks the job's stream, since an
/// object remembers what it saw in the output. When the queue cannot be
/// written (its disk is full), nothing is started, what runs goes on, and
/// results wait until there is room.
class LocalEngine : private AttemptListener {
public:
  /// All must outlive the engine.
  LocalEngine(Machine& machine, Queue& queue, ImageInspector& inspector, InterruptSource& interrupts,
              RunEvents& events);
  ~LocalEngine() override;

  /// Runs until the plan is done or the user stopped it. True when it was not
  /// stopped. Throws QueueError where the queue is of no use any more, and
  /// raises Exception* when the one job of the plan cannot be read.
  bool run(const EnginePlan& plan);

  EngineId id() const { return engine_; }

private:
  /// How long works may be claimed before they begin, and what has ended wait to
  /// be recorded meanwhile.
  static constexpr Duration aheadPatience = std::chrono::milliseconds(50);

  using Attempts = std::list<std::unique_ptr<Attempt>>;

  struct Note {
    AttemptId attempt = 0;
    FileRecord file;
  };
  /// The end of an attempt without a program here: lost, or refused.
  struct Settled {
    Outcome outcome;
    std::optional<WorkInfo> work; ///< of a lost one, for telling
  };

  /// What the queue made of it.
  struct Recorded {
    bool again = false;
    std::optional<Outcome> corrected;
  };

  /// A start that was not told yet.
  struct Begun {
    WorkInfo work;
    std::size_t after = 0; ///< so many ends that were not recorded either
  };

  /// What a turn has written, to be told.
  struct Turn {
    std::vector<Begun> begun; ///< before it was written
    std::list<std::unique_ptr<Attempt>> ended;
    std::vector<Settled> settled;
    std::vector<Recorded> recorded; ///< of both, in this order
    bool perhapsOver = false;       ///< a job of theirs
  };

  void fileNamed(const Claim& claim, const Path& file, std::optional<int> frame) override;
  void fileComplete(const WorkInfo& work, const Path& file) override;

  OpenJob* open(JobId id);
  void tick();
  void advanceRecoveries();
  void finishJobs();
  void stopCanceled();
  bool recordTurn();
  void writeTurn(std::vector<Claim>& claims, std::vector<Recorded>& recorded);
  Recorded record(const Outcome& outcome);
  void claimWorks(std::vector<Claim>& claims);
  void tellMemoryWaits();
  void keepTurn(std::vector<Recorded>&& recorded);
  void startAndTell();
  void tellTurn(const Turn& turn);
  void tellStarts();
  void makeAhead();
  void makeReady();
  std::unique_ptr<Attempt> takeReady(const Claim& claim);
  void beginAhead();
  bool mayWait() const;
  bool mayKeepAhead() const;
  bool hasAhead() const { return !claimed_.empty() && claimed_.back().ahead; }
  void giveBackAhead();
  ClaimsAhead wishAhead();
  bool noteBegun(AttemptId attempt);
  void tellLost(const Settled& lost, bool again);
  void startWorks();
  Attempt::Shortage shortage();
  void waitForProcesses();
  bool start(const Claim& claim);
  std::unique_ptr<Attempt> attemptAt(const Claim& claim, OpenJob& job);
  void giveUp(const Claim& claim, AttemptState state, VerdictRule rule, const std::string& reason);
  void giveUpFailed(const Attempt& attempt);
  /// Runs a step of an attempt, in which the module of its type is called. False
  /// when that has thrown.
  template <typename Step> bool guard(const Attempt& attempt, Step step) {
    try {
      step();
      return true;
    } catch (...) {
      giveUpFailed(attempt);
      return false;
    }
  }
  bool waitForSomething(std::unique_lock<std::mutex>& turn);
  std::unique_ptr<Watchers> makeWatchers();
  bool isWatched(const Attempt& attempt) const;
  void lendAttempts();
  void takeBackAttempts();
  Attempt* turnBeside(Attempt& attempt);
  void takeInterrupts();
  void advanceAttempts();
  Attempts::iterator judge(Attempts::iterator attempt, Clock::time_point now);
  void putEnded(std::unique_ptr<Attempt> attempt);
  bool isDone();
  std::size_t weightOf(JobId job);
  std::size_t busySlots();
  void forgetIdleJobs();

  struct Started {
    AttemptId attempt = 0;
    int process = 0;
    std::string filesBefore;
  };

  Machine& machine_;
  Queue& queue_;
  ImageInspector& inspector_;
  InterruptSource& interrupts_;
  RunEvents& events_;

  EnginePlan plan_;
  EngineId engine_ = 0;
  std::map<JobId, std::unique_ptr<OpenJob>> jobs_;
  std::vector<JobId> refused_; // jobs that cannot be worked here
  Attempts running_;
  std::list<std::unique_ptr<Attempt>> ended_; // not yet recorded
  std::deque<Claim> claimed_;                 // recorded, not yet started; those ahead come last
  std::vector<AttemptId> unbegun_;            // claimed ahead, to be given back
  std::list<std::unique_ptr<Attempt>> ready_; // made for the first ones that are claimed ahead
  std::vector<std::unique_ptr<Recovery>> recoveries_;
  std::vector<Settled> settled_;
  std::vector<Started> started_;                              // to be noted
  std::vector<std::pair<AttemptId, ProgramEnd>> programEnds_; // the same
  std::vector<Note> notes_;
  std::vector<pollfd> descriptors_;        // of the last wait, for its memory
  std::vector<const Attempt*> awaited_;    // the same
  Watchers* watchers_ = nullptr;           // of the run under way; null for none
  std::optional<Turn> written_;            // not yet told
  std::vector<Begun> begun_;               // the same
  std::map<JobId, std::size_t> lastBegun_; // works of the last turn
  std::vector<MemoryWait> memoryWaits_;    // as the last claim found it
  std::vector<JobId> toldOfMemory_;
  Clock::time_point claimedAhead_{}; // when it was last
  bool endedWell_ = true;            // all that is not yet recorded
  bool claimsAhead_ = true;          // false where it cannot be noted what begins
  bool notesBegun_ = false;
  bool mayHaveWork_ = true;
  bool yields_ = false;   // to an older engine
  bool troubled_ = false; // the queue could not be written the last time
  bool putAside_ = false; // the user stopped the one job of the plan
  int stops_ = 0;
  std::optional<Clock::time_point> leaveAt_; // whatever has not ended by then
  std::int64_t dataVersion_ = 0;
  AttemptId announced_ = 0; // the attempt whose start was reported last
  std::optional<Clock::time_point> shortageSince_;
  Clock::time_point startAgain_{};
  Clock::time_point stopped_{}; // the user's first wish to stop
  Clock::time_point nextTick_{};
  Clock::time_point nextRecovery_{};
};

} // namespace trovik
