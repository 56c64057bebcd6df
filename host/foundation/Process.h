#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

/// Everything that starting a program takes.
struct ProcessStart {
  /// The argument vector. The first is the program: a path, counted from the
  /// start directory, or a name to look up along our own PATH.
  std::vector<String> Arguments;
  /// The directory to start in; empty for the caller's own. An absolute one is
  /// also the program's PWD, unless the changes to the environment say another.
  Path StartDirectory;
  /// Changes to the inherited environment, applied in order: set a variable,
  /// or remove it where the value is absent. LC_ALL=C.UTF-8 and the removal of
  /// LANGUAGE come before them, since output rules follow the messages'
  /// language.
  std::vector<std::pair<String, std::optional<String>>> Environment;
};

/// How a program ended.
struct ProcessExit {
  int Code = 0;   ///< the exit code, or 128 + signal
  int Signal = 0; ///< the signal that killed it, or 0
};

/// A running external program in a process group of its own, with standard
/// input from /dev/null, standard output and error through one pipe, and none
/// of our other descriptors. Started with posix_spawn; no shell is involved.
///
/// The object belongs to one thread. Destroying one that still runs kills its
/// group and reaps it. The host must not ignore SIGCHLD.
///
/// One that was started detached only tells its Id: both descriptors are -1,
/// Wait gives false, Terminate and Kill do nothing.
class Process {
public:
  enum Flags : unsigned int {
    k_Detached = 16, ///< runs on by itself in a session of its own, output to /dev/null; leaves no zombie
  };

  /// Splits the command line into words and starts it. Raises Exception* when
  /// the line is malformed or empty, or the program cannot be started.
  Process(const String& commandLine, unsigned int flags, const Path& startDirectory);
  /// Starts a program with its output piped here. Raises Exception* with the
  /// program's name and the system's reason.
  explicit Process(const ProcessStart& start);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t Id() const { return m_Id; }

  /// Readable (poll) when output waits or has ended; -1 after the end was read.
  int OutputDescriptor() const { return m_Output; }
  /// Readable (poll) when the program has ended (a pidfd); -1 once reaped.
  int ExitDescriptor() const { return m_ExitWatch; }

  /// Reads output that waits, without blocking. More than 0: bytes read; 0:
  /// the output has ended (the descriptor is closed); -1: nothing waits now.
  ssize_t ReadOutput(char* buffer, std::size_t size);

  /// Reaps the program if it has ended; true and the result then, and on every
  /// later call. With `block` it waits for the end. What is left of its group
  /// is killed first, so that nothing goes on writing after it. Raises
  /// Exception* when the system cannot tell (SIGCHLD is ignored).
  bool Wait(ProcessExit& result, bool block);

  /// Asks the whole group to end (TERM), and continues stopped members so that
  /// they can. Safe at any time until the destructor; never reaches another
  /// process that was given the same number.
  void Terminate();
  /// Ends the whole group at once (KILL).
  void Kill();

private:
  void Start(const ProcessStart& start);
  void Signal(int number);

  pid_t m_Id = -1;
  int m_Output = -1;
  int m_ExitWatch = -1;
  bool m_Detached = false;
  bool m_Reaped = false;
  ProcessExit m_Exit;
};

/// The environment that a program is started with: ours with the changes
/// applied, as NAME=VALUE texts. Raises Exception* for a name or value that no
/// environment can hold.
std::vector<String> BuildEnvironment(const std::vector<std::pair<String, std::optional<String>>>& changes);

/// The texts as exec and posix_spawn want them, with the null at the end. They
/// point into `texts`.
std::vector<char*> PointersTo(const std::vector<String>& texts);
