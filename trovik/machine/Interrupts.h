#pragma once

#include "host/foundation/Descriptor.h"

namespace trovik {

/// The user's wish to stop, seen as a descriptor among others.
class InterruptSource {
public:
  virtual ~InterruptSource() = default;
  /// Readable (poll) when the user asked to stop; -1 when nobody can.
  virtual int descriptor() const = 0;
  /// How often the user asked since the last call.
  virtual int take() = 0;
  /// Whether one of them came from the keyboard: the user does not want the
  /// work any more, while the system's wishes say nothing about that.
  virtual bool byUser() const = 0;
};

/// SIGINT, SIGTERM and SIGHUP of this process, while the object lives. A
/// signal that was ignored when the program started (nohup) stays ignored.
/// Handlers, not a signal mask: programs that are started meanwhile get the
/// default dispositions back by themselves. The second wish ends this process
/// within a second by that signal, unless its owner is done before. At most one
/// object at a time.
class SignalInterrupts final : public InterruptSource {
public:
  /// How the program ends when it was asked to.
  enum class Ending {
    BySignal, ///< by that signal, see endAsAsked
    ByCode,   ///< like any other time
  };

  explicit SignalInterrupts(Ending ending = Ending::BySignal);
  ~SignalInterrupts() override;
  SignalInterrupts(const SignalInterrupts&) = delete;
  SignalInterrupts& operator=(const SignalInterrupts&) = delete;

  int descriptor() const override { return read_.Number(); }
  int take() override;
  bool byUser() const override { return byUser_; }

private:
  Ending ending_;
  bool byUser_ = false;
  Descriptor read_;
  Descriptor write_;
};

/// Ends this process by the signal that asked it to end, if one did and a
/// SignalInterrupts took it: only so a shell sees that its own loop is to end,
/// too. To be called when all is in order and nothing is left to be done.
void endAsAsked();

/// Writing to a pipe that nobody reads any more, or beyond the largest size that
/// files may have here, gives an error instead of ending this process. Programs
/// that are started keep the default. Standard descriptors that are closed are
/// opened for nothing, so that no file of ours gets the number of an output.
void surviveFailedWrites();

} // namespace trovik
