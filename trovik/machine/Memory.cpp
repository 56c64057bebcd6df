#include "trovik/machine/Memory.h"

#include "host/foundation/Bytes.h"
#include "host/foundation/Descendants.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <unistd.h>

namespace trovik {
namespace {

/// The bytes of a process that lie in memory; 0 where it is gone.
std::int64_t residentOf(pid_t process) {
  std::ifstream stream("/proc/" + std::to_string(process) + "/statm");
  std::int64_t size = 0;
  std::int64_t resident = 0;
  return stream >> size >> resident ? resident * sysconf(_SC_PAGESIZE) : 0;
}

void addUsed(std::map<int, std::int64_t>& used) {
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc", error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    pid_t process = 0;
    const auto read = std::from_chars(name.data(), name.data() + name.size(), process);
    ProcessFacts facts;
    if (read.ec != std::errc() || read.ptr != name.data() + name.size() ||
        !ReadProcessFacts(process, facts)) {
      continue;
    }
    if (const auto group = used.find(facts.Group); group != used.end()) {
      group->second += residentOf(process);
    }
  }
}

} // namespace

MemoryNow memoryNow(const std::vector<int>& groups) {
  MemoryNow memory;
  std::ifstream stream("/proc/meminfo");
  constexpr std::int64_t unit = 1024;
  std::string key;
  for (std::int64_t value = 0; stream >> key >> value; stream.ignore(100, '\n')) {
    if (key == "MemTotal:") {
      memory.total = value * unit;
    } else if (key == "MemAvailable:") {
      memory.available = value * unit;
    }
  }
  if (const GroupMemory group = GroupMemoryNow(); group.Limit > 0) {
    memory.total = memory.total == 0 ? group.Limit : std::min(memory.total, group.Limit);
    memory.available = memory.available == 0 ? group.Free : std::min(memory.available, group.Free);
  }
  for (const int group : groups) {
    memory.used.emplace(group, 0);
  }
  if (!groups.empty()) {
    addUsed(memory.used);
  }
  return memory;
}

} // namespace trovik
