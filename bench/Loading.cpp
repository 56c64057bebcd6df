// Reading a directory of type files: by the host's IniFile alone, and by the
// module's entry point, which also makes its records of them.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/TypeFiles.h"
#include "bench/limits/Limits.h"
#include "host/application/Module.h"

namespace bench {

std::vector<Row> loadingRows(const Setup& setup) {
  const int count = setup.quick ? 10 : 1000;
  const std::string directory = setup.directory + "/types";
  const TypeFacts facts = writeTypes(directory, count);
  const ModuleUnderTest module;
  auto* const load = module.symbol<bool(Module*)>("OnModuleLoad");
  auto* const unload = module.symbol<void()>("OnModuleUnload");
  auto* const list = module.symbol<void(std::vector<UID>&)>("ListTypes");

  Race race;
  const std::size_t limit = race.enter([&] {
    const Stopwatch watch;
    const LoadingLimit files(directory);
    const Cost cost = watch.stop();
    require(files.sections() == facts.sections && files.entries() == facts.entries,
            "the limit program read the files wrongly");
    return cost;
  });
  const std::size_t parse = race.enter([&] {
    const Stopwatch watch;
    const TypeFiles files = loadTypes(directory);
    const Cost cost = watch.stop();
    require(entriesOf(files) == facts.entries, "IniFile read the files wrongly");
    return cost;
  });
  const std::size_t records = race.enter([&] {
    Module from(Path(directory + "/module.so"));
    const Stopwatch watch;
    const bool loaded = load(&from);
    const Cost cost = watch.stop();
    std::vector<UID> types;
    list(types);
    require(loaded && types.size() == static_cast<std::size_t>(count), "the module did not load every type");
    unload();
    return cost;
  });
  race.run(setup.rounds);
  const std::string path = std::to_string(count) + " type files";
  return {ratioRow(path + ", IniFile", race, parse, limit, 1.3),
          ratioRow(path + ", OnModuleLoad", race, records, limit, 1.6)};
}

} // namespace bench
