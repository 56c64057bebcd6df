#pragma once

#include "host/foundation/Descriptor.h"
#include "trovik/records/Records.h"

#include <cstdint>
#include <map>
#include <optional>

namespace trovik {

/// The lock files of engines, "ID.lock" in a directory.
///
/// An engine holds the lock of its file (flock) for as long as it works. The
/// system frees it when the process ends, however it ends, so a free lock of
/// an engine that has not left says that it died; who then takes the lock is
/// the one who recovers its works. A number in a file could not say that: it
/// may be another process by now.
///
/// Programs do not inherit the locks, since the files are closed on exec.
class EngineLocks {
public:
  /// Files are made in the directory, which is made when it is needed.
  explicit EngineLocks(Path directory);

  /// Takes the engine's lock; false where somebody holds it, be it this object
  /// or another of this process. Throws QueueError where there can be no file.
  bool take(EngineId engine);
  /// Frees a lock that this object holds.
  void release(EngineId engine);
  /// Removes the file of an engine that is gone for good and frees its lock.
  void remove(EngineId engine);
  bool holds(EngineId engine) const { return held_.contains(engine); }
  /// Whether somebody else holds the lock. Asking never takes it from those
  /// who ask at the same time.
  bool isHeldElsewhere(EngineId engine) const;

  /// Puts a number into the file of an engine whose lock this object holds.
  /// Throws QueueError where it cannot. It outlives the process, not the machine.
  void note(EngineId engine, std::int64_t number);
  /// The number that was put there last, by whoever had the lock that this
  /// object holds; nothing where there is none.
  std::optional<std::int64_t> noted(EngineId engine) const;

  /// The lock of the cluster, "cluster.lock": the same for the right to submit
  /// to it. True also where this object holds it already.
  bool takeCluster();
  void releaseCluster() { cluster_ = Descriptor(); }

private:
  Path fileOf(EngineId engine) const;
  /// Open and locked; closed where somebody holds the lock.
  Descriptor lockOf(const Path& file) const;

  Path directory_;
  std::map<EngineId, Descriptor> held_;
  Descriptor cluster_;
};

} // namespace trovik
