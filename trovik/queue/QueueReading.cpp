#include "trovik/queue/JobFiles.h"
#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"
#include "trovik/records/RunEvents.h"

#include <algorithm>
#include <map>

// What the queue tells of jobs.

namespace trovik {
namespace {

// Kept statements are known by their address, so each text is made once.
std::string selectJobs(const char* rest) {
  return std::string("SELECT ") + jobColumns + " FROM jobs " + rest;
}
std::string selectAttempts(const char* rest) {
  return std::string("SELECT ") + attemptColumns + " FROM attempts " + rest;
}

// The files that were found, and those of the attempts.
const std::string foundFiles = "SELECT * FROM files f WHERE f.attempt = -?1 AND f.id > ?2";
const std::string madeFiles = "SELECT f.* FROM attempts a INDEXED BY attempts_job "
                              "CROSS JOIN files f INDEXED BY files_attempt ON f.attempt = a.id "
                              "WHERE a.job = ?1 AND f.id > ?2";
const std::string filesOfJob = " FROM (" + foundFiles + " UNION ALL " + madeFiles + ") ";

std::optional<JobId> idIn(Query& row) {
  return row.next() ? std::optional(row.number()) : std::nullopt;
}

} // namespace

std::optional<JobRecord> Queue::job(JobId id) {
  static const std::string sql = selectJobs("WHERE id = ?1");
  Query row(impl_->database, sql.c_str(), id);
  return row.next() ? std::optional(readJob(row, *this, impl_->home)) : std::nullopt;
}

std::vector<JobRecord> Queue::jobs() {
  static const std::string sql = selectJobs("ORDER BY id DESC");
  std::vector<JobRecord> result;
  for (Query row(impl_->database, sql.c_str()); row.next();) {
    result.push_back(readJob(row, *this, impl_->home));
  }
  return result;
}

std::string Queue::packed(JobId id) {
  Query row(impl_->database, "SELECT packed FROM streams WHERE job = ?1", id);
  return row.next() ? row.text() : std::string();
}

JobFrames Queue::frames(JobId id) {
  JobFrames result;
  bool hasFrames = true;
  {
    Query row(impl_->database, "SELECT has_frames FROM jobs WHERE id = ?1", id);
    hasFrames = row.next() && row.flag();
  }
  Query row(impl_->database, "SELECT state, first, last FROM works WHERE job = ?1 ORDER BY first", id);
  while (row.next()) {
    const auto state = row.state<WorkState>();
    const FrameRun run = row.frames();
    const auto count = [&](RunSet& set, std::size_t& works) {
      ++works;
      if (hasFrames) {
        set.add(run);
      }
    };
    switch (state) {
    case WorkState::Waiting:
      count(result.waiting, result.waitingWorks);
      [[fallthrough]];
    case WorkState::Ready:
      count(result.ready, result.readyWorks);
      break;
    case WorkState::Running:
      count(result.running, result.runningWorks);
      break;
    case WorkState::Good:
      count(result.good, result.goodWorks);
      break;
    case WorkState::Failed:
      count(result.failed, result.failedWorks);
      break;
    case WorkState::Canceled:
      count(result.canceled, result.canceledWorks);
      break;
    }
  }
  return result;
}

std::optional<JobId> Queue::latest(const UID& type, const std::string& scene, const std::string& output) {
  Query row(impl_->database,
            "SELECT id FROM jobs INDEXED BY jobs_scene WHERE type = ?1 AND scene = ?2 AND output = ?3 "
            "ORDER BY id DESC LIMIT 1",
            type.GenString(), scene, output);
  return idIn(row);
}

std::vector<WorkRecord> Queue::works(JobId id, std::optional<WorkState> state) {
  std::vector<WorkRecord> result;
  Query row(impl_->database,
            "SELECT id, first, last, state, attempts, attempt FROM works "
            "WHERE job = ?1 AND (?2 IS NULL OR state = ?2) ORDER BY first, id",
            id, state ? std::optional<std::string>(nameOf(*state)) : std::nullopt);
  while (row.next()) {
    WorkRecord work;
    work.id = row.number();
    work.job = id;
    work.run = row.frames();
    work.state = row.state<WorkState>();
    work.attempts = row.integer();
    work.attempt = row.number();
    result.push_back(work);
  }
  return result;
}

std::vector<AttemptRecord> Queue::attempts(JobId id, AttemptId after) {
  std::vector<AttemptRecord> result;
  eachAttempt(
      id, [&result](AttemptRecord&& attempt) { result.push_back(std::move(attempt)); }, after);
  return result;
}

void Queue::eachAttempt(JobId id, const std::function<void(AttemptRecord&&)>& take, AttemptId after) {
  static const std::string sql =
      selectAttempts("INDEXED BY attempts_job WHERE job = ?1 AND id > ?2 ORDER BY id");
  for (Query row(impl_->database, sql.c_str(), id, after); row.next();) {
    take(readAttempt(row, impl_->database));
  }
}

std::vector<AttemptRecord> Queue::attemptsAt(JobId id, int frame) {
  static const std::string sql =
      selectAttempts("INDEXED BY attempts_job WHERE job = ?1 AND first <= ?2 AND last >= ?2 ORDER BY id");
  std::vector<AttemptRecord> result;
  for (Query row(impl_->database, sql.c_str(), id, frame); row.next();) {
    result.push_back(readAttempt(row, impl_->database));
  }
  return result;
}

std::optional<AttemptRecord> Queue::attempt(AttemptId id) {
  static const std::string sql = selectAttempts("WHERE id = ?1");
  Query row(impl_->database, sql.c_str(), id);
  return row.next() ? std::optional(readAttempt(row, impl_->database)) : std::nullopt;
}

std::map<AttemptId, AttemptTime> Queue::times(JobId id) {
  std::map<AttemptId, AttemptTime> result;
  eachTime(id, [&result](AttemptId attempt, const AttemptTime& time) {
    result.emplace_hint(result.end(), attempt, time);
  });
  return result;
}

void Queue::eachTime(JobId id, const std::function<void(AttemptId, const AttemptTime&)>& take) {
  Query row(impl_->database,
            "SELECT id, state, duration, first, last FROM attempts INDEXED BY attempts_job "
            "WHERE job = ?1 AND state <> 'running' ORDER BY id",
            id);
  while (row.next()) {
    const AttemptId attempt = row.number();
    const auto state = row.state<AttemptState>();
    const std::chrono::microseconds duration(row.number());
    take(attempt, AttemptTime{state, duration, row.frames()});
  }
}

std::optional<ProcessUsage> Queue::usage(JobId id) {
  // Numbers of a file may be any, and what is too large for SQLite is an error.
  constexpr const char* sql =
      "SELECT cast(min(total(user_time), 9e18) AS INTEGER), cast(min(total(system_time), 9e18) AS INTEGER), "
      "max(peak_memory), iif(count(bytes_read), cast(min(total(bytes_read), 9e18) AS INTEGER), NULL), "
      "iif(count(bytes_written), cast(min(total(bytes_written), 9e18) AS INTEGER), NULL) "
      "FROM attempts INDEXED BY attempts_job WHERE job = ?1 AND user_time IS NOT NULL";
  Query row(impl_->database, sql, id);
  return row.next() ? row.usage() : std::nullopt;
}

std::vector<AttemptId> Queue::runningAttempts(JobId id) {
  std::vector<AttemptId> result;
  for (Query row(impl_->database, statements::runningOfJob, id); row.next();) {
    result.push_back(row.number());
  }
  std::sort(result.begin(), result.end());
  return result;
}

std::vector<FileRecord> Queue::files(JobId id, std::int64_t after) {
  static const std::string all = std::string("SELECT ") + fileColumns + filesOfJob + "ORDER BY id";
  const char* sql = after > 0 ? statements::newFilesOfJob : all.c_str();
  std::vector<FileRecord> result;
  for (Query row(impl_->database, sql, id, after); row.next();) {
    result.push_back(readFile(row));
  }
  return result;
}

std::optional<FileRecord> Queue::lastOf(const std::string& path, std::int64_t before) {
  Query row(impl_->database, statements::lastOfFile, path, before);
  return row.next() ? std::optional(readFile(row)) : std::nullopt;
}

namespace {

void addFailures(Database& database, JobId job, RunSummary& summary) {
  std::map<std::string, std::size_t> places;
  Query row(database,
            "SELECT w.first, w.last, a.reason, a.log FROM works w LEFT JOIN attempts a ON a.id = w.attempt "
            "WHERE w.job = ?1 AND w.state = 'failed' ORDER BY w.attempt, w.first",
            job);
  while (row.next()) {
    const FrameRun run = row.frames();
    std::string reason = row.text();
    const auto [place, isNew] = places.emplace(reason, summary.failures.size());
    if (isNew) {
      FailureGroup group;
      group.reason = std::move(reason);
      group.log = Path(row.text());
      summary.failures.push_back(std::move(group));
    }
    FailureGroup& group = summary.failures[place->second];
    ++group.works;
    if (summary.info.hasFrames) {
      group.frames.add(run);
    }
  }
}

} // namespace

RunSummary Queue::summary(JobId id) {
  RunSummary summary;
  impl_->database.read([&] {
    if (const std::optional<JobRecord> record = job(id)) {
      const JobView view{*record, frames(id)};
      impl_->summarize(view.job, view.frames, summary);
      for (const JobFile& file : filesOf(*this, view)) {
        if (isGood(file)) {
          ++summary.images[Path(file.path).Branch(true, true)];
        }
      }
    }
  });
  summary.engine = hasOtherEngine(0);
  return summary;
}

void Queue::Impl::summarize(const JobRecord& record, const JobFrames& stand, RunSummary& summary) {
  RunInfo& info = summary.info;
  info.job = record.id;
  info.name = record.name;
  info.onCluster = record.runOn == RunOn::Cluster;
  info.type = record.typeName;
  info.scene = record.scene;
  info.range = record.range;
  info.hasFrames = record.hasFrames;
  info.works = stand.works();
  info.logs = Path(record.logs);
  summary.good = stand.good;
  summary.failed = stand.failed;
  for (const RunSet* set : {&stand.ready, &stand.running, &stand.canceled}) {
    summary.notDone.add(*set);
  }
  info.frames =
      record.hasFrames ? summary.good.count() + summary.failed.count() + summary.notDone.count() : 1;
  summary.goodWorks = stand.goodWorks;
  summary.failedWorks = stand.failedWorks;
  summary.state = record.state;
  summary.canceledWorks = stand.canceledWorks;
  summary.notDoneWorks = stand.readyWorks + stand.runningWorks + stand.canceledWorks;
  addFailures(database, record.id, summary);
  if (record.started) {
    summary.duration = std::max(record.ended.value_or(now()) - *record.started, Moment::duration(0));
  }
}

} // namespace trovik
