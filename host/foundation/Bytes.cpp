#include "host/foundation/Bytes.h"

#include "host/foundation/Format.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string>

String BytesText(std::int64_t bytes) {
  constexpr std::array<const char*, 7> k_Units = {"bytes", "kB", "MB", "GB", "TB", "PB", "EB"};
  constexpr double k_Step = 1000;
  auto value = static_cast<double>(std::max<std::int64_t>(bytes, 0));
  std::size_t unit = 0;
  // What would be rounded to a thousand is one of the next.
  while (value >= k_Step - 0.5 && unit + 1 < k_Units.size()) {
    value /= k_Step;
    ++unit;
  }
  String text = SFormat(value < 99.95 ? "%.1f" : "%.0f", value);
  if (text.ends_with(".0")) {
    text.erase(text.size() - 2);
  }
  return text + " " + k_Units.at(unit);
}

std::int64_t MachineMemory() {
  const std::int64_t pages = sysconf(_SC_PHYS_PAGES);
  const std::int64_t size = sysconf(_SC_PAGESIZE);
  return pages > 0 && size > 0 ? pages * size : 0;
}

namespace {

// "max", and numbers that no machine has, stand for no limit.
std::int64_t LimitIn(const std::string& file) {
  constexpr std::int64_t k_None = std::int64_t{1} << 60;
  std::ifstream stream(file);
  std::int64_t limit = 0;
  return stream >> limit && limit > 0 && limit < k_None ? limit : 0;
}

struct GroupForm {
  const char* Limit;
  const char* Used;
  const char* Cache; // what of it the kernel gives back, in memory.stat
};
constexpr GroupForm k_Unified = {"memory.max", "memory.current", "inactive_file "};
constexpr GroupForm k_Legacy = {"memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file "};

std::int64_t CacheIn(const std::string& file, const std::string& key) {
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    if (line.starts_with(key)) {
      return std::strtoll(line.c_str() + key.size(), nullptr, 10);
    }
  }
  return 0;
}

// Of a group and of all those that it is in.
void LookAbove(const std::string& mount, std::string group, const GroupForm& form, GroupMemory& least) {
  for (;;) {
    const std::string folder = mount + group + '/';
    if (const std::int64_t limit = LimitIn(folder + form.Limit); limit > 0) {
      std::ifstream stream(folder + form.Used);
      std::int64_t used = 0;
      stream >> used;
      used -= CacheIn(folder + "memory.stat", form.Cache);
      const std::int64_t free = std::clamp<std::int64_t>(limit - used, 0, limit);
      least.Free = least.Limit == 0 ? free : std::min(least.Free, free);
      least.Limit = least.Limit == 0 ? limit : std::min(least.Limit, limit);
    }
    if (group.empty() || group == "/") {
      return;
    }
    group.erase(group.rfind('/'));
  }
}

} // namespace

GroupMemory GroupMemoryNow(const Path& groups, const Path& mount) {
  GroupMemory least;
  std::ifstream stream(groups.c_str());
  for (std::string line; std::getline(stream, line);) { // "4:memory,cpu:/a/b", or "0::/a/b"
    const std::size_t first = line.find(':');
    const std::size_t second = line.find(':', first == std::string::npos ? first : first + 1);
    if (second == std::string::npos || second + 1 >= line.size() || line[second + 1] != '/') {
      continue;
    }
    const std::string controllers = ',' + line.substr(first + 1, second - first - 1) + ',';
    const std::string group = line.substr(second + 1);
    if (controllers == ",,") {
      LookAbove(mount.Text(), group, k_Unified, least);
    } else if (controllers.find(",memory,") != std::string::npos) {
      LookAbove(mount.Text() + "/memory", group, k_Legacy, least);
    }
  }
  return least;
}

std::int64_t GroupMemoryLimit(const Path& groups, const Path& mount) {
  return GroupMemoryNow(groups, mount).Limit;
}
