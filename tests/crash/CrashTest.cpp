// Kills the engine, its renderers and everything at once, at random moments of
// real runs, and proves each time that nothing is lost, nothing that was good
// is rendered again, no frame is rendered by two at once, and the queue is
// whole.

#include "tests/crash/CrashTest.h"

namespace trovik {
namespace {

TEST_F(CrashTest, EngineKilledAtAnyMomentLosesNothing) {
  killAgainAndAgain([](pid_t engine) { kill(engine, SIGKILL); });
}

TEST_F(CrashTest, ProgramsOfADeadEngineEndBeforeTheirFramesRunAgain) {
  constexpr int frames = 12;
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    // Each frame takes longer than it takes to start an engine anew, so what
    // goes on rendering would meet its successor.
    begin(frames, 4, "200");
    for (int round = 0; round < 10 && killed < kills; ++round) {
      const pid_t engine = start(engineWords(3));
      randomMoment(300);
      if (hasEnded(engine)) {
        break;
      }
      kill(engine, SIGKILL);
      waitFor(engine);
      ++killed;
    }
    finish(frames);
  }
}

TEST_F(CrashTest, TwoEnginesOneOfThemKilledShareOneQueue) {
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    begin(frameCount * 2, 4);
    std::vector<pid_t> pair = {start(engineWords()), start(engineWords())};
    for (std::size_t turn = 0; killed < kills; ++turn) {
      randomMoment(200);
      pid_t& victim = pair[turn % 2];
      if (hasEnded(victim)) {
        pair.erase(pair.begin() + static_cast<std::ptrdiff_t>(turn % 2));
        break;
      }
      kill(victim, SIGKILL);
      waitFor(victim);
      ++killed;
      checkQueue();
      victim = start(engineWords());
    }
    for (const pid_t engine : pair) {
      EXPECT_EQ(waitFor(engine), 0);
    }
    finish(frameCount * 2);
  }
}

TEST_F(CrashTest, MachineThatGoesDownLosesNothing) {
  killAgainAndAgain([this](pid_t engine) {
    kill(engine, SIGKILL);
    for (const pid_t program : programs()) {
      kill(program, SIGKILL);
    }
  });
}

TEST_F(CrashTest, RendererKilledIsTriedAgainForItsMissingFramesOnly) {
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    begin(frameCount, 6);
    const pid_t engine = start(engineWords());
    while (killed < kills && !hasEnded(engine)) {
      randomMoment(60);
      const std::vector<pid_t> found = programs();
      if (!found.empty() && kill(found[random() % found.size()], SIGKILL) == 0) {
        ++killed;
      }
    }
    if (engines.contains(engine)) {
      EXPECT_EQ(waitFor(engine), 0);
    }
    finish(frameCount);
  }
}

} // namespace
} // namespace trovik
