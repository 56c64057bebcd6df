#include "trovik/works/FileInspection.h"

#include "host/application/FileName.h"
#include "host/foundation/Exception.h"
#include "host/foundation/Log.h"

#include <algorithm>
#include <sys/stat.h>

namespace trovik {

bool isFilled(const Path& file) {
  struct stat status {};
  return CanBeAName(file) && stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size > 0;
}

FileInspection::FileInspection(ImageInspector& inspector, const RenderJob& job, const IsKnown& isKnown) {
  std::vector<RenderJob::WorkFile> files;
  bool refuseFlat = false;
  try {
    files = job.FilesToCheck();
    refuseFlat = !files.empty() && job.GetParameterOrOption(p_RefuseFlatImages, true, true).Bool();
  } catch (...) {
    LogDebug("files to check: " + TakeCaughtText()); // the job's own check tells it
  }
  for (const RenderJob::WorkFile& file : files) {
    if (!isFilled(file.File) || (isKnown && isKnown(file.File.Text()))) {
      continue; // for the job to tell
    }
    ++state_->open;
    inspector.ask(file.File, refuseFlat, [state = state_, name = file.File.Text()](const Inspection& found) {
      --state->open;
      if (!found.problem.empty()) {
        state->problems[name] = found.problem;
      }
    });
  }
}

String FileInspection::OnCheckFile(const Job& /*job*/, const Path& file) {
  const auto found = state_->problems.find(file.Text());
  return found == state_->problems.end() ? String() : String(found->second);
}

void waitFor(const FileInspection& inspection, ImageInspector& inspector, Machine& machine) {
  inspector.advance(machine.now()); // all is asked: others may help
  while (!inspection.isOver()) {
    std::vector<pollfd> descriptors = {{inspector.descriptor(), POLLIN, 0}};
    std::optional<Duration> left;
    if (const auto deadline = inspector.deadline()) {
      left = std::max(Duration(*deadline - machine.now()), Duration::zero());
    }
    machine.wait(descriptors, left);
    inspector.advance(machine.now());
  }
}

} // namespace trovik
