#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/QueueTest.h"
#include "trovik/queue/Database.h"
#include "trovik/queue/NetworkFileSystem.h"
#include "trovik/queue/Schema.h"
#include "trovik/queue/Statements.h"
#include "trovik/records/RunEvents.h"

#include <array>
#include <chrono>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

// Counts the syncs of the queue's log: SQLite calls this one instead of the
// system library's.
std::size_t logSyncs = 0;

} // namespace

extern "C" int fdatasync(int descriptor) {
  const std::string name =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
  if (name.ends_with("/queue.db-wal")) {
    ++logSyncs;
  }
  static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fdatasync"));
  return real(descriptor);
}

namespace trovik {
namespace {

// The file of the queue: what it is refused for, how it is brought up to date,
// what happens when its disk is full, and what is on the disk when.

class QueueFile : public testing::Test {
protected:
  std::string databaseFile() const { return directory.file("queue.db"); }
  QueueError openError(const Queue::Settings& settings = {}) const {
    return queueErrorOf([&] { Queue(Path(directory.path()), settings); });
  }
  void makeDatabase(const std::string& sql) const { Database(Path(databaseFile())).execute(sql.c_str()); }
  std::int64_t ask(const char* sql) const { return ask(databaseFile(), sql); }
  static std::int64_t ask(const std::string& file, const char* sql) {
    Database database{Path(file)};
    Query row(database, sql);
    row.next();
    return row.number();
  }

  TemporaryDirectory directory;
};

TEST_F(QueueFile, ItsFolderIsMadeWhereItIsMissing) {
  const std::string folder = directory.file("a/b");
  const Queue queue{Path(folder)};
  EXPECT_TRUE(std::filesystem::exists(folder + "/queue.db"));
  EXPECT_EQ(queue.directory().Text(), folder);
  EXPECT_EQ(queue.logDirectory(7).Text(), folder + "/logs/7");
}

TEST_F(QueueFile, AFolderThatCannotBeIsSaid) {
  const std::string inTheWay = directory.write("file", "");
  const QueueError error = queueErrorOf([&] { Queue{Path(inTheWay + "/queue")}; });
  EXPECT_EQ(error.message, "Cannot make the folder of the queue \"" + inTheWay + "/queue\": Not a directory");
  EXPECT_EQ(error.hint, "choose another with --state");
}

TEST_F(QueueFile, AFileThatCannotBeOpenedIsSaid) {
  directory.makeDirectory("queue.db");
  const QueueError error = openError();
  EXPECT_EQ(error.kind, QueueError::Kind::Other);
  EXPECT_EQ(error.message,
            "Cannot use the queue \"" + databaseFile() + "\": unable to open database file, Is a directory");
  EXPECT_EQ(error.hint, "give yourself the right to write there, or choose another directory with --state");
}

TEST_F(QueueFile, AFolderNamedLikeAnAddressIsAFolder) {
  const std::string folder = directory.makeDirectory("file:x?mode=memory#\xff");
  {
    Queue queue{Path(folder)};
    queue.submit(jobOf("1"));
  }
  EXPECT_EQ(Queue{Path(folder)}.jobs().size(), 1U);
}

TEST_F(QueueFile, ItKeepsWhatWasPutIn) {
  JobId job = 0;
  {
    Queue queue{Path(directory.path())};
    job = queue.submit(jobOf("1-3"));
  }
  Queue queue{Path(directory.path())};
  EXPECT_EQ(queue.frames(job).ready.text(), "1-3");
}

TEST_F(QueueFile, WhatIsNoDatabaseIsDamaged) {
  directory.write("queue.db", std::string(5000, 'x'));
  const QueueError error = openError();
  EXPECT_EQ(error.kind, QueueError::Kind::Damaged);
  EXPECT_EQ(error.message, "The queue is damaged: \"" + databaseFile() + "\" (file is not a database)");
  EXPECT_EQ(error.hint, "move the file away, and a new queue is begun; logs and images stay where they are");
}

TEST_F(QueueFile, ACutDatabaseIsDamaged) {
  {
    Queue queue{Path(directory.path())};
    NewJob job = jobOf("1");
    for (int frame = 1; frame <= 5000; ++frame) {
      job.found.push_back({frame, frame});
    }
    queue.submit(job);
  }
  std::filesystem::resize_file(databaseFile(), std::uintmax_t{8} * 4096);
  const QueueError error = queueErrorOf([&] {
    Queue queue{Path(directory.path())};
    queue.frames(1);
  });
  EXPECT_EQ(error.kind, QueueError::Kind::Damaged);
  EXPECT_EQ(error.message,
            "The queue is damaged: \"" + databaseFile() + "\" (database disk image is malformed)");
}

TEST_F(QueueFile, AFileOfNoBytesIsANewQueue) {
  directory.write("queue.db", "");
  EXPECT_TRUE(Queue{Path(directory.path())}.jobs().empty());
}

TEST_F(QueueFile, ADatabaseOfAnotherProgramIsRefusedAndLeftAlone) {
  makeDatabase("CREATE TABLE recipes (name TEXT)");
  const QueueError error = openError();
  EXPECT_EQ(error.kind, QueueError::Kind::Damaged);
  EXPECT_EQ(error.message, "The file \"" + databaseFile() + "\" is a database of another program");
  EXPECT_EQ(error.hint,
            "move the file away, and a new queue is begun; or choose another directory with --state");
  EXPECT_EQ(ask("SELECT count(*) FROM sqlite_schema"), 1);
}

TEST_F(QueueFile, ANewerVersionIsRefusedAndLeftAlone) {
  { Queue{Path(directory.path())}; }
  makeDatabase("PRAGMA user_version = 99");
  const QueueError error = openError();
  EXPECT_EQ(error.kind, QueueError::Kind::Other);
  EXPECT_EQ(error.message, "The queue \"" + databaseFile() +
                               "\" is of version 99; this program knows version " +
                               std::to_string(schemaSteps().size()));
  EXPECT_EQ(error.hint, "use the newer program, or another directory with --state");
  EXPECT_EQ(ask("PRAGMA user_version"), 99);
}

TEST_F(QueueFile, AVersionThatCannotBeIsDamaged) {
  { Queue{Path(directory.path())}; }
  makeDatabase("PRAGMA user_version = -3");
  EXPECT_EQ(openError().message,
            "The queue is damaged: \"" + databaseFile() + "\" (its version cannot be, -3)");
}

/// A queue as version 1 leaves it, small.
constexpr const char* smallVersion1 = R"sql(
CREATE TABLE queue (id TEXT NOT NULL);
INSERT INTO queue VALUES ('0123456789abcdef');
CREATE TABLE jobs (id INTEGER PRIMARY KEY, name TEXT NOT NULL);
INSERT INTO jobs VALUES (1, 'shot'), (2, 'other');
PRAGMA application_id = 1416787537;
PRAGMA user_version = 1;
)sql";

TEST_F(QueueFile, AnOlderVersionIsBroughtUpStepByStep) {
  makeDatabase(smallVersion1);
  Database database{Path(databaseFile())};
  constexpr std::array steps = {
      "CREATE TABLE never (x)", "ALTER TABLE jobs ADD COLUMN length INTEGER NOT NULL DEFAULT 0",
      "UPDATE jobs SET length = length(name); CREATE INDEX jobs_length ON jobs (length)"};
  bringUpToDate(database, steps);
  EXPECT_EQ(ask("PRAGMA user_version"), 3);
  EXPECT_EQ(ask("SELECT sum(length) FROM jobs"), 9);
  EXPECT_EQ(ask("SELECT count(*) FROM sqlite_schema WHERE name = 'never'"), 0);
  bringUpToDate(database, steps); // nothing is left to do
  EXPECT_EQ(ask("SELECT sum(length) FROM jobs"), 9);
}

TEST_F(QueueFile, AStepThatFailsUndoesThoseBeforeIt) {
  makeDatabase(smallVersion1);
  Database database{Path(databaseFile())};
  constexpr std::array steps = {"", "ALTER TABLE jobs ADD COLUMN length INTEGER", "UPDATE nowhere SET x = 1"};
  const QueueError error = queueErrorOf([&] { bringUpToDate(database, steps); });
  EXPECT_EQ(error.message, "The queue \"" + databaseFile() + "\" failed: no such table: nowhere");
  EXPECT_EQ(ask("PRAGMA user_version"), 1);
  EXPECT_EQ(ask("SELECT count(*) FROM pragma_table_info('jobs')"), 2);
}

TEST_F(QueueFile, AQueueOfVersion1GoesOnWithItsJobs) {
  {
    Database database{Path(databaseFile())};
    bringUpToDate(database, schemaSteps().first(1));
  }
  EXPECT_EQ(ask("PRAGMA user_version"), 1);
  // As the program of that version wrote them: a job whose second work ran when
  // its engine died, and one that is over.
  makeDatabase(R"sql(
    INSERT INTO engines (state, slots, process, boot, entered) VALUES ('alive', 2, 4711, 'before', 5);
    INSERT INTO jobs (state, name, type, type_name, scene, range, has_frames, priority, retries, stop_after,
                      directory, output, logs, end_command, created, started, ended)
    VALUES ('running', 'shot', '5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10', 'Sketch', '/s.skt', '1-6', 1, 50, 0, 10,
            '/home/ada', '/out', '', 'mail ada', 1000, 2000, NULL),
           ('good', 'other', '5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10', 'Sketch', '/s.skt', '1', 1, 60, 0, 10,
            '/home/ada', '/out', '/logs', '', 1000, NULL, 3000);
    INSERT INTO streams (job, packed) VALUES (1, X'00FF'), (2, X'01');
    INSERT INTO works (job, state, place, first, last, attempts, tries, losses, attempt)
    VALUES (1, 'good', 0, 1, 2, 1, 0, 0, 1), (1, 'running', 1, 3, 4, 1, 0, 0, 2), (1, 'ready', 2, 5, 6, 0, 0, 0, 0),
           (2, 'good', 0, 1, 1, 0, 0, 0, 0);
    INSERT INTO attempts (id, job, work, engine, state, rule, first, last, number, started, ended, good)
    VALUES (1, 1, 1, 1, 'good', 'result', 1, 2, 1, 2000, 2500, '1-2'),
           (2, 1, 2, 1, 'running', 'none', 3, 4, 1, 2500, NULL, '');
    INSERT INTO files (id, attempt, frame, checked, size, modified, path, problem)
    VALUES (1, 1, 1, 1, 10, 20, '/out/1.png', '');
  )sql");

  Queue queue{Path(directory.path())};
  EXPECT_EQ(ask("PRAGMA user_version"), static_cast<int>(schemaSteps().size()));
  const std::vector<JobRecord> jobs = queue.jobs();
  ASSERT_EQ(jobs.size(), 2U);
  EXPECT_EQ(jobs[0].state, JobState::Good);
  EXPECT_EQ(jobs[0].logs, "/logs");
  EXPECT_EQ(jobs[1].name, "shot");
  EXPECT_EQ(jobs[1].state, JobState::Running);
  EXPECT_EQ(jobs[1].endCommands, (std::vector<std::string>{"mail", "ada"}));
  EXPECT_EQ(jobs[1].runOn, RunOn::Local);
  EXPECT_EQ(jobs[1].folder, "");
  EXPECT_EQ(queue.packed(1), std::string("\0\xff", 2));
  EXPECT_EQ(queue.files(1).size(), 1U);
  EXPECT_TRUE(queue.clusterJobs().empty());

  const std::vector<LostAttempt> lostOnes = queue.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  queue.settle(lost(2));
  queue.releaseLost();
  const EngineId engine = queue.enterEngine(1);
  const std::vector<Claim> claims = queue.claim(engine, 5, std::nullopt);
  ASSERT_EQ(claims.size(), 2U);
  for (const Claim& claim : claims) {
    EXPECT_GT(claim.attempt, 2);
    queue.settle(good(claim.attempt));
  }
  EXPECT_EQ(queue.job(1).value().state, JobState::Good);
  EXPECT_EQ(queue.frames(1).good.text(), "1-6");
  EXPECT_EQ(brokenInvariants(databaseFile()), std::vector<std::string>());

  NewJob job = jobOf("1");
  job.runOn = RunOn::Cluster;
  job.folder = "/shared";
  EXPECT_EQ(queue.submit(job), 3);
  EXPECT_EQ(queue.worksToSubmit(3).size(), 1U);
}

/// What a program before version 5 wrote: a job whose array has one work that
/// began, one that waits and one that is over; one whose array is over; one that
/// the user stopped, and one that stopped by itself.
constexpr const char* arraysBeforeVersion5 = R"sql(
  INSERT INTO engines (state, slots, process, boot, entered) VALUES ('cluster', 0, 0, '', 5), ('gone', 1, 4711, 'before', 5);
  INSERT INTO jobs (state, aside, name, type, type_name, scene, range, has_frames, priority, retries, stop_after,
                    directory, output, logs, end_command, created, started, ended, run_on, folder)
  VALUES ('running', 0, 'shot', '5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10', 'Sketch', '/s.skt', '1-8', 1, 50, 0, 10,
          '/home/ada', '/out', '', '', 1000, 2000, NULL, 'cluster', '/shared/q-1'),
         ('good', 0, 'old', '5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10', 'Sketch', '/s.skt', '1', 1, 50, 0, 10,
          '/home/ada', '/out', '', '', 1000, 2000, 3000, 'cluster', '/shared/q-2'),
         ('stopped', 1, 'user', '5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10', 'Sketch', '/s.skt', '1', 1, 50, 0, 10,
          '/home/ada', '/out', '', '', 1000, NULL, 3000, 'local', ''),
         ('stopped', 0, 'self', '5f0c9a5e-6d0b-4c86-9d0f-2f4f3b1f7a10', 'Sketch', '/s.skt', '1-2', 1, 50, 0, 10,
          '/home/ada', '/out', '', '', 1000, 2000, 3000, 'local', '');
  INSERT INTO streams (job, packed) VALUES (1, X'01'), (2, X'02'), (3, X'03'), (4, X'04');
  INSERT INTO works (job, state, place, first, last, attempts, tries, losses, attempt)
  VALUES (1, 'good', 0, 1, 2, 1, 0, 0, 1), (1, 'running', 1, 3, 4, 1, 0, 0, 2), (1, 'ready', 2, 5, 6, 0, 0, 0, 0),
         (1, 'ready', 4, 8, 8, 0, 0, 0, 0), (1, 'ready', 3, 7, 7, 0, 0, 0, 0),
         (2, 'good', 0, 1, 1, 1, 0, 0, 3), (3, 'ready', 0, 1, 1, 0, 0, 0, 0), (4, 'failed', 0, 1, 1, 1, 1, 0, 4), (4, 'ready', 1, 2, 2, 0, 0, 0, 0);
  INSERT INTO attempts (id, job, work, engine, state, rule, first, last, number, started, ended, good)
  VALUES (1, 1, 1, 1, 'good', 'result', 1, 2, 1, 2000, 2500, '1-2'),
         (2, 1, 2, 1, 'running', 'none', 3, 4, 1, 2500, NULL, ''),
         (3, 2, 6, 1, 'good', 'result', 1, 1, 1, 2000, 2500, '1'),
         (4, 4, 8, 2, 'failed', 'result', 1, 1, 1, 2000, 2500, '');
  INSERT INTO arrays (job, number, state, per_task, name, cluster, submitted)
  VALUES (1, 1, 'submitted', 2, 'trovik-q-1-1', 4711, 1500), (2, 1, 'over', 1, 'trovik-q-2-1', 4700, 1400);
  INSERT INTO placed (array, place, work, first, last, number, open, attempt, state, node)
  VALUES (1, 0, 1, 1, 2, 1, 0, 1, 'COMPLETED', 'n1'), (1, 1, 2, 3, 4, 1, 1, 2, 'RUNNING', 'n2'),
         (1, 2, 3, 5, 6, 1, 1, 0, 'PENDING', ''), (2, 0, 6, 1, 1, 1, 0, 3, 'RUNNING', 'n1');
  INSERT INTO beats (attempt, seen, silent, log_bytes, stage, log) VALUES (2, 2600, 0, 7, 'running', '/log');
)sql";

TEST_F(QueueFile, AQueueOfAnOlderVersionGoesOnWithItsArrays) {
  for (const std::size_t version : {2U, 3U, 4U}) {
    SCOPED_TRACE(version);
    const TemporaryDirectory place;
    const std::string name = place.file("queue.db");
    bringUpToDate(*std::make_unique<Database>(Path(name)), schemaSteps().first(version));
    Database(Path(name)).execute(arraysBeforeVersion5);

    Queue queue{Path(place.path())};
    EXPECT_EQ(ask(name, "PRAGMA user_version"), static_cast<std::int64_t>(schemaSteps().size()));
    EXPECT_EQ(brokenInvariants(name), std::vector<std::string>());
    const std::vector<JobRecord> jobs = queue.jobs();
    ASSERT_EQ(jobs.size(), 4U);
    EXPECT_EQ(queue.job(3)->state, JobState::Stopped);
    EXPECT_EQ(queue.job(4)->state, JobState::Stopped);
    EXPECT_EQ(queue.frames(1).good.text(), "1-2");
    EXPECT_EQ(queue.frames(1).running.text(), "3-4");
    EXPECT_EQ(queue.frames(1).ready.text(), "5-8");
    const std::vector<ArrayRecord> arrays = queue.openArrays();
    ASSERT_EQ(arrays.size(), 1U);
    EXPECT_EQ(arrays[0].cluster, 4711);
    EXPECT_EQ(arrays[0].perTask, 2U);
    const std::vector<ArrayWork> open = queue.openArrayWorks(arrays[0].id);
    ASSERT_EQ(open.size(), 2U);
    EXPECT_EQ(open[0].position, 1U);
    EXPECT_EQ(open[0].attempt, 2);
    EXPECT_EQ(open[0].node, "n2");
    EXPECT_EQ(open[1].position, 2U);
    EXPECT_EQ(open[1].run.First, 5);
    ASSERT_EQ(queue.beats(1).size(), 1U);
    const std::vector<WorkRecord> rest = queue.worksToSubmit(1);
    ASSERT_EQ(rest.size(), 2U);
    EXPECT_EQ(rest[0].run.First, 7) << "in the job's order";
    ASSERT_EQ(queue.leftArrays().size(), 1U);
    EXPECT_EQ(queue.leftArrays()[0].name, "trovik-q-2-1");

    queue.settleArrayWork(arrays[0].id, 1, Moment(), good(0));
    queue.settleArrayWork(arrays[0].id, 2, Moment(), good(0));
    EXPECT_EQ(queue.frames(1).good.text(), "1-6");
    EXPECT_TRUE(queue.openArrays().empty());
    EXPECT_EQ(brokenInvariants(name), std::vector<std::string>());
  }
}

TEST_F(QueueFile, TheNumberOfTheFilesKindIsTheOneOfTheTests) {
  EXPECT_EQ(applicationId, 1416787537); // which smallVersion1 holds
}

std::filesystem::perms rightsOf(const std::string& file) {
  return std::filesystem::status(file).permissions() & std::filesystem::perms::all;
}

constexpr auto ownerFile = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;
constexpr auto ownerFolder = std::filesystem::perms::owner_all;

TEST_F(QueueFile, WhatIsMadeIsForItsOwnerAloneWhateverTheUmask) {
  const mode_t before = umask(0);
  const std::string folder = directory.file("a/state");
  Queue queue{Path(folder)};
  queue.enterEngine(1);
  queue.submit(jobOf("1"));
  umask(before);
  EXPECT_EQ(rightsOf(folder), ownerFolder);
  EXPECT_EQ(rightsOf(folder + "/engines"), ownerFolder);
  for (const char* name : {"/queue.db", "/queue.db-wal", "/queue.db-shm", "/engines/1.lock"}) {
    EXPECT_EQ(rightsOf(folder + name), ownerFile) << name;
  }
}

TEST_F(QueueFile, WhatAnOlderVersionLeftOpenIsClosedOnce) {
  const mode_t before = umask(022);
  const std::string folder = directory.makeDirectory("state");
  std::filesystem::permissions(folder, static_cast<std::filesystem::perms>(0755));
  std::filesystem::create_directory(folder + "/logs");
  const std::string sql =
      std::string(schemaSteps()[0]) + "PRAGMA application_id = 1416787537; PRAGMA user_version = 1;";
  Database(Path(folder + "/queue.db")).execute(sql.c_str());
  umask(before);
  { Queue{Path(folder)}; }
  EXPECT_EQ(rightsOf(folder), ownerFolder);
  EXPECT_EQ(rightsOf(folder + "/logs"), ownerFolder);
  EXPECT_EQ(rightsOf(folder + "/queue.db"), ownerFile);
  // Who opens it later wants others to look.
  const auto shared = static_cast<std::filesystem::perms>(0644);
  std::filesystem::permissions(folder + "/queue.db", shared);
  { Queue{Path(folder)}; }
  EXPECT_EQ(rightsOf(folder + "/queue.db"), shared);
}

TEST_F(QueueFile, AFolderThatHoldsOtherThingsStaysAsItIs) {
  const std::string folder = directory.makeDirectory("project");
  std::filesystem::permissions(folder, static_cast<std::filesystem::perms>(0755));
  directory.write("project/scene.pov", "");
  { Queue{Path(folder)}; }
  EXPECT_EQ(rightsOf(folder), static_cast<std::filesystem::perms>(0755));
  EXPECT_EQ(rightsOf(folder + "/queue.db"), ownerFile);
}

TEST_F(QueueFile, AJobIsOwnWhereItWasPutInAlone) {
  NewJob streamed = jobOf("1");
  streamed.packed = "stream";
  JobId id = 0;
  {
    Queue queue{Path(directory.path())};
    id = queue.submit(streamed);
    EXPECT_TRUE(queue.job(id)->own);
    EXPECT_TRUE(queue.ownsLogs(*queue.job(id)));
    NewJob cluster = jobOf("2");
    cluster.runOn = RunOn::Cluster;
    cluster.folder = "/shared";
    queue.submit(cluster);
    EXPECT_EQ(queue.clusterJobs().size(), 1U);
  }
  EXPECT_TRUE(Queue{Path(directory.path())}.job(id)->own);
  const std::string copy = directory.makeDirectory("copy");
  std::filesystem::copy_file(databaseFile(), copy + "/queue.db");
  Queue queue{Path(copy)};
  EXPECT_FALSE(queue.job(id)->own);
  EXPECT_FALSE(queue.ownsLogs(*queue.job(id)));
  EXPECT_TRUE(queue.clusterJobs().empty());
  EXPECT_EQ(queue.foreignClusterJobs(), std::vector<JobId>{2});
  EXPECT_FALSE(queue.begun(streamed).has_value());
  EXPECT_TRUE(queue.job(queue.submit(jobOf("3")))->own);
  queue.retry(id, std::nullopt);
  EXPECT_TRUE(queue.job(id)->own);
  queue.retry(2, std::nullopt);
  EXPECT_EQ(queue.clusterJobs().size(), 1U);
  EXPECT_TRUE(queue.foreignClusterJobs().empty());
  ASSERT_TRUE(queue.begun(streamed).has_value());
  EXPECT_EQ(queue.begun(streamed)->id, id);
}

TEST_F(QueueFile, AReserveGoesWhenTheDiskIsFull) {
  Queue::Settings settings;
  settings.pageLimit = 60;
  Queue queue(Path(directory.path()), settings);
  const std::string reserve = directory.file("reserve");
  struct statvfs disk {};
  ASSERT_EQ(statvfs(reserve.c_str(), &disk), 0) << "the disk of the tests is too small";
  EXPECT_EQ(rightsOf(reserve), ownerFile);
  NewJob job = jobOf("1,2");
  job.packed = std::string(20000, 'p');
  QueueError error;
  for (int i = 0; i < 100 && error.message.empty(); ++i) {
    error = queueErrorOf([&] { queue.submit(job); });
  }
  EXPECT_EQ(error.kind, QueueError::Kind::Full);
  EXPECT_FALSE(std::filesystem::exists(reserve));
  { Queue again{Path(directory.path())}; }
  EXPECT_TRUE(std::filesystem::exists(reserve));
}

TEST_F(QueueFile, AnotherJobsLogsAreNeverTaken) {
  directory.write("logs/1/1-1.log", "of a queue that was lost");
  Queue queue{Path(directory.path())};
  const std::string first = queue.job(queue.submit(jobOf("1")))->logs;
  EXPECT_EQ(first, directory.file("logs/1-" + queue.queueId().substr(0, 8)));
  EXPECT_EQ(queue.job(queue.submit(jobOf("1")))->logs, directory.file("logs/2"));
  EXPECT_TRUE(queue.ownsLogs(*queue.job(1)));
  NewJob named = jobOf("1");
  named.logs = directory.makeDirectory("mine");
  directory.write("mine/notes.log", "of something else");
  EXPECT_EQ(queue.job(queue.submit(named))->logs, named.logs);
  EXPECT_EQ(queue.job(queue.submit(named))->logs, named.logs + "/4-" + queue.queueId().substr(0, 8));
  named.logs = directory.makeDirectory("other");
  directory.write("other/7-9.attempt2.log", "of another queue");
  EXPECT_EQ(queue.job(queue.submit(named))->logs, named.logs + "/5-" + queue.queueId().substr(0, 8));
  EXPECT_FALSE(queue.ownsLogs(*queue.job(5)));
}

TEST_F(QueueFile, NetworkFileSystemsAreRefused) {
  Queue::Settings settings;
  settings.networkFileSystem = [](const Path& /*directory*/) { return "NFS"; };
  const QueueError error = openError(settings);
  EXPECT_EQ(error.kind, QueueError::Kind::Other);
  EXPECT_EQ(error.message, "The folder of the queue \"" + directory.path() +
                               "\" lies on a network file system (NFS), whose locks cannot be trusted");
  EXPECT_EQ(error.hint, "choose a folder on a local disk with --state");
  EXPECT_FALSE(std::filesystem::exists(databaseFile()));
}

TEST_F(QueueFile, NetworkFileSystemsAreKnownByTheirNumberOrMount) {
  EXPECT_EQ(networkFileSystem(0x6969, ""), "NFS");
  EXPECT_EQ(networkFileSystem(0xFE534D42, ""), "SMB");
  EXPECT_EQ(networkFileSystem(0xFF534D42, ""), "SMB");
  EXPECT_EQ(networkFileSystem(0x517B, ""), "SMB");
  EXPECT_EQ(networkFileSystem(0x65735546, "fuse.sshfs"), "sshfs");
  EXPECT_EQ(networkFileSystem(0x65735546, "fuse.glusterfs"), "glusterfs");
  EXPECT_EQ(networkFileSystem(0x65735546, "fuse.unheard-of"), "unheard-of");
  EXPECT_EQ(networkFileSystem(0x65735546, "virtiofs"), "virtiofs");
  EXPECT_EQ(networkFileSystem(0x65735546, ""), "FUSE");
  EXPECT_EQ(networkFileSystem(0x65735546, "fuseblk"), "");
  EXPECT_EQ(networkFileSystem(0x65735546, "fuse.mergerfs"), "");
  EXPECT_EQ(networkFileSystem(0x0BD00BD0, "lustre"), "Lustre");
  EXPECT_EQ(networkFileSystem(0x00C36400, "ceph"), "Ceph");
  EXPECT_EQ(networkFileSystem(0x47504653, "gpfs"), "GPFS");
  EXPECT_EQ(networkFileSystem(0x19830326, "beegfs"), "BeeGFS");
  EXPECT_EQ(networkFileSystem(0x01021997, "9p"), "9P");
  EXPECT_EQ(networkFileSystem(0x7461636F, "ocfs2"), "OCFS2");
  EXPECT_EQ(networkFileSystem(0x1234, "wekafs"), "wekafs");
  EXPECT_EQ(networkFileSystem(0xEF53, "ext4"), "");
  EXPECT_EQ(networkFileSystem(0x794C7630, "overlay"), "");
  EXPECT_EQ(networkFileSystem(Path("/proc")), "");
  EXPECT_EQ(networkFileSystem(Path("/not/there")), "");
}

TEST_F(QueueFile, AFullDiskUndoesTheChangeAndTheQueueGoesOnWhenThereIsRoom) {
  Queue::Settings settings;
  settings.pageLimit = 60;
  Queue queue(Path(directory.path()), settings);
  const EngineId engine = queue.enterEngine(1);
  NewJob job = jobOf("1,2");
  job.packed = std::string(20000, 'p');
  std::vector<JobId> jobs;
  QueueError error;
  while (error.message.empty() && jobs.size() < 100) {
    error = queueErrorOf([&] { jobs.push_back(queue.submit(job)); });
  }
  EXPECT_EQ(error.kind, QueueError::Kind::Full);
  EXPECT_EQ(error.message, "The disk of the queue is full: \"" + databaseFile() + "\"");
  EXPECT_EQ(error.hint, "make room there; nothing that was recorded is lost");
  ASSERT_GT(jobs.size(), 1U);
  EXPECT_EQ(queue.jobs().size(), jobs.size());

  EXPECT_EQ(queueErrorOf([&] {
              queue.inTransaction([&] {
                queue.claim(engine, 2, std::nullopt);
                queue.submit(job);
              });
            }).kind,
            QueueError::Kind::Full);
  EXPECT_EQ(queue.frames(jobs[0]).readyWorks, 2U);

  queue.remove(jobs[0]);
  queue.submit(job);
  EXPECT_EQ(queue.claim(engine, 2, std::nullopt).size(), 2U);
}

TEST_F(QueueFile, ALockThatIsHeldTooLongIsSaid) {
  Queue::Settings settings;
  settings.patience = std::chrono::milliseconds(1);
  Queue queue(Path(directory.path()), settings);
  Database other{Path(databaseFile())};
  other.execute("BEGIN IMMEDIATE");
  const QueueError error = queueErrorOf([&] { queue.submit(jobOf("1")); });
  EXPECT_EQ(error.kind, QueueError::Kind::Busy);
  EXPECT_EQ(error.message, "The queue is locked by another process for too long: \"" + databaseFile() + "\"");
  EXPECT_EQ(error.hint, "try again; if it stays so, look which process has the file open");
  EXPECT_TRUE(queue.jobs().empty()) << "reading goes on";
  other.execute("COMMIT");
  queue.submit(jobOf("1"));
}

struct Hostile {
  const char* change;
  std::function<void(Queue&)> look;
  const char* reason;
};

TEST_F(QueueFile, ContentsThatCannotBeAreDamageAndNoCrash) {
  const std::vector<Hostile> cases = {
      {"UPDATE jobs SET state = 'sold'", [](Queue& s) { s.job(1); }, "unknown state \"sold\""},
      {"UPDATE jobs SET state = CAST(X'FF0A' AS TEXT)", [](Queue& s) { s.jobs(); },
       "unknown state \"\\xff\\n\""},
      {"UPDATE jobs SET type = 'zzz'", [](Queue& s) { s.job(1); }, ""},
      {"UPDATE jobs SET end_command = '\"open'", [](Queue& s) { s.job(1); }, ""},
      {"UPDATE jobs SET priority = 99999999999", [](Queue& s) { s.job(1); },
       "a number that cannot be, 99999999999"},
      {"UPDATE works SET state = 'lost'", [](Queue& s) { s.frames(1); }, "unknown state \"lost\""},
      {"UPDATE works SET state = 'lost'", [](Queue& s) { s.works(1); }, "unknown state \"lost\""},
      {"UPDATE works SET first = 9, last = 3", [](Queue& s) { s.summary(1); }, "frames that cannot be, 9-3"},
      {"UPDATE works SET first = 9, last = 3 WHERE state = 'ready'",
       [](Queue& s) { s.claim(1, 1, std::nullopt); }, "frames that cannot be, 9-3"},
      {"UPDATE attempts SET state = 'gone'", [](Queue& s) { s.attempts(1); }, "unknown state \"gone\""},
      {"UPDATE attempts SET rule = 'whim'", [](Queue& s) { s.attempt(1); }, "unknown state \"whim\""},
      {"UPDATE attempts SET good = '1,x'", [](Queue& s) { s.attempt(1); }, "frames that cannot be, \"1,x\""},
      {"UPDATE attempts SET good = '5-1'", [](Queue& s) { s.attempt(1); }, "frames that cannot be, \"5-1\""},
      {"UPDATE files SET frame = -99999999999", [](Queue& s) { s.files(1); },
       "a number that cannot be, -99999999999"},
      {"UPDATE queue SET id = '; rm'", [](Queue& s) { Queue{s.directory()}; },
       "an ID that cannot be, \"; rm\""},
      {"UPDATE jobs SET run_on = 'moon'", [](Queue& s) { s.job(1); }, "unknown state \"moon\""},
      {"UPDATE array_works SET first = 9, last = 3", [](Queue& s) { s.openArrayWorks(1); },
       "frames that cannot be, 9-3"},
      {"UPDATE array_works SET restarts = 99999999999", [](Queue& s) { s.openArrayWorks(1); },
       "a number that cannot be, 99999999999"},
      {"UPDATE array_works SET first = 9, last = 3",
       [](Queue& s) { s.settleArrayWork(1, 0, Moment(), good(0)); }, "frames that cannot be, 9-3"},
      {"UPDATE works SET state = 'lost' WHERE job = 2", [](Queue& s) { s.openArrayWorks(1); },
       "unknown state \"lost\""},
      {"UPDATE arrays SET number = 99999999999", [](Queue& s) { s.openArrays(); },
       "a number that cannot be, 99999999999"},
      {"DELETE FROM queue", [](Queue& s) { Queue{s.directory()}; }, "it has no ID"},
  };
  for (const Hostile& one : cases) {
    SCOPED_TRACE(one.change);
    const TemporaryDirectory place;
    Queue queue{Path(place.path())};
    queue.submit(jobOf("1-3,4"));
    const EngineId engine = queue.enterEngine(1);
    Outcome outcome = failed(queue.claim(engine, 1, std::nullopt).at(0).attempt, "It broke", "1");
    outcome.files = {file("/out/1.png")};
    queue.settle(outcome);
    NewJob onCluster = jobOf("5-6");
    onCluster.runOn = RunOn::Cluster;
    std::vector<ArrayWork> works(1);
    works[0].work = queue.worksToSubmit(queue.submit(onCluster)).at(0).id;
    works[0].run = {5, 6};
    queue.addArray(2, 1, works);
    const std::string name = place.file("queue.db");
    Database(Path(name)).execute(one.change);
    const QueueError error = queueErrorOf([&] { one.look(queue); });
    EXPECT_EQ(error.kind, QueueError::Kind::Damaged) << error.message;
    if (*one.reason != '\0') {
      EXPECT_EQ(error.message, "The queue is damaged: \"" + name + "\" (" + one.reason + ")");
    }
  }
}

TEST_F(QueueFile, NothingInTheFileIsRun) {
  {
    Queue queue{Path(directory.path())};
    queue.submit(jobOf("1"));
  }
  makeDatabase("CREATE TRIGGER trap AFTER INSERT ON jobs BEGIN DELETE FROM jobs; END");
  Queue queue{Path(directory.path())};
  queue.submit(jobOf("1"));
  EXPECT_EQ(queue.jobs().size(), 2U);
}

TEST_F(QueueFile, NoStatementOfTheHotPathLooksThroughATable) {
  { Queue{Path(directory.path())}; }
  for (const char* sql : statements::all) {
    Database database{Path(databaseFile())};
    const std::string question = std::string("EXPLAIN QUERY PLAN ") + sql;
    Query plan(database, question.c_str());
    std::size_t steps = 0;
    while (plan.next()) {
      ++steps;
      for (int column = 0; column < 3; ++column) {
        plan.number();
      }
      const std::string step = plan.text();
      // Whole, but small: the one row of the queue itself, and indexes of what
      // is open, due or alive.
      const bool small =
          step == "SCAN queue" || step.find("jobs_open") != std::string::npos ||
          step.find("jobs_due") != std::string::npos || step.find("jobs_canceling") != std::string::npos ||
          step.find("jobs_unfinished") != std::string::npos ||
          step.find("jobs_cluster") != std::string::npos || step.find("arrays_open") != std::string::npos ||
          step.find("arrays_left") != std::string::npos || step.find("engines_alive") != std::string::npos;
      EXPECT_TRUE(small || step.find("SCAN") == std::string::npos) << sql << "\n" << step;
      EXPECT_EQ(step.find("TEMP B-TREE"), std::string::npos) << sql << "\n" << step;
    }
    EXPECT_GT(steps, 0U) << sql;
  }
}

TEST_F(QueueFile, TheLogIsSyncedAtMostEveryTenthOfASecondAndOnRequest) {
  Queue queue{Path(directory.path())};
  queue.submit(jobOf("1"));
  queue.sync();
  const std::size_t before = logSyncs;
  queue.sync();
  EXPECT_EQ(logSyncs, before) << "nothing is new";

  const auto begun = std::chrono::steady_clock::now();
  for (int turn = 0; turn < 200; ++turn) {
    queue.change(1, {.priority = turn});
  }
  const auto passed = std::chrono::steady_clock::now() - begun;
  EXPECT_LE(logSyncs - before, static_cast<std::size_t>(passed / std::chrono::milliseconds(100)) + 1);

  queue.change(1, {.priority = 7});
  const std::size_t unsynced = logSyncs;
  queue.sync();
  EXPECT_LE(logSyncs, unsynced + 1);
  EXPECT_GT(logSyncs, before);
}

TEST_F(QueueFile, ACommitLongAfterTheLastSyncIsSynced) {
  Queue queue{Path(directory.path())};
  queue.submit(jobOf("1"));
  const std::size_t before = logSyncs;
  // However quick the machine is: the tenth of a second passes at some time.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (logSyncs == before && std::chrono::steady_clock::now() < deadline) {
    queue.change(1, {.priority = 7});
  }
  EXPECT_GT(logSyncs, before);
}

TEST_F(QueueFile, TheLogIsKeptShort) {
  Queue queue{Path(directory.path())};
  queue.submit(jobOf("1"));
  const std::string note(100000, 'n');
  for (int turn = 0; turn < 1000; ++turn) { // a hundred megabytes
    queue.stop(1, note);
    queue.resume(1);
  }
  EXPECT_LT(std::filesystem::file_size(databaseFile() + "-wal"), std::uintmax_t{12} << 20);
}

} // namespace
} // namespace trovik
