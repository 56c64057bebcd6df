#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>
#include <map>
#include <optional>

// The hot path: taking works and putting down how their attempts ended.

namespace trovik {

namespace {

/// What may be claimed of jobs whose works take something scarce, or of which
/// only some may run at a time. What runs is counted whenever it is asked for:
/// a number that is kept could differ from what is true.
class Scarce {
public:
  explicit Scarce(Database& database) : database_(database) {}

  /// How many works of the job may begin now, of so many that are wanted.
  std::size_t allowed(JobId job, int slotsAtMost, bool limited, std::size_t wanted) {
    shares_.clear();
    if (slotsAtMost > 0) {
      Query row(database_, statements::runningWorks, job);
      wanted = std::min(wanted, room(slotsAtMost, row.next() ? row.number() : 0));
    }
    if (limited) {
      for (Query row(database_, statements::takesOfJob, job); row.next();) {
        LimitShare share;
        share.name = row.text();
        share.amount = std::max(row.integer(), 1);
        if (const std::optional<int> amount = row.optionalInteger()) {
          wanted =
              std::min(wanted, room(*amount, taken(share.name)) / static_cast<std::size_t>(share.amount));
        }
        shares_.push_back(std::move(share));
      }
    }
    return wanted;
  }

  /// So many works of that job are going to begin.
  void take(std::size_t works) {
    for (const LimitShare& share : shares_) {
      taken(share.name);
      taken_[share.name] += static_cast<std::int64_t>(works) * share.amount;
    }
  }

private:
  static std::size_t room(std::int64_t amount, std::int64_t used) {
    return static_cast<std::size_t>(std::max<std::int64_t>(amount - used, 0));
  }

  std::int64_t taken(const std::string& name) {
    const auto [known, isNew] = taken_.emplace(name, 0);
    if (isNew) {
      known->second = takenOfLimit(database_, name);
    }
    return known->second;
  }

  Database& database_;
  std::vector<LimitShare> shares_; // of the job that was asked about last
  std::map<std::string, std::int64_t> taken_;
};

} // namespace

std::vector<Claim> Queue::claim(EngineId engine, std::size_t count, std::optional<JobId> only,
                                const std::vector<JobId>& without) {
  std::vector<Claim> claims;
  if (!impl_->entered.contains(engine)) {
    // Nobody would recover its works when this process dies.
    throw QueueError{QueueError::Kind::Other,
                     "Engine " + std::to_string(engine) + " is none of this process, so it cannot take works",
                     ""};
  }
  if (!impl_->database.isInTransaction()) {
    // An idle engine need not take the right to write.
    impl_->findReady(1, only, without, claims);
    if (claims.empty()) {
      return claims;
    }
  }
  impl_->database.write([&] {
    Impl::Found found;
    claims.clear();
    impl_->findReady(count, only, without, claims, &found);
    const Moment start = now();
    for (Claim& claim : claims) {
      Query(impl_->database, statements::insertAttempt, claim.job, claim.work, engine, claim.run.First,
            claim.run.Last, claim.number, start)
          .run();
      claim.attempt = impl_->database.lastId();
      claim.mark = impl_->markOf(claim.attempt);
      Query(impl_->database, statements::startWork, claim.work, claim.attempt).run();
    }
    for (const JobId job : found.waiting) {
      Query(impl_->database, statements::startJob, job, start).run();
    }
    for (const JobId job : found.exhausted) {
      Query(impl_->database, statements::block, job).run();
    }
  });
  return claims;
}

void Queue::Impl::findReady(std::size_t count, std::optional<JobId> only, const std::vector<JobId>& without,
                            std::vector<Claim>& claims, Found* found) {
  Scarce scarce(database);
  for (Query jobs(database, statements::openJobs); claims.size() < count && jobs.next();) {
    const JobId job = jobs.number();
    if ((only && job != *only) || std::find(without.begin(), without.end(), job) != without.end()) {
      continue;
    }
    const auto state = jobs.state<JobState>();
    const bool follows = jobs.flag();
    const int slotsAtMost = jobs.integer();
    const std::size_t before = claims.size();
    const std::size_t allowed = scarce.allowed(job, slotsAtMost, jobs.flag(), count - before);
    if (allowed == 0) {
      continue;
    }
    Query row(database, statements::readyWorks, job, allowed);
    while (row.next()) {
      Claim claim;
      claim.job = job;
      claim.work = row.number();
      claim.run = row.frames();
      claim.number = row.integer() + 1;
      claim.tries = row.integer();
      claims.push_back(std::move(claim));
    }
    if (found != nullptr && state == JobState::Waiting && claims.size() > before) {
      found->waiting.push_back(job);
    }
    scarce.take(claims.size() - before);
    if (found != nullptr && follows && claims.size() < before + allowed) {
      found->exhausted.push_back(job);
    }
  }
}

void Queue::noteProcess(AttemptId attempt, int process, const std::string& filesBefore) {
  impl_->database.write(
      [&] { Query(impl_->database, statements::noteProcess, attempt, process, filesBefore).run(); });
}

void Queue::noteEnd(AttemptId attempt, const ProgramEnd& end) {
  impl_->database.write([&] {
    Query(impl_->database, statements::noteEnd, attempt, end.exitCode, end.signal, end.command, end.log,
          end.printed, end.duration.count(), end.usage)
        .run();
  });
}

void Queue::noteFile(AttemptId attempt, const FileRecord& file) {
  impl_->database.write([&] {
    if (Query(impl_->database, statements::isRunning, attempt).next()) {
      FileRecord noted = file;
      noted.checked = false;
      impl_->insertFile(noted, attempt);
    }
  });
}

std::vector<AttemptId> Queue::canceled(EngineId engine) {
  std::vector<AttemptId> result;
  for (Query row(impl_->database, statements::canceledAttempts, engine); row.next();) {
    result.push_back(row.number());
  }
  return result;
}

} // namespace trovik
