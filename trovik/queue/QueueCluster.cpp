#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>
#include <cmath>
#include <map>

// Works of jobs that a cluster works off.
//
// A work of an array job was given to one of its tasks. From then on some
// process on some node may render its frames, whatever the user or the cluster
// does, until its result is there or the task is known to be dead: only then it
// is closed, and no frame of an open one is given to another task. What is
// known of such a work comes late and in any order, so
//
// - the start is put down when it is seen, or together with the end;
// - a work that is canceled before its start was seen is canceled at once; a
//   result that comes all the same makes its good frames good and changes
//   nothing else;
// - such a work may be made ready again in parts. The array keeps the frames
//   that it was given, so the result is shared out to the works that have them
//   now;
// - an end closes the work of the array, which takes no further one.

namespace trovik {
namespace {

ArrayRecord readArray(Query& row) {
  ArrayRecord array;
  array.id = row.number();
  array.job = row.number();
  array.number = row.integer();
  array.state = row.state<ArrayRecord::State>();
  array.name = row.text();
  array.cluster = row.number();
  array.perTask = static_cast<std::size_t>(std::max<std::int64_t>(row.number(), 1));
  array.canceling = row.flag();
  array.submitted = row.moment();
  return array;
}

std::vector<ArrayRecord> readArrays(Query&& rows) {
  std::vector<ArrayRecord> arrays;
  while (rows.next()) {
    arrays.push_back(readArray(rows));
  }
  return arrays;
}

QueueError mistake(const std::string& message) {
  return QueueError{QueueError::Kind::Other, message, ""};
}

std::string nameOfArrayWork(ArrayId array, std::size_t position) {
  return "The work at position " + std::to_string(position) + " of array " + std::to_string(array);
}

/// Microseconds of seconds that a file tells, which may be anything.
std::int64_t microseconds(double seconds) {
  constexpr double longest = 1e12; // thirty thousand years
  return std::isfinite(seconds) ? std::llround(std::clamp(seconds, 0.0, longest) * 1e6) : 0;
}

} // namespace

bool Queue::takeClusterLock() {
  return impl_->locks.takeCluster();
}
void Queue::releaseClusterLock() {
  impl_->locks.releaseCluster();
}

const std::string& Queue::queueId() const {
  return impl_->queueId;
}

std::vector<JobRecord> Queue::clusterJobs() {
  std::vector<JobRecord> result;
  impl_->database.read([&] {
    std::vector<JobId> ids;
    for (Query row(impl_->database, statements::clusterJobs); row.next();) {
      ids.push_back(row.number());
    }
    std::vector<JobId> others; // not open, but with tasks that are not over
    for (Query row(impl_->database, statements::jobsOfArrays); row.next();) {
      if (const JobId id = row.number(); std::find(ids.begin(), ids.end(), id) == ids.end()) {
        others.push_back(id);
      }
    }
    std::sort(others.begin(), others.end());
    ids.insert(ids.end(), others.begin(), std::unique(others.begin(), others.end()));
    for (const JobId id : ids) {
      if (std::optional<JobRecord> record = job(id); record && record->own) {
        result.push_back(std::move(*record));
      }
    }
  });
  return result;
}

std::vector<JobId> Queue::foreignClusterJobs() {
  std::vector<JobId> result;
  for (Query row(impl_->database, statements::foreignClusterJobs, impl_->home); row.next();) {
    result.push_back(row.number());
  }
  return result;
}

std::vector<WorkRecord> Queue::worksToSubmit(JobId id) {
  std::vector<WorkRecord> result;
  impl_->database.read([&] {
    {
      Query row(impl_->database, "SELECT state FROM jobs WHERE id = ?1 AND run_on = 'cluster'", id);
      if (!row.next() || !isOpen(row.state<JobState>())) {
        return;
      }
    }
    std::vector<FrameRun> given; // no two share a frame
    for (Query row(impl_->database, statements::openRuns, id); row.next();) {
      given.push_back(row.frames());
    }
    std::sort(given.begin(), given.end(),
              [](const FrameRun& one, const FrameRun& other) { return one.First < other.First; });
    for (Query row(impl_->database, statements::readyWorksOfJob, id); row.next();) {
      WorkRecord work;
      work.id = row.number();
      work.job = id;
      work.run = row.frames();
      const auto next = std::lower_bound(given.begin(), given.end(), work.run.First,
                                         [](const FrameRun& one, int first) { return one.Last < first; });
      if (next == given.end() || next->First > work.run.Last) {
        work.attempts = row.integer();
        work.attempt = row.number();
        result.push_back(work);
      }
    }
  });
  return result;
}

ArrayRecord Queue::addArray(JobId job, std::size_t perTask, const std::vector<ArrayWork>& works) {
  if (works.empty() || perTask == 0) {
    throw mistake("An array job has works, and tasks have some each");
  }
  ArrayRecord array;
  array.job = job;
  array.perTask = perTask;
  impl_->database.write([&] {
    Database& database = impl_->database;
    {
      Query row(database, "SELECT run_on FROM jobs WHERE id = ?1", job);
      if (!row.next() || row.state<RunOn>() != RunOn::Cluster) {
        throw mistake("Job " + std::to_string(job) + " is none of the cluster, or was removed");
      }
    }
    {
      Query row(database, "SELECT coalesce(max(number), 0) + 1 FROM arrays WHERE job = ?1", job);
      array.number = row.next() ? row.integer() : 1;
    }
    array.name = "trovik-" + impl_->queueId.substr(0, 8) + '-' + std::to_string(job) + '-' +
                 std::to_string(array.number);
    Query(database,
          "INSERT INTO arrays (job, number, state, per_task, name) VALUES (?1, ?2, 'prepared', ?3, ?4)", job,
          array.number, perTask, array.name)
        .run();
    array.id = database.lastId();
    for (std::size_t position = 0; position < works.size(); ++position) {
      const ArrayWork& work = works[position];
      Query(database, statements::insertArrayWork, array.id, position, work.work, work.run.First,
            work.run.Last, work.number)
          .run();
    }
  });
  return array;
}

void Queue::noteSubmitted(ArrayId array, std::int64_t cluster) {
  impl_->database.write([&] {
    Query(impl_->database,
          "UPDATE arrays SET state = 'submitted', cluster = ?2, submitted = ?3 "
          "WHERE id = ?1 AND state = 'prepared'",
          array, cluster, impl_->now())
        .run();
  });
}

void Queue::cancelArray(ArrayId array) {
  impl_->database.write([&] {
    Query(impl_->database, "UPDATE arrays SET canceling = 1 WHERE id = ?1 AND state <> 'over'", array).run();
  });
}

void Queue::dropArray(ArrayId array) {
  impl_->database.write([&] {
    Query(impl_->database,
          "UPDATE array_works SET open = 0 WHERE array = ?1 AND open = 1 AND NOT EXISTS "
          "(SELECT 1 FROM attempts a WHERE a.id = array_works.attempt AND a.state = 'running')",
          array)
        .run();
    impl_->endArrayWhenDone(array);
  });
}

std::vector<ArrayRecord> Queue::openArrays(std::optional<JobId> job) {
  return job ? readArrays(Query(impl_->database, statements::openArraysOfJob, *job))
             : readArrays(Query(impl_->database, statements::openArrays));
}

std::vector<ArrayRecord> Queue::leftArrays() {
  return readArrays(Query(impl_->database, statements::leftArrays));
}

void Queue::noteGone(ArrayId array) {
  impl_->database.write(
      [&] { Query(impl_->database, "UPDATE arrays SET gone = 1 WHERE id = ?1", array).run(); });
}

std::vector<ArrayWork> Queue::openArrayWorks(ArrayId array) {
  std::vector<ArrayWork> result;
  for (Query row(impl_->database, statements::openArrayWorks, array); row.next();) {
    ArrayWork& work = result.emplace_back();
    work.array = array;
    work.position = static_cast<std::size_t>(row.number());
    work.work = row.number();
    work.run = row.frames();
    work.number = row.integer();
    work.attempt = row.number();
    work.workState = row.state<WorkState>();
    work.state = row.text();
    work.reason = row.text();
    work.node = row.text();
    work.restarts = row.integer();
  }
  return result;
}

void Queue::noteTask(const ArrayWork& work) {
  {
    Query row(impl_->database, statements::taskOfArrayWork, work.array, work.position);
    if (!row.next() || (row.text() == work.state && row.text() == work.reason && row.text() == work.node &&
                        row.integer() == work.restarts)) {
      return;
    }
  }
  impl_->database.write([&] {
    Query(impl_->database, statements::noteTask, work.array, work.position, work.state, work.reason,
          work.node, work.restarts)
        .run();
  });
}

std::optional<Queue::Impl::OpenArrayWork> Queue::Impl::openArrayWork(ArrayId array, std::size_t position) {
  Query row(database, statements::openArrayWork, array, position);
  if (!row.next()) {
    return std::nullopt;
  }
  OpenArrayWork result;
  result.array = array;
  result.position = position;
  result.work = row.number();
  result.run = row.frames();
  result.number = row.integer();
  result.attempt = row.number();
  const bool isReady = row.state<WorkState>() == WorkState::Ready;
  result.ready = row.frames() == result.run && isReady;
  result.job = row.number();
  result.startsJob = row.flag();
  return result;
}

EngineId Queue::Impl::clusterEngine() {
  {
    Query row(database, "SELECT id FROM engines INDEXED BY engines_cluster WHERE state = 'cluster'");
    if (row.next()) {
      return row.number();
    }
  }
  Query(database,
        "INSERT INTO engines (state, slots, process, boot, entered) VALUES ('cluster', 0, 0, '', ?1)", now())
      .run();
  return database.lastId();
}

AttemptId Queue::Impl::insertArrayAttempt(const OpenArrayWork& given, WorkId work, Moment started) {
  const AttemptId attempt = nextAttempt();
  Query(database, statements::insertAttempt, attempt, given.job, work, clusterEngine(), given.run.First,
        given.run.Last, given.number, started, false)
      .run();
  if (given.startsJob) {
    Query(database, statements::startClusterJob, given.job, started).run();
  }
  return attempt;
}

AttemptId Queue::Impl::beginArrayWork(const OpenArrayWork& given, Moment started) {
  const AttemptId attempt = insertArrayAttempt(given, given.work, started);
  Query(database, statements::startArrayWork, given.work, nameOf(WorkState::Running), given.number, attempt)
      .run();
  Query(database, statements::noteArrayAttempt, given.array, given.position, attempt).run();
  return attempt;
}

AttemptId Queue::beginArrayWork(ArrayId array, std::size_t position, Moment started) {
  const auto known = [&](const std::optional<Impl::OpenArrayWork>& found) {
    return !found || found->attempt != 0 || !found->ready;
  };
  // Mostly it is; that needs no right to write.
  std::optional<Impl::OpenArrayWork> found = impl_->openArrayWork(array, position);
  if (!known(found)) {
    impl_->database.write([&] {
      found = impl_->openArrayWork(array, position);
      if (!known(found)) {
        found->attempt = impl_->beginArrayWork(*found, started);
      }
    });
  }
  return found ? found->attempt : 0;
}

void Queue::noteBeat(const AttemptBeat& beat) {
  impl_->database.write([&] {
    if (!Query(impl_->database, statements::isRunning, beat.attempt).next()) {
      return;
    }
    Query(impl_->database, statements::noteBeat, beat.attempt, beat.seen, microseconds(beat.silent),
          beat.logBytes, beat.stage, beat.log)
        .run();
    Query(impl_->database, statements::noteLog, beat.attempt, beat.log).run();
  });
}

std::vector<AttemptBeat> Queue::beats(JobId job) {
  std::vector<AttemptBeat> result;
  for (Query row(impl_->database, statements::beatsOfJob, job); row.next();) {
    AttemptBeat& beat = result.emplace_back();
    beat.attempt = row.number();
    beat.seen = row.moment();
    beat.silent = std::chrono::duration<double>(std::chrono::microseconds(row.number())).count();
    beat.logBytes = row.number();
    beat.stage = row.text();
    beat.log = row.text();
  }
  std::sort(result.begin(), result.end(),
            [](const AttemptBeat& one, const AttemptBeat& other) { return one.attempt < other.attempt; });
  return result;
}

bool Queue::settleArrayWork(ArrayId array, std::size_t position, Moment started, Outcome outcome) {
  if (outcome.state == AttemptState::Running) {
    throw mistake("An attempt cannot be settled as running");
  }
  bool again = false;
  impl_->database.write([&] {
    const std::optional<Impl::OpenArrayWork> found = impl_->openArrayWork(array, position);
    if (!found) {
      return;
    }
    outcome.attempt = found->attempt;
    if (found->attempt == 0 && !found->ready) {
      again = impl_->settleUnseen(*found, started, outcome);
    } else {
      if (found->attempt == 0) {
        outcome.attempt = impl_->beginArrayWork(*found, started);
      }
      again = impl_->settle(outcome, nullptr);
    }
    impl_->closeArrayWork(*found, outcome.attempt);
  });
  return again;
}

bool Queue::Impl::settleUnseen(const OpenArrayWork& given, Moment started, Outcome& outcome) {
  std::vector<Work> works;
  {
    Query row(database, statements::partsOfArrayWork, given.job, given.run.First, given.run.Last);
    while (row.next()) {
      Work& work = works.emplace_back();
      work.id = row.number();
      work.job = given.job;
      work.run = row.frames();
      work.position = row.number();
      work.attempts = row.integer();
      work.tries = row.integer();
      work.losses = row.integer();
      work.state = row.state<WorkState>();
    }
  }
  if (works.empty()) {
    return false; // in a sound queue they all stay till it is closed
  }
  outcome.attempt = insertArrayAttempt(given, works.front().id, started);
  for (Work& work : works) {
    work.attempts = given.number;
    work.attempt = outcome.attempt;
    Query(database, statements::startArrayWork, work.id, nameOf(work.state), work.attempts, work.attempt)
        .run();
  }
  Settling settling;
  Work first;
  if (!readSettling(outcome.attempt, settling, first)) {
    return false;
  }
  const std::optional<Outcome> other = withoutShared(outcome, settling, given.run);
  return settleWorks(other ? *other : outcome, settling, works);
}

void Queue::Impl::closeArrayWork(const OpenArrayWork& given, AttemptId attempt) {
  Query(database, statements::closeArrayWork, given.array, given.position, attempt).run();
  Query(database, statements::dropBeat, attempt).run();
  endArrayWhenDone(given.array);
}

void Queue::Impl::endArrayWhenDone(ArrayId array) {
  if (!Query(database, statements::anyOpenArrayWork, array).next()) {
    Query(database, "UPDATE arrays SET state = 'over' WHERE id = ?1", array).run();
  }
}

void Queue::closeArrayWork(ArrayId array, std::size_t position) {
  impl_->database.write([&] {
    const std::optional<Impl::OpenArrayWork> found = impl_->openArrayWork(array, position);
    if (found && found->attempt != 0) {
      throw mistake(nameOfArrayWork(array, position) + " has an attempt, so only a result closes it");
    }
    if (found) {
      impl_->closeArrayWork(*found, 0);
    }
  });
}

ClusterContact Queue::clusterContact() {
  ClusterContact contact;
  Query row(impl_->database, "SELECT asked, answered, problem FROM contact");
  if (row.next()) {
    contact.asked = row.moment();
    contact.answered = row.moment();
    contact.problem = row.text();
  }
  return contact;
}

void Queue::noteContact(const ClusterContact& contact) {
  impl_->database.write([&] {
    Query(impl_->database, "UPDATE contact SET asked = ?1, answered = ?2, problem = ?3", contact.asked,
          contact.answered, contact.problem)
        .run();
  });
}

} // namespace trovik
