#pragma once

#include "trovik/queue/Database.h"
#include "trovik/queue/EngineLocks.h"
#include "trovik/queue/Queue.h"

#include <functional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace trovik {

/// A work as it is cut.
struct StoredWork {
  WorkId id = 0;
  JobId job = 0;
  FrameRun run;
  std::int64_t position = 0; ///< where it stands in its job's order
  int attempts = 0;
  AttemptId attempt = 0; ///< the last
  int tries = 0;         ///< failed ones since it was submitted or retried
  int losses = 0;        ///< the same for those whose engine died
  WorkState state = WorkState::Running;
};

/// What the settling of an attempt depends on, besides its work.
struct Settling {
  JobId job = 0;
  JobState jobState = JobState::Waiting;
  bool canceling = false;
  bool hasFrames = true;
  int retries = 0;
  int stopAfter = 0;
  std::string alike; ///< the reason that the first works failed with
  std::int64_t alikeCount = 0;
  std::int64_t memorySeen = 0;
};

/// A part of a work that is cut, and what it is to be from then on.
struct WorkPart {
  FrameRun run;
  WorkState state = WorkState::Ready;
  int tries = 0;
  int losses = 0;
};

/// What the parts of the queue share.
class Queue::Impl {
public:
  using Work = StoredWork;

  Impl(const Path& wantedDirectory, const Settings& settings);

  /// The first of the parts (there is at least one) takes the work's row, the
  /// others get rows of their own with the same past.
  void putParts(const Work& work, std::span<const WorkPart> parts);

  std::size_t retry(JobId job, const std::optional<RunSet>& only);
  /// Cuts the works that do not wait or run by these frames; what lies inside
  /// becomes ready.
  void makeReady(JobId job, std::span<const FrameRun> wanted);
  /// Cuts works by these frames; what lies inside gets the state, and all tries
  /// are before it. `works` is a
  /// statement for those of a job: id, first, last, position, attempts, attempt,
  /// tries, losses, state.
  void cutWorks(JobId job, std::span<const FrameRun> wanted, const char* works, WorkState inside);
  /// Whether an engine that lives, and is older than the one that is given (0
  /// for any), is at work at the job.
  bool isUnderWay(JobId job, EngineId olderThan);
  void goOn(const BegunJob& begun, const NewJob& job, const std::optional<BegunJob>& known,
            const RunSet& gone, RunSet& again);
  /// What was found to be good by itself becomes good.
  void takeFound(const BegunJob& begun, const NewJob& job, const BegunJob& known, const RunSet& changed);
  bool settle(const Outcome& outcome, std::optional<Outcome>* corrected);
  /// The running attempt and its work; false when there is none.
  bool readSettling(AttemptId attempt, Settling& settling, Work& work);
  /// Settles an attempt at these works (at least one): the one that runs, or
  /// those that a work was cut into before its start was seen. What was
  /// canceled of them is either good or stays so.
  bool settleWorks(const Outcome& outcome, const Settling& settling, std::span<const Work> works);
  /// The outcome of an attempt at these frames without what is another frame's
  /// file as well; nothing where there is no such file.
  std::optional<Outcome> withoutShared(const Outcome& outcome, const Settling& settling, const FrameRun& run);
  /// Other frames, good by now, that have the file.
  std::optional<FrameRun> otherOf(const std::string& file, JobId job, AttemptId attempt, const FrameRun& run);
  /// What was seen of jobs while works were looked for.
  struct Found {
    EngineId engine = 0; ///< for which they are to begin
    Moment start{};
    AttemptId next = 0;           ///< where one has begun
    std::vector<JobId> waiting;   ///< for their first start, and some of it was found
    std::vector<JobId> exhausted; ///< nothing else is ready, and they wait for other jobs
  };
  /// Appends works that are ready, in the order in which they are to be taken,
  /// until there are `count`. They begin where `found` says so; else they are
  /// claims that lack their attempts.
  void findReady(std::size_t count, std::optional<JobId> only, const std::vector<JobId>& without,
                 std::vector<Claim>& claims, Found* found = nullptr, MemoryCheck* memory = nullptr,
                 const ClaimsAhead& ahead = {});
  void readyClaims(JobId job, std::size_t count, std::vector<Claim>& claims);
  /// The same for a job whose packets get their frames now.
  void claimPackets(JobId job, std::size_t count, Found& found, std::vector<Claim>& claims);
  /// The number that no attempt ever had.
  AttemptId nextAttempt();
  void begin(Claim& claim, Found& found);
  std::optional<Claim> joinPacket(JobId job, std::int64_t frames);
  std::vector<TimedPacket> timedPackets(JobId job);
  /// As its own packets tell, else those of the job before with this scene.
  std::optional<FrameCosts> costsOf(JobId job);
  PacketAim aimOf(JobId job);

  void summarize(const JobRecord& job, const JobFrames& frames, RunSummary& summary);

  /// Of works that have not begun; of those that wait as well, or not.
  void cutAnew(JobId job, int packet, bool waiting);
  /// What says which works of the job begin, and how many.
  void setRules(JobId id, const NewJob& job);
  void setTakes(JobId job, const std::vector<LimitShare>& takes);
  std::vector<Forerunner> forerunners(JobId job);
  /// Whether a job that waits for it, released or not, or one that waits for
  /// that, is neither good nor canceled.
  bool hasUnfinishedFollower(JobId job);
  /// Works of a follower that have not begun wait, or are ready, as its
  /// forerunners stand.
  void weigh(JobId follower);
  /// The same where frames have become good: works that need one of them may be
  /// ready. What becomes ready can be claimed from then on.
  void weighAt(JobId follower, const FrameRun& frames);
  /// Weighs the followers of a job, all of what they have.
  void weighFollowers(JobId job);
  /// The same after frames of the job have become good.
  void weighFollowers(JobId job, const RunSet& good);
  void setWorks(JobId follower, std::span<const WorkId> works, WorkState state);

  /// Engines that have not left; their locks tell which of them live.
  std::vector<EngineId> aliveEngines();
  /// Ascending. What was claimed ahead, and is not known to have begun, is among
  /// them where that is asked.
  enum class Ahead { With, Without };
  std::vector<AttemptId> runningOf(EngineId engine, Ahead ahead = Ahead::With);
  /// What was claimed by a dead engine that has not begun it; this object has its lock.
  void giveBackUnbegun(EngineId engine);
  /// Undoes a claim of which nothing was started.
  void giveBack(AttemptId attempt);
  bool isAlive(EngineId engine);
  void putAway(EngineId engine, const char* state);
  LostAttempt lostAttempt(AttemptId id, Queue& queue);

  /// Of an attempt; a file that was found has the job's negative number.
  void insertFile(const FileRecord& file, std::int64_t attempt);

  bool hasToDo(JobId job); ///< works that are ready, or wait for other jobs
  bool hasRunning(JobId job);
  /// The state of an open job: whether anything of it was ever started.
  void setOpen(JobId job);
  /// Gives the job its end when nothing of it is ready or runs. One that had
  /// ended keeps its time and is not handed out as ended again.
  void endWhenDone(JobId job);
  void setNote(JobId job, const std::string& note);
  /// The reason of the failed work that ended last, as the job's note.
  void noteLastFailure(JobId job);

  /// A work of an array job whose end is awaited.
  struct OpenArrayWork {
    ArrayId array = 0;
    std::size_t position = 0;
    WorkId work = 0;
    FrameRun run;
    int number = 1;
    AttemptId attempt = 0;
    JobId job = 0;
    bool ready = false;     ///< its work waits and is as it was given to the array
    bool startsJob = false; ///< nothing of its job was started before
  };
  std::optional<OpenArrayWork> openArrayWork(ArrayId array, std::size_t position);
  /// The engine that stands for the cluster, entered when it is missing.
  EngineId clusterEngine();
  /// Puts down an attempt at a work of an array, with `work` as the work that it is
  /// at. It runs from then on.
  AttemptId insertArrayAttempt(const OpenArrayWork& given, WorkId work, Moment started);
  AttemptId beginArrayWork(const OpenArrayWork& given, Moment started);
  bool settleUnseen(const OpenArrayWork& given, Moment started, Outcome& outcome);
  void closeArrayWork(const OpenArrayWork& given, AttemptId attempt);
  void endArrayWhenDone(ArrayId array);

  /// The text by which the processes of an attempt are known, on this machine
  /// and among all queues.
  std::string markOf(AttemptId attempt) const { return queueId + '-' + std::to_string(attempt); }

  /// The folder for the logs of a job that is being submitted: the one that
  /// was named, the usual one (empty), or one beside or in it where another
  /// job, be it of a queue that was lost, has its logs.
  std::string logsFor(JobId job, const std::string& wanted);
  /// What tells the folder from that of another queue's job of this number.
  std::string suffix() const { return '-' + queueId.substr(0, 8); }

  Moment now() const;

  Path directory;                // absolute
  std::function<Moment()> clock; // null for the system's
  Database database;
  EngineLocks locks;
  std::string queueId; // random
  /// What tells this file of the queue from every copy: its number and birth.
  /// Each job keeps that of the file that it was put into. Whoever makes a
  /// queue for somebody else cannot know it, so a job that has it was put in
  /// here.
  std::string home;
  std::int64_t freed = 0;     // how often this object made works ready that waited
  std::set<EngineId> entered; // engines of this object
  std::set<EngineId> lost;    // dead ones that this object recovers
};

/// How much of a limit works that run take.
std::int64_t takenOfLimit(Database& database, const std::string& name);
JobRecord readJob(Query& row, const Queue& queue, const std::string& home);
AttemptRecord readAttempt(Query& row, Database& database);
FileRecord readFile(Query& row);

/// The columns that those read.
extern const char* const jobColumns;
extern const char* const attemptColumns;
extern const char* const fileColumns;

/// A set of frames from its text, "1-5,9".
RunSet framesFromText(const std::string& text, const Database& database);

} // namespace trovik
