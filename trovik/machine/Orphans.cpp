#include "trovik/machine/Machine.h"

#include <csignal>
#include <ctime>
#include <unistd.h>

// Finding the processes of an attempt whose engine was killed.
//
// They were nobody's children from then on, and a number proves nothing: it may
// have been given to another process since. What proves it is the mark that
// every attempt has, which children inherit whatever group or terminal they
// move to. Where a program lost it all the same, it is found by its process
// group, as long as the group's leader lives and is as old as the attempt.

namespace trovik {
namespace {

/// When a process was started, by the wall clock.
std::chrono::system_clock::time_point startOf(const ProcessFacts& facts) {
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  const double uptime = static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) / 1e9;
  const double age =
      uptime - static_cast<double>(facts.StartTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  return std::chrono::system_clock::now() -
         std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(age));
}

bool isGroupOf(const Orphans& orphans) {
  ProcessFacts leader;
  if (orphans.group <= 1 || !ReadProcessFacts(orphans.group, leader) || leader.Group != orphans.group) {
    return false;
  }
  const auto difference = startOf(leader) - orphans.since;
  return difference > std::chrono::seconds(-3) && difference < std::chrono::seconds(3);
}

} // namespace

std::vector<pid_t> LocalMachine::killOrphans(const Orphans& orphans) {
  const bool groupIsTheirs = isGroupOf(orphans);
  const auto isOne = [&](pid_t process) {
    ProcessFacts facts;
    return (groupIsTheirs && ReadProcessFacts(process, facts) && facts.Group == orphans.group) ||
           CarriesMark(process, String(orphans.mark));
  };
  return SignalProcesses(isOne, SIGKILL);
}

} // namespace trovik
