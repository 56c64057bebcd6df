#pragma once

#include "host/foundation/String.h"

#include <sys/resource.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// Which processes a program has started, and what they started, whatever they
// did to get away: a session or a group of their own, a clean environment, a
// parent that has ended. See Descendants.cpp for how they are known.

/// The environment variable that carries the mark of a program.
constexpr const char* k_MarkVariable = "TROVIK_ATTEMPT";

/// Makes this process the parent of descendants whose own parent has ended, for
/// as long as it lives. To be called by the thread that starts the programs,
/// which must be the first of the process.
void AdoptDescendants();

/// Whether a process carries the mark, in its limits or in its environment.
/// False for one that is not there, that is not ours to ask about, or that only
/// starts the program which is to carry it.
bool CarriesMark(pid_t process, const String& mark);

/// What one program starts: all that carries its mark. Belongs to the thread
/// that starts the program.
class Descendants {
public:
  /// The program itself is reaped by its owner, and first.
  Descendants(const String& mark, pid_t program);
  ~Descendants();
  Descendants(const Descendants&) = delete;
  Descendants& operator=(const Descendants&) = delete;

  /// Those that have lost their parent and still run, once the program has been
  /// reaped; costs one system call where there are none. Those that have ended
  /// are reaped. Empty where this process does not adopt.
  std::vector<pid_t> Adopted();
  /// Sends the signal to all that carry the mark, the program itself among
  /// them while it runs. Looks at every process of the machine.
  void Signal(int number);

private:
  String m_Mark;
  std::uint64_t m_Number;
  pid_t m_Program;
};

/// Reaps adopted processes that have ended, while their program still runs.
void ReapAdopted();

/// The limit of RLIMIT_RTTIME with which a program carries the number of that mark.
/// Where it cannot be set the mark in its environment has to do.
rlimit CarryingLimit(const String& mark);

/// Sends a signal to every process of this machine for which the question is
/// answered by true, and to no other that was given the same number meanwhile.
/// The ones that were found and may be signalled; those that have ended and
/// only wait to be reaped are not asked for.
std::vector<pid_t> SignalProcesses(const std::function<bool(pid_t)>& isOne, int signal);

/// What /proc tells of a process.
struct ProcessFacts {
  std::string Name;
  char State = '?'; ///< as in proc(5)
  int Group = 0;
  unsigned long long StartTicks = 0; ///< since the machine was started
};

/// False when it is not there.
bool ReadProcessFacts(pid_t process, ProcessFacts& facts);
