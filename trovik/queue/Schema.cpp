#include "trovik/queue/Schema.h"

#include "trovik/queue/Database.h"

#include <array>
#include <string>
#include <thread>

// docs/formats.md tells what each column holds.
//
// What a finished work costs is above all the number of pages that its
// transaction changes, since each is written to the log as a whole. So
//
// - there is an index only where a question is asked that often, and most are
//   partial. The one of open works has the running ones of a job right before
//   the ready ones that are the next to be taken: mostly on the same page;
// - attempts and files number themselves. AUTOINCREMENT would write a page to
//   remember the highest number; here that is only put down when rows go;
// - files belong to attempts, and have no index by job;
// - a job's long stream has a table of its own, its row changes only with its
//   state, and numbers of works by state are counted and not kept;
// - jobs of a cluster are not in the index of open ones, so that local engines
//   never meet them, however many there are.

namespace trovik {
namespace {

constexpr const char* version1 = R"sql(
CREATE TABLE queue (
  id TEXT NOT NULL,
  last_attempt INTEGER NOT NULL DEFAULT 0,
  last_file INTEGER NOT NULL DEFAULT 0
) STRICT;

CREATE TABLE engines (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  state TEXT NOT NULL,
  slots INTEGER NOT NULL,
  process INTEGER NOT NULL,
  boot TEXT NOT NULL,
  entered INTEGER NOT NULL,
  gone INTEGER
) STRICT;
CREATE INDEX engines_alive ON engines (id) WHERE state = 'alive';

CREATE TABLE jobs (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  state TEXT NOT NULL,
  canceling INTEGER NOT NULL DEFAULT 0,
  aside INTEGER NOT NULL DEFAULT 0,
  end_due INTEGER NOT NULL DEFAULT 0,
  name TEXT NOT NULL,
  type TEXT NOT NULL,
  type_name TEXT NOT NULL,
  scene TEXT NOT NULL,
  range TEXT NOT NULL,
  has_frames INTEGER NOT NULL,
  note TEXT NOT NULL DEFAULT '',
  priority INTEGER NOT NULL,
  retries INTEGER NOT NULL,
  stop_after INTEGER NOT NULL,
  alike TEXT NOT NULL DEFAULT '',
  alike_count INTEGER NOT NULL DEFAULT 0,
  directory TEXT NOT NULL,
  output TEXT NOT NULL,
  logs TEXT NOT NULL,
  end_command TEXT NOT NULL,
  created INTEGER NOT NULL,
  started INTEGER,
  ended INTEGER
) STRICT;
CREATE INDEX jobs_open ON jobs (priority DESC, id) WHERE state IN ('waiting', 'running');
CREATE INDEX jobs_unfinished ON jobs (id) WHERE state IN ('waiting', 'running', 'stopped');
CREATE INDEX jobs_canceling ON jobs (id) WHERE canceling = 1;
CREATE INDEX jobs_due ON jobs (id) WHERE end_due = 1;
CREATE INDEX jobs_scene ON jobs (type, scene, output);

CREATE TABLE streams (
  job INTEGER PRIMARY KEY REFERENCES jobs (id) ON DELETE CASCADE,
  packed BLOB NOT NULL
) STRICT;

CREATE TABLE works (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  job INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  state TEXT NOT NULL,
  place INTEGER NOT NULL,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  attempts INTEGER NOT NULL,
  tries INTEGER NOT NULL,
  losses INTEGER NOT NULL,
  attempt INTEGER NOT NULL
) STRICT;
CREATE INDEX works_job ON works (job, first);
CREATE INDEX works_open ON works (job, state DESC, tries, place, first)
  WHERE state = 'ready' OR state = 'running';

CREATE TABLE attempts (
  id INTEGER PRIMARY KEY,
  job INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  work INTEGER NOT NULL,
  engine INTEGER NOT NULL REFERENCES engines (id),
  state TEXT NOT NULL,
  rule TEXT NOT NULL,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  number INTEGER NOT NULL,
  process INTEGER NOT NULL DEFAULT 0,
  exit_code INTEGER NOT NULL DEFAULT 0,
  signal INTEGER NOT NULL DEFAULT 0,
  again INTEGER NOT NULL DEFAULT 0,
  started INTEGER NOT NULL,
  ended INTEGER,
  duration INTEGER NOT NULL DEFAULT 0,
  good TEXT NOT NULL DEFAULT '',
  reason TEXT NOT NULL DEFAULT '',
  lines TEXT NOT NULL DEFAULT '',
  log TEXT NOT NULL DEFAULT '',
  command TEXT NOT NULL DEFAULT ''
) STRICT;
CREATE INDEX attempts_job ON attempts (job);

CREATE TABLE files (
  id INTEGER PRIMARY KEY,
  attempt INTEGER NOT NULL,
  frame INTEGER,
  checked INTEGER NOT NULL,
  size INTEGER NOT NULL,
  modified INTEGER NOT NULL,
  path TEXT NOT NULL,
  problem TEXT NOT NULL
) STRICT;
CREATE INDEX files_attempt ON files (attempt);
CREATE INDEX files_path ON files (path);

INSERT INTO queue (id) VALUES (lower(hex(randomblob(16))));
)sql";

// A place stays open until nobody can render its work any more. Its row has the
// frames that were given to the task, since those of the work may be cut later.
constexpr const char* version2 = R"sql(
ALTER TABLE jobs ADD COLUMN run_on TEXT NOT NULL DEFAULT 'local';
ALTER TABLE jobs ADD COLUMN folder TEXT NOT NULL DEFAULT '';
DROP INDEX jobs_open;
CREATE INDEX jobs_open ON jobs (priority DESC, id)
  WHERE run_on = 'local' AND state IN ('waiting', 'running');
CREATE INDEX jobs_cluster ON jobs (priority DESC, id)
  WHERE run_on = 'cluster' AND state IN ('waiting', 'running');

CREATE UNIQUE INDEX engines_cluster ON engines (state) WHERE state = 'cluster';

CREATE TABLE arrays (
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  job INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  number INTEGER NOT NULL,
  state TEXT NOT NULL,
  canceling INTEGER NOT NULL DEFAULT 0,
  per_task INTEGER NOT NULL,
  name TEXT NOT NULL,
  cluster INTEGER NOT NULL DEFAULT 0,
  submitted INTEGER NOT NULL DEFAULT 0
) STRICT;
CREATE UNIQUE INDEX arrays_job ON arrays (job, number);
CREATE INDEX arrays_open ON arrays (id) WHERE state IN ('prepared', 'submitted');

CREATE TABLE placed (
  array INTEGER NOT NULL REFERENCES arrays (id) ON DELETE CASCADE,
  place INTEGER NOT NULL,
  work INTEGER NOT NULL,
  first INTEGER NOT NULL,
  last INTEGER NOT NULL,
  number INTEGER NOT NULL,
  open INTEGER NOT NULL DEFAULT 1,
  attempt INTEGER NOT NULL DEFAULT 0,
  restarts INTEGER NOT NULL DEFAULT 0,
  state TEXT NOT NULL DEFAULT '',
  reason TEXT NOT NULL DEFAULT '',
  node TEXT NOT NULL DEFAULT '',
  PRIMARY KEY (array, place)
) STRICT, WITHOUT ROWID;
CREATE INDEX placed_open ON placed (array, place) WHERE open = 1;
CREATE UNIQUE INDEX placed_work ON placed (work) WHERE open = 1;

CREATE TABLE beats (
  attempt INTEGER PRIMARY KEY REFERENCES attempts (id) ON DELETE CASCADE,
  seen INTEGER NOT NULL,
  silent INTEGER NOT NULL,
  log_bytes INTEGER NOT NULL,
  stage TEXT NOT NULL,
  log TEXT NOT NULL
) STRICT;

CREATE TABLE contact (
  asked INTEGER NOT NULL DEFAULT 0,
  answered INTEGER NOT NULL DEFAULT 0,
  problem TEXT NOT NULL DEFAULT ''
) STRICT;
INSERT INTO contact DEFAULT VALUES;
)sql";

// Null until the program of an attempt was seen to end by itself.
constexpr const char* version3 = R"sql(
ALTER TABLE attempts ADD COLUMN printed INTEGER;
)sql";

// Which file of a queue a job was put into; see Queue::Impl::home.
constexpr const char* version4 = R"sql(
ALTER TABLE jobs ADD COLUMN home TEXT NOT NULL DEFAULT '';
)sql";

// A work of an array stays open until nobody can render it any more. It has a
// position of its own and not that of its task, since a task may have several.
// The cluster may keep tasks of an array that is over: it put one back and holds
// it. So an array is asked about until none is left.
constexpr const char* version5 = R"sql(
ALTER TABLE jobs DROP COLUMN aside;
ALTER TABLE works RENAME COLUMN place TO position;
ALTER TABLE placed RENAME TO array_works;
ALTER TABLE array_works RENAME COLUMN place TO position;
DROP INDEX placed_open;
DROP INDEX placed_work;
CREATE INDEX array_works_open ON array_works (array, position) WHERE open = 1;
CREATE UNIQUE INDEX array_works_work ON array_works (work) WHERE open = 1;
ALTER TABLE arrays ADD COLUMN gone INTEGER NOT NULL DEFAULT 0;
CREATE INDEX arrays_left ON arrays (id) WHERE state = 'over' AND cluster <> 0 AND gone = 0;
)sql";

// What files were there before a program started, while it runs: who judges an
// attempt whose engine died knows by it which are the attempt's own.
constexpr const char* version6 = R"sql(
ALTER TABLE attempts ADD COLUMN files_before TEXT NOT NULL DEFAULT '';
)sql";

// What the program of an attempt has used; null where that is not known.
constexpr const char* version7 = R"sql(
ALTER TABLE attempts ADD COLUMN user_time INTEGER;
ALTER TABLE attempts ADD COLUMN system_time INTEGER;
ALTER TABLE attempts ADD COLUMN peak_memory INTEGER;
ALTER TABLE attempts ADD COLUMN bytes_read INTEGER;
ALTER TABLE attempts ADD COLUMN bytes_written INTEGER;
)sql";

// Works that wait for other jobs have a state of their own, so that a claim
// never meets them; a job of which nothing else is left to be done is not among
// the open ones. The number of a forerunner outlives it.
constexpr const char* version8 = R"sql(
CREATE TABLE forerunners (
  job INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  after INTEGER NOT NULL,
  by_frame INTEGER NOT NULL,
  low INTEGER NOT NULL,
  high INTEGER NOT NULL,
  released INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY (job, after)
) STRICT, WITHOUT ROWID;
CREATE INDEX forerunners_after ON forerunners (after, job);
ALTER TABLE jobs ADD COLUMN follows INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN blocked INTEGER NOT NULL DEFAULT 0;
DROP INDEX jobs_open;
CREATE INDEX jobs_open ON jobs (priority DESC, id)
  WHERE run_on = 'local' AND blocked = 0 AND state IN ('waiting', 'running');
DROP INDEX works_open;
CREATE INDEX works_open ON works (job, state DESC, tries, position, first)
  WHERE state = 'ready' OR state = 'running' OR state = 'waiting';
)sql";

// How much there is of what is scarce, and what the works of a job take of it.
// What is taken is not kept, but counted among the works that run.
constexpr const char* version9 = R"sql(
CREATE TABLE limits (
  name TEXT NOT NULL PRIMARY KEY,
  amount INTEGER NOT NULL
) STRICT, WITHOUT ROWID;
CREATE TABLE job_limits (
  job INTEGER NOT NULL REFERENCES jobs (id) ON DELETE CASCADE,
  name TEXT NOT NULL,
  amount INTEGER NOT NULL,
  PRIMARY KEY (job, name)
) STRICT, WITHOUT ROWID;
ALTER TABLE jobs ADD COLUMN limited INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN slots_at_most INTEGER NOT NULL DEFAULT 0;
)sql";

// How many frames a work gets when it begins, times in microseconds; and what
// memory a work needs, as somebody said and as was seen.
constexpr const char* version10 = R"sql(
ALTER TABLE jobs ADD COLUMN auto_packets INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN packet_time INTEGER NOT NULL DEFAULT 60000000;
ALTER TABLE jobs ADD COLUMN packet_most INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN memory INTEGER NOT NULL DEFAULT 0;
ALTER TABLE jobs ADD COLUMN memory_seen INTEGER NOT NULL DEFAULT 0;
)sql";

// An attempt that was claimed ahead: its program starts within a moment, and
// whether it has can be told by its engine's lock file.
constexpr const char* version11 = R"sql(
ALTER TABLE attempts ADD COLUMN ahead INTEGER NOT NULL DEFAULT 0;
)sql";

constexpr std::array steps = {version1, version2, version3, version4,  version5, version6,
                              version7, version8, version9, version10, version11};

int numberOf(Database& database, const char* sql) {
  Query query(database, sql);
  return query.next() ? query.integer() : 0;
}

/// Many readers beside one writer. The setting stays with the file. While
/// another process makes it SQLite does not wait by itself.
void useWriteAheadLog(Database& database, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  for (;;) {
    try {
      database.execute("PRAGMA journal_mode = WAL");
      return;
    } catch (const QueueError& error) {
      if (error.kind != QueueError::Kind::Busy || std::chrono::steady_clock::now() >= deadline) {
        throw;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

[[noreturn]] void refuseForeign(const Database& database) {
  throw QueueError{QueueError::Kind::Damaged,
                   "The file " + inQuotes(database.file().Text()) + " is a database of another program",
                   "move the file away, and a new queue is begun; or choose another directory with --state"};
}

/// The version of the database; 0 for one that is empty.
int versionOf(Database& database, int newest) {
  int version = 0;
  int application = 0;
  int tables = 0;
  database.read([&] { // another process may make the queue between two questions
    version = numberOf(database, "PRAGMA user_version");
    application = numberOf(database, "PRAGMA application_id");
    tables = numberOf(database, "SELECT count(*) FROM sqlite_schema");
  });
  if (application != applicationId && (application != 0 || version != 0 || tables != 0)) {
    refuseForeign(database);
  }
  if (version < 0 || (application == applicationId && version == 0)) {
    throw database.damaged("its version cannot be, " + std::to_string(version));
  }
  if (version > newest) {
    throw QueueError{QueueError::Kind::Other,
                     "The queue " + inQuotes(database.file().Text()) + " is of version " +
                         std::to_string(version) + "; this program knows version " + std::to_string(newest),
                     "use the newer program, or another directory with --state"};
  }
  return version;
}

} // namespace

std::span<const char* const> schemaSteps() {
  return steps;
}

bool bringUpToDate(Database& database, std::span<const char* const> wanted) {
  const int newest = static_cast<int>(wanted.size());
  if (versionOf(database, newest) == newest) {
    return false;
  }
  useWriteAheadLog(database, database.patience());
  database.write([&] {
    // Another process may have done it meanwhile.
    for (int version = versionOf(database, newest); version < newest; ++version) {
      database.execute(wanted[static_cast<std::size_t>(version)]);
    }
    database.execute(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
    database.execute(("PRAGMA user_version = " + std::to_string(newest)).c_str());
  });
  return true;
}

} // namespace trovik
