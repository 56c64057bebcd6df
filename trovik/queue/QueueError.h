#pragma once

#include <string>

namespace trovik {

/// Thrown by value where the queue cannot be used now: the disk is full, the
/// database is locked for too long, damaged, or of a newer version.
struct QueueError {
  enum class Kind { Full, Busy, Damaged, Other };
  Kind kind = Kind::Other;
  std::string message; ///< names the file and the reason
  std::string hint;    ///< what to do

  /// Whether the same call may succeed later: a full disk, a lock held long.
  bool passes() const { return kind == Kind::Full || kind == Kind::Busy; }
};

} // namespace trovik
