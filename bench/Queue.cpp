// What the durable queue costs: putting a job in, and a work's whole way
// through it, as an engine goes it: in one transaction the end of one attempt
// with its file and the start of the next.

#include "trovik/queue/JobView.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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

  JobId submit(int works, const std::vector<Forerunner>& forerunners = {}) {
    NewJob job;
    job.forerunners = forerunners;
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
  TemporaryQueue store;
  for (auto _ : state) {
    store.submit(static_cast<int>(state.range(0)));
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

/// The end of one attempt with its files, and the start of the next.
void settleAndClaim(TemporaryQueue& store, std::vector<Claim>& claims, bool withFile) {
  Queue& queue = *store.queue;
  const Claim done = claims.at(0);
  Outcome outcome;
  outcome.attempt = done.attempt;
  outcome.command = "/usr/bin/sketch --scene /scenes/shot_000001.skt --frames 1-1 --out /out/of/the/shot";
  outcome.log = "/home/ada/.local/state/trovik/logs/1/1-1.log";
  if (withFile) {
    outcome.files = {fileOf(done)};
  }
  queue.inTransaction([&] {
    queue.noteProcess(done.attempt, 4711);
    queue.settle(outcome);
    claims = queue.claim(store.engine, 1, std::nullopt);
  });
}

/// The first number is that of the works of the job, the second that of the
/// files of each; each turn does one work.
void SettleAndClaim(benchmark::State& state) {
  TemporaryQueue store;
  const int works = static_cast<int>(state.range(0));
  store.submit(works);
  std::vector<Claim> claims = store.queue->claim(store.engine, 1, std::nullopt);
  for (auto _ : state) {
    settleAndClaim(store, claims, state.range(1) > 0);
    if (claims.empty()) {
      state.PauseTiming();
      store.submit(works);
      claims = store.queue->claim(store.engine, 1, std::nullopt);
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

/// So many jobs of one work, each behind all of the one before.
void WorkOffAChain(benchmark::State& state) {
  TemporaryQueue store;
  JobId before = 0;
  for (std::int64_t job = 0; job < state.range(0); ++job) {
    before =
        store.submit(1, before == 0 ? std::vector<Forerunner>() : std::vector<Forerunner>{{.job = before}});
  }
  std::vector<Claim> claims = store.queue->claim(store.engine, 1, std::nullopt);
  for (auto _ : state) {
    settleAndClaim(store, claims, true);
  }
}
BENCHMARK(WorkOffAChain)->Arg(1000)->Iterations(999)->Unit(benchmark::kMicrosecond);

/// Two jobs of so many frames, the second one frame by frame behind the first
/// with its neighbours; each turn does one work of either.
void FrameByFrame(benchmark::State& state) {
  TemporaryQueue store;
  const int frames = static_cast<int>(state.range(0));
  const JobId before = store.submit(frames);
  const JobId behind = store.submit(frames, {{.job = before, .byFrame = true, .low = -1, .high = 1}});
  store.queue->change(behind, {.priority = 80}); // so that its frames are taken as they become ready
  std::vector<Claim> claims = store.queue->claim(store.engine, 1, std::nullopt);
  for (auto _ : state) {
    settleAndClaim(store, claims, true);
  }
}
BENCHMARK(FrameByFrame)->Arg(100000)->Iterations(20000)->Unit(benchmark::kMicrosecond);

/// What the list of jobs asks of the queue, with so many that wait in a chain.
void ListAChain(benchmark::State& state) {
  TemporaryQueue store;
  JobId before = 0;
  for (std::int64_t job = 0; job < state.range(0); ++job) {
    before =
        store.submit(1, before == 0 ? std::vector<Forerunner>() : std::vector<Forerunner>{{.job = before}});
  }
  for (auto _ : state) {
    for (JobRecord& job : store.queue->jobs()) {
      benchmark::DoNotOptimize(viewOf(*store.queue, std::move(job)));
    }
  }
}
BENCHMARK(ListAChain)->Arg(1000)->Unit(benchmark::kMillisecond);

} // namespace
