#include "trovik/queue/QueueImpl.h"

#include "host/foundation/Quoting.h"
#include "trovik/queue/Statements.h"

#include <filesystem>
#include <system_error>

// What users do with jobs: putting them in, stopping, retrying, removing.

namespace trovik {
namespace {

struct Standing {
  bool known = false;
  JobState state = JobState::Waiting;
  bool canceling = false;
  bool hasFrames = true;
};

Standing standingOf(Database& database, JobId job) {
  Standing result;
  Query row(database, "SELECT state, canceling, has_frames FROM jobs WHERE id = ?1", job);
  if (row.next()) {
    result.known = true;
    result.state = row.state<JobState>();
    result.canceling = row.flag();
    result.hasFrames = row.flag();
  }
  return result;
}

/// Whether the folder holds what looks like the log of an attempt.
bool holdsLogs(const std::string& folder) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    const std::string name = entry.path().filename().string();
    const bool begins = name.starts_with("work") || name.find_first_of("-0123456789") == 0;
    if (begins && name.ends_with(".log")) {
      return true;
    }
  }
  return false;
}

/// A statement that enters so many works of one state.
std::string worksStatement(std::size_t rows) {
  std::string sql =
      "INSERT INTO works (job, state, position, first, last, attempts, tries, losses, attempt) VALUES";
  for (std::size_t row = 0; row < rows; ++row) {
    sql += row == 0 ? " (?1, ?2, ?, ?, ?, 0, 0, 0, 0)" : ", (?1, ?2, ?, ?, ?, 0, 0, 0, 0)";
  }
  return sql;
}

/// Enters works one behind the other, many with a statement: what it costs to
/// begin and to end one is twice what it costs to enter a work.
void insertWorks(Database& database, JobId job, WorkState state, std::int64_t position,
                 std::span<const FrameRun> works) {
  constexpr std::size_t most = 64;
  static const std::string many = worksStatement(most);
  static const std::string one = worksStatement(1);
  std::vector<std::int64_t> numbers;
  while (!works.empty()) {
    const std::size_t count = works.size() < most ? 1 : most;
    numbers.clear();
    for (const FrameRun& run : works.first(count)) {
      numbers.insert(numbers.end(), {position++, run.First, run.Last});
    }
    Query(database, count == 1 ? one.c_str() : many.c_str(), job, nameOf(state), numbers).run();
    works = works.subspan(count);
  }
}

std::string endCommandText(const std::vector<std::string>& words) {
  std::vector<String> texts(words.begin(), words.end());
  return JoinCommandLine(texts);
}

} // namespace

JobId Queue::submit(const NewJob& job) {
  JobId id = 0;
  impl_->database.write([&] {
    Database& database = impl_->database;
    Query(database,
          "INSERT INTO jobs (state, name, type, type_name, scene, range, has_frames, priority, retries, "
          "stop_after, directory, output, logs, end_command, created, run_on, home) "
          "VALUES ('waiting', ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16)",
          job.name, job.type.GenString(), job.typeName, job.scene, job.range, job.hasFrames, job.priority,
          job.retries, job.stopAfter, job.directory, job.output, job.logs, endCommandText(job.endCommands),
          impl_->now(), nameOf(job.runOn), impl_->home)
        .run();
    id = database.lastId();
    if (job.runOn == RunOn::Local || !job.logs.empty()) {
      if (const std::string logs = impl_->logsFor(id, job.logs); logs != job.logs) {
        Query(database, "UPDATE jobs SET logs = ?2 WHERE id = ?1", id, logs).run();
      }
    }
    if (job.runOn == RunOn::Cluster) {
      const std::string folder = job.folder + '/' + impl_->queueId.substr(0, 8) + '-' + std::to_string(id);
      Query(database, "UPDATE jobs SET folder = ?2, logs = iif(logs = '', ?3, logs) WHERE id = ?1", id,
            folder, folder + "/logs")
          .run();
    }
    Query(database, "INSERT INTO streams (job, packed) VALUES (?1, ?2)", id, Blob{job.packed}).run();
    const std::vector<FrameRun> whole(job.hasFrames ? 0 : job.works.size());
    insertWorks(database, id, job.forerunners.empty() ? WorkState::Ready : WorkState::Waiting, 0,
                job.hasFrames ? job.works : whole);
    insertWorks(database, id, WorkState::Good, static_cast<std::int64_t>(job.works.size()), job.found);
    for (const FileRecord& file : job.foundFiles) {
      impl_->insertFile(file, -id);
    }
    for (const Forerunner& one : job.forerunners) {
      Query(database, "INSERT INTO forerunners (job, after, by_frame, low, high) VALUES (?1, ?2, ?3, ?4, ?5)",
            id, one.job, one.byFrame, one.low, one.high)
          .run();
    }
    impl_->setRules(id, job);
    if (!job.forerunners.empty()) {
      Query(database, "UPDATE jobs SET follows = 1 WHERE id = ?1", id).run();
      impl_->weigh(id);
    }
    impl_->endWhenDone(id); // all may have been found
  });
  return id;
}

std::string Queue::Impl::logsFor(JobId job, const std::string& wanted) {
  if (wanted.empty()) {
    const std::string usual = (directory.Text() + "/logs/" + std::to_string(job));
    std::error_code error;
    return std::filesystem::exists(usual, error) ? usual + suffix() : std::string();
  }
  const bool shared =
      Query(database, "SELECT 1 FROM jobs WHERE logs = ?1 AND id <> ?2 LIMIT 1", wanted, job).next();
  return shared || holdsLogs(wanted) ? wanted + '/' + std::to_string(job) + suffix() : wanted;
}

bool Queue::cancel(JobId id) {
  bool open = false;
  impl_->database.writeFromReserve([&] {
    const Standing job = standingOf(impl_->database, id);
    open = job.known && isOpen(job.state);
    if (!open) {
      return;
    }
    Query(impl_->database,
          "UPDATE works SET state = 'canceled' WHERE job = ?1 AND state IN ('ready', 'waiting')", id)
        .run();
    Query(impl_->database, "UPDATE jobs SET canceling = 1 WHERE id = ?1", id).run();
    Query(impl_->database, "UPDATE arrays SET canceling = 1 WHERE job = ?1 AND state <> 'over'", id).run();
    impl_->endWhenDone(id);
  });
  return open;
}

void Queue::stop(JobId id, const std::string& note) {
  impl_->database.writeFromReserve([&] {
    Query(impl_->database,
          "UPDATE jobs SET state = 'stopped', note = ?2, ended = ?3 "
          "WHERE id = ?1 AND state IN ('waiting', 'running') AND canceling = 0",
          id, note, impl_->now())
        .run();
  });
}

void Queue::resume(JobId id) {
  impl_->database.write([&] {
    if (const Standing job = standingOf(impl_->database, id); job.known && job.state == JobState::Stopped) {
      impl_->setOpen(id);
    }
  });
}

std::size_t Queue::retry(JobId id, const std::optional<RunSet>& only) {
  std::size_t count = 0;
  impl_->database.write([&] { count = impl_->retry(id, only); });
  return count;
}

std::size_t Queue::Impl::retry(JobId job, const std::optional<RunSet>& only) {
  const Standing standing = standingOf(database, job);
  if (!standing.known) {
    return 0;
  }
  Query(database, "UPDATE jobs SET home = ?2 WHERE id = ?1 AND home <> ?2", job, home).run();
  const std::vector<FrameRun> wanted = only && standing.hasFrames ? only->runs() : std::vector<FrameRun>();
  if (only && standing.hasFrames) {
    makeReady(job, wanted);
  } else {
    Query(database,
          "UPDATE works SET state = 'ready' WHERE job = ?1 AND state IN ('failed', 'canceled', iif(?2, "
          "'good', ''))",
          job, only.has_value())
        .run();
  }
  // Those that were ready too: the first attempt at each is to count anew.
  Query(database,
        "UPDATE works SET tries = 0, losses = 0 WHERE job = ?1 AND state IN ('ready', 'waiting') AND tries + "
        "losses > 0",
        job)
      .run();
  if (hasToDo(job) || (standing.canceling && hasRunning(job))) {
    setOpen(job);
  }
  Query row(database, "SELECT first, last FROM works WHERE job = ?1 AND state IN ('ready', 'waiting')", job);
  std::size_t count = 0;
  while (row.next()) {
    const FrameRun run = row.frames();
    if (!standing.hasFrames) {
      ++count;
    } else if (!only) {
      count += static_cast<std::size_t>(run.Count());
    } else {
      for (const FramePart& part : CutFrames(run, wanted)) {
        count += part.Inside ? static_cast<std::size_t>(part.Run.Count()) : 0;
      }
    }
  }
  weigh(job);
  weighFollowers(job);
  return count;
}

void Queue::Impl::makeReady(JobId job, std::span<const FrameRun> wanted) {
  cutWorks(job, wanted,
           "SELECT id, first, last, position, attempts, attempt, tries, losses, state FROM works "
           "WHERE job = ?1 AND state IN ('failed', 'canceled', 'good')",
           WorkState::Ready);
}

void Queue::Impl::cutWorks(JobId job, std::span<const FrameRun> wanted, const char* works, WorkState inside) {
  struct Cut {
    Work work;
    WorkState state;
    std::vector<FramePart> parts;
  };
  std::vector<Cut> cuts;
  for (Query row(database, works, job); row.next();) {
    Cut cut;
    cut.work.id = row.number();
    cut.work.job = job;
    cut.work.run = row.frames();
    cut.work.position = row.number();
    cut.work.attempts = row.integer();
    cut.work.attempt = row.number();
    cut.work.tries = row.integer();
    cut.work.losses = row.integer();
    cut.state = row.state<WorkState>();
    cut.parts = CutFrames(cut.work.run, wanted);
    if (cut.parts.size() > 1 || cut.parts.front().Inside) {
      cuts.push_back(std::move(cut));
    }
  }
  for (const Cut& cut : cuts) {
    std::vector<WorkPart> parts;
    for (const FramePart& part : cut.parts) {
      parts.push_back(part.Inside ? WorkPart{part.Run, inside, 0, 0}
                                  : WorkPart{part.Run, cut.state, cut.work.tries, cut.work.losses});
    }
    putParts(cut.work, parts);
  }
}

void Queue::remove(JobId id) {
  impl_->database.writeFromReserve([&] {
    if (impl_->hasRunning(id)) {
      throw QueueError{QueueError::Kind::Other, "Job " + std::to_string(id) + " still runs",
                       "cancel it first, with trovik cancel " + std::to_string(id)};
    }
    Query(impl_->database, statements::keepLastAttempt).run();
    Query(impl_->database,
          "UPDATE queue SET last_file = max(last_file, coalesce((SELECT max(id) FROM files), 0))")
        .run();
    Query(impl_->database,
          "DELETE FROM files WHERE attempt = -?1 OR attempt IN (SELECT id FROM attempts WHERE job = ?1)", id)
        .run();
    // What waited for a good job does not any more; what waited for another one
    // has to be released.
    Query(impl_->database,
          "UPDATE forerunners SET released = 1 WHERE after = ?1 AND (SELECT state FROM jobs WHERE id = ?1) = "
          "'good'",
          id)
        .run();
    Query(impl_->database, "DELETE FROM jobs WHERE id = ?1", id).run();
  });
}

std::vector<JobRecord> Queue::takeEnded() {
  std::vector<JobRecord> result;
  if (!Query(impl_->database, statements::dueJobs).next()) { // mostly; needs no right to write
    return result;
  }
  impl_->database.write([&] {
    result.clear();
    std::vector<JobId> due;
    for (Query row(impl_->database, statements::dueJobs); row.next();) {
      due.push_back(row.number());
    }
    for (const JobId id : due) {
      // One that stopped is over when the works that ran then have ended.
      if (!impl_->hasRunning(id)) {
        Query(impl_->database, "UPDATE jobs SET end_due = 0 WHERE id = ?1", id).run();
        if (std::optional<JobRecord> record = job(id)) {
          result.push_back(std::move(*record));
        }
      }
    }
  });
  return result;
}

} // namespace trovik
