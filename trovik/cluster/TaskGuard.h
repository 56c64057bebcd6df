#pragma once

#include "host/foundation/Descriptor.h"

#include <chrono>
#include <string>
#include <sys/types.h>

namespace trovik {

/// Sees to it that a task's program does not outlive the task, or its sense.
///
/// A cluster ends what is left of a job where it keeps all its processes in a
/// container, but not every site does: there, a program in its own process
/// group goes on when only its task is killed. And where a task stands still
/// (stopped, or stuck in a file system that does not answer) another process
/// takes over its work, so that its program works for nobody.
///
/// A small process of our own therefore waits at a pipe. When the pipe closes
/// while a program is at work, or nothing comes for as long as the others wait,
/// it kills what carries the program's mark. The system's own means, a signal
/// at the parent's death, must be set between fork and exec, which programs
/// that are started with posix_spawn never pass; and it reaches no children of
/// a program. The process keeps no file of ours open and ends with the task.
class TaskGuard {
public:
  /// Forks: to be called before there are threads. Where that fails there is a
  /// warning, and no guard.
  TaskGuard();
  /// Waits for the guard's end, and so for that of a program that is still at
  /// work.
  ~TaskGuard();
  TaskGuard(const TaskGuard&) = delete;
  TaskGuard& operator=(const TaskGuard&) = delete;

  /// A program with this mark (in TROVIK_ATTEMPT; no white space) is about to
  /// run. It is killed when there is no beat for so long.
  void begin(const std::string& mark, std::chrono::seconds patience);
  void beat();
  /// It has ended, and whoever it left behind may stay.
  void end();

private:
  void tell(const std::string& line);

  Descriptor pipe_;
  pid_t process_ = -1;
};

} // namespace trovik
