#include "host/foundation/Bytes.h"

#include "host/foundation/Format.h"

#include <unistd.h>

#include <algorithm>
#include <array>

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
