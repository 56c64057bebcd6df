#include "trovik/queue/JobFiles.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

namespace trovik {
namespace {

bool isStillThere(const FileRecord& file) {
  std::error_code error;
  const std::filesystem::path path(file.path);
  return std::filesystem::is_regular_file(path, error) && std::filesystem::file_size(path, error) > 0;
}

} // namespace

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

} // namespace trovik
