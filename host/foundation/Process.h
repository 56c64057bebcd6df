#pragma once

#include "host/foundation/Descendants.h"
#include "host/foundation/Path.h"
#include "host/foundation/String.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
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
  /// What tells this program and all that it starts from others; see
  /// Descendants.h. Empty for none.
  String Mark;
};

/// What a program has used, with all that it started and waited for, as the
/// kernel tells it when the program has ended.
struct ProcessUsage {
  std::int64_t UserTime = 0;   ///< microseconds of processors, in programs
  std::int64_t SystemTime = 0; ///< the same, in the kernel
  /// Bytes that the largest of its processes held at a time; never less than
  /// this process did when it started the program.
  std::int64_t PeakMemory = 0;
  std::optional<std::int64_t> BytesRead{}; ///< from disks and file servers; what was in memory does not count
  std::optional<std::int64_t> BytesWritten{}; ///< to them, sooner or later
  bool operator==(const ProcessUsage&) const = default;
};

/// How a program ended.
struct ProcessExit {
  int Code = 0;                        ///< the exit code, or 128 + signal
  int Signal = 0;                      ///< the signal that killed it, or 0
  std::optional<ProcessUsage> Usage{}; ///< nothing where it is not known
};

/// A running program, as whoever watches over it sees it. Belongs to one thread.
class Program {
public:
  virtual ~Program() = default;
  virtual pid_t Id() const = 0;
  /// Readable (poll) when output waits or has ended; -1 after the end was read.
  virtual int OutputDescriptor() const = 0;
  /// Readable (poll) when the program has ended, and after that when one of
  /// those that it left behind has; -1 when there is nobody to wait for.
  virtual int ExitDescriptor() const = 0;
  /// Reads output that waits, without blocking. More than 0: bytes read; 0:
  /// the output has ended; -1: nothing waits now.
  virtual ssize_t ReadOutput(char* buffer, std::size_t size) = 0;
  /// True and the result when the program has ended, and on every later call.
  /// With `block` it waits for the end.
  virtual bool Wait(ProcessExit& result, bool block) = 0;
  /// What is there of the program and all that it has started, as far as it
  /// is known: the program itself until it has ended, then what it left behind.
  virtual std::vector<pid_t> Remaining() = 0;
  /// Asks the program and all that it has started to end.
  virtual void Terminate() = 0;
  /// Ends all of them at once.
  virtual void Kill() = 0;
};

/// A running external program in a process group of its own, with standard
/// input from /dev/null, standard output and error through one pipe, and none
/// of our other descriptors. No shell is involved.
///
/// The object belongs to one thread. Destroying one that still runs kills it
/// and reaps it, but waits no longer than a second for one that cannot end. The
/// host must not ignore SIGCHLD.
///
/// What left the group is reached where the start names a mark; it is known
/// after the program's end where this process adopts descendants.
///
/// One that was started detached only tells its Id: both descriptors are -1,
/// Wait gives false, Terminate and Kill do nothing.
class Process final : public Program {
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
  ~Process() override;
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t Id() const override { return m_Id; }
  int OutputDescriptor() const override { return m_Output; }
  int ExitDescriptor() const override { return m_ExitWatch; }
  ssize_t ReadOutput(char* buffer, std::size_t size) override;
  /// Kills what is left of the group before it reaps the program, so that
  /// nothing of it goes on writing. Raises Exception* when the system cannot
  /// tell (SIGCHLD is ignored).
  bool Wait(ProcessExit& result, bool block) override;
  std::vector<pid_t> Remaining() override;
  /// TERM, and stopped ones are continued so that they can end. Safe at any
  /// time until the destructor; never reaches another process that was given
  /// the same number.
  void Terminate() override;
  void Kill() override;

private:
  void Start(const ProcessStart& start);
  void Signal(int number);
  void SignalGroup(int number);
  void Watch(pid_t process);

  pid_t m_Id = -1;
  int m_Output = -1;
  int m_ExitWatch = -1;
  bool m_Enlarged = false; // the pipe
  bool m_Detached = false;
  bool m_Reaped = false;
  bool m_Gone = false; // with all that it has started
  ProcessExit m_Exit;
  std::optional<Descendants> m_Descendants;
};

/// The environment that a program is started with: ours with some changes. It
/// points into ours, so that must not be changed before the start.
class Environment {
public:
  /// Names, and their new values; nothing where a variable is to be removed.
  using Changes = std::vector<std::pair<String, std::optional<String>>>;

  /// Raises Exception* for a name or value that no environment can hold.
  explicit Environment(const Changes& changes);
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  /// NAME=VALUE texts, as exec wants them, with the null at the
  /// end. As long as this object.
  char* const* Pointers() const { return m_Entries.data(); }

private:
  void Apply(const String& name, const std::optional<String>& value);

  std::vector<String> m_Own; // with room for all from the start, so that their places stay
  std::vector<char*> m_Entries;
};

/// The texts as exec wants them, with the null at the end. They
/// point into `texts`.
std::vector<char*> PointersTo(const std::vector<String>& texts);
