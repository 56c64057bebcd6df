#include "trovik/machine/Slices.h"
#include "host/foundation/Process.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <thread>

namespace trovik {
namespace {

// In a thread of its own: what was wished for stays.
template <typename Action> void inThread(Action action) {
  std::thread(action).join();
}

ProcessStart sleeper() {
  ProcessStart start;
  start.Arguments = {"/bin/sleep", "600"};
  return start;
}

TEST(Slices, AreShorterWhereTheKernelHasAny) {
  inThread([] {
    const Scheduling before = schedulingOf();
    wishForShortSlices();
    const Scheduling after = schedulingOf();
    EXPECT_EQ(after.policy, before.policy);
    EXPECT_EQ(after.nice, before.nice);
    EXPECT_EQ(after.slice, before.slice == 0 ? 0 : std::min<std::uint64_t>(before.slice, 100'000));
    wishForShortSlices();
    EXPECT_EQ(schedulingOf(), after);
  });
}

TEST(Slices, OfProgramsAreAsBefore) {
  inThread([] {
    const Scheduling before = schedulingOf();
    wishForShortSlices();
    Process program(sleeper());
    EXPECT_EQ(schedulingOf(program.Id()), before);
  });
}

TEST(Slices, ANiceValueIsInherited) {
  inThread([] {
    ASSERT_EQ(setpriority(PRIO_PROCESS, 0, 7), 0); // of this thread
    wishForShortSlices();
    Process program(sleeper());
    EXPECT_EQ(schedulingOf(program.Id()).nice, 7);
    EXPECT_EQ(schedulingOf().nice, 7);
  });
}

} // namespace
} // namespace trovik
