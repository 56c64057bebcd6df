// The program's own start: the list of all types of the catalogue. Beside it is
// cat with the same files: the start of a small program that opens and reads
// them and does nothing with what they say. The target is absolute, since what a
// start may take is what people and scripts notice, not a multiple of cat.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"

#include <algorithm>
#include <filesystem>

namespace bench {

std::vector<Row> startRows(const Setup& setup) {
  const int starts = setup.quick ? 2 : 40; // of a round, since one takes less than can be told well
  constexpr double target = 5e-3;
  std::vector<std::string> files = {"cat"};
  for (const auto& entry : std::filesystem::directory_iterator(BENCH_CATALOGUE)) {
    if (entry.path().extension() == ".tvx") {
      files.push_back(entry.path().string());
    }
  }
  const std::size_t types = files.size() - 1;
  const std::vector<std::string> ours = {BENCH_PROGRAM, "--module-path",
                                         ModuleUnderTest::directory() + ":" + BENCH_CATALOGUE, "types"};
  const std::string output = setup.directory + "/output";
  const auto several = [&](const std::vector<std::string>& words, const std::string& to) {
    Cost sum;
    for (int i = 0; i < starts; ++i) {
      const Cost one = runProgram(words, {{"XDG_STATE_HOME", setup.directory + "/state"}}, to);
      sum.wall += one.wall / starts;
      sum.cpu += one.cpu / starts;
    }
    return sum;
  };
  Race race;
  const std::size_t limit = race.enter([&] { return several(files, setup.directory + "/read"); });
  const std::size_t own = race.enter([&] {
    const Cost cost = several(ours, output);
    const std::string text = textOf(output);
    require(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) >= types,
            "trovik types does not list all of the catalogue");
    return cost;
  });
  race.run(setup.rounds);
  const double cpu = race.median(own, &Cost::cpu);
  Row row = ratioRow("CPU time of trovik types, " + std::to_string(types) + " types", race, own, limit, 0);
  row.limit = timeText(race.median(limit, &Cost::cpu));
  row.ours = timeText(cpu);
  row.target = "≤ " + timeText(target);
  row.reached = cpu <= target;
  return {row};
}

} // namespace bench
