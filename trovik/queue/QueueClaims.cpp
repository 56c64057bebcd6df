#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>

// The hot path: taking works and putting down how their attempts ended.

namespace trovik {

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
  for (Query jobs(database, statements::openJobs); claims.size() < count && jobs.next();) {
    const JobId job = jobs.number();
    if ((only && job != *only) || std::find(without.begin(), without.end(), job) != without.end()) {
      continue;
    }
    const auto state = jobs.state<JobState>();
    const bool follows = jobs.flag();
    const std::size_t before = claims.size();
    Query row(database, statements::readyWorks, job, count - before);
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
    if (found != nullptr && follows && claims.size() < count) {
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
