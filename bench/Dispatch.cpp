// Many works of a program that does nothing: what is left is the cost of
// handing them out. Ours is the whole program, from the reading of the type's
// file over the durable queue to the summary.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"

#include <filesystem>

namespace bench {

std::vector<Row> dispatchRows(const Setup& setup) {
  const int works = setup.quick ? 20 : 2000;
  constexpr double ownTarget = 120e-6;
  const std::string types = setup.directory + "/types";
  const std::string state = setup.directory + "/state";
  std::filesystem::create_directory(types);
  writeFile(types + "/tiny.tvx", "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000001\nName=Tiny\n\n"
                                 "[OverrideDefaults]\nExecutable=/bin/true\n");
  const auto command = [&types](int count) {
    return std::vector<std::string>{BENCH_PROGRAM,
                                    "--module-path",
                                    ModuleUnderTest::directory() + ":" + types,
                                    "run",
                                    "Tiny",
                                    "--new",
                                    "--range",
                                    "1-" + std::to_string(count),
                                    "--packet",
                                    "1",
                                    "--slots",
                                    "2"};
  };
  Race race;
  const std::size_t limit = race.enter([works] {
    return runProgram({"/proc/self/exe", "limit-dispatch", std::to_string(works), "2", "/bin/true"});
  });
  const std::size_t ours = race.enter([&] {
    return runProgram(command(works), {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  });
  race.run(setup.rounds);

  const std::string path = std::to_string(works) + " works on 2 slots";
  const double cpuRatio = race.ratio(ours, limit, &Cost::cpu);
  Row wall = ratioRow(path, race, ours, limit, 1.25);
  wall.target = "both " + wall.target;
  wall.reached = wall.reached && cpuRatio <= 1.25;
  const double own = race.median(ours, &Cost::own) / works;

  // The same with ten times as many works: what is kept of a work that is over
  // would show. The queue's page cache fills to its bound on the way, and the
  // list of works takes a few bytes each.
  Race memory;
  const std::size_t few = memory.enter([&] {
    return runProgram(command(works), {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  });
  const std::size_t many = memory.enter([&] {
    return runProgram(command(works * 10), {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  });
  memory.run(1);
  const double growth = memory.ratio(many, few, &Cost::memory);
  constexpr double mostGrowth = 1.25;
  const auto megabytes = [&memory](std::size_t contestant) {
    return ratioText(memory.median(contestant, &Cost::memory) / 1e6) + " MB";
  };
  return {wall,
          {"memory at " + std::to_string(works * 10) + " works", megabytes(few), megabytes(many),
           ratioText(growth), "-", "≤ " + ratioText(mostGrowth), growth <= mostGrowth},
          {"own CPU time a work", timeText(race.median(limit, &Cost::own) / works), timeText(own), "-",
           ratioText(race, ours, limit, &Cost::own), "≤ " + timeText(ownTarget), own <= ownTarget}};
}

} // namespace bench
