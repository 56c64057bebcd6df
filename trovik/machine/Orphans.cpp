#include "trovik/machine/Machine.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/WholeNumber.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/syscall.h>
#include <sys/types.h>
#include <system_error>
#include <unistd.h>

// Finding the processes of an attempt whose engine was killed.
//
// They were nobody's children from then on, and a number proves nothing: it may
// have been given to another process since. What proves it is the mark that
// every attempt has in its environment, which children inherit whatever group
// or terminal they move to. A program that cleans its environment is found by
// its process group, as long as the group's leader lives and is as old as the
// attempt.
//
// Between finding and killing, a process may end and its number be given away.
// So a descriptor of it is taken first, then it is looked at again, and the
// signal goes through the descriptor.

namespace trovik {
namespace {

constexpr std::size_t environmentLimit = std::size_t{4} << 20;

std::string contentOf(const std::string& file, std::size_t limit) {
  std::ifstream stream(file, std::ios::binary);
  std::string text;
  char buffer[16384];
  while (text.size() < limit && (stream.read(buffer, sizeof buffer) || stream.gcount() > 0)) {
    text.append(buffer, static_cast<std::size_t>(stream.gcount()));
  }
  return text;
}

struct ProcessFacts {
  char state = '?';
  int group = 0;
  unsigned long long startTicks = 0; // since the machine started
};

bool readFacts(int process, ProcessFacts& facts) {
  const std::string text = contentOf("/proc/" + std::to_string(process) + "/stat", 4096);
  // The name in parentheses may hold anything, parentheses too.
  const std::size_t end = text.rfind(')');
  if (end == std::string::npos || end + 2 >= text.size()) {
    return false;
  }
  std::vector<std::string> fields;
  for (std::size_t at = end + 2; at < text.size();) {
    const std::size_t next = std::min(text.find(' ', at), text.size());
    fields.push_back(text.substr(at, next - at));
    at = next + 1;
  }
  constexpr std::size_t groupField = 2;
  constexpr std::size_t startField = 19;
  if (fields.size() <= startField) {
    return false;
  }
  facts.state = fields[0].empty() ? '?' : fields[0].front();
  facts.group = std::atoi(fields[groupField].c_str());
  facts.startTicks = std::strtoull(fields[startField].c_str(), nullptr, 10);
  return true;
}

bool carriesMark(int process, const std::string& entry) {
  const std::string environment =
      '\0' + contentOf("/proc/" + std::to_string(process) + "/environ", environmentLimit) + '\0';
  return environment.find('\0' + entry + '\0') != std::string::npos;
}

/// When a process was started, by the wall clock.
std::chrono::system_clock::time_point startOf(const ProcessFacts& facts) {
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  const double uptime = static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) / 1e9;
  const double age =
      uptime - static_cast<double>(facts.startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
  return std::chrono::system_clock::now() -
         std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::duration<double>(age));
}

bool isGroupOf(const Orphans& orphans) {
  ProcessFacts leader;
  if (orphans.group <= 1 || !readFacts(orphans.group, leader) || leader.group != orphans.group) {
    return false;
  }
  const auto difference = startOf(leader) - orphans.since;
  return difference > std::chrono::seconds(-3) && difference < std::chrono::seconds(3);
}

} // namespace

std::size_t LocalMachine::killOrphans(const Orphans& orphans) {
  const std::string entry = "TROVIK_ATTEMPT=" + orphans.mark;
  const bool groupIsTheirs = isGroupOf(orphans);
  const auto isOne = [&](int process) {
    ProcessFacts facts;
    // What has ended and only waits to be reaped writes nothing any more.
    return readFacts(process, facts) && facts.state != 'Z' && facts.state != 'X' &&
           ((groupIsTheirs && facts.group == orphans.group) || carriesMark(process, entry));
  };
  std::size_t left = 0;
  std::error_code error;
  for (const auto& directory : std::filesystem::directory_iterator("/proc", error)) {
    const std::string name = directory.path().filename().string();
    const int process = ReadWholeNumber<int>(name).value_or(getpid());
    if (process == getpid() || !isOne(process)) {
      continue;
    }
    const Descriptor watched(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    if (!watched.IsOpen()) {
      continue; // it has just ended
    }
    if (isOne(process)) {
      syscall(SYS_pidfd_send_signal, watched.Number(), SIGKILL, nullptr, 0);
      ++left;
    }
  }
  return left;
}

} // namespace trovik
