#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <sys/resource.h>
#include <sys/types.h>

#include <vector>

/// How a new process becomes a program. What is pointed to stays the caller's.
struct SpawnPlan {
  /// A path, counted from `Directory`, or a name to look up along our own PATH,
  /// as a shell does, but never read by one.
  String Program;
  char* const* Arguments = nullptr;
  char* const* Variables = nullptr; ///< NAME=VALUE
  Path Directory;                   ///< to start in; empty for the caller's
  int Output = -1;                  ///< descriptor for output and errors, or -1 for /dev/null
  const rlimit* RealTime = nullptr; ///< of RLIMIT_RTTIME, where it can be set
  bool OwnSession = false;          ///< and no terminal; otherwise a process group of its own
};

/// Starts a program with all signals as they are by default, standard input from
/// /dev/null, and no descriptor but the three of the standard. 0 and the number
/// of the new process, a child to be waited for, or the number of the error that
/// any step up to its first instruction met (errno.h): then there is no child.
/// May be called on every thread. Raises only std::bad_alloc.
int Spawn(const SpawnPlan& plan, pid_t& id);
