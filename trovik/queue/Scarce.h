#pragma once

#include "trovik/queue/Database.h"
#include "trovik/queue/MemoryCheck.h"
#include "trovik/records/Records.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace trovik {

/// A job of which works might begin.
struct JobToBegin {
  JobId id = 0;
  JobState state = JobState::Waiting;
  bool follows = false;
  int slotsAtMost = 0;
  bool limited = false;
  bool autoPackets = false;
  std::int64_t memory = 0; ///< bytes that a work needs; 0 where that is not known yet
};

/// How many works may begin where they take something scarce, or where only
/// some may run at a time. Jobs are asked about in their order, each once. What
/// runs is counted whenever it is asked for: a number that is kept could differ
/// from what is true.
class Scarce {
public:
  /// Without a check (null), memory is no matter.
  Scarce(Database& database, MemoryCheck* memory) : database_(database), memory_(memory) {}

  /// Whether anything scarce bounds how many of its works run.
  static bool counts(const JobToBegin& job);

  /// How many works of the job may begin now, of so many that are wanted.
  std::size_t allowed(const JobToBegin& job, std::size_t wanted);
  /// So many works of that job are going to begin.
  void take(std::size_t works);

private:
  /// Works that run, of one job.
  struct Running {
    JobId job = 0;
    std::int64_t memory = 0; ///< that one needs, or what it has where that is more
  };

  std::int64_t taken(const std::string& name);
  std::size_t fitting(const JobToBegin& job, std::size_t wanted);
  bool hasReady(JobId job, std::size_t works);
  void lookAtMemory();

  Database& database_;
  MemoryCheck* memory_;
  std::vector<LimitShare> shares_; // of the job that was asked about last
  std::map<std::string, std::int64_t> taken_;
  JobToBegin job_;
  bool looked_ = false;
  std::vector<Running> running_;
  std::int64_t capacity_ = 0;           // of all works together
  std::int64_t room_ = 0;               // for further ones
  std::set<JobId> before_;              // jobs that were asked about until one had to wait
  std::optional<std::int64_t> waiting_; // what a work of that one needs
};

} // namespace trovik
