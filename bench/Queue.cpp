// What the durable queue costs: putting a job in, and a work's whole way
// through it, as an engine goes it: in one transaction the end of one attempt
// with its file and the start of the next.

#include "trovik/queue/Queue.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace trovik;

class TemporaryQueue {
public:
  TemporaryQueue() {
    std::string pattern = (std::filesystem::temp_directory_path() / "trovik-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("no temporary directory");
    }
    path_ = pattern;
    queue = std::make_unique<Queue>(Path(path_));
    engine = queue->enterEngine(2);
  }
  ~TemporaryQueue() {
    queue.reset();
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryQueue(const TemporaryQueue&) = delete;
  TemporaryQueue& operator=(const TemporaryQueue&) = delete;

  JobId submit(int works) {
    NewJob job;
    job.name = "shot";
    job.type = UID(true);
    job.typeName = "Sketch";
    job.scene = "/scenes/shot_%06d.skt";
    job.packed = std::string(3000, 'p');
    job.works.reserve(static_cast<std::size_t>(works));
    for (int frame = 1; frame <= works; ++frame) {
      job.works.push_back({frame, frame});
    }
    return queue->submit(job);
  }

  std::unique_ptr<Queue> queue;
  EngineId engine = 0;

private:
  std::string path_;
};

void Submit(benchmark::State& state) {
  TemporaryQueue queue;
  for (auto _ : state) {
    queue.submit(static_cast<int>(state.range(0)));
  }
}
BENCHMARK(Submit)->Arg(2000)->Arg(100000)->Unit(benchmark::kMillisecond);

FileRecord fileOf(const Claim& claim) {
  FileRecord file;
  file.path = "/out/of/the/shot/image_" + std::to_string(claim.run.First) + ".png";
  file.frame = claim.run.First;
  file.checked = true;
  file.size = 123456;
  return file;
}

/// The first number is that of the works of the job, the second that of the
/// files of each; each turn does one work.
void SettleAndClaim(benchmark::State& state) {
  TemporaryQueue queue;
  Queue& queue = *queue.store;
  const int works = static_cast<int>(state.range(0));
  queue.submit(works);
  std::vector<Claim> claims = queue.claim(queue.engine, 1, std::nullopt);
  for (auto _ : state) {
    const Claim done = claims.at(0);
    Outcome outcome;
    outcome.attempt = done.attempt;
    outcome.command = "/usr/bin/sketch --scene /scenes/shot_000001.skt --frames 1-1 --out /out/of/the/shot";
    outcome.log = "/home/ada/.local/state/trovik/logs/1/1-1.log";
    if (state.range(1) > 0) {
      outcome.files = {fileOf(done)};
    }
    queue.inTransaction([&] {
      queue.noteProcess(done.attempt, 4711);
      queue.settle(outcome);
      claims = queue.claim(queue.engine, 1, std::nullopt);
    });
    if (claims.empty()) {
      state.PauseTiming();
      queue.submit(works);
      claims = queue.claim(queue.engine, 1, std::nullopt);
      state.ResumeTiming();
    }
  }
}
BENCHMARK(SettleAndClaim)
    ->Args({2000, 0})
    ->Args({2000, 1})
    ->Args({1000000, 1})
    ->Iterations(20000)
    ->Unit(benchmark::kMicrosecond);

} // namespace
