#pragma once

#include "host/foundation/Path.h"
#include "trovik/machine/Machine.h"
#include "trovik/records/Records.h"
#include "trovik/records/RunSet.h"

#include <map>
#include <string>
#include <vector>

namespace trovik {

/// What is to be done, as known when a run starts.
struct RunInfo {
  JobId job = 0;
  std::string name;       ///< the job's name; may be empty
  std::string type;       ///< the type's name
  std::string scene;      ///< the scene or the pattern of its sequence; empty for none
  std::string range;      ///< all frames, "1-24"; empty for a job without frames
  std::size_t frames = 0; ///< number of frames; 1 for a job without
  std::size_t works = 0;
  std::size_t goodBefore = 0;   ///< of the frames: good already when this starts
  std::size_t failedBefore = 0; ///< of the frames: failed already, and not tried again
  std::size_t slots = 1;        ///< 0: no engine is at work yet
  bool hasFrames = true;
  bool onCluster = false; ///< a cluster works it off
  Path logs;              ///< the directory of the logs; empty for none
};

/// One attempt at one work.
struct WorkInfo {
  FrameRun run;
  bool hasFrames = true;
  int attempt = 1;
  int attempts = 1; ///< how many there may be
  JobId job = 0;
  std::vector<std::string> imagesBefore{}; ///< of the jobs that its job waits for, for its frames

  std::size_t frames() const { return hasFrames ? static_cast<std::size_t>(run.Count()) : 1; }
  /// "7-9"; "work" for a job without frames.
  std::string title() const { return hasFrames ? runText(run) : "work"; }
};

enum class Verdict {
  Good,
  Failed,
  Canceled,
  Lost, ///< its engine died, and how it ended is not known; says nothing about the work
};

/// As the queue has it; good for one that runs.
inline Verdict verdictOf(AttemptState state) {
  switch (state) {
  case AttemptState::Failed:
    return Verdict::Failed;
  case AttemptState::Canceled:
    return Verdict::Canceled;
  case AttemptState::Lost:
    return Verdict::Lost;
  default:
    return Verdict::Good;
  }
}

/// How an attempt ended.
struct WorkResult {
  Verdict verdict = Verdict::Good;
  VerdictRule rule = VerdictRule::None;
  RunSet good;                    ///< the frames that need no further attempt
  bool again = false;             ///< failed or lost, and will be tried again
  std::string reason;             ///< of a failed one: the job's note
  std::vector<std::string> lines; ///< of a failed one: the lines of its output to quote
  Path log;
  Duration duration{};
};

/// Failed works with one reason.
struct FailureGroup {
  std::string reason;
  RunSet frames;
  std::size_t works = 0;
  Path log; ///< of the first of them
};

/// How a run ended.
struct RunSummary {
  RunInfo info;
  JobState state = JobState::Good; ///< of the job
  RunSet good;
  RunSet failed;
  RunSet notDone;
  std::size_t goodWorks = 0;
  std::size_t failedWorks = 0;
  std::size_t notDoneWorks = 0;
  std::size_t canceledWorks = 0;             ///< of those that are not done
  bool engine = false;                       ///< an engine is at work that takes what is left
  std::vector<FailureGroup> failures;        ///< in the order of their first work
  std::map<std::string, std::size_t> images; ///< number of images by directory
  Duration duration{};
  bool interrupted = false;

  bool allGood() const { return failedWorks == 0 && notDoneWorks == 0; }
  std::size_t imageCount() const {
    std::size_t count = 0;
    for (const auto& [directory, number] : images) {
      count += number;
    }
    return count;
  }
};

/// Hears what happens in a run, in the thread of the engine. Terminal, plain
/// text and JSON are readers of the same events.
class RunEvents {
public:
  virtual ~RunEvents() = default;
  virtual void runStarted(const RunInfo& info) = 0;
  virtual void workStarted(const WorkInfo& work) = 0;
  /// A file that the work wrote, when it is complete: the program has gone on
  /// to the next one or has ended well. Each file once a run.
  virtual void image(const WorkInfo& work, const Path& file) = 0;
  virtual void workEnded(const WorkInfo& work, const WorkResult& result) = 0;
  /// The user asked to stop, for the first or a further time.
  virtual void interrupted(int times, std::size_t running) = 0;
  virtual void runEnded(const RunSummary& summary) = 0;
};

} // namespace trovik
