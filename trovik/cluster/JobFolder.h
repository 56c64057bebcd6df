#pragma once

#include "host/foundation/Path.h"
#include "trovik/records/Records.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace trovik {

// What the submitting side and the tasks on the nodes of a cluster tell each
// other, as files of a folder that both see. docs/formats.md has every form.
//
//   FOLDER/               one job
//     job.json            what a task must know of it; never changes
//     stream              the packed job (Job::PackObject)
//     logs/               the output of attempts, unless the user named a folder
//     1/, 2/, …           one array job each, by its number
//       plan.json         which works it has; never changes
//       cancel            nothing of it is wanted any more; empty
//       task-INDEX.log    what the task itself printed
//       PLACE.claim.N     the Nth process that took up the work at this place
//       PLACE.beat        that it is alive, and how far it is
//       PLACE.result      how the work ended: the truth
//
// A place is the position of a work in the plan. Claims and results are written
// so that the first one stays and nobody ever sees half of one, even on a
// network file system; the same call by another process then says false.
//
// All raise Exception* where a file cannot be read or written; the text names
// the file and the reason.

/// What a task must know of its job.
struct FolderJob {
  std::string queue; ///< the ID of the queue
  JobId job = 0;
  std::string name;
  UID type;
  std::string typeName;
  bool hasFrames = true;
  std::string packed; ///< the job's stream
};

/// One work of an array job.
struct PlannedWork {
  FrameRun run;    ///< of no meaning in a job without frames
  int attempt = 1; ///< the number of the attempt
};

/// An array job: task i works the places from i * perTask on, perTask of them.
struct ArrayPlan {
  std::size_t perTask = 1;
  std::string logs;                ///< the folder of the attempts' logs
  bool stage = true;               ///< render into a folder of the attempt's own, then move what is good
  std::chrono::seconds patience{}; ///< a process without a beat for so long counts as dead
  std::vector<PlannedWork> works;

  std::size_t tasks() const { return perTask == 0 ? 0 : (works.size() + perTask - 1) / perTask; }
};

/// A process that took up a work.
struct WorkClaim {
  int number = 1;    ///< 1 for the first process, one more for each that took its place
  std::string host;  ///< where it runs
  std::string boot;  ///< that machine's start (boot_id): process numbers of others mean nothing
  int process = 0;   ///< the task's process
  std::string mark;  ///< what its programs carry in TROVIK_ATTEMPT
  std::string node;  ///< the node's name in the cluster; empty when not in one
  std::string task;  ///< the cluster's own name of the task, "123_4"; may be empty
  int restarts = 0;  ///< how often the cluster had started this task before
  Moment started{};  ///< by the node's clock
  std::string stage; ///< the folder that it renders into; empty for none
};

/// That a work is alive, and how far it is. Written again and again, in place.
struct WorkBeat {
  int claim = 1;          ///< whose
  std::int64_t count = 0; ///< one more each time: what readers compare; clocks may differ
  std::string stage;      ///< "waiting" (for an earlier process), "starting", "running", "checking"
  std::string log;        ///< the file of its output; empty while it printed nothing
  std::int64_t logBytes = 0;
  double silent = 0;             ///< seconds since its program printed anything
  double running = 0;            ///< seconds since its program was started
  std::string command;           ///< the words as text for a shell
  std::vector<FileRecord> files; ///< that the program named so far
};

/// How a work ended.
struct WorkEnd {
  enum class By {
    Itself,      ///< judged by the rules of its type
    Canceled,    ///< the array job was canceled
    Interrupted, ///< the cluster ended the task: its limits, a drain, scancel by somebody else
    GivenUp,     ///< the submitting side found it dead
  };
  By by = By::Itself;
  int claim = 0; ///< of the process that left this; 0 for GivenUp
  std::string node;
  Moment started{};
  Moment ended{};
  Outcome outcome; ///< `attempt` is of no meaning
};

/// The folder of a job. Cheap to make; looks at nothing until it is asked.
class JobFolder {
public:
  explicit JobFolder(Path directory);
  const Path& directory() const { return directory_; }
  Path logs() const;

  /// Makes the folder (and those above it), readable by the group as the
  /// user's umask says.
  void create(const FolderJob& job) const;
  FolderJob read() const;
  Path array(int number) const;

private:
  Path directory_;
};

/// The folder of one array job.
class ArrayFolder {
public:
  explicit ArrayFolder(Path directory);
  const Path& directory() const { return directory_; }

  void create(const ArrayPlan& plan) const;
  ArrayPlan plan() const;
  /// The file for what task `index` itself prints; sbatch's "%a" stands for the index.
  Path taskLog(const std::string& index) const;

  void cancel() const;
  bool isCanceled() const;

  /// Takes the place: false when a process has this number already.
  bool claim(std::size_t place, const WorkClaim& claim) const;
  std::optional<WorkClaim> claimOf(std::size_t place, int number) const;
  /// The number of the newest claim; 0 for none. Looks from `known` on.
  int lastClaim(std::size_t place, int known = 0) const;

  void beat(std::size_t place, const WorkBeat& beat) const;
  /// Nothing where there is none, or where it is just being written.
  std::optional<WorkBeat> beatOf(std::size_t place) const;

  /// Leaves the work's end: false when there is one already, which counts.
  bool leave(std::size_t place, const WorkEnd& end) const;
  std::optional<WorkEnd> endOf(std::size_t place) const;
  bool hasEnded(std::size_t place) const;

  /// Removes temporary files that killed processes left.
  void sweep() const;

private:
  Path fileOf(std::size_t place, const std::string& suffix) const;

  Path directory_;
};

} // namespace trovik
