#pragma once

#include "host/application/Job.h"
#include "host/application/jobs/ExecutableSearch.h"
#include "trovik/records/RunEvents.h"

#include <memory>
#include <optional>
#include <string>

namespace trovik {

/// The module's parameter that holds the pattern of a sequence's scene files.
constexpr const char* sceneNameFormat = "SceneNameFormat";

/// A job's stream, as the queue keeps it.
std::string packedJob(const Job& job);

/// Makes the job objects of a job's works: each a fresh object that unpacks
/// the job's stream, since an object remembers what it saw in the output. They
/// share what the search for the newest program found, so that one program
/// renders them all.
class WorkMaker {
public:
  explicit WorkMaker(const Job& job);
  /// With what was found before for the same job, where that is given.
  WorkMaker(const UID& type, std::string packed, std::shared_ptr<ExecutableMemory> searches = nullptr);

  /// Raise Exception* when the type is not known or the stream cannot be read
  /// back.
  SmartHandle<Job> make(const WorkInfo& work) const { return make(work, makeWhole()); }
  /// The same of an object that was made ahead by `makeWhole`, and is used up.
  SmartHandle<Job> make(const WorkInfo& work, SmartHandle<Job> job) const;
  SmartHandle<Job> makeWhole() const;

private:
  UID type_;
  std::string packed_;
  mutable std::optional<bool> takesImages_; // whether it has the images of another job as a parameter
  std::shared_ptr<ExecutableMemory> searches_;
};

} // namespace trovik
