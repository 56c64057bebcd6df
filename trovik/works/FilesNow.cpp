#include "trovik/works/FilesNow.h"

#include "host/application/Constants.h"
#include "host/application/FileName.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"
#include "trovik/images/ImageHelper.h"
#include "trovik/jobs/WorkMaker.h"

#include <string>
#include <sys/stat.h>

namespace trovik {
namespace {

/// Whether images of one colour are none, as far as the job's type is known here.
bool refusesFlat(Queue& queue, const JobRecord& job) {
  try {
    const SmartHandle<Job> whole = WorkMaker(job.type, queue.packed(job.id)).makeWhole();
    return whole->GetParameterOrOption(p_RefuseFlatImages, true, true).Bool();
  } catch (...) {
    LogDebug("files of job " + std::to_string(job.id) + ": " + TakeCaughtText());
    return false;
  }
}

/// What a call tells of a file.
std::string problemOf(const FileRecord& file) {
  struct stat status {};
  return !CanBeAName(Path(file.path)) || stat(file.path.c_str(), &status) != 0 ? "Missing file"
         : !S_ISREG(status.st_mode)                                            ? "Not a regular file"
         : status.st_size == 0                                                 ? "Empty file"
                                                                               : std::string();
}

} // namespace

FilesNow filesNow(Queue& queue, const JobView& view, Decode decode, ImageInspector& inspector) {
  FilesNow now;
  now.files = filesOf(queue, view);
  std::vector<Path> paths;
  std::vector<JobFile*> doubtful;
  for (JobFile& file : now.files) {
    if (!isGood(file) || !isSeen(file, view.job.runOn) || isSpared(file, decode)) {
      continue;
    }
    file.problem = problemOf(file);
    if (file.problem.empty()) {
      doubtful.push_back(&file);
      paths.emplace_back(file.path);
    }
  }
  const std::vector<Inspection> inspections =
      inspectAll(inspector, paths, !paths.empty() && refusesFlat(queue, view.job));
  for (std::size_t i = 0; i < paths.size(); ++i) {
    doubtful[i]->problem = inspections[i].problem;
  }
  if (view.job.hasFrames) {
    now.missing = without(allFrames(view.frames), view.frames.good);
  }
  for (const JobFile& file : now.files) {
    if (file.counts && !file.problem.empty()) {
      now.missing.add(file.frames);
    }
  }
  return now;
}

} // namespace trovik
