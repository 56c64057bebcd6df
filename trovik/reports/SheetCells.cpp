#include "trovik/reports/SheetCells.h"

#include "trovik/queue/JobView.h"
#include "trovik/text/Text.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <map>
#include <unistd.h>
#include <utility>

namespace trovik {
namespace {

std::string jobName(const JobView& view) {
  return "job " + std::to_string(view.job.id);
}

void refuseTooMany(const std::string& what, std::size_t count, const std::string& hint) {
  if (count > sheetCellLimit) {
    throw UsageError{"a sheet holds at most " + std::to_string(sheetCellLimit) + " images, and there are " +
                         counted(count, what),
                     hint};
  }
}

/// The file that shows each good frame: the first one that is not good any more,
/// else the first.
std::map<int, const JobFile*> filesByFrame(const std::vector<JobFile>& files) {
  std::map<int, const JobFile*> chosen;
  for (const JobFile& file : files) {
    if (file.frame && file.counts) {
      const JobFile*& shown = chosen[*file.frame];
      if (shown == nullptr || (shown->problem.empty() && !file.problem.empty())) {
        shown = &file;
      }
    }
  }
  return chosen;
}

/// Why each failed work failed, with its frames.
std::vector<std::pair<FrameRun, std::string>> failures(Queue& queue, JobId job) {
  std::vector<std::pair<FrameRun, std::string>> result;
  for (const WorkRecord& work : queue.works(job, WorkState::Failed)) {
    const std::optional<AttemptRecord> attempt = queue.attempt(work.attempt);
    result.emplace_back(work.run, attempt ? attempt->reason : std::string());
  }
  return result;
}

class FrameCells {
public:
  FrameCells(Queue& queue, const JobView& view, const std::vector<JobFile>& files)
      : frames_(view.frames), files_(filesByFrame(files)), failures_(failures(queue, view.job.id)) {}

  SheetCell cell(int frame) const {
    SheetCell cell;
    cell.label = std::to_string(frame);
    cell.state = frames_.failed.contains(frame)     ? CellState::Failed
                 : frames_.running.contains(frame)  ? CellState::Running
                 : frames_.ready.contains(frame)    ? CellState::Waiting
                 : frames_.canceled.contains(frame) ? CellState::Canceled
                                                    : CellState::Good;
    if (cell.state == CellState::Failed) {
      cell.note = reasonOf(frame);
    } else if (cell.state == CellState::Good) {
      const auto file = files_.find(frame);
      if (file != files_.end()) {
        cell.file = file->second->path;
        // One that is gone is found to be missing when it is drawn.
        if (!file->second->problem.empty() && access(cell.file.c_str(), F_OK) == 0) {
          cell.state = CellState::Damaged;
          cell.note = file->second->problem;
        }
      }
    }
    return cell;
  }

private:
  std::string reasonOf(int frame) const {
    const auto found = std::find_if(failures_.begin(), failures_.end(), [frame](const auto& failure) {
      return frame >= failure.first.First && frame <= failure.first.Last;
    });
    return found == failures_.end() ? std::string() : found->second;
  }

  const JobFrames& frames_;
  std::map<int, const JobFile*> files_;
  std::vector<std::pair<FrameRun, std::string>> failures_;
};

/// The frames of the job that are wanted, in ascending order.
std::vector<int> chosenFrames(const JobView& view, const std::optional<RunSet>& only) {
  const RunSet all = allFrames(view.frames);
  const RunSet& wanted = only ? *only : all;
  refuseTooMany("frame", wanted.count(), "name some of them: --frames 1-100");
  std::vector<int> frames;
  for (const FrameRun& run : wanted.runs()) {
    for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
      const int number = static_cast<int>(frame);
      if (!all.contains(number)) {
        throw UsageError{jobName(view) + " has no frame " + std::to_string(number),
                         "its frames are " + all.text(8)};
      }
      frames.push_back(number);
    }
  }
  return frames;
}

} // namespace

SheetPlan sheetPlan(Queue& queue, const JobView& view, const std::vector<JobFile>& files,
                    const std::optional<RunSet>& only) {
  SheetPlan plan;
  plan.title = titleOf(view.job);
  plan.subtitle = view.job.typeName;
  const bool mapped =
      std::any_of(files.begin(), files.end(), [](const JobFile& file) { return file.frame.has_value(); });
  if (view.job.hasFrames && (mapped || files.empty())) {
    if (files.empty() && !view.frames.good.empty()) {
      throw UsageError{jobName(view) + " has left no files",
                       "\"trovik show " + std::to_string(view.job.id) + "\" tells what became of it"};
    }
    const FrameCells cells(queue, view, files);
    for (const int frame : chosenFrames(view, only)) {
      plan.cells.push_back(cells.cell(frame));
    }
    return plan;
  }
  if (only) {
    throw UsageError{"the files of " + jobName(view) + " belong to no frames", "leave out --frames"};
  }
  plan.noun = "file";
  refuseTooMany("file", files.size(), "\"trovik images " + std::to_string(view.job.id) + "\" lists them");
  for (const JobFile& file : files) {
    if (file.checked) {
      plan.cells.push_back({file.path.substr(file.path.rfind('/') + 1), file.path, CellState::Good, {}});
    }
  }
  if (plan.cells.empty()) {
    throw UsageError{jobName(view) + " has no files yet",
                     "\"trovik show " + std::to_string(view.job.id) + "\" tells how it stands"};
  }
  return plan;
}

} // namespace trovik
