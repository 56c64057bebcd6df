#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>
#include <functional>

// What has changed since somebody asked last.
//
// A queue tells that it has changed, but not where. Whoever watches all of it
// asks for a number of each job in one snapshot, and compares. The number is made
// of what a change cannot leave alone, as far as an index answers for it: of a
// job that has ended its row and its newest attempt; of one that has not, also
// how many of its works are in which state, and what runs.

namespace trovik {
namespace {

class Mark {
public:
  void add(std::uint64_t value) {
    // The finalizer of splitmix64: each bit of it changes half of the others.
    value_ += 0x9e3779b97f4a7c15U + value;
    value_ = (value_ ^ (value_ >> 30U)) * 0xbf58476d1ce4e5b9U;
    value_ = (value_ ^ (value_ >> 27U)) * 0x94d049bb133111ebU;
    value_ ^= value_ >> 31U;
  }
  void add(const std::string& text) { add(std::hash<std::string>()(text)); }
  /// All columns of all rows.
  void add(Query& rows, int columns) {
    while (rows.next()) {
      for (int i = 0; i < columns; ++i) {
        add(rows.isNull() ? rows.text() + "null" : rows.text());
      }
    }
  }
  std::uint64_t value() const { return value_; }

private:
  std::uint64_t value_ = 0;
};

constexpr const char* jobRows = "SELECT id, state, note, priority, retries, stop_after, slots_at_most, "
                                "canceling, blocked, started, ended, "
                                "follows, limited, run_on FROM jobs";
constexpr const char* newestAttempt = "SELECT max(id) FROM attempts INDEXED BY attempts_job WHERE job = ?1";
constexpr const char* openWorks =
    "SELECT state, count(*) FROM works INDEXED BY works_open "
    "WHERE job = ?1 AND (state = 'ready' OR state = 'running' OR state = 'waiting') GROUP BY state";
constexpr const char* newestFile = "SELECT max(id) FROM files INDEXED BY files_attempt WHERE attempt = ?1";
constexpr const char* forerunnerStates =
    "SELECT f.after, f.released, coalesce(j.state, '') FROM forerunners f LEFT JOIN jobs j ON j.id = f.after "
    "WHERE f.job = ?1 ORDER BY f.after";
constexpr const char* limitRows = "SELECT name, amount FROM job_limits WHERE job = ?1 ORDER BY name";
constexpr const char* arrayRows = "SELECT id, state, canceling, cluster FROM arrays INDEXED BY arrays_job "
                                  "WHERE job = ?1 ORDER BY number";
constexpr const char* arrayWorkRows =
    "SELECT w.position, w.attempt, w.state, w.reason, w.node, w.restarts FROM arrays a INDEXED BY arrays_job "
    "CROSS JOIN array_works w INDEXED BY array_works_open ON w.array = a.id AND w.open = 1 "
    "WHERE a.job = ?1 ORDER BY w.array, w.position";
constexpr const char* beatRow = "SELECT stage, log_bytes FROM beats WHERE attempt = ?1";

/// Of a job that has not come to its end.
void addOpen(Database& database, JobId job, bool onCluster, Mark& mark) {
  {
    Query rows(database, openWorks, job);
    mark.add(rows, 2);
  }
  std::vector<AttemptId> running;
  for (Query row(database, statements::runningOfJob, job); row.next();) {
    running.push_back(row.number());
  }
  std::sort(running.begin(), running.end());
  for (const AttemptId attempt : running) {
    mark.add(static_cast<std::uint64_t>(attempt));
    Query files(database, newestFile, attempt);
    mark.add(files, 1);
    if (onCluster) {
      Query beat(database, beatRow, attempt);
      mark.add(beat, 2);
    }
  }
  if (onCluster) {
    Query arrays(database, arrayRows, job);
    mark.add(arrays, 4);
    Query works(database, arrayWorkRows, job);
    mark.add(works, 6);
  }
}

} // namespace

std::map<JobId, std::uint64_t> Queue::marks() {
  std::map<JobId, std::uint64_t> result;
  impl_->database.read([&] {
    struct Row {
      JobId job = 0;
      bool isOpen = false;
      bool follows = false;
      bool isLimited = false;
      bool onCluster = false;
      Mark mark;
    };
    std::vector<Row> jobs;
    for (Query row(impl_->database, jobRows); row.next();) {
      Row& one = jobs.emplace_back();
      one.job = row.number();
      const auto state = row.state<JobState>();
      one.mark.add(nameOf(state));
      one.mark.add(row.text()); // note
      for (int i = 0; i < 4; ++i) {
        one.mark.add(static_cast<std::uint64_t>(row.number()));
      }
      const bool canceling = row.flag();
      one.mark.add(canceling ? 1 : 0);
      one.mark.add(row.flag() ? 1 : 0); // blocked
      for (int i = 0; i < 2; ++i) {     // started, ended
        one.mark.add(static_cast<std::uint64_t>(row.optionalNumber().value_or(-1)));
      }
      one.follows = row.flag();
      one.isLimited = row.flag();
      one.onCluster = row.state<RunOn>() == RunOn::Cluster;
      one.isOpen = isOpen(state) || state == JobState::Stopped || canceling;
    }
    for (Row& one : jobs) {
      Query attempt(impl_->database, newestAttempt, one.job);
      one.mark.add(attempt, 1);
      if (one.isOpen) {
        addOpen(impl_->database, one.job, one.onCluster, one.mark);
      }
      if (one.follows) {
        Query rows(impl_->database, forerunnerStates, one.job);
        one.mark.add(rows, 3);
      }
      if (one.isLimited) {
        Query rows(impl_->database, limitRows, one.job);
        one.mark.add(rows, 2);
      }
      result[one.job] = one.mark.value();
    }
  });
  return result;
}

std::uint64_t Queue::engineMark() {
  Mark mark;
  impl_->database.read([&] {
    for (const EngineRecord& engine : engines()) {
      mark.add(static_cast<std::uint64_t>(engine.id));
      mark.add(engine.lives ? 1 : 0);
      for (const AttemptId attempt : engine.running) {
        mark.add(static_cast<std::uint64_t>(attempt));
      }
    }
    Query limits(impl_->database, "SELECT name, amount FROM limits ORDER BY name");
    mark.add(limits, 2);
    Query contact(impl_->database, "SELECT problem FROM contact");
    mark.add(contact, 1);
  });
  return mark.value();
}

std::vector<EngineRecord> Queue::engines() {
  std::vector<EngineRecord> result;
  impl_->database.read([&] {
    Query row(impl_->database, "SELECT id, state, slots, process, entered FROM engines "
                               "WHERE state = 'alive' OR state = 'cluster' ORDER BY id");
    while (row.next()) {
      EngineRecord& engine = result.emplace_back();
      engine.id = row.number();
      engine.isCluster = row.text() == "cluster";
      engine.slots = static_cast<std::size_t>(std::max<std::int64_t>(0, row.number()));
      engine.process = row.integer();
      engine.entered = row.moment();
      engine.lives =
          engine.isCluster || impl_->locks.holds(engine.id) || impl_->locks.isHeldElsewhere(engine.id);
    }
  });
  for (EngineRecord& engine : result) {
    engine.running = impl_->runningOf(engine.id, Impl::Ahead::Without);
  }
  return result;
}

std::optional<FileRecord> Queue::file(std::int64_t id) {
  static const std::string sql = std::string("SELECT ") + fileColumns + " FROM files WHERE id = ?1";
  Query row(impl_->database, sql.c_str(), id);
  return row.next() ? std::optional(readFile(row)) : std::nullopt;
}

} // namespace trovik
