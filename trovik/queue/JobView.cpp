#include "trovik/queue/JobView.h"

#include "trovik/records/Moments.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace trovik {
namespace {

bool isAsRecorded(const FileRecord& file) {
  struct stat status {};
  return stat(file.path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == file.size &&
         std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec == file.modified;
}

bool isStillThere(const FileRecord& file) {
  std::error_code error;
  const std::filesystem::path path(file.path);
  return std::filesystem::is_regular_file(path, error) && std::filesystem::file_size(path, error) > 0;
}

} // namespace

JobView viewOf(Queue& queue, JobRecord job) {
  if (job.logs.empty()) {
    job.logs = queue.logDirectory(job.id).Text();
  }
  JobFrames frames = queue.frames(job.id);
  return {std::move(job), std::move(frames)};
}

std::string titleOf(const JobRecord& job) {
  if (!job.name.empty()) {
    return job.name;
  }
  if (!job.scene.empty()) {
    return job.scene.substr(job.scene.rfind('/') + 1);
  }
  return "job " + std::to_string(job.id);
}

RunSet allFrames(const JobFrames& frames) {
  RunSet all = frames.good;
  for (const RunSet* set : {&frames.ready, &frames.running, &frames.failed, &frames.canceled}) {
    all.add(*set);
  }
  return all;
}

RunInfo runInfoOf(const JobView& view) {
  const JobRecord& job = view.job;
  RunInfo info;
  info.job = job.id;
  info.name = job.name;
  info.type = job.typeName;
  info.scene = job.scene;
  info.hasFrames = job.hasFrames;
  info.onCluster = job.runOn == RunOn::Cluster;
  info.range = job.hasFrames ? allFrames(view.frames).text() : std::string();
  info.frames = job.hasFrames ? view.total() : 1;
  info.works = view.frames.works();
  info.goodBefore = view.good();
  info.failedBefore = view.failed();
  info.logs = Path(job.logs);
  return info;
}

std::optional<Duration> timeOf(const JobRecord& job, Moment now) {
  if (!job.started) {
    return std::nullopt;
  }
  return between(*job.started, job.ended.value_or(now));
}

JobState shownState(const JobView& view) {
  return isOpen(view.job.state) && view.frames.runningWorks == 0 ? JobState::Waiting : view.job.state;
}

std::vector<FileRecord> filesOf(Queue& queue, JobId job) {
  std::map<std::string, FileRecord> byPath;
  for (FileRecord& file : queue.files(job)) {
    std::string path = file.path;
    byPath.insert_or_assign(std::move(path), std::move(file));
  }
  std::vector<FileRecord> files;
  files.reserve(byPath.size());
  for (auto& [path, file] : byPath) {
    files.push_back(std::move(file));
  }
  std::stable_sort(files.begin(), files.end(), [](const FileRecord& a, const FileRecord& b) {
    return a.frame && b.frame ? *a.frame < *b.frame : a.frame.has_value() && !b.frame.has_value();
  });
  return files;
}

RunSet missingFrames(const JobView& view, const std::vector<FileRecord>& files) {
  RunSet missing = view.frames.failed;
  for (const RunSet* set : {&view.frames.ready, &view.frames.running, &view.frames.canceled}) {
    missing.add(*set);
  }
  for (const FileRecord& file : files) {
    if (file.frame && view.frames.good.contains(*file.frame) && isGood(file) && !isStillThere(file)) {
      missing.add({*file.frame, *file.frame});
    }
  }
  return missing;
}

RunSet framesThatLostFiles(const RunSet& good, const std::vector<FileRecord>& files, RunOn runOn) {
  RunSet lost;
  for (const FileRecord& file : files) {
    if (!file.frame || !good.contains(*file.frame) || !isGood(file) || isAsRecorded(file)) {
      continue;
    }
    std::error_code error;
    const bool seen = std::filesystem::is_directory(std::filesystem::path(file.path).parent_path(), error);
    if (seen || runOn == RunOn::Local) {
      lost.add({*file.frame, *file.frame});
    }
  }
  return lost;
}

} // namespace trovik
