#pragma once

#include "host/foundation/Descriptor.h"
#include "host/foundation/Path.h"
#include "trovik/cluster/JobFolder.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace trovik::fake {

/// Seconds of the site's clock.
using Time = double;

enum class State : std::int32_t {
  Pending,
  Running,
  Completed,
  Failed,
  NodeFail,
  Canceled,       ///< while it ran
  CanceledUnseen, ///< before it began: told of as one line for the whole array
};

/// As it lies in the array's file.
struct Task {
  State state = State::Pending;
  std::int32_t node = 0;
  std::int32_t restarts = 0;
  std::int32_t waitStatus = 0;
  std::int32_t held = 0;
  std::int32_t place = 0; ///< of its works: the one that it is at
  std::int32_t claim = 0; ///< of that one; 0 before it
  std::int32_t beats = 0; ///< of that one
  Time started = 0;
  Time worked = 0; ///< that place since
  Time beaten = 0; ///< the last beat
  Time ended = 0;
};

struct Array {
  std::int64_t id = 0;
  std::string name;
  std::string folder; ///< of the array job; empty: its tasks have nothing to do
  int throttle = 0;
  std::size_t perTask = 1;
  std::size_t works = 0;
  std::vector<Task> tasks;
  bool changed = true;
  std::optional<ArrayPlan> plan; ///< read when it is wanted
};

/// Whether a site may be changed. One that is only looked at lets others
/// change it meanwhile, where its nodes are apart.
enum class Access { Change, Look };

/// A site of a cluster that is not there, in a directory: its list of jobs, its
/// clock and its nodes. An object has the directory for itself as long as it
/// lives; its destructor keeps nothing, `save` does.
///
/// What it is like is told by the file "settings" of KEY=VALUE lines, else by
/// variables FAKE_SLURM_KEY:
///
///   slots=100        tasks that run at a time
///   duration=30      seconds of a work, more or less
///   spread=0.2       how much more or less, as a part
///   beat=5           seconds between the signs of life of a work
///   min_age=300      seconds after which an ended task is forgotten
///   array_size=1001, job_count=10000, cpus=16, memory=64000   the site's own
///   nodes=apart      only "site step" and "site run" let time pass for tasks;
///                    so nobody who asks waits for their files
///
/// The clock is the file "now" (seconds) if it is there, else the time since
/// the site was first asked.
class Site {
public:
  Site(Path directory, Access access);

  double setting(const std::string& key, double standard) const;
  bool hasSwitch(const std::string& name) const;
  Path file(const std::string& name) const;
  Time now() const { return now_; }
  bool isApart() const { return isSet("nodes", "apart"); }

  std::vector<Array>& arrays() { return arrays_; }
  Array* find(std::int64_t id);
  std::int64_t add(Array array);
  /// Tasks that the list of jobs holds.
  std::size_t size() const;

  /// Ends a task from outside.
  void cancel(Array& array, Task& task);
  /// Lets everything happen that was to happen until now.
  void advance();
  void save();

private:
  bool isSet(const std::string& key, const std::string& value) const;
  void lock();
  void load();
  Time durationOf(const Array& array, std::size_t place) const;
  Time endOf(const Array& array, const Task& task, std::size_t index) const;
  void start(Time at);
  void work(Array& array, std::size_t index, Time at);
  void end(Array& array, Task& task, State state, Time at);
  std::size_t slots() const;

  Path directory_;
  Descriptor lock_;
  std::vector<std::pair<std::string, std::string>> settings_;
  Time now_ = 0;
  std::vector<Array> arrays_;
  bool added_ = false;
};

} // namespace trovik::fake
