#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Scarce.h"
#include "trovik/queue/Statements.h"

#include <algorithm>
#include <optional>

// The hot path: taking works and putting down how their attempts ended.

namespace trovik {
namespace {

JobToBegin jobToBegin(Query& row) {
  JobToBegin job;
  job.id = row.number();
  job.state = row.state<JobState>();
  job.follows = row.flag();
  job.slotsAtMost = row.integer();
  job.limited = row.flag();
  job.autoPackets = row.flag();
  job.memory = row.number();
  return job;
}

/// What waits for nothing but a slot. Else a work that is claimed and not begun
/// would take from others what is scarce.
bool mayBeAhead(const JobToBegin& job) {
  return !job.follows && !job.autoPackets && !Scarce::counts(job);
}

} // namespace

std::vector<Claim> Queue::claim(EngineId engine, std::size_t count, std::optional<JobId> only,
                                const std::vector<JobId>& without, MemoryCheck* memory,
                                const ClaimsAhead& ahead) {
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
    found.engine = engine;
    found.start = impl_->now();
    claims.clear();
    if (memory != nullptr) {
      memory->waits.clear();
    }
    impl_->findReady(count, only, without, claims, &found, memory, ahead);
    for (const JobId job : found.waiting) {
      Query(impl_->database, statements::startJob, job, found.start).run();
    }
    for (const JobId job : found.exhausted) {
      Query(impl_->database, statements::block, job).run();
    }
  });
  return claims;
}

void Queue::Impl::findReady(std::size_t count, std::optional<JobId> only, const std::vector<JobId>& without,
                            std::vector<Claim>& claims, Found* found, MemoryCheck* memory,
                            const ClaimsAhead& ahead) {
  Scarce scarce(database, memory);
  const std::size_t most = count + ahead.count;
  for (Query jobs(database, statements::openJobs); claims.size() < most && jobs.next();) {
    const JobToBegin job = jobToBegin(jobs);
    if ((only && job.id != *only) || std::find(without.begin(), without.end(), job.id) != without.end()) {
      continue;
    }
    const std::size_t before = claims.size();
    const bool isAhead = ahead.count > 0 && mayBeAhead(job) &&
                         std::find(ahead.jobs.begin(), ahead.jobs.end(), job.id) != ahead.jobs.end();
    const std::size_t wanted = (isAhead ? most : std::max(count, before)) - before;
    const std::size_t allowed = wanted == 0 ? 0 : scarce.allowed(job, wanted);
    if (allowed == 0) {
      continue;
    }
    if (job.autoPackets && found != nullptr) {
      claimPackets(job.id, allowed, *found, claims);
    } else {
      readyClaims(job.id, allowed, claims);
      for (std::size_t place = before; found != nullptr && place < claims.size(); ++place) {
        claims[place].ahead = place >= count;
        begin(claims[place], *found);
      }
    }
    if (found != nullptr && job.state == JobState::Waiting && claims.size() > before) {
      found->waiting.push_back(job.id);
    }
    scarce.take(claims.size() - before);
    if (found != nullptr && job.follows && claims.size() < before + allowed) {
      found->exhausted.push_back(job.id);
    }
  }
}

AttemptId Queue::Impl::nextAttempt() {
  Query row(database, statements::nextAttempt);
  return row.next() ? row.number() : 1;
}

void Queue::Impl::begin(Claim& claim, Found& found) {
  claim.attempt = found.next > 0 ? found.next : nextAttempt();
  found.next = claim.attempt + 1;
  Query(database, statements::insertAttempt, claim.attempt, claim.job, claim.work, found.engine,
        claim.run.First, claim.run.Last, claim.number, found.start, claim.ahead)
      .run();
  claim.mark = markOf(claim.attempt);
  Query(database, statements::startWork, claim.work, claim.attempt).run();
}

void Queue::Impl::readyClaims(JobId job, std::size_t count, std::vector<Claim>& claims) {
  for (Query row(database, statements::readyWorks, job, count); row.next();) {
    Claim claim;
    claim.job = job;
    claim.work = row.number();
    claim.run = row.frames();
    claim.number = row.integer() + 1;
    claim.tries = row.integer();
    claims.push_back(std::move(claim));
  }
}

void Queue::noteBegun(EngineId engine, AttemptId attempt) {
  impl_->locks.note(engine, attempt);
}

void Queue::giveBack(const std::vector<AttemptId>& attempts) {
  impl_->database.write([&] {
    for (const AttemptId attempt : attempts) {
      impl_->giveBack(attempt);
    }
  });
}

void Queue::Impl::giveBack(AttemptId attempt) {
  Work work;
  Settling settling;
  if (!readSettling(attempt, settling, work)) {
    return;
  }
  if (settling.canceling) { // then its work is not to become ready
    Outcome outcome;
    outcome.attempt = attempt;
    outcome.state = AttemptState::Canceled;
    outcome.rule = VerdictRule::Canceled;
    outcome.reason = "Not started";
    settleWorks(outcome, settling, {&work, 1});
    return;
  }
  Query(database, statements::keepLastAttempt).run();
  AttemptId before = 0;
  if (work.attempts > 1) {
    Query row(database, statements::attemptBefore, work.job, attempt, work.run.First, work.run.Last);
    before = row.next() ? row.number() : 0;
  }
  Query(database, statements::giveBackWork, work.id, before).run();
  Query(database, statements::dropAttempt, attempt).run();
  Query(database, statements::unstartJob, work.job).run();
  Query(database, statements::unblock, work.job).run();
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
