#pragma once

#include "host/application/FrameRange.h"
#include "host/foundation/Path.h"
#include "host/foundation/Process.h"
#include "host/foundation/UID.h"
#include "trovik/records/RunSet.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

using JobId = std::int64_t;     ///< from 1 on; never used again
using WorkId = std::int64_t;    ///< the same
using AttemptId = std::int64_t; ///< the same
using EngineId = std::int64_t;  ///< the same
using ArrayId = std::int64_t;   ///< the same

/// Wall clock time, in microseconds since 1970.
using Moment = std::chrono::sys_time<std::chrono::microseconds>;

/// What a job has come to. The first two are open: engines take works of such
/// a job. The others are ends; `retry` opens the job again.
enum class JobState {
  Waiting,  ///< no work was started yet
  Running,  ///< some were
  Good,     ///< every frame is good
  Failed,   ///< no work is left, and some failed
  Canceled, ///< the user canceled it
  Stopped,  ///< held: by the user, or since it failed alike again and again; the note tells
};

/// What works a job off.
enum class RunOn {
  Local,   ///< engines on this machine
  Cluster, ///< array jobs of a cluster
};

enum class WorkState {
  Ready,
  Running,
  Good,
  Failed,
  Canceled,
  Waiting, ///< for frames of another job, or for its end
};

/// How an attempt ended.
enum class AttemptState {
  Running,
  Good,
  Failed,
  Canceled, ///< the user ended it
  Lost,     ///< its engine died; says nothing about the work
};

/// Which rule decided on an attempt, from strongest to weakest.
enum class VerdictRule {
  None, ///< nothing decided yet
  Canceled,
  RunTimeLimit,
  SilenceLimit,
  Start, ///< the program could not be started; nothing was rendered
  ErrorLine,
  Signal,
  Result, ///< success texts, else the exit code
  Files,
  Engine,  ///< its engine died
  Cluster, ///< the cluster ended it: its memory or time limit, somebody's scancel
};

/// How each is written in the database and in JSON: "running", "error line".
const char* nameOf(JobState state);
const char* nameOf(WorkState state);
const char* nameOf(AttemptState state);
const char* nameOf(VerdictRule rule);
const char* nameOf(RunOn runOn);

inline bool isOpen(JobState state) {
  return state == JobState::Waiting || state == JobState::Running;
}

/// A file of an attempt, or one that was found when the job was submitted.
struct FileRecord {
  std::int64_t id = 0;
  AttemptId attempt = 0;    ///< 0: found
  std::optional<int> frame; ///< which frame it belongs to, where that is known
  std::string path;
  bool checked = false;      ///< false while its attempt runs
  std::string problem;       ///< why it is not good; empty for good
  std::int64_t size = 0;     ///< bytes, when it was checked
  std::int64_t modified = 0; ///< nanoseconds since 1970, when it was checked
};

/// A job that another one, its follower, waits for.
struct Forerunner {
  JobId job = 0;        ///< may be gone by now
  bool byFrame = false; ///< else nothing of the follower begins before all of this one is good
  /// Frame n of the follower begins when of this one's frames n + low to
  /// n + high all that there are are good.
  int low = 0;
  int high = 0;
  bool released = false; ///< is waited for no more

  bool operator==(const Forerunner&) const = default;
};

/// What a running work takes of something scarce.
struct LimitShare {
  std::string name; ///< in small letters
  int amount = 1;

  bool operator==(const LimitShare&) const = default;
};

/// Something scarce, such as licences.
struct LimitStand {
  std::string name; ///< in small letters
  int amount = 0;   ///< that there are
  int taken = 0;    ///< by works that run
};

/// How many frames a work of a job gets when it begins.
struct PacketRule {
  bool automatic = false; ///< by what frames took; else as the works were cut
  std::chrono::microseconds time = std::chrono::seconds(60); ///< that a start should take
  std::chrono::microseconds most{};                          ///< that it may take; 0 for no limit

  bool operator==(const PacketRule&) const = default;
};

/// A job to be put into the queue.
struct NewJob {
  std::string name;
  UID type;
  std::string typeName;
  std::string scene; ///< the pattern of a sequence or the one file; empty for none
  std::string range; ///< as the user wrote it; empty for none
  bool hasFrames = true;
  std::vector<FrameRun>
      works; ///< in the order in which they are to start; one, of no meaning, for a job without frames
  std::vector<FrameRun> found;        ///< frames that need no work: their files are good already
  std::vector<FileRecord> foundFiles; ///< of those
  std::string packed;                 ///< the job's stream (Job::PackObject)
  int priority = 50;                  ///< higher ones start first
  int retries = 0;                    ///< further attempts at a work that failed
  int stopAfter =
      0; ///< the number of works that fail alike, before any is good, that stops the job; 0 for never
  std::string directory;                ///< where the user was
  std::string output;                   ///< the output folder; empty for none
  std::string logs;                     ///< the directory of the logs; empty for the queue's own choice
  std::vector<std::string> endCommands; ///< each to be started by itself when the job has ended
  std::vector<Forerunner> forerunners;  ///< ascending, each job once
  /// The same command finds the job also where it is good, as long as a job
  /// that waits for it is not.
  bool ofShot = false;
  int slotsAtMost = 0;           ///< works at a time; 0 for no limit
  std::vector<LimitShare> takes; ///< what each of its works takes, each name once
  PacketRule packets;            ///< of a job with frames
  std::int64_t memory = 0;       ///< bytes that a work needs; 0: learned from those that have ended
  RunOn runOn = RunOn::Local;
  std::string folder; ///< of a cluster's job: the folder that the nodes see as well (JobFolder), without its
                      ///< last part
};

/// What is to change of a job that is in the queue.
struct JobChange {
  std::optional<int> priority{};
  std::optional<int> retries{};
  std::optional<int> stopAfter{};
  std::optional<int> slotsAtMost{};
  std::optional<std::vector<LimitShare>> takes{};
  std::optional<int> packet{}; ///< frames of a work that has not begun; of jobs with frames
  std::optional<std::int64_t> memory{};

  static constexpr int automatic = 0; ///< as the packet: as many as suit when it begins
};

/// Works of neighbouring frames, in their order, joined and cut into packets.
std::vector<FrameRun> cutAnew(const std::vector<FrameRun>& works, int packet);

/// A job as it stands.
struct JobRecord {
  JobId id = 0;
  std::string name;
  UID type;
  std::string typeName;
  std::string scene;
  std::string range;
  bool hasFrames = true;
  JobState state = JobState::Waiting;
  std::string note; ///< why it stopped, or the reason of the work that failed last
  int priority = 50;
  int retries = 0;
  int stopAfter = 0;
  int slotsAtMost = 0;
  PacketRule packets;
  std::int64_t memory = 0;     ///< bytes that a work needs, as somebody said; 0 for nobody
  std::int64_t memorySeen = 0; ///< the most bytes that a program of it had at a time
  std::string directory;
  std::string output;
  std::string logs;
  std::vector<std::string> endCommands;
  RunOn runOn = RunOn::Local;
  std::string folder; ///< of a cluster's job: its JobFolder
  /// Whether it was put into this very file of the queue, by this program. Of
  /// any other, be it of a copy that came from elsewhere, nothing is started or
  /// removed.
  bool own = true;
  bool blocked = false; ///< all that is to be done waits for other jobs
  Moment created{};
  std::optional<Moment> started; ///< the first attempt
  std::optional<Moment> ended;   ///< of a job that is not open
};

/// The frames of a job by state; of a job without frames only the numbers of
/// works. Those that wait for other jobs are among the ready ones.
struct JobFrames {
  RunSet ready, running, good, failed, canceled;
  RunSet waiting; ///< of the ready ones
  std::size_t readyWorks = 0, runningWorks = 0, goodWorks = 0, failedWorks = 0, canceledWorks = 0;
  std::size_t waitingWorks = 0; ///< of the ready ones
  std::size_t works() const { return readyWorks + runningWorks + goodWorks + failedWorks + canceledWorks; }
};

/// A job that the same command began, as it stood at some moment: what has
/// changed since then is known by it.
struct BegunJob {
  JobId id = 0;
  JobState state = JobState::Waiting;
  bool underWay = false; ///< an engine that lives is at work at it, or a cluster has works of it
  JobFrames frames;
  AttemptId newest = 0; ///< the number of the newest attempt in the queue
};

/// What came of a job that was put into the queue by a command that may have
/// begun it before.
struct EnteredJob {
  JobId id = 0;                   ///< 0: nothing is to be done, so there is none
  std::optional<BegunJob> before; ///< the job as it was; nothing for a new one
  JobFrames frames;               ///< as they are from now on
  RunSet again;                   ///< that were good, and are to be rendered again
};

/// One work: a run of frames that share a state. A work whose attempt left
/// only some frames good is cut: the good frames become works of their own.
struct WorkRecord {
  WorkId id = 0;
  JobId job = 0;
  FrameRun run;
  WorkState state = WorkState::Ready;
  int attempts = 0;      ///< made so far, lost ones included
  AttemptId attempt = 0; ///< the last; 0 for none
};

/// One attempt at a work.
struct AttemptRecord {
  AttemptId id = 0;
  JobId job = 0;
  WorkId work = 0;
  EngineId engine = 0;
  FrameRun run; ///< the frames that it was started for
  int number = 1;
  AttemptState state = AttemptState::Running;
  VerdictRule rule = VerdictRule::None;
  std::string reason;             ///< of one that is not good; the note, else
  std::vector<std::string> lines; ///< of its output, worth quoting; the deciding one among them
  std::string log;                ///< empty when it printed nothing
  std::string command;            ///< the words as text for a shell
  int exitCode = 0;
  int signal = 0;
  std::optional<ProcessUsage> usage; ///< of its program; nothing where that is not known
  RunSet good;                       ///< the frames that it left good
  bool again = false;                ///< what it left was to be tried again
  bool begun = true;                 ///< false where it was claimed ahead and perhaps has not begun
  Moment started{};
  std::optional<Moment> ended;
  std::chrono::microseconds duration{}; ///< by a steady clock
};

/// An engine that was not put away.
struct EngineRecord {
  EngineId id = 0;
  bool isCluster = false; ///< stands for the cluster; never dies
  bool lives = false;     ///< its process does
  std::size_t slots = 0;
  int process = 0;
  Moment entered{};
  std::vector<AttemptId> running{}; ///< ascending
};

/// What an attempt took.
struct AttemptTime {
  AttemptState state = AttemptState::Good;
  std::chrono::microseconds duration{};
  FrameRun run; ///< the frames that it was started for
};

/// What an engine takes from the queue.
struct Claim {
  AttemptId attempt = 0;
  JobId job = 0;
  WorkId work = 0;
  FrameRun run;
  int number = 1;   ///< of the attempt
  int tries = 0;    ///< earlier attempts that failed; lost ones do not count
  std::string mark; ///< the text that its processes carry in TROVIK_ATTEMPT
  /// There is no slot for it yet: it begins after `Queue::noteBegun`, or is given
  /// back.
  bool ahead = false;
};

/// Works that are claimed before there are slots for them.
struct ClaimsAhead {
  std::size_t count = 0;
  std::vector<JobId> jobs; ///< of these alone
};

/// How an attempt ended, for the queue.
struct Outcome {
  AttemptId attempt = 0;
  AttemptState state = AttemptState::Good;
  VerdictRule rule = VerdictRule::Result;
  std::string reason;
  std::vector<std::string> lines;
  std::string log;
  std::string command;
  int exitCode = 0;
  int signal = 0;
  std::optional<ProcessUsage> usage;
  RunSet good;           ///< frames that need no further work; all of them where the state is Good
  bool retryable = true; ///< false: a further attempt would end the same
  std::string alike;     ///< the reason without what differs from frame to frame
  std::chrono::microseconds duration{};
  std::vector<FileRecord> files; ///< replace those that were noted while it ran
};

/// An array job of a cluster.
struct ArrayRecord {
  enum class State {
    Prepared,  ///< its folder may be there; whether the cluster has it is not known
    Submitted, ///< the cluster has it
    Over,      ///< nothing of it is awaited any more
  };
  ArrayId id = 0;
  JobId job = 0;
  int number = 1; ///< 1 for the job's first; the name of its folder
  State state = State::Prepared;
  std::string name;         ///< by which the cluster knows it, unique
  std::int64_t cluster = 0; ///< the cluster's number of it; 0 before the submission
  std::size_t perTask = 1;
  bool canceling = false; ///< its tasks are to be ended
  Moment submitted{};
};

/// A work that was given to a task of an array job. While it is open no other
/// task gets that work: there may be a process that renders it.
struct ArrayWork {
  ArrayId array = 0;
  std::size_t position = 0; ///< in the array's plan
  WorkId work = 0;
  FrameRun run;
  int number = 1;                         ///< of the attempt
  AttemptId attempt = 0;                  ///< 0 before its start was seen
  bool open = true;                       ///< its end is awaited
  WorkState workState = WorkState::Ready; ///< of the work, as it is now
  // What the cluster said last of its task.
  std::string state;
  std::string reason;
  std::string node;
  int restarts = 0;
};

/// What is known of the running attempt of a work of an array, from its beats.
struct AttemptBeat {
  AttemptId attempt = 0;
  std::string log; ///< empty while it printed nothing
  std::int64_t logBytes = 0;
  std::string stage; ///< "waiting", "starting", "running", "checking"
  double silent = 0; ///< seconds, when it was recorded
  Moment seen{};     ///< by this machine's clock: when the beat last changed
};

/// How well the cluster answers.
struct ClusterContact {
  Moment asked{};      ///< the last question began
  Moment answered{};   ///< the last answer
  std::string problem; ///< of the last question; empty when it was answered
};

/// How the program of an attempt ended by itself, written down before its files
/// are checked: with its log it is all that a verdict needs, should the
/// engine die now.
struct ProgramEnd {
  int exitCode = 0;
  int signal = 0;
  std::optional<ProcessUsage> usage{};
  std::string command;                  ///< the words as text for a shell
  std::string log;                      ///< empty when it printed nothing
  std::int64_t printed = 0;             ///< bytes
  std::chrono::microseconds duration{}; ///< until its end
};

/// An attempt whose engine died.
struct LostAttempt {
  AttemptRecord attempt;
  std::string mark;
  int process = 0;               ///< the process group; 0 when it was not noted
  bool sameBoot = true;          ///< false: the machine was started anew since, so nothing of it runs
  bool logRead = false;          ///< its job object has read its log, the whole of it
  std::vector<FileRecord> files; ///< that the program had named
  std::optional<ProgramEnd> end; ///< where it was seen
  /// What files were there before, as its engine has noted; empty where that
  /// died before.
  std::string filesBefore;
  bool onThisMachine = true; ///< that was noted
};

/// Why nothing is started of a job that is not the queue's own, and what to do.
std::string foreignJobText(JobId job);

/// The reverse of nameOf: false for a text that is no name of the kind.
bool fromName(std::string_view name, JobState& state);
bool fromName(std::string_view name, WorkState& state);
bool fromName(std::string_view name, AttemptState& state);
bool fromName(std::string_view name, VerdictRule& rule);
bool fromName(std::string_view name, RunOn& runOn);
bool fromName(std::string_view name, ArrayRecord::State& state);

} // namespace trovik
