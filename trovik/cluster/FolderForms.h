#pragma once

#include "host/foundation/Process.h"
#include "trovik/records/Records.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trovik {

// What the files in the folder of a cluster's job hold, and their texts;
// docs/formats.md has them all. A text that is not valid UTF-8 (file names,
// output) is kept as {"hex": "..."}, so that every byte comes back.
//
// Reading is strict, since anybody may write into a shared folder: whatever is
// missing, of another kind or out of its range is refused with a FormProblem,
// and so is nesting deeper than any of the forms has.

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
  FrameRun run;                            ///< of no meaning in a job without frames
  int attempt = 1;                         ///< the number of the attempt
  std::vector<std::string> imagesBefore{}; ///< of the jobs that its job waits for
};

/// An array job: task i does the works from i * perTask on, perTask of them.
struct ArrayPlan {
  std::size_t perTask = 1;
  std::string logs;                ///< the folder of the attempts' logs
  bool stage = true;               ///< render into a folder of the attempt's own, then move what is good
  std::chrono::seconds patience{}; ///< a process without a beat for so long counts as dead
  std::vector<PlannedWork> works;

  std::size_t tasks() const { return perTask == 0 ? 0 : (works.size() + perTask - 1) / perTask; }
};

/// A process that claimed a work.
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
  /// What files were there before the first program of the work, for who judges
  /// it when that has died; empty where none was started, or it is too much.
  std::string filesBefore;
  /// How its program ended by itself, while its files are checked: its log was
  /// on the disk by then.
  std::optional<ProcessExit> end;
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

/// Thrown by value for a text that is not of its form.
struct FormProblem {
  std::string text; ///< what is wrong, for people
};

/// All but the stream.
std::string formOf(const FolderJob& job);
std::string formOf(const ArrayPlan& plan);
std::string formOf(const WorkClaim& claim);
/// One line. It begins and ends with the same number, so that a reader who
/// meets a writer does not take half of two beats for one.
std::string formOf(const WorkBeat& beat);
std::string formOf(const WorkEnd& end);

FolderJob jobFromForm(std::string_view text);
ArrayPlan planFromForm(std::string_view text);
WorkClaim claimFromForm(std::string_view text);
WorkBeat beatFromForm(std::string_view text);
WorkEnd endFromForm(std::string_view text);

} // namespace trovik
