#include "trovik/queue/JobFiles.h"

#include "host/application/FileName.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unordered_map>

namespace trovik {
namespace {

/// Which attempt made which frames good. There may be a million such works.
class GoodWorks {
public:
  GoodWorks(Queue& queue, const JobRecord& job) : hasFrames_(job.hasFrames) {
    for (const WorkRecord& work : queue.works(job.id, WorkState::Good)) {
      byFrame_.push_back({work.run, work.attempt});
    }
    byAttempt_ = byFrame_;
    std::sort(byFrame_.begin(), byFrame_.end(),
              [](const Work& a, const Work& b) { return a.run.First < b.run.First; });
    std::sort(byAttempt_.begin(), byAttempt_.end(), Earlier());
  }

  /// The attempt of a good frame; nothing for another one.
  std::optional<AttemptId> attemptOf(int frame) const {
    const auto after = std::upper_bound(byFrame_.begin(), byFrame_.end(), frame,
                                        [](int value, const Work& work) { return value < work.run.First; });
    if (after == byFrame_.begin() || std::prev(after)->run.Last < frame) {
      return std::nullopt;
    }
    return std::prev(after)->attempt;
  }

  /// Whether it ended so that its good frames, or the whole job, are good by the
  /// file. What was found may have taken the place of what an attempt left.
  bool made(const FileRecord& file) const {
    if (!file.checked || !file.problem.empty()) {
      return false;
    }
    if (hasFrames_ && file.frame) {
      const std::optional<AttemptId> attempt = attemptOf(*file.frame);
      return attempt && (file.attempt == 0 || file.attempt == *attempt);
    }
    return file.attempt == 0
               ? !byAttempt_.empty()
               : std::binary_search(byAttempt_.begin(), byAttempt_.end(), file.attempt, Earlier());
  }

  RunSet framesOf(AttemptId attempt) const {
    RunSet frames;
    if (hasFrames_) {
      const auto [begin, end] = std::equal_range(byAttempt_.begin(), byAttempt_.end(), attempt, Earlier());
      std::for_each(begin, end, [&](const Work& work) { frames.add(work.run); });
    }
    return frames;
  }

private:
  struct Work {
    FrameRun run;
    AttemptId attempt = 0;
  };
  struct Earlier {
    static AttemptId of(AttemptId attempt) { return attempt; }
    static AttemptId of(const Work& work) { return work.attempt; }
    template <typename A, typename B> bool operator()(const A& a, const B& b) const { return of(a) < of(b); }
  };

  bool hasFrames_;
  std::vector<Work> byFrame_;
  std::vector<Work> byAttempt_;
};

std::string whyNone(const FileRecord& file, const GoodWorks& works) {
  return !file.frame                    ? "Its work is not good"
         : works.attemptOf(*file.frame) ? "Its frame is good by a later attempt"
                                        : "Its frame is not good";
}

/// What the last word on a file says against an earlier one.
std::string problemSince(const FileRecord& file, const FileRecord& last) {
  if (!last.checked) {
    return {};
  }
  if (last.size == file.size && last.modified == file.modified) {
    return last.frame && last.frame != file.frame ? std::string() : last.problem;
  }
  return last.frame == file.frame ? std::string()
         : last.frame             ? "Frame " + std::to_string(*last.frame) + " has overwritten it"
                                  : "Another work has overwritten it";
}

} // namespace

std::vector<JobFile> filesOf(Queue& queue, const JobView& view) {
  const std::vector<FileRecord> records = queue.files(view.job.id);
  if (records.empty()) {
    return {};
  }
  const GoodWorks works(queue, view.job);
  std::unordered_map<std::string_view, std::size_t> last; // by path
  std::map<int, AttemptId> sources;                       // of each frame the newest
  std::set<AttemptId> withFrames;
  for (std::size_t i = 0; i < records.size(); ++i) {
    last[records[i].path] = i;
    if (records[i].frame && works.made(records[i])) {
      sources[*records[i].frame] = records[i].attempt;
      withFrames.insert(records[i].attempt);
    }
  }
  std::vector<JobFile> files;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const FileRecord& record = records[i];
    const std::size_t newest = last.at(record.path);
    JobFile file{record, false, {}};
    file.counts = works.made(record) && (!record.frame || sources.at(*record.frame) == record.attempt);
    if (file.counts && record.frame) {
      file.frames.add({*record.frame, *record.frame});
    } else if (file.counts && !withFrames.contains(record.attempt)) {
      file.frames = works.framesOf(record.attempt); // one file of them all
    }
    if (newest != i && !file.counts) {
      continue;
    }
    if (!file.counts && record.checked && record.problem.empty()) {
      file.problem = whyNone(record, works);
    } else if (newest != i) {
      if (records[newest].attempt == record.attempt && records[newest].frame == record.frame) {
        continue; // told twice by one attempt
      }
      file.problem = problemSince(record, records[newest]);
    }
    files.push_back(std::move(file));
  }
  std::stable_sort(files.begin(), files.end(), [](const JobFile& a, const JobFile& b) {
    return a.frame && b.frame                           ? *a.frame < *b.frame
           : a.frame.has_value() == b.frame.has_value() ? a.path < b.path
                                                        : a.frame.has_value();
  });
  return files;
}

bool isAsRecorded(const FileRecord& file) {
  struct stat status {};
  return CanBeAName(Path(file.path)) && stat(file.path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size == file.size &&
         std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec == file.modified;
}

bool isSurelyAsRecorded(const FileRecord& file) {
  return file.modified % 1'000'000'000 != 0 && isAsRecorded(file);
}

bool isSeen(const FileRecord& file, RunOn runOn) {
  std::error_code error;
  return runOn == RunOn::Local ||
         std::filesystem::is_directory(std::filesystem::path(file.path).parent_path(), error);
}

RunSet framesThatLostFiles(const std::vector<JobFile>& files, RunOn runOn) {
  RunSet lost;
  for (const JobFile& file : files) {
    if (file.counts && (!file.problem.empty() || !isAsRecorded(file)) && isSeen(file, runOn)) {
      lost.add(file.frames);
    }
  }
  return lost;
}

} // namespace trovik
