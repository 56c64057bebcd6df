#include "trovik/page/JobCells.h"

#include "host/application/FileName.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/records/Moments.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <sys/stat.h>
#include <utility>

namespace trovik {
namespace {

constexpr std::string_view byWeight = "fdrmwgc";

bool weighsMore(char letter, char than) {
  return than == ' ' || byWeight.find(letter) < byWeight.find(than);
}

/// Where a frame stands among all of a job.
class FramePlaces {
public:
  explicit FramePlaces(const RunSet& all) {
    for (const FrameRun& run : all.runs()) {
      starts_.emplace_back(run, count_);
      count_ += static_cast<std::size_t>(std::int64_t{run.Last} - run.First + 1);
    }
  }
  std::size_t count() const { return count_; }
  /// Of a frame that is one of them.
  std::size_t of(int frame) const {
    auto after = std::upper_bound(starts_.begin(), starts_.end(), frame,
                                  [](int value, const auto& start) { return value < start.first.First; });
    if (after != starts_.begin()) {
      --after;
    }
    return after->second + static_cast<std::size_t>(std::int64_t{frame} - after->first.First);
  }

private:
  std::vector<std::pair<FrameRun, std::size_t>> starts_;
  std::size_t count_ = 0;
};

using Letters = std::vector<std::pair<const RunSet*, char>>;

Letters lettersOf(const JobFrames& frames) {
  return {{&frames.good, 'g'},
          {&frames.failed, 'f'},
          {&frames.running, 'r'},
          {&frames.ready, 'w'},
          {&frames.canceled, 'c'}};
}

/// Of a job without frames.
char letterOfWork(const JobFrames& frames) {
  return frames.failedWorks > 0     ? 'f'
         : frames.runningWorks > 0  ? 'r'
         : frames.readyWorks > 0    ? 'w'
         : frames.goodWorks > 0     ? 'g'
         : frames.canceledWorks > 0 ? 'c'
                                    : 'w';
}

/// Gives frames their files, and the letters that come of those.
void addFiles(const std::vector<JobFile>& files, const JobView& view, const FramePlaces& places,
              FileStates& states, Clock::time_point now, JobCells& cells) {
  const bool hasFrames = view.job.hasFrames;
  const RunSet all = allFrames(view.frames);
  const auto set = [&](std::size_t place, std::int64_t file, char letter, const std::string& problem = {}) {
    cells.states[place] = letter;
    cells.files[place] = file;
    if (letter == 'd') {
      cells.problems[place] = problem;
    }
  };
  for (const JobFile& file : files) {
    if (hasFrames && file.frame && !all.contains(*file.frame)) {
      continue;
    }
    if (file.counts) {
      const FileStates::Fact fact = isSeen(file, view.job.runOn) ? states.of(file, now) : FileStates::Fact();
      const char letter = fact.state == FileStates::State::Gone                               ? 'm'
                          : fact.state == FileStates::State::Damaged || !file.problem.empty() ? 'd'
                                                                                              : 'g';
      const std::string& problem = file.problem.empty() ? fact.problem : file.problem;
      if (!hasFrames) {
        if (cells.states[0] == 'g') {
          set(0, file.id, letter, problem);
        }
        continue;
      }
      // A file of many frames is no picture of one of them.
      const bool isPicture = file.frame.has_value() || file.frames.count() == 1;
      for (const FrameRun& run : file.frames.runs()) {
        for (std::size_t place = places.of(run.First); place <= places.of(run.Last); ++place) {
          if (cells.states[place] == 'g' && (letter != 'g' || cells.files[place] == 0)) {
            set(place, isPicture ? file.id : 0, letter, problem);
          }
        }
      }
    } else if (file.frame && hasFrames) {
      const std::size_t place = places.of(*file.frame);
      char& letter = cells.states[place];
      if ((letter == 'r' || letter == 'R') && !file.checked) {
        set(place, file.id, 'R');
      } else if (letter == 'f') {
        cells.files[place] = file.id;
      }
    } else if (!hasFrames && !file.checked && cells.states[0] != 'g') {
      set(0, file.id, cells.states[0] == 'r' ? 'R' : cells.states[0]);
    }
  }
}

} // namespace

std::string stripOf(const JobView& view, std::size_t cells) {
  if (!view.job.hasFrames) {
    return {letterOfWork(view.frames)};
  }
  const FramePlaces places(allFrames(view.frames));
  const std::size_t count = std::min(places.count(), cells);
  std::string strip(count, ' ');
  for (const auto& [set, letter] : lettersOf(view.frames)) {
    for (const FrameRun& run : set->runs()) {
      const std::size_t first = places.of(run.First) * count / places.count();
      const std::size_t last = places.of(run.Last) * count / places.count();
      for (std::size_t cell = first; cell <= last; ++cell) {
        if (weighsMore(letter, strip[cell])) {
          strip[cell] = letter;
        }
      }
    }
  }
  return strip;
}

void FileStates::begin(Clock::time_point now, Clock::time_point checkUntil) {
  checkUntil_ = checkUntil;
  std::erase_if(known_, [&](const auto& one) { return now >= one.second.asked + patience_; });
}

FileStates::Fact FileStates::of(const FileRecord& file, Clock::time_point now) {
  const auto known = known_.find(file.id);
  if (known != known_.end() && now < known->second.asked + patience_) {
    return known->second.fact;
  }
  struct stat status {};
  Fact fact;
  if (!CanBeAName(Path(file.path)) || stat(file.path.c_str(), &status) != 0) {
    fact.state = State::Gone;
  } else if (!S_ISREG(status.st_mode) || status.st_size == 0) {
    fact = {State::Damaged, S_ISREG(status.st_mode) ? "Its file is empty now" : "It is no file any more"};
  } else if (const FileIdentity identity = identityOf(status);
             identity.size != file.size || identity.modified != file.modified) {
    fact = check(file, identity);
  }
  known_[file.id] = {fact, now};
  return fact;
}

FileStates::Fact FileStates::check(const FileRecord& file, const FileIdentity& identity) {
  if (const auto checked = checked_.find(file.id);
      checked != checked_.end() && checked->second.identity == identity) {
    return checked->second.fact;
  }
  if (Clock::now() >= checkUntil_) {
    return {};
  }
  const Inspection inspection = inspectAll(inspector_, {Path(file.path)}, false).front();
  const bool isDamaged = !inspection.problem.empty() && !inspection.problem.starts_with(notLookedInto);
  Fact fact{isDamaged ? State::Damaged : State::There, isDamaged ? inspection.problem : std::string()};
  checked_[file.id] = {identity, fact};
  return fact;
}

JobCells cellsOf(Queue& queue, const JobView& view, FileStates& states, Clock::time_point now) {
  JobCells cells;
  const bool hasFrames = view.job.hasFrames;
  const FramePlaces places(allFrames(view.frames));
  const std::size_t count = hasFrames ? places.count() : 1;
  cells.states.assign(count, hasFrames ? 'w' : letterOfWork(view.frames));
  cells.files.assign(count, 0);
  cells.seconds.assign(count, 0.0);
  if (hasFrames) {
    cells.frames.reserve(count);
    for (const FrameRun& run : allFrames(view.frames).runs()) {
      for (std::int64_t frame = run.First; frame <= run.Last; ++frame) {
        cells.frames.push_back(static_cast<int>(frame));
      }
    }
    for (const auto& [set, letter] : lettersOf(view.frames)) {
      for (const FrameRun& run : set->runs()) {
        const auto begin = cells.states.begin() + static_cast<std::ptrdiff_t>(places.of(run.First));
        std::fill(begin, begin + (std::int64_t{run.Last} - run.First + 1), letter);
      }
    }
  }
  addFiles(filesOf(queue, view), view, places, states, now, cells);
  const std::map<AttemptId, AttemptTime> times = queue.times(view.job.id);
  for (const WorkRecord& work : queue.works(view.job.id, WorkState::Good)) {
    const auto time = times.find(work.attempt);
    if (time == times.end()) {
      continue;
    }
    if (!hasFrames) {
      cells.seconds[0] = secondsOf(durationOf(time->second.duration));
      continue;
    }
    const double each = secondsOf(durationOf(time->second.duration)) /
                        static_cast<double>(std::max<std::int64_t>(1, time->second.run.Count()));
    for (std::size_t place = places.of(work.run.First); place <= places.of(work.run.Last); ++place) {
      cells.seconds[place] = each;
    }
  }
  return cells;
}

RunSet missingFrames(const JobCells& cells) {
  RunSet missing;
  for (std::size_t i = 0; i < cells.frames.size(); ++i) {
    if (std::string_view("mdfc").find(cells.states[i]) != std::string_view::npos) {
      missing.add({cells.frames[i], cells.frames[i]});
    }
  }
  return missing;
}

} // namespace trovik
