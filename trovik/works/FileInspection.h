#pragma once

#include "host/application/jobs/RenderJob.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/JobFiles.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace trovik {

/// Which of the files that are there are decoded, of those that were good when
/// the queue last heard of them.
enum class Decode {
  Changed,  ///< those that are not what they were then
  Doubtful, ///< and those whose times are too coarse to tell
  All,
};
inline bool isSpared(const FileRecord& good, Decode decode) {
  return decode == Decode::Changed    ? isAsRecorded(good)
         : decode == Decode::Doubtful ? isSurelyAsRecorded(good)
                                      : false;
}

/// Inspects files of a work before its job judges them, so that the
/// judging itself need not wait: asks the inspector for each when it is made,
/// and knows the answers once it is over. May be destroyed at any time. Files that
/// are known to be good are left out.
class FileInspection : public WorkObserver {
public:
  using IsKnown = std::function<bool(const std::string& file)>;
  FileInspection(ImageInspector& inspector, const RenderJob& job, const IsKnown& isKnown = {});

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
