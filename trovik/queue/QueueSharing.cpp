#include "host/application/jobs/NoteText.h"
#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <map>

// Two works of a job never share a file: the later one has overwritten what the
// earlier one was good for. Whatever a template says, only the end of an attempt
// tells which files it has, and only the transaction that settles it knows for
// sure who was first, be it another slot, another engine or a node.

namespace trovik {
namespace {

std::string framesText(const FrameRun& run) {
  return (run.Count() == 1 ? "frame " : "frames ") + runText(run);
}

} // namespace

std::optional<FrameRun> Queue::Impl::otherOf(const std::string& file, JobId job, AttemptId attempt,
                                             const FrameRun& run) {
  Query row(database, statements::otherOfFile, file, job, attempt, run.First, run.Last);
  return row.next() ? std::optional(row.frames()) : std::nullopt;
}

std::optional<Outcome> Queue::Impl::withoutShared(const Outcome& outcome, const Settling& settling,
                                                  const FrameRun& run) {
  std::optional<Outcome> corrected;
  std::map<std::string_view, int> own; // an outcome that was merged has the files of several attempts
  RunSet bad;
  for (std::size_t i = 0; settling.hasFrames && i < outcome.files.size(); ++i) {
    const FileRecord& file = outcome.files[i];
    if (!file.checked || !file.problem.empty()) {
      continue;
    }
    std::optional<FrameRun> other;
    if (file.frame) {
      const int first = own.emplace(file.path, *file.frame).first->second;
      other = first == *file.frame ? std::nullopt : std::optional(FrameRun{first, first});
    }
    if (!other) {
      other = otherOf(file.path, settling.job, outcome.attempt, run);
    }
    if (!other) {
      continue;
    }
    const FrameRun frames = file.frame ? FrameRun{*file.frame, *file.frame} : run;
    bad.add(frames);
    if (!corrected) {
      corrected = outcome;
      corrected->good = outcome.state == AttemptState::Good ? RunSet() : outcome.good;
      if (outcome.state == AttemptState::Good) {
        corrected->state = AttemptState::Failed;
        corrected->rule = VerdictRule::Files;
        corrected->good.add(run);
        corrected->retryable = false; // it would name the same file
        std::string text = framesText(frames);
        text[0] = 'F';
        corrected->reason = text + (frames.Count() == 1 ? " has" : " have") + " the same file as " +
                            framesText(*other) + ": " + NoteName(Path(file.path));
        corrected->alike = "The same file as another frame";
      }
    }
    corrected->files[i].problem = "It is the file of " + framesText(*other);
  }
  if (corrected) {
    corrected->good = without(corrected->good, bad);
  }
  return corrected;
}

} // namespace trovik
