#include "trovik/page/PageMachine.h"

#include "trovik/machine/Aside.h"
#include "trovik/machine/Memory.h"
#include "trovik/queue/JobView.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/AttemptText.h"
#include "trovik/reports/ClusterReport.h"

#include <cstdlib>
#include <memory>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>

namespace trovik {
namespace {

constexpr Duration diskPatience = std::chrono::seconds(2);
constexpr int silentLimit = 3; // folders that hang; those behind are not asked

Json runningJson(Queue& queue, const AttemptRecord& attempt, Moment now) {
  const std::optional<JobRecord> job = queue.job(attempt.job);
  return {{"job", attempt.job},
          {"name", job ? titleOf(*job) : std::string()},
          {"frames", job && job->hasFrames ? Json(runText(attempt.run)) : Json(nullptr)},
          {"attempt", attempt.id},
          {"seconds", secondsOf(timeOf(attempt, now))}};
}

Json enginesJson(Queue& queue, Moment now) {
  Json engines = Json::array();
  for (const EngineRecord& engine : queue.engines()) {
    Json running = Json::array();
    for (const AttemptId id : engine.running) {
      if (const std::optional<AttemptRecord> attempt = queue.attempt(id)) {
        running.push_back(runningJson(queue, *attempt, now));
      }
    }
    if (engine.isCluster && running.empty()) {
      continue; // it never dies, and says nothing where there is none any more
    }
    engines.push_back({{"engine", engine.id},
                       {"cluster", engine.isCluster},
                       {"slots", engine.isCluster ? Json(nullptr) : Json(engine.slots)},
                       {"process", engine.isCluster ? Json(nullptr) : Json(engine.process)},
                       {"alive", engine.lives},
                       {"since", secondsOf(engine.entered)},
                       {"running", std::move(running)}});
  }
  return engines;
}

/// In bytes; null where the kernel does not tell.
Json memoryJson() {
  const MemoryNow memory = memoryNow({});
  if (memory.total == 0) {
    return {{"total", nullptr}, {"available", nullptr}};
  }
  return {{"total", memory.total}, {"available", memory.available}};
}

/// What the system tells of the file system of a folder.
struct DiskRoom {
  bool asked = false;
  bool answered = false;
  bool known = false;
  dev_t device = 0;
  std::uint64_t total = 0; ///< bytes
  std::uint64_t free = 0;
};

void ask(const std::string& folder, DiskRoom& room) {
  struct stat facts {};
  struct statvfs system {};
  room.asked = true;
  if (stat(folder.c_str(), &facts) == 0 && statvfs(folder.c_str(), &system) == 0) {
    room = {true,
            false,
            true,
            facts.st_dev,
            std::uint64_t{system.f_blocks} * system.f_frsize,
            std::uint64_t{system.f_bavail} * system.f_frsize};
  }
  room.answered = true;
}

/// Asks for each folder in a process aside, since one may hang; and in
/// another one for those behind it.
std::vector<DiskRoom> roomsOf(const std::vector<std::string>& folders) {
  const std::size_t size = folders.size() * sizeof(DiskRoom);
  void* const shared = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) {
    return std::vector<DiskRoom>(folders.size());
  }
  auto* const rooms = static_cast<DiskRoom*>(shared);
  std::uninitialized_value_construct_n(rooms, folders.size());
  std::size_t begin = 0;
  for (int silent = 0; begin < folders.size() && silent < silentLimit; ++silent) {
    if (runAside(
            [&] {
              for (std::size_t i = begin; i < folders.size(); ++i) {
                ask(folders[i], rooms[i]);
              }
            },
            diskPatience)) {
      break;
    }
    while (begin < folders.size() && rooms[begin].answered) {
      ++begin;
    }
    ++begin; // this one hangs
  }
  std::vector<DiskRoom> result(rooms, rooms + folders.size());
  munmap(shared, size);
  return result;
}

/// A disk for each file system: that of the queue, and those that open jobs
/// write to. One that does not answer is told without numbers.
Json disksJson(Queue& queue) {
  std::vector<std::string> folders = {queue.directory().Text()};
  std::set<std::string> named;
  for (const JobRecord& job : queue.jobs()) {
    if (isOpen(job.state) && !job.output.empty() && named.insert(job.output).second) {
      folders.push_back(job.output);
    }
  }
  Json disks = Json::array();
  std::set<dev_t> known;
  const std::vector<DiskRoom> rooms = roomsOf(folders);
  for (std::size_t i = 0; i < rooms.size(); ++i) {
    const DiskRoom& room = rooms[i];
    if (room.asked && !room.answered) {
      disks.push_back({{"directory", folders[i]}, {"total", nullptr}, {"free", nullptr}});
    } else if (room.known && known.insert(room.device).second) {
      disks.push_back({{"directory", folders[i]}, {"total", room.total}, {"free", room.free}});
    }
  }
  return disks;
}

Json clusterOf(Queue& queue, Moment now) {
  const std::vector<JobRecord> jobs = queue.clusterJobs();
  if (jobs.empty()) {
    return nullptr;
  }
  Json cluster = {{"answered", nullptr}, {"problem", nullptr}, {"arrays", Json::array()}};
  for (const JobRecord& job : jobs) {
    Json json = clusterJson(clusterReport(queue, job), now);
    cluster["answered"] = json["answered"];
    cluster["problem"] = json["problem"];
    for (Json& array : json["arrays"]) {
      array["job"] = job.id;
      cluster["arrays"].push_back(std::move(array));
    }
  }
  return cluster;
}

} // namespace

Json machineJson(Queue& queue) {
  const Moment now = momentNow();
  Json document = jsonOfKind("page.machine");
  document["engines"] = enginesJson(queue, now);
  document["memory"] = memoryJson();
  double load = 0;
  document["load"] = getloadavg(&load, 1) == 1 ? Json(load) : Json(nullptr);
  document["cpus"] = std::thread::hardware_concurrency();
  document["disks"] = disksJson(queue);
  document["limits"] = Json::array();
  for (const LimitStand& limit : queue.limits()) {
    document["limits"].push_back({{"name", limit.name}, {"amount", limit.amount}, {"taken", limit.taken}});
  }
  document["cluster"] = clusterOf(queue, now);
  return document;
}

} // namespace trovik
