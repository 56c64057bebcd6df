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

// The same command again and again, often twice at once, with --missing or
// without, and killed: it is one job all the time, until that has ended well.
TEST_F(CrashTest, TheSameCommandIsOneJobHoweverOftenItIsGivenAndKilled) {
  constexpr int frames = 40;
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    while (!programs().empty()) { // of a queue that is forgotten now
      for (const pid_t program : programs()) {
        kill(program, SIGKILL);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    beginEmpty();
    std::filesystem::remove_all(directory.file("images"));
    std::filesystem::create_directory(directory.file("images"));
    const int packet = 1 + static_cast<int>(killed % 5);
    const auto words = [&](bool missing) {
      return jobWords("run", frames, packet, "10",
                      missing ? std::vector<std::string>{"--missing", "--slots", "2"}
                              : std::vector<std::string>{"--slots", "2"});
    };
    bool over = false;
    while (!over && killed < kills && !HasFailure()) {
      std::vector<pid_t> twins;
      for (unsigned long count = 1 + random() % 3; count > 0; --count) {
        twins.push_back(start(words(random() % 2 == 0)));
      }
      randomMoment(300);
      for (const pid_t twin : twins) {
        if (random() % 4 != 0 && !hasEnded(twin)) {
          kill(twin, SIGKILL);
          ++killed;
        }
      }
      for (const pid_t twin : twins) {
        if (engines.contains(twin)) {
          waitFor(twin);
        }
      }
      Queue queue(Path(directory.file("state")));
      const std::vector<JobRecord> jobs = queue.jobs();
      // Who comes when the job has ended well renders all anew, as it should.
      over = !jobs.empty() && jobs.back().state == JobState::Good;
      EXPECT_TRUE(jobs.size() <= 1 || over) << jobs.size() << " jobs";
      if (jobs.size() == 1) {
        checkQueue();
      }
      begins(); // none by two at once
    }
    if (!over && !HasFailure()) {
      EXPECT_EQ(waitFor(start(words(false))), 0) << readFile(directory.file("output"));
      finish(frames);
    }
  }
}

} // namespace
} // namespace trovik
