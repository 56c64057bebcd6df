#pragma once

#include "trovik/machine/Machine.h"
#include "trovik/works/Attempt.h"

#include "host/foundation/Descriptor.h"

#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace trovik {

/// Threads that wait for programs beside the one of an engine, each for one at a
/// time, and take a turn when theirs has ended; see Watchers.cpp.
///
/// All of an engine is behind one lock, so only one of them has a turn, or the
/// engine's own thread, which calls everything here with the lock held.
class Watchers {
public:
  /// What a thread does, with the lock held, when its attempt may go on. Returns
  /// the one to wait for next, or null. What it throws ends that thread.
  using Turn = std::function<Attempt*(Attempt&)>;

  /// So many threads at most, of which each is started when it is needed first.
  Watchers(Machine& machine, std::size_t most, Turn turn);
  /// Ends the threads. To be called without the lock.
  ~Watchers();
  Watchers(const Watchers&) = delete;
  Watchers& operator=(const Watchers&) = delete;

  std::unique_lock<std::mutex> lock() { return std::unique_lock(mutex_); }

  /// From now on a thread waits for it; false where none is free.
  bool lend(Attempt& attempt);
  /// From now on no thread waits for any attempt.
  void takeBack();
  bool watches(const Attempt& attempt) const;

  /// Wakes the engine's own thread, by a descriptor that becomes readable.
  void callOwner() { ring(call_); }
  int descriptor() const { return call_.Number(); }
  /// Takes a call. Throws what a turn has thrown.
  void takeCall();

private:
  struct Watcher {
    Descriptor call;
    Attempt* attempt = nullptr;
    std::thread thread;
  };

  static void ring(const Descriptor& call);
  static void hush(const Descriptor& call);
  void work(Watcher& watcher);
  void takeTurns(Watcher& watcher);
  bool await(const Watcher& watcher, const Attempt& attempt, std::unique_lock<std::mutex>& lock);

  Machine& machine_;
  std::size_t most_;
  Turn turn_;
  std::mutex mutex_;
  Descriptor call_;
  std::list<Watcher> watchers_; // whose places stay
  std::exception_ptr problem_;
  bool isOver_ = false;
};

} // namespace trovik
