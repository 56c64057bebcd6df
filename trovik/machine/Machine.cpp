#include "trovik/machine/Machine.h"

#include <algorithm>
#include <ctime>
#include <thread>

namespace trovik {
namespace {

// Between two checks for descendants that have ended while their program runs on.
constexpr Duration reapTime = std::chrono::seconds(1);

} // namespace

LocalMachine::LocalMachine() {
  AdoptDescendants();
}

std::unique_ptr<Program> LocalMachine::start(const ProcessStart& start) {
  return std::make_unique<Process>(start);
}

std::size_t LocalMachine::processors() const {
  return std::max(std::thread::hardware_concurrency(), 1U);
}

void LocalMachine::wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) {
  waitBeside(descriptors, timeout);
  if (const Clock::time_point time = now(); time >= reaped_ + reapTime) {
    reaped_ = time;
    ReapAdopted();
  }
}

void LocalMachine::waitBeside(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) {
  timespec longest{};
  if (timeout) {
    const auto whole = std::max(*timeout, Duration::zero());
    longest.tv_sec =
        static_cast<std::time_t>(std::chrono::duration_cast<std::chrono::seconds>(whole).count());
    longest.tv_nsec = static_cast<long>((whole % std::chrono::seconds(1)).count());
  }
  if (ppoll(descriptors.data(), descriptors.size(), timeout ? &longest : nullptr, nullptr) < 0) {
    // Interrupted by a signal: its descriptor is checked on the next turn.
    for (pollfd& descriptor : descriptors) {
      descriptor.revents = 0;
    }
  }
}

} // namespace trovik
