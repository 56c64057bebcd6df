// Finding the range of a scene sequence from one of its files, through the
// module's exported function.

#include "bench/Inputs.h"
#include "bench/ModuleUnderTest.h"
#include "bench/Race.h"
#include "bench/limits/Limits.h"
#include "host/application/Constants.h"
#include "host/foundation/Path.h"

#include <fstream>
#include <map>
#include <span>
#include <unistd.h>

namespace bench {
namespace {

using Detect = bool(Path const& scene, int minimumDigits, std::map<String, String>& result);
constexpr const char* detectSymbol =
    "_Z19DetectMultipleFilesRK4PathiRSt3mapI6StringS3_St4lessIS3_ESaISt4pairIKS3_S3_EEE";

using Limit = std::pair<int, int>(const std::string& directory, std::string_view head, std::string_view tail,
                                  std::size_t digits, int frame);

struct Sequence {
  Limit* limit;
  const char* path;
  int frames;
  int others;
  int repetitions;
  bool cold = false;
  double most = 1.15;
};

// Folders and their entries are read from the disk again after this. What others
// do on the machine pays as well, so it happens only where somebody asks for it.
void dropCaches() {
  sync();
  std::ofstream file("/proc/sys/vm/drop_caches");
  file << "3" << std::flush;
  require(file.good(), "only the administrator can empty the caches for the path \"cold\"");
}

// The cost of one of its searches.
template <typename Search> Cost averageOf(const Sequence& sequence, const Search& search) {
  if (sequence.cold) {
    dropCaches();
  }
  const Stopwatch watch;
  for (int i = 0; i < sequence.repetitions; ++i) {
    search();
  }
  Cost cost = watch.stop();
  cost.wall /= sequence.repetitions;
  cost.cpu /= sequence.repetitions;
  cost.own /= sequence.repetitions;
  return cost;
}

Row sequenceRow(const Setup& setup, const Sequence& sequence, Detect* detect) {
  const std::string directory = setup.directory + "/" + std::to_string(sequence.frames + sequence.others);
  writeSequence(directory, sequence.frames, sequence.others);
  const int member = sequence.frames / 2;
  const Path scene(directory + "/" + frameName(member));
  const String expected = "1-" + std::to_string(sequence.frames);

  Race race;
  const std::size_t limit = race.enter([&] {
    return averageOf(sequence, [&] {
      require(sequence.limit(directory, "shot_a.", ".exr", 6, member) == std::pair(1, sequence.frames),
              "the limit program found another range");
    });
  });
  const std::size_t ours = race.enter([&] {
    return averageOf(sequence, [&] {
      std::map<String, String> result;
      require(detect(scene, 3, result) && result[p_Range] == expected, "the module found another range");
    });
  });
  race.run(setup.rounds);
  return ratioRow(sequence.path, race, ours, limit, sequence.most);
}

std::vector<Row> rowsOf(const Setup& setup, std::span<const Sequence> sequences) {
  const ModuleUnderTest module;
  auto* const detect = module.symbol<Detect>(detectSymbol);
  std::vector<Row> rows;
  for (const Sequence& sequence : sequences) {
    rows.push_back(sequenceRow(setup, sequence, detect));
  }
  return rows;
}

} // namespace

std::vector<Row> sequenceRows(const Setup& setup) {
  const int others = setup.quick ? 1000 : 100'000;
  const Sequence sequences[] = {
      {sequenceLimit, "sequence of 100 files", 100, 10, 200},
      {sequenceLimit, "sequence of 10,000 files", setup.quick ? 500 : 10'000, 10, 5},
      {sequenceLimit, "sequence of 100,000 files", setup.quick ? 900 : 100'000, 10, 1},
      {probingLimit, "100 files among 100,000 others", 100, others, 200, false, 1.25},
  };
  return rowsOf(setup, sequences);
}

std::vector<Row> coldSequenceRows(const Setup& setup) {
  constexpr double most = 1.3;
  const Sequence sequences[] = {
      {sequenceLimit, "cold: sequence of 100 files", 100, 10, 1, true, most},
      {sequenceLimit, "cold: sequence of 10,000 files", setup.quick ? 500 : 10'000, 10, 1, true, most},
      {sequenceLimit, "cold: sequence of 100,000 files", setup.quick ? 900 : 100'000, 10, 1, true, most},
      {probingLimit, "cold: 100 files among 100,000 others", 100, setup.quick ? 1000 : 100'000, 1, true,
       most},
  };
  return rowsOf(setup, sequences);
}

} // namespace bench
