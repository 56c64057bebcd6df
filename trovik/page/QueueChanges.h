#pragma once

#include "host/foundation/Descriptor.h"
#include "trovik/queue/Queue.h"

#include <cstdint>
#include <map>
#include <vector>

namespace trovik {

/// When what a queue holds changed the last time that it was looked at. A
/// revision is a number that grows with each change that is seen, also from one
/// start of the program to the next, so that who kept one of before knows that
/// it is an old one.
struct Revisions {
  std::int64_t first = 0; ///< of what has not changed since the beginning
  std::int64_t last = 0;
  std::map<JobId, std::int64_t> jobs; ///< of those that have

  std::int64_t of(JobId job) const;
  /// What is newer than a revision, for somebody who knows all until then.
  Revisions since(std::int64_t revision) const;
  /// Adds what somebody else has seen since.
  void add(const Revisions& newer);
};

/// What has changed in a queue, and when.
class QueueChanges {
public:
  /// `first` is the revision to begin with.
  QueueChanges(Queue& queue, std::int64_t first);

  struct Change {
    std::vector<JobId> jobs; ///< that have changed, came or went; ascending
    bool machine = false;    ///< engines, what they run, limits
    bool any() const { return machine || !jobs.empty(); }
    /// This one, and then the other.
    void add(const Change& next);
  };
  /// What has changed since the last call. Cheap where nothing has.
  Change update();
  /// The same, and whether an engine has died meanwhile: which it does without
  /// a word to the queue.
  Change updateWithEngines();

  const Revisions& revisions() const { return revisions_; }

private:
  Change compare(bool jobs);

  Queue& queue_;
  Revisions revisions_;
  std::int64_t version_;
  std::map<JobId, std::uint64_t> marks_;
  std::uint64_t machine_ = 0;
};

/// Wakes a poll loop when somebody writes to the queue: by the kernel's word
/// that the write-ahead log of the database has changed. Where the kernel gives
/// none, the descriptor is -1.
class QueueWatch {
public:
  explicit QueueWatch(const Path& directory);
  int descriptor() const { return notify_.Number(); }
  /// Whether there was such a word since the last call.
  bool take();

private:
  Descriptor notify_;
};

} // namespace trovik
