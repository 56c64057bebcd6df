#pragma once

#include "trovik/queue/MemoryCheck.h"
#include "trovik/queue/QueueError.h"
#include "trovik/records/PacketPlan.h"
#include "trovik/records/Records.h"

#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

struct RunSummary;

/// The queue: an SQLite database in a directory of its own.
///
/// Everything that changes it does so in one transaction, committed when the
/// call returns; inTransaction makes one of several calls. A process that is
/// killed at any moment leaves the state before or after a transaction, never
/// one between. Commits are safe against the death of any process at once;
/// against the loss of power they are within a tenth of a second (the log is
/// synced at most that often, since a sync for every one of a thousand tiny
/// works a second would cost more than the works).
///
/// Several processes may have the same queue open; each object belongs to one
/// thread. All calls throw QueueError.
class Queue {
public:
  struct Settings {
    /// For tests: the database may not grow beyond so many pages of 4096
    /// bytes; 0 for no limit. What does not fit is a full disk.
    int pageLimit = 0;
    std::chrono::milliseconds patience{30000}; ///< with a lock that another process holds
    /// For tests: names the network file system that a directory lies on, or
    /// gives nothing; where it is not set the system is asked.
    std::function<std::string(const Path& directory)> networkFileSystem;
    std::function<Moment()> clock; ///< for tests: tells the time in place of the system
  };

  /// Opens the queue in the directory, made where it is missing, brings an
  /// older schema up to date and refuses a newer one and network file
  /// systems, whose locks cannot be trusted. Whatever the umask says, what is
  /// made is for this user alone, and so is from then on what an older version
  /// made. Who opened it to others later is left alone.
  explicit Queue(const Path& directory, const Settings& settings);
  explicit Queue(const Path& directory);
  ~Queue();
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  const Path& directory() const;
  /// Where the logs of a job go when nobody says otherwise: "logs/JOB" below
  /// the directory.
  Path logDirectory(JobId job) const;
  /// Whether the job's logs lie in such a folder, which is the job's alone.
  bool ownsLogs(const JobRecord& job) const;

  /// Runs the action in one write transaction; what it throws undoes all of
  /// it. Does not nest. A sync that is due comes with it, or with the call of
  /// `syncWhenDue` that has to follow.
  enum class Sync { Now, Later };
  void inTransaction(const std::function<void()>& action, Sync sync = Sync::Now);
  void syncWhenDue();

  /// Runs the action, which may only read, on one state of the queue. Takes no
  /// lock that others could wait for.
  void inSnapshot(const std::function<void()>& action);

  /// A number that differs from the one before when another connection has
  /// changed the queue, or this one has made works ready that waited for other
  /// jobs. Cheap.
  std::int64_t dataVersion();

  /// For each job a number that differs from the one before when anything has
  /// changed that is told of the job: its record, its works, its attempts, the
  /// files that programs have named, what the cluster says. Costs a few steps
  /// a job and one a work that is still to be done.
  std::map<JobId, std::uint64_t> marks();
  /// The same for the engines, what they run, and the limits.
  std::uint64_t engineMark();

  /// Syncs what is not yet on the disk; see above. Engines call it when they
  /// are idle.
  void sync();

  // Jobs.

  JobId submit(const NewJob& job);
  std::optional<JobRecord> job(JobId id);
  std::vector<JobRecord> jobs(); ///< the newest first
  /// The job's stream; empty for an unknown job.
  std::string packed(JobId id);
  JobFrames frames(JobId id);
  /// The job that the same command began and has to go on with: one of this very
  /// stream and put into this very file, for the same kind of engine, that was not canceled. The newest that
  /// is open; else the newest of all, where it failed or was stopped.
  std::optional<BegunJob> begun(const NewJob& job);
  /// Goes on with the job that `begun` finds, or else puts in a new one, all in
  /// one transaction: of any number of processes that do this at once, one makes
  /// the job. Where it goes on, what failed is ready again, unless the job is
  /// under way, and a job that was stopped is open.
  ///
  /// `known` is what `begun` gave before files were checked. Of that job, frames
  /// that were good and are in `gone` are ready again, and those that were not
  /// and are in `job.found` are good; but none of which anything has changed
  /// since, and none that runs. A job without works to be done makes no new one.
  EnteredJob enter(const NewJob& job, const std::optional<BegunJob>& known, const RunSet& gone);
  /// The newest job of the type with this scene and output folder.
  std::optional<JobId> latest(const UID& type, const std::string& scene, const std::string& output);
  /// Counts, failures by reason and images by directory; `info` holds what
  /// the job's record tells. Times are those of the whole job.
  RunSummary summary(JobId id);

  /// Ready and running works become canceled, and the job with them as soon
  /// as no attempt runs: their engines see `canceled` and end them; arrays of a
  /// cluster are to be ended. False when the job is not open.
  bool cancel(JobId id);
  /// Stops an open job, or (the other one) makes it open again. Works
  /// that run go on.
  void stop(JobId id, const std::string& note);
  void resume(JobId id);
  /// Failed and canceled works become ready, with all their retries before
  /// them, and the job open; a job of a copied queue is this queue's own from
  /// then on; only the frames in `only` where it is given, and
  /// then good ones too. Works that run are left alone. Returns the frames
  /// that are to be worked (of a job without frames: works).
  std::size_t retry(JobId id, const std::optional<RunSet>& only);
  /// Changes what may change of a job, whatever its state.
  void change(JobId id, const JobChange& change);
  /// The works that another packet size would cut anew, in their order: those
  /// that were never begun, nor given to a task of a cluster.
  std::vector<FrameRun> worksToCut(JobId id);
  /// How many frames the works of a job are to have that all begin at once.
  PacketsAtOnce packetsAtOnce(JobId id);
  /// Joins and cuts the works that are ready, were never begun, nor given to a task
  /// of a cluster, into packets of so many frames.
  void cut(JobId id, int packet);
  /// What each work of the job takes of what is scarce, by name.
  std::vector<LimitShare> takes(JobId id);
  /// Says how much there is of what is scarce; of what is not named there is no
  /// limit. For all engines of the queue, from now on.
  void setLimits(const std::vector<LimitShare>& limits);
  std::vector<LimitStand> limits(); ///< by name
  /// The jobs that it waits or waited for, ascending.
  std::vector<Forerunner> forerunners(JobId id);
  /// The open jobs that wait for it, ascending; with those that wait for them,
  /// where that is asked.
  std::vector<JobId> followers(JobId id, bool all);
  /// The good images of the jobs that it waits or waited for: of the frames that
  /// a work of its own needs; all of them for a job without frames. In the
  /// order of jobs and frames, each once.
  std::vector<std::string> imagesBefore(JobId id, const FrameRun& run);
  /// It waits for no other job any more.
  void release(JobId id);
  /// Removes the job with all its records; its logs and images stay. Throws
  /// for a job of which an attempt runs.
  void remove(JobId id);
  /// The jobs that have ended and whose end command was not started yet; each
  /// is handed out once.
  std::vector<JobRecord> takeEnded();

  /// In the order of their frames; only those in a state, where one is given.
  std::vector<WorkRecord> works(JobId id, std::optional<WorkState> state = std::nullopt);
  std::vector<AttemptRecord> attempts(JobId id, AttemptId after = 0); ///< in the order of their start
  /// The same one by one, for those who need not keep a million of them. The
  /// action may ask the queue for other things.
  void eachAttempt(JobId id, const std::function<void(AttemptRecord&&)>& take, AttemptId after = 0);
  std::optional<AttemptRecord> attempt(AttemptId id);
  /// Those of the job that were started for a frame, in the order of their start.
  std::vector<AttemptRecord> attemptsAt(JobId id, int frame);
  /// What each attempt of the job took that has ended.
  std::map<AttemptId, AttemptTime> times(JobId id);
  void eachTime(JobId id, const std::function<void(AttemptId, const AttemptTime&)>& take);
  /// The attempts of the job that run, ascending.
  std::vector<AttemptId> runningAttempts(JobId id);
  /// Files of the job, in the order in which they came.
  std::vector<FileRecord> files(JobId id, std::int64_t after = 0);
  /// A file by its number, of whatever job.
  std::optional<FileRecord> file(std::int64_t id);
  /// The last word on a file, of whatever job, or the last one before a record
  /// of it; nothing when there is none.
  std::optional<FileRecord> lastOf(const std::string& path,
                                   std::int64_t before = std::numeric_limits<std::int64_t>::max());
  /// What the programs of all of its attempts have used together, of memory the
  /// most that one had; nothing where that is not known.
  std::optional<ProcessUsage> usage(JobId id);
  /// The slots of an engine; for reckoning how they were used.
  std::size_t slots(EngineId id);

  // Engines.

  /// Enters an engine of this process and holds its lock file until the
  /// queue object ends: the system frees it with the process, which is how
  /// others see that it died.
  EngineId enterEngine(std::size_t slots);
  /// Leaves in peace; attempts that still count as running stay lost.
  void leaveEngine(EngineId id);

  /// Takes ready works for the engine: of the open jobs with the highest
  /// priority first, then of the oldest; within a job those with the fewest
  /// tries first, then in their order. Only of job `only` where it is given;
  /// never of jobs in `without`. Each claim is a running attempt from then on.
  /// With a check of the memory none that its machine cannot hold beside those
  /// that run; but one always, where none runs.
  ///
  /// `ahead` asks for more, for which there are no slots yet. They come last, in
  /// the order in which they may begin, and only of jobs whose works wait for
  /// nothing but a slot.
  std::vector<Claim> claim(EngineId engine, std::size_t count, std::optional<JobId> only,
                           const std::vector<JobId>& without = {}, MemoryCheck* memory = nullptr,
                           const ClaimsAhead& ahead = {});
  /// The engine begins this attempt that was claimed ahead, and will begin none
  /// before it any more; or, with 0, may claim ahead from now on. No transaction,
  /// and no sync: who finds the engine dead knows by it what had not begun, as long
  /// as the machine was not started anew.
  void noteBegun(EngineId engine, AttemptId attempt);
  /// Undoes claims of which nothing was started: the works are as before. Of a
  /// job that is being canceled they are canceled.
  void giveBack(const std::vector<AttemptId>& attempts);
  /// The process group of a running attempt, and what files were there before
  /// (see FilesBefore).
  void noteProcess(AttemptId attempt, int process, const std::string& filesBefore = {});
  /// The program of a running attempt has ended by itself, and its files are
  /// going to be looked into.
  void noteEnd(AttemptId attempt, const ProgramEnd& end);
  /// A file that the program of a running attempt named.
  void noteFile(AttemptId attempt, const FileRecord& file);

  /// The end of an attempt. Good frames become good works; what is left is
  /// ready again while there are retries and it is worth it, else failed (or,
  /// for a canceled attempt: ready in an open or stopped job, canceled in a
  /// canceled one; for a lost one ready, and failed after enough losses). Ends
  /// the job when nothing is left, stops it when its first works all failed
  /// alike. Returns whether what is left is tried again. An attempt that is
  /// not running any more is left alone: false.
  ///
  /// A file that good frames of another work have already is not this one's:
  /// its frames are not good, and a good attempt has failed. `corrected` gets
  /// the outcome as it was then put down.
  bool settle(const Outcome& outcome, std::optional<Outcome>* corrected = nullptr);

  /// Of those attempts, the ones whose job was canceled.
  std::vector<AttemptId> canceled(EngineId engine);

  /// Attempts of engines that have died. The caller holds the dead engines'
  /// locks from here until `releaseLost`, so that no other process takes them
  /// up; engines that died without running attempts are put away at once.
  std::vector<LostAttempt> takeLost();
  /// Whether takeLost would find any. Cheap, and takes no lock.
  bool hasLost();
  /// All that takeLost handed out has been settled (or is to be handed out
  /// again later).
  void releaseLost();

  /// Those that were not put away, the one of the cluster included.
  std::vector<EngineRecord> engines();

  /// Whether an engine of this machine that lives, and is older than the one that
  /// is given (0 for any), is at work at the job.
  bool isUnderWay(JobId job, EngineId olderThan);
  /// Whether an engine lives that may work off the queue, other than `own`.
  bool hasOtherEngine(EngineId own);

  // Jobs of a cluster (RunOn::Cluster). No local engine takes their works.
  // Their attempts belong to an engine that stands for the cluster and never
  // dies: what becomes of them is told by the files of the job's folder, and
  // whoever holds the cluster's lock writes it down here.

  /// Takes the right to submit and to collect, which one process at a time
  /// has; the system frees it with the process. False when another has it.
  bool takeClusterLock();
  void releaseClusterLock();

  /// The own jobs of the cluster that are open, or have arrays that are not over.
  std::vector<JobRecord> clusterJobs();
  /// The open ones of the cluster that are not the queue's own: nothing is done
  /// about them.
  std::vector<JobId> foreignClusterJobs();
  /// The ID of this queue, part of the names of its arrays.
  const std::string& queueId() const;
  /// Ready works of an open job that share no frame with an open work of an array, in the
  /// order in which they are to start; `attempts` tells how many were made.
  std::vector<WorkRecord> worksToSubmit(JobId job);
  /// Puts down an array, prepared, that holds these works (`work`, `run`,
  /// `number` of each, in the order of their positions). Its number is the
  /// job's next one, its name made from queue, job and number. What happens to
  /// the works between `worksToSubmit` and this call is like what happens after it,
  /// but for the removal of the job, which is an error.
  ArrayRecord addArray(JobId job, std::size_t perTask, const std::vector<ArrayWork>& works);
  void noteSubmitted(ArrayId array, std::int64_t cluster);
  /// The array's tasks are to be ended.
  void cancelArray(ArrayId array);
  /// The array never reached the cluster, and never will: its works close, to
  /// be submitted again. One whose start was seen all the same stays open.
  void dropArray(ArrayId array);
  /// Arrays that are not over, the oldest first; of one job, or of all.
  std::vector<ArrayRecord> openArrays(std::optional<JobId> job = std::nullopt);
  /// Arrays that are over, but of which the cluster may still have tasks.
  std::vector<ArrayRecord> leftArrays();
  /// It has none that might still start or run.
  void noteGone(ArrayId array);
  /// The open works of an array, in their order. A work that was canceled and
  /// then made ready again only in parts counts as canceled.
  std::vector<ArrayWork> openArrayWorks(ArrayId array);
  /// What the cluster says of the task of a work. Writes only what changed; who
  /// has the last `openArrayWorks` at hand spares even the check.
  void noteTask(const ArrayWork& work);
  /// The start of a work of an array was seen: makes its running attempt. Says 0,
  /// and does nothing, for one that is closed or counts as
  /// canceled. Returns the attempt's ID, also when it has one already.
  AttemptId beginArrayWork(ArrayId array, std::size_t position, Moment started);
  /// Keeps the beat, and its log as that of the attempt; nothing for an attempt
  /// that does not run.
  void noteBeat(const AttemptBeat& beat);
  std::vector<AttemptBeat> beats(JobId job); ///< of its running attempts
  /// The end of a work of an array: like `settle` for its attempt, which is made
  /// where its start was not seen (`started`), and the work closes; with its last
  /// one the array is over. `outcome.attempt` is filled in. Frames of a
  /// work that was canceled before its start was seen become good where they
  /// are, and stay canceled else. False, and nothing is done, for one that is
  /// closed.
  bool settleArrayWork(ArrayId array, std::size_t position, Moment started, Outcome outcome);
  /// Its task will never start: closes the work of the array, with nothing said
  /// about it. An error for one with an attempt.
  void closeArrayWork(ArrayId array, std::size_t position);

  ClusterContact clusterContact();
  void noteContact(const ClusterContact& contact);

private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

} // namespace trovik
