#include "trovik/machine/Slices.h"

#include <sys/syscall.h>
#include <unistd.h>

// A thread that is woken takes the processor of one that runs only where it is
// owed time, and waits for the end of that one's slice else. With works of a
// millisecond on as many slots as processors, both programs then end before the
// engine gets a turn, and one slot after the other is filled while a processor has
// nothing to do: 25 to 29 % of the time, once it has come to that. A shorter slice
// makes its turn come sooner: 16 to 18 %.

namespace trovik {
namespace {

constexpr std::uint64_t shortest = 100'000; // nanoseconds: what the kernel takes
constexpr std::uint64_t resetOnFork = 1;

/// As the system call knows it; the C library has it only since its release 2.41.
struct Attributes {
  std::uint32_t size = sizeof(Attributes);
  std::uint32_t policy = 0;
  std::uint64_t flags = 0;
  std::int32_t nice = 0;
  std::uint32_t priority = 0;
  std::uint64_t runtime = 0;
  std::uint64_t deadline = 0;
  std::uint64_t period = 0;
};

bool read(pid_t thread, Attributes& attributes) {
  return syscall(SYS_sched_getattr, thread, &attributes, sizeof(attributes), 0) == 0;
}

} // namespace

Scheduling schedulingOf(pid_t thread) {
  Attributes attributes;
  if (!read(thread, attributes)) {
    return {};
  }
  return {attributes.policy, attributes.nice, attributes.runtime};
}

void wishForShortSlices() {
  Attributes attributes;
  if (!read(0, attributes) || attributes.policy != 0 || attributes.nice < 0 ||
      attributes.runtime <= shortest) {
    return; // a kernel that tells of no slice has none to be set
  }
  attributes.size = sizeof(attributes);
  attributes.flags = resetOnFork;
  attributes.runtime = shortest;
  syscall(SYS_sched_setattr, 0, &attributes, 0); // a wish
}

} // namespace trovik
