// Submitting only the frames without a file, when none has one: the whole
// program, with the works in the durable queue.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/limits/Limits.h"

#include <filesystem>

namespace bench {

std::vector<Row> missingRows(const Setup& setup) {
  const int frames = setup.quick ? 10'000 : 1'000'000;
  const int others = setup.quick ? 10 : 10'000; // files in the folder that are no frames
  constexpr double target = 3;
  constexpr double mostMemory = 60e6;
  const std::string types = setup.directory + "/types";
  const std::string state = setup.directory + "/state";
  const std::string out = setup.directory + "/" + std::to_string(others);
  std::filesystem::create_directory(types);
  writeFile(types + "/tiny.tvx",
            "[Module]\nID=5f0c9a5e-6d0b-4c86-9d0f-100000000004\nName=Tiny\n\n[OverrideDefaults]\n"
            "Executable=/bin/true\nExpectedFiles=$(OutputFolder)/$(Scene.Base)_$(Frame.Pad(7)).png\n");
  writeFile(setup.directory + "/a.scene", "scene\n");
  writeSequence(out, 0, others);
  const auto command = [&](bool missing) {
    std::filesystem::remove_all(state);
    std::vector<std::string> words = {BENCH_PROGRAM,
                                      "--module-path",
                                      ModuleUnderTest::directory() + ":" + types,
                                      "submit",
                                      "Tiny",
                                      setup.directory + "/a.scene",
                                      "--range",
                                      "1-" + std::to_string(frames),
                                      "--out",
                                      out};
    if (missing) {
      words.emplace_back("--missing");
    }
    return runProgram(words, {{"XDG_STATE_HOME", state}}, setup.directory + "/output");
  };
  Race race;
  const std::size_t limit = race.enter([&] {
    const Stopwatch watch;
    require(missingLimit(out, "a_", ".png", 7, frames) == frames, "the limit program found files");
    return watch.stop();
  });
  const std::size_t plain = race.enter([&] { return command(false); });
  const std::size_t ours = race.enter([&] { return command(true); });
  race.run(setup.rounds);

  const std::string path = std::to_string(frames) + " frames";
  Row submitted = ratioRow("submit, " + path, race, plain, limit, 0);
  Row missing = ratioRow("submit --missing, " + path, race, ours, limit, 0);
  for (Row* row : {&submitted, &missing}) {
    row->target = "≤ " + timeText(target);
    row->reached = race.median(row == &missing ? ours : plain, &Cost::wall) <= target;
  }
  return {submitted, missing, memoryRow("memory of submit --missing, " + path, race, ours, mostMemory)};
}

} // namespace bench
