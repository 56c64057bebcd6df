#pragma once

#include "trovik/queue/Store.h"

#include <memory>
#include <string>

namespace trovik {

class Session;

/// A job as users name it: its number, or 0 for "last". Throws a UsageError
/// for any other text.
JobId jobNumber(const std::string& text);

/// The job of that name. Throws a UsageError for one that is not there.
JobRecord findJob(Store& store, const std::string& text);

/// The queue as the verbs about jobs see it. One that is not there yet is an
/// empty one: looking at it makes nothing. What has become of jobs on a cluster
/// is collected first.
class Queue {
public:
  explicit Queue(Session& session);
  explicit Queue(const Path& directory);

  /// Null where there is no queue yet.
  Store* store() { return store_.get(); }

  /// As findJob.
  JobRecord job(const std::string& text);

private:
  std::unique_ptr<Store> store_;
};

} // namespace trovik
