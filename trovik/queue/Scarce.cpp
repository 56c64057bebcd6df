#include "trovik/queue/Scarce.h"

#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>

// Memory, which is the one thing that the machine and not somebody counts.
//
// A program that has just started holds little of what it is going to need. So
// what is free for another one is what the machine has, less what those that
// run are still going to take: their needs less what they hold.
//
// A work that needs much would never begin where smaller ones of jobs behind it
// always take what is free. So once one has to wait, works of later jobs begin
// only as long as all of theirs together leave room for it: then it begins as
// soon as works of its own job or of earlier ones have ended.

namespace trovik {
namespace {

/// Needs below this are not worth the question; a thousandth of what machines
/// that render have.
constexpr std::int64_t noticeable = 64 << 20;

std::size_t room(std::int64_t amount, std::int64_t used) {
  return static_cast<std::size_t>(std::max<std::int64_t>(amount - used, 0));
}

} // namespace

bool Scarce::counts(const JobToBegin& job) {
  return job.slotsAtMost > 0 || job.limited || job.memory >= noticeable;
}

std::size_t Scarce::allowed(const JobToBegin& job, std::size_t wanted) {
  job_ = job;
  shares_.clear();
  if (job.slotsAtMost > 0) {
    Query row(database_, statements::runningWorks, job.id);
    wanted = std::min(wanted, room(job.slotsAtMost, row.next() ? row.number() : 0));
  }
  if (job.limited) {
    for (Query row(database_, statements::takesOfJob, job.id); row.next();) {
      LimitShare share;
      share.name = row.text();
      share.amount = std::max(row.integer(), 1);
      if (const std::optional<int> amount = row.optionalInteger()) {
        wanted = std::min(wanted, room(*amount, taken(share.name)) / static_cast<std::size_t>(share.amount));
      }
      shares_.push_back(std::move(share));
    }
  }
  if (memory_ != nullptr && wanted > 0) {
    wanted = fitting(job, wanted);
  }
  return wanted;
}

void Scarce::take(std::size_t works) {
  for (const LimitShare& share : shares_) {
    taken(share.name);
    taken_[share.name] += static_cast<std::int64_t>(works) * share.amount;
  }
  if (looked_) {
    room_ -= static_cast<std::int64_t>(works) * job_.memory;
    running_.insert(running_.end(), works, {job_.id, job_.memory});
  }
}

std::int64_t Scarce::taken(const std::string& name) {
  const auto [known, isNew] = taken_.emplace(name, 0);
  if (isNew) {
    known->second = takenOfLimit(database_, name);
  }
  return known->second;
}

std::size_t Scarce::fitting(const JobToBegin& job, std::size_t wanted) {
  if (!waiting_) {
    before_.insert(job.id);
  }
  if (job.memory < noticeable && !waiting_) {
    return wanted;
  }
  lookAtMemory();
  if (capacity_ == 0) {
    return wanted; // the system does not tell
  }
  std::int64_t free = room_;
  if (waiting_) {
    std::int64_t later = 0;
    for (const Running& work : running_) {
      later += before_.contains(work.job) ? 0 : work.memory;
    }
    free = std::min(free, capacity_ - *waiting_ - later);
  }
  const auto fits =
      static_cast<std::size_t>(std::max<std::int64_t>(free, 0) / std::max<std::int64_t>(job.memory, 1));
  // What needs more than there is at all may still get by, alone.
  const std::size_t allowed = std::min(wanted, std::max<std::size_t>(fits, running_.empty() ? 1 : 0));
  if (allowed < wanted && !waiting_ && hasReady(job.id, allowed + 1)) {
    waiting_ = job.memory;
    memory_->waits.push_back(
        {job.id, job.memory, std::max<std::int64_t>(free, 0) % std::max<std::int64_t>(job.memory, 1)});
  }
  return allowed;
}

bool Scarce::hasReady(JobId job, std::size_t works) {
  Query row(database_, statements::readyWorks, job, works);
  while (works > 0 && row.next()) {
    --works;
  }
  return works == 0;
}

void Scarce::lookAtMemory() {
  if (looked_) {
    return;
  }
  looked_ = true;
  struct Program {
    Running work;
    int group = 0;
  };
  std::vector<Program> programs;
  std::vector<int> groups;
  for (Query row(database_, statements::runningPrograms); row.next();) {
    Program program;
    program.work.job = row.number();
    program.work.memory = row.number();
    program.group = row.integer();
    if (program.group > 0) {
      groups.push_back(program.group);
    }
    programs.push_back(program);
  }
  const MemoryNow now = memory_->ask(groups);
  capacity_ = now.total > 0 ? now.available : 0;
  room_ = now.available;
  for (Program& program : programs) {
    const auto known = now.used.find(program.group);
    const std::int64_t used = known == now.used.end() ? 0 : known->second;
    capacity_ += now.total > 0 ? used : 0;
    room_ -= std::max<std::int64_t>(program.work.memory - used, 0);
    program.work.memory = std::max(program.work.memory, used);
    running_.push_back(program.work);
  }
}

} // namespace trovik
