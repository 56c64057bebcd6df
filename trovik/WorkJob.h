#pragma once

#include "host/application/Job.h"
#include "trovik/RunEvents.h"

#include <string>

namespace trovik {

/// Makes the job objects of a job's works: each a fresh object that unpacks
/// the job's stream, since an object remembers what it saw in the output.
class WorkMaker {
public:
  explicit WorkMaker(const Job& job);

  /// Raises Exception* when the stream cannot be read back.
  SmartHandle<Job> make(const WorkInfo& work) const;

private:
  UID type_;
  std::string packed_;
};

} // namespace trovik
