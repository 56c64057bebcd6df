#pragma once

#include "host/foundation/Process.h"
#include "trovik/machine/Memory.h"

#include <chrono>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

namespace trovik {

using Clock = std::chrono::steady_clock;
using Duration = std::chrono::nanoseconds;

/// What is known of the processes of an attempt whose engine died.
struct Orphans {
  std::string mark;                              ///< in TROVIK_ATTEMPT of each
  int group = 0;                                 ///< their process group; 0 when unknown
  std::chrono::system_clock::time_point since{}; ///< when they were started, to a second or so
};

/// How long to wait between two calls of killOrphans.
constexpr Duration orphanTime = std::chrono::milliseconds(20);

/// The machine that works run on: its clock, its programs and the waiting for
/// them. The engine knows the world only through this, so its tests neither
/// start programs nor spend time.
class Machine {
public:
  virtual ~Machine() = default;
  virtual Clock::time_point now() = 0;
  /// Raises Exception* when the program cannot be started.
  virtual std::unique_ptr<Program> start(const ProcessStart& start) = 0;
  /// Waits until one of the descriptors is ready or the time is over; without
  /// a time only for descriptors.
  virtual void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) = 0;
  /// How many threads may wait side by side on its processors; 1 where all waiting
  /// is to be done by `wait`.
  virtual std::size_t processors() const { return 1; }
  /// Waits as `wait` does, but sees to nothing else meanwhile, so that threads may
  /// do it side by side.
  virtual void waitBeside(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) {
    wait(descriptors, timeout);
  }
  /// Kills what is left of those processes; those that are still there. To be
  /// called until there are none.
  virtual std::vector<pid_t> killOrphans(const Orphans& orphans) = 0;
  /// See memoryNow.
  virtual MemoryNow memory(const std::vector<int>& groups) = 0;
};

/// This machine. Whatever its programs leave behind becomes a child of this
/// process, so that it can be found; see Descendants.h.
class LocalMachine final : public Machine {
public:
  /// To be made by the first thread.
  LocalMachine();
  Clock::time_point now() override { return Clock::now(); }
  std::unique_ptr<Program> start(const ProcessStart& start) override;
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override;
  std::size_t processors() const override;
  void waitBeside(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override;
  std::vector<pid_t> killOrphans(const Orphans& orphans) override;
  MemoryNow memory(const std::vector<int>& groups) override { return memoryNow(groups); }

private:
  Clock::time_point reaped_{};
};

} // namespace trovik
