#pragma once

#include "host/foundation/Process.h"

#include <chrono>
#include <memory>
#include <optional>
#include <poll.h>
#include <vector>

namespace trovik {

using Clock = std::chrono::steady_clock;
using Duration = std::chrono::nanoseconds;

/// A running program as the engine sees it; see Process for each operation.
class Program {
public:
  virtual ~Program() = default;
  virtual pid_t id() const = 0;
  virtual int outputDescriptor() const = 0;
  virtual int exitDescriptor() const = 0;
  virtual ssize_t readOutput(char* buffer, std::size_t size) = 0;
  /// Whether the program has ended, and how; never waits.
  virtual bool ended(ProcessExit& exit) = 0;
  virtual void terminate() = 0;
  virtual void kill() = 0;
};

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
};

/// This machine.
class LocalMachine final : public Machine {
public:
  Clock::time_point now() override { return Clock::now(); }
  std::unique_ptr<Program> start(const ProcessStart& start) override;
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override;
};

} // namespace trovik
