#pragma once

#include "host/application/jobs/RenderJob.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Machine.h"

#include <map>
#include <memory>
#include <string>

namespace trovik {

/// Inspects all files of a work before its job judges them, so that the
/// judging itself need not wait: asks the inspector for each when it is made,
/// and knows the answers once it is over. May be destroyed at any time.
class FileInspection : public WorkObserver {
public:
  FileInspection(ImageInspector& inspector, const RenderJob& job);

  bool isOver() const { return state_->open == 0; }
  /// What is wrong with a file; empty for nothing, and for a file that was not
  /// inspected. As the job's observer it hands that to its judging.
  String OnCheckFile(const Job& job, const Path& file) override;

private:
  struct State {
    std::size_t open = 0;
    std::map<std::string, std::string> problems;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

/// Whether a file is there and holds something.
bool isFilled(const Path& file);

/// Waits until it is over, doing nothing else meanwhile.
void waitFor(const FileInspection& inspection, ImageInspector& inspector, Machine& machine);

} // namespace trovik
