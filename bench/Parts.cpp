// The parts of the hot paths, one by one, for whoever works on them. Ratios to
// the limits are trovik_bench's business.

#include "bench/Inputs.h"
#include "host/foundation/FileFinder.h"
#include "host/foundation/Format.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/LineSplitter.h"
#include "host/foundation/Process.h"
#include "host/foundation/StringTokenizer.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>

namespace {

std::string temporaryName() {
  std::string name = (std::filesystem::temp_directory_path() / "trovik-parts-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    std::abort();
  }
  return name;
}

void splitLines(benchmark::State& state) {
  const std::string directory = temporaryName();
  bench::writeLog(directory + "/log", 4'000'000);
  const std::string log = bench::textOf(directory + "/log");
  std::filesystem::remove_all(directory);
  const auto block = static_cast<std::size_t>(state.range(0));
  std::size_t bytes = 0;
  for (auto _ : state) {
    LineSplitter splitter([&bytes](std::string_view line) { bytes += line.size(); });
    for (std::size_t place = 0; place < log.size(); place += block) {
      splitter.Feed(std::string_view(log).substr(place, block));
    }
    splitter.Finish();
  }
  benchmark::DoNotOptimize(bytes);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(log.size()));
}
BENCHMARK(splitLines)->Arg(256 << 10)->Arg(4096);

void findFromMemory(benchmark::State& state) {
  const std::string directory = temporaryName();
  const auto frames = static_cast<int>(state.range(0));
  bench::writeSequence(directory, frames, 0);
  FileFinder finder;
  for (int i = 0; i < 200; ++i) { // from then on it knows the directory
    finder.FindExact(Path(directory + "/" + bench::frameName(1)));
  }
  std::vector<Path> names;
  for (int frame = 1; frame <= frames; ++frame) {
    names.emplace_back(directory + "/" + bench::frameName(frame));
  }
  for (auto _ : state) {
    for (const Path& name : names) {
      benchmark::DoNotOptimize(finder.FindExact(name));
    }
  }
  state.SetItemsProcessed(state.iterations() * frames);
  std::filesystem::remove_all(directory);
}
BENCHMARK(findFromMemory)->Arg(100)->Arg(10'000);

void formatFrameName(benchmark::State& state) {
  int frame = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(SFormat("/show/sh010/scenes/shot_a.%06d.exr", ++frame));
  }
}
BENCHMARK(formatFrameName);

void parseTypeFile(benchmark::State& state) {
  bench::TypeFacts facts;
  const std::string text = bench::typeText(1, facts);
  for (auto _ : state) {
    IniFile file;
    file.Parse(text);
    benchmark::DoNotOptimize(file);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(parseTypeFile);

void splitList(benchmark::State& state) {
  const String list = "Saved: ;\"Writing image\";Append frame;\"Saving \\\"image\\\"\"";
  for (auto _ : state) {
    benchmark::DoNotOptimize(StringTokenizer::Split(list, ';'));
  }
}
BENCHMARK(splitList);

void startProgram(benchmark::State& state) {
  ProcessStart start;
  start.Arguments = {"/bin/true"};
  for (auto _ : state) {
    Process process(start);
    ProcessExit exit;
    process.Wait(exit, true);
  }
}
BENCHMARK(startProgram);

} // namespace
