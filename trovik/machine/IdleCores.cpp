#include "trovik/machine/IdleCores.h"

#include "host/foundation/Descriptor.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace trovik {

std::size_t idleCores(std::size_t own, std::size_t all, std::size_t usable, const char* loads) {
  std::size_t running = 0;
  if (std::sscanf(loads, "%*s %*s %*s %zu/", &running) != 1) {
    return 1;
  }
  const std::size_t others = running - std::min(running, own + 1);
  return std::max<std::size_t>(std::min(usable, all - std::min(all, others)), 1);
}

std::size_t idleCores(std::size_t own) {
  const long all = sysconf(_SC_NPROCESSORS_ONLN);
  cpu_set_t set;
  CPU_ZERO(&set);
  // It fails where there are more cores than the set has places.
  const int usable = sched_getaffinity(0, sizeof set, &set) == 0 ? CPU_COUNT(&set) : CPU_SETSIZE;
  std::array<char, 128> loads{};
  const Descriptor file(open("/proc/loadavg", O_RDONLY | O_CLOEXEC));
  if (all < 1 || !file.IsOpen() || read(file.Number(), loads.data(), loads.size() - 1) <= 0) {
    return 1;
  }
  return idleCores(own, static_cast<std::size_t>(all), static_cast<std::size_t>(usable), loads.data());
}

} // namespace trovik
