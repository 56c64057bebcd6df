#include "trovik/page/PageMachine.h"

#include "trovik/machine/Memory.h"
#include "trovik/queue/JobView.h"
#include "trovik/records/Moments.h"
#include "trovik/reports/AttemptText.h"
#include "trovik/reports/ClusterReport.h"

#include <cstdlib>
#include <set>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>

namespace trovik {
namespace {

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

/// A disk for each file system: that of the queue, and those that open jobs
/// write to.
Json disksJson(Queue& queue) {
  std::vector<std::string> folders = {queue.directory().Text()};
  for (const JobRecord& job : queue.jobs()) {
    if (isOpen(job.state) && !job.output.empty()) {
      folders.push_back(job.output);
    }
  }
  Json disks = Json::array();
  std::set<dev_t> known;
  for (const std::string& folder : folders) {
    struct stat facts {};
    struct statvfs room {};
    if (stat(folder.c_str(), &facts) == 0 && known.insert(facts.st_dev).second &&
        statvfs(folder.c_str(), &room) == 0) {
      disks.push_back({{"directory", folder},
                       {"total", std::uint64_t{room.f_blocks} * room.f_frsize},
                       {"free", std::uint64_t{room.f_bavail} * room.f_frsize}});
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
