// What the program holds of a job of a million frames: while it is put into the
// queue, and while it is listed, shown and reckoned. The attempts that are
// reckoned have ended one after the other, as those of one slot do, with a gap
// between any two and what their programs used.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "trovik/queue/Queue.h"

#include <algorithm>
#include <filesystem>

namespace bench {
namespace {

using namespace trovik;

/// Works off the whole job as an engine with one slot does, but without any program.
void workOff(const std::string& directory) {
  constexpr int atOnce = 5000; // in a transaction
  constexpr std::chrono::milliseconds gap{20};
  Moment now = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
  Queue::Settings settings;
  settings.clock = [&now] { return now; };
  Queue queue(Path(directory), settings);
  const EngineId engine = queue.enterEngine(1);
  const auto workOne = [&] {
    const std::vector<Claim> claims = queue.claim(engine, 1, std::nullopt);
    for (const Claim& claim : claims) {
      Outcome outcome;
      outcome.attempt = claim.attempt;
      outcome.command = "/usr/bin/sketch --scene /scenes/a.scene --frames " + claim.run.Text();
      outcome.duration = std::chrono::milliseconds(900 + claim.run.First % 200);
      outcome.usage = ProcessUsage{};
      outcome.usage->PeakMemory = 100'000'000 + claim.run.First;
      now += std::chrono::duration_cast<std::chrono::microseconds>(outcome.duration);
      queue.settle(outcome);
      now += gap;
    }
    return !claims.empty();
  };
  for (bool more = true; more;) {
    queue.inTransaction([&] {
      for (int i = 0; i < atOnce && more; ++i) {
        more = workOne();
      }
    });
  }
  queue.leaveEngine(engine);
}

} // namespace

std::vector<Row> memoryRows(const Setup& setup) {
  const int frames = setup.quick ? 10'000 : 1'000'000;
  constexpr double most = 60e6;
  const std::string types = setup.directory + "/types";
  const std::string state = setup.directory + "/state";
  const std::string output = setup.directory + "/output";
  std::filesystem::create_directory(types);
  writeFile(types + "/tiny.tvx", "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000005\nName=Tiny\n\n"
                                 "[OverrideDefaults]\nExecutable=/bin/true\n");
  const auto command = [&](std::vector<std::string> words, const std::string& expected) {
    words.insert(words.begin(), {BENCH_PROGRAM, "--module-path", ModuleUnderTest::directory() + ":" + types});
    const Cost cost = runProgram(words, {{"XDG_STATE_HOME", state}}, output);
    require(textOf(output).find(expected) != std::string::npos, words[3] + " does not tell " + expected);
    return cost;
  };
  const std::string count = std::to_string(frames);
  Race race;
  const std::size_t submit = race.enter([&] {
    std::filesystem::remove_all(state);
    return command({"submit", "Tiny", "--range", "1-" + count}, count + " frames");
  });
  const std::size_t jobs = race.enter([&] { return command({"jobs"}, count); });
  const std::size_t show = race.enter([&] { return command({"show", "last"}, "1-" + count); });
  race.run(std::min(setup.rounds, 3));

  workOff(state + "/trovik");
  Race after;
  const std::size_t jobsAfter = after.enter([&] { return command({"jobs"}, count); });
  const std::size_t showAfter = after.enter([&] { return command({"show", "last"}, "1-" + count); });
  const std::size_t stats = after.enter([&] { return command({"stats"}, count + " attempts"); });
  after.run(std::min(setup.rounds, 3));
  const auto row = [&](const std::string& what, const Race& measured, std::size_t contestant) {
    return memoryRow("memory of " + what, measured, contestant, most);
  };
  return {row("submit, " + count + " frames", race, submit),
          row("jobs, " + count + " frames", race, jobs),
          row("show, " + count + " frames", race, show),
          row("jobs, all of them done", after, jobsAfter),
          row("show, all of them done", after, showAfter),
          row("stats of " + count + " attempts", after, stats)};
}

} // namespace bench
