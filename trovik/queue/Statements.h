#pragma once

#include <array>

/// The statements that run for every work or every turn of an engine. A test
/// asks SQLite how it is going to run each: none may look through a table.
namespace trovik::statements {

// The index is named so that a claim among a million ready works can never
// become a search among all of them.
inline constexpr const char* openJobs =
    "SELECT id, state, follows, slots_at_most, limited, auto_packets, iif(memory > 0, memory, memory_seen) "
    "FROM jobs INDEXED BY jobs_open "
    "WHERE run_on = 'local' AND blocked = 0 AND state IN ('waiting', 'running') ORDER BY priority DESC, id";
inline constexpr const char* readyWorks =
    "SELECT id, first, last, attempts, tries FROM works INDEXED BY works_open "
    "WHERE job = ?1 AND state = 'ready' ORDER BY tries, position, first LIMIT ?2";
/// Asked for by itself: where a row's number is looked up by its own INSERT, SQLite
/// makes a table in between for each.
inline constexpr const char* nextAttempt =
    "SELECT max(coalesce((SELECT max(id) FROM attempts), 0), last_attempt) + 1 FROM queue";
inline constexpr const char* insertAttempt =
    "INSERT INTO attempts (id, job, work, engine, state, rule, first, last, number, started, ahead) "
    "VALUES (?1, ?2, ?3, ?4, 'running', 'none', ?5, ?6, ?7, ?8, ?9)";
inline constexpr const char* startWork =
    "UPDATE works SET state = 'running', attempts = attempts + 1, attempt = ?2 WHERE id = ?1";
inline constexpr const char* giveBackWork =
    "UPDATE works SET state = 'ready', attempts = attempts - 1, attempt = ?2 WHERE id = ?1";
/// The one that was last at these frames, which may have been those of a larger
/// work.
inline constexpr const char* attemptBefore = "SELECT id FROM attempts INDEXED BY attempts_job WHERE job = ?1 "
                                             "AND id < ?2 AND first <= ?3 AND last >= ?4 "
                                             "ORDER BY id DESC LIMIT 1";
/// Nothing of it was started after all.
inline constexpr const char* unstartJob =
    "UPDATE jobs SET state = iif(state = 'running', 'waiting', state), started = NULL WHERE id = ?1 AND "
    "NOT EXISTS (SELECT 1 FROM attempts INDEXED BY attempts_job WHERE job = ?1)";
inline constexpr const char* dropAttempt = "DELETE FROM attempts WHERE id = ?1";
/// Numbers of attempts are never used again, nor are those of files.
inline constexpr const char* keepLastAttempt =
    "UPDATE queue SET last_attempt = max(last_attempt, coalesce((SELECT max(id) FROM attempts), 0))";
inline constexpr const char* startJob =
    "UPDATE jobs SET state = 'running', started = coalesce(started, ?2) WHERE id = ?1";

inline constexpr const char* noteProcess =
    "UPDATE attempts SET process = ?2, files_before = ?3 WHERE id = ?1 AND state = 'running'";
inline constexpr const char* noteEnd =
    "UPDATE attempts SET exit_code = ?2, signal = ?3, command = ?4, log = ?5, printed = ?6, duration = ?7, "
    "user_time = ?8, system_time = ?9, peak_memory = ?10, bytes_read = ?11, bytes_written = ?12 "
    "WHERE id = ?1 AND state = 'running'";
inline constexpr const char* isRunning = "SELECT 1 FROM attempts WHERE id = ?1 AND state = 'running'";
inline constexpr const char* nextFile =
    "SELECT max(coalesce((SELECT max(id) FROM files), 0), last_file) + 1 FROM queue";
inline constexpr const char* insertFile =
    "INSERT INTO files (id, attempt, frame, checked, size, modified, path, problem) "
    "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)";
inline constexpr const char* dropUnchecked =
    "DELETE FROM files INDEXED BY files_attempt WHERE attempt = ?1 AND checked = 0";

inline constexpr const char* attemptToSettle =
    "SELECT a.job, a.work, a.first, a.last, w.position, w.attempts, w.tries, w.losses, "
    "j.state, j.canceling, j.has_frames, j.retries, j.stop_after, j.alike, j.alike_count, j.memory_seen "
    "FROM attempts a CROSS JOIN works w ON w.id = a.work CROSS JOIN jobs j ON j.id = a.job "
    "WHERE a.id = ?1 AND a.state = 'running'";
/// Which good frames have a file of job ?2 that attempt ?3, at the frames ?4 to
/// ?5, has left as well. Of an earlier attempt at some of these frames only what
/// it kept when it failed is sure to be another frame's.
inline constexpr const char* otherOfFile =
    "SELECT coalesce(f.frame, a.first), coalesce(f.frame, a.last) FROM files f INDEXED BY files_path "
    "CROSS JOIN attempts a ON a.id = f.attempt "
    "WHERE f.path = ?1 AND f.checked = 1 AND f.problem = '' AND a.job = ?2 AND a.id <> ?3 "
    "AND (a.last < ?4 OR a.first > ?5 OR (f.frame IS NOT NULL AND a.state <> 'good')) "
    "AND EXISTS (SELECT 1 FROM works w INDEXED BY works_job WHERE w.job = ?2 "
    "AND w.first BETWEEN a.first AND coalesce(f.frame, a.last) AND w.last >= coalesce(f.frame, w.last) "
    "AND w.attempt = a.id AND w.state = 'good') "
    "UNION ALL "
    "SELECT f.frame, f.frame FROM files f INDEXED BY files_path "
    "WHERE f.path = ?1 AND f.attempt = -?2 AND f.frame IS NOT NULL AND f.problem = '' "
    "AND (SELECT w.state FROM works w INDEXED BY works_job WHERE w.job = ?2 AND w.first <= f.frame "
    "ORDER BY w.first DESC LIMIT 1) = 'good' LIMIT 1";
/// What was claimed ahead began later than that, as its time tells, if its end is
/// put down at once.
inline constexpr const char* endAttempt =
    "UPDATE attempts SET state = ?2, rule = ?3, reason = ?4, lines = ?5, log = ?6, command = ?7, "
    "exit_code = ?8, signal = ?9, good = ?10, again = ?11, ended = ?12, duration = ?13, "
    "user_time = ?14, system_time = ?15, peak_memory = ?16, bytes_read = ?17, bytes_written = ?18, "
    "files_before = '', "
    "started = iif(ahead AND ?12 - ?13 BETWEEN started AND started + 100000, ?12 - ?13, started) "
    "WHERE id = ?1";
inline constexpr const char* endWork = "UPDATE works SET state = ?2, tries = ?3, losses = ?4 WHERE id = ?1";
inline constexpr const char* anyToDo =
    "SELECT 1 FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'ready' UNION ALL "
    "SELECT 1 FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'waiting' LIMIT 1";
inline constexpr const char* anyRunning =
    "SELECT 1 FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'running' LIMIT 1";

inline constexpr const char* runningWorks =
    "SELECT count(*) FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'running'";
inline constexpr const char* takesOfJob =
    "SELECT t.name, t.amount, l.amount FROM job_limits t LEFT JOIN limits l ON l.name = t.name "
    "WHERE t.job = ?1 ORDER BY t.name";
inline constexpr const char* takenOfLimit =
    "SELECT t.amount, (SELECT count(*) FROM works INDEXED BY works_open WHERE job = j.id AND state = "
    "'running') "
    "FROM jobs j INDEXED BY jobs_unfinished CROSS JOIN job_limits t ON t.job = j.id AND t.name = ?1 "
    "WHERE j.state IN ('waiting', 'running', 'stopped')";
inline constexpr const char* runningPrograms =
    "SELECT j.id, iif(j.memory > 0, j.memory, j.memory_seen), a.process FROM jobs j INDEXED BY "
    "jobs_unfinished "
    "CROSS JOIN works w INDEXED BY works_open ON w.job = j.id AND w.state = 'running' "
    "CROSS JOIN attempts a ON a.id = w.attempt "
    "WHERE j.state IN ('waiting', 'running', 'stopped') AND j.run_on = 'local'";
inline constexpr const char* noteMemory = "UPDATE jobs SET memory_seen = ?2 WHERE id = ?1";

inline constexpr const char* firstPackets =
    "SELECT last - first + 1, duration FROM (SELECT first, last, duration, state FROM attempts "
    "INDEXED BY attempts_job WHERE job = ?1 ORDER BY id LIMIT 16) WHERE state = 'good' AND duration > 0";
inline constexpr const char* lastPackets =
    "SELECT last - first + 1, duration FROM (SELECT first, last, duration, state FROM attempts "
    "INDEXED BY attempts_job WHERE job = ?1 ORDER BY id DESC LIMIT 24) WHERE state = 'good' AND duration > 0";
inline constexpr const char* earlierOfScene =
    "SELECT o.id FROM jobs j CROSS JOIN jobs o INDEXED BY jobs_scene ON o.type = j.type AND o.scene = "
    "j.scene "
    "WHERE j.id = ?1 AND j.scene <> '' AND o.id < j.id ORDER BY o.id DESC LIMIT 1";
inline constexpr const char* packetRule = "SELECT packet_time, packet_most FROM jobs WHERE id = ?1";
inline constexpr const char* runningPackets =
    "SELECT a.last - a.first + 1, a.started FROM works w INDEXED BY works_open "
    "CROSS JOIN attempts a ON a.id = w.attempt WHERE w.job = ?1 AND w.state = 'running'";
inline constexpr const char* framesToBegin =
    "SELECT coalesce(sum(last - first + 1), 0) FROM ("
    "SELECT first, last FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'ready' UNION ALL "
    "SELECT first, last FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'waiting' LIMIT ?2)";
inline constexpr const char* dropWork = "DELETE FROM works WHERE id = ?1";
inline constexpr const char* widenWork = "UPDATE works SET first = ?2, last = ?3 WHERE id = ?1";

inline constexpr const char* block =
    "UPDATE jobs SET blocked = 1 WHERE id = ?1 AND EXISTS "
    "(SELECT 1 FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'waiting')";
inline constexpr const char* unblock = "UPDATE jobs SET blocked = 0 WHERE id = ?1 AND blocked = 1";
inline constexpr const char* followers =
    "SELECT job, by_frame, low, high FROM forerunners INDEXED BY forerunners_after "
    "WHERE after = ?1 AND released = 0 ORDER BY job";
inline constexpr const char* forerunners =
    "SELECT after, by_frame, low, high, released FROM forerunners WHERE job = ?1 ORDER BY after";
// The runs of a job share no frame, so that only one of them can begin before
// the first frame and reach it.
inline constexpr const char* notGoodAt =
    "SELECT first, last FROM works INDEXED BY works_job WHERE job = ?1 AND first <= ?3 AND last >= ?2 AND "
    "first >= coalesce((SELECT max(first) FROM works INDEXED BY works_job WHERE job = ?1 AND first <= ?2), "
    "?2) AND state <> 'good'";
inline constexpr const char* waitingAt =
    "SELECT id, first, last, state FROM works INDEXED BY works_job WHERE job = ?1 AND first <= ?3 AND "
    "last >= ?2 AND first >= coalesce((SELECT max(first) FROM works INDEXED BY works_job "
    "WHERE job = ?1 AND first <= ?2), ?2) AND state = 'waiting'";
inline constexpr const char* goodFilesAt =
    "SELECT f.path FROM works w INDEXED BY works_job CROSS JOIN files f INDEXED BY files_attempt "
    "ON f.attempt = w.attempt WHERE w.job = ?1 AND w.first <= ?3 AND w.last >= ?2 AND w.first >= "
    "coalesce((SELECT max(first) FROM works INDEXED BY works_job WHERE job = ?1 AND first <= ?2), ?2) "
    "AND w.state = 'good' AND f.checked = 1 AND f.problem = '' AND (f.frame IS NULL OR "
    "(f.frame BETWEEN max(?2, w.first) AND min(?3, w.last))) ORDER BY w.first, f.frame, f.path";
inline constexpr const char* foundFilesAt =
    "SELECT path FROM files INDEXED BY files_attempt WHERE attempt = -?1 AND problem = '' "
    "AND (frame IS NULL OR frame BETWEEN ?2 AND ?3) ORDER BY frame, path";
inline constexpr const char* setWork = "UPDATE works SET state = ?2 WHERE id = ?1";

inline constexpr const char* canceledAttempts =
    "SELECT a.id FROM jobs j INDEXED BY jobs_canceling "
    "CROSS JOIN works w INDEXED BY works_open ON w.job = j.id AND w.state = 'running' "
    "CROSS JOIN attempts a ON a.id = w.attempt WHERE j.canceling = 1 AND a.engine = ?1";
inline constexpr const char* runningOfEngine =
    "SELECT a.id, a.ahead AND a.process = 0 FROM jobs j INDEXED BY jobs_unfinished "
    "CROSS JOIN works w INDEXED BY works_open ON w.job = j.id AND w.state = 'running' "
    "CROSS JOIN attempts a ON a.id = w.attempt "
    "WHERE j.state IN ('waiting', 'running', 'stopped') AND a.engine = ?1";
/// What it has claimed ahead since the machine was started, and after that attempt.
inline constexpr const char* aheadOfEngine =
    "SELECT a.id FROM engines e CROSS JOIN jobs j INDEXED BY jobs_unfinished "
    "CROSS JOIN works w INDEXED BY works_open ON w.job = j.id AND w.state = 'running' "
    "CROSS JOIN attempts a ON a.id = w.attempt "
    "WHERE e.id = ?1 AND e.boot = ?2 AND j.state IN ('waiting', 'running', 'stopped') AND a.engine = ?1 "
    "AND a.ahead = 1 AND a.id > ?3";
inline constexpr const char* runningOfJob =
    "SELECT attempt FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'running'";
/// What came after a file that is known: mostly few, and mostly of this job.
inline constexpr const char* newFilesOfJob =
    "SELECT f.id, f.attempt, f.frame, f.path, f.checked, f.problem, f.size, f.modified "
    "FROM files f CROSS JOIN attempts a ON a.id = f.attempt WHERE f.id > ?2 AND a.job = ?1 ORDER BY f.id";
inline constexpr const char* dueJobs = "SELECT id FROM jobs INDEXED BY jobs_due WHERE end_due = 1";
inline constexpr const char* aliveEngines =
    "SELECT id FROM engines INDEXED BY engines_alive WHERE state = 'alive'";
inline constexpr const char* lastOfFile =
    "SELECT id, attempt, frame, path, checked, problem, size, modified FROM files INDEXED BY files_path "
    "WHERE path = ?1 AND id < ?2 ORDER BY id DESC LIMIT 1";

inline constexpr const char* clusterJobs =
    "SELECT id FROM jobs INDEXED BY jobs_cluster "
    "WHERE run_on = 'cluster' AND state IN ('waiting', 'running') ORDER BY priority DESC, id";
inline constexpr const char* foreignClusterJobs =
    "SELECT id FROM jobs INDEXED BY jobs_cluster "
    "WHERE run_on = 'cluster' AND state IN ('waiting', 'running') AND home <> ?1 ORDER BY priority DESC, id";
inline constexpr const char* jobsOfArrays =
    "SELECT job FROM arrays INDEXED BY arrays_open WHERE state IN ('prepared', 'submitted')";
inline constexpr const char* openArrays =
    "SELECT id, job, number, state, name, cluster, per_task, canceling, submitted "
    "FROM arrays INDEXED BY arrays_open WHERE state IN ('prepared', 'submitted') ORDER BY id";
inline constexpr const char* openArraysOfJob =
    "SELECT id, job, number, state, name, cluster, per_task, canceling, submitted "
    "FROM arrays INDEXED BY arrays_job WHERE job = ?1 AND state IN ('prepared', 'submitted') ORDER BY number";
inline constexpr const char* leftArrays =
    "SELECT id, job, number, state, name, cluster, per_task, canceling, submitted "
    "FROM arrays INDEXED BY arrays_left WHERE state = 'over' AND cluster <> 0 AND gone = 0 ORDER BY id";
inline constexpr const char* readyWorksOfJob =
    "SELECT id, first, last, attempts, attempt FROM works INDEXED BY works_open "
    "WHERE job = ?1 AND state = 'ready' ORDER BY tries, position, first";
inline constexpr const char* openRuns =
    "SELECT p.first, p.last FROM arrays a INDEXED BY arrays_job "
    "CROSS JOIN array_works p INDEXED BY array_works_open ON p.array = a.id "
    "WHERE a.job = ?1 AND a.state IN ('prepared', 'submitted') AND p.open = 1";
inline constexpr const char* insertArrayWork =
    "INSERT INTO array_works (array, position, work, first, last, number) VALUES (?1, ?2, ?3, ?4, ?5, ?6)";
// A work that was cut meanwhile is wanted no more as it was given to the array.
inline constexpr const char* openArrayWorks =
    "SELECT p.position, p.work, p.first, p.last, p.number, p.attempt, "
    "iif(w.first = p.first AND w.last = p.last, w.state, 'canceled'), p.state, p.reason, p.node, p.restarts "
    "FROM array_works p INDEXED BY array_works_open CROSS JOIN works w ON w.id = p.work "
    "WHERE p.array = ?1 AND p.open = 1 ORDER BY p.position";
inline constexpr const char* anyOpenArrayWork =
    "SELECT 1 FROM array_works INDEXED BY array_works_open WHERE array = ?1 AND open = 1 LIMIT 1";
inline constexpr const char* openArrayWork =
    "SELECT p.work, p.first, p.last, p.number, p.attempt, w.state, w.first, w.last, j.id, "
    "j.state = 'waiting' OR j.started IS NULL "
    "FROM array_works p CROSS JOIN works w ON w.id = p.work CROSS JOIN jobs j ON j.id = w.job "
    "WHERE p.array = ?1 AND p.position = ?2 AND p.open = 1";
inline constexpr const char* partsOfArrayWork =
    "SELECT id, first, last, position, attempts, tries, losses, state FROM works INDEXED BY works_job "
    "WHERE job = ?1 AND first BETWEEN ?2 AND ?3 AND last <= ?3 AND state IN ('ready', 'canceled') "
    "ORDER BY first";
inline constexpr const char* startArrayWork =
    "UPDATE works SET state = ?2, attempts = ?3, attempt = ?4 WHERE id = ?1";
inline constexpr const char* startClusterJob =
    "UPDATE jobs SET state = iif(state = 'waiting', 'running', state), started = coalesce(started, ?2) "
    "WHERE id = ?1";
inline constexpr const char* noteArrayAttempt =
    "UPDATE array_works SET attempt = ?3 WHERE array = ?1 AND position = ?2";
inline constexpr const char* closeArrayWork =
    "UPDATE array_works SET open = 0, attempt = ?3 WHERE array = ?1 AND position = ?2";
inline constexpr const char* taskOfArrayWork =
    "SELECT state, reason, node, restarts FROM array_works WHERE array = ?1 AND position = ?2";
inline constexpr const char* noteTask =
    "UPDATE array_works SET state = ?3, reason = ?4, node = ?5, restarts = ?6 "
    "WHERE array = ?1 AND position = ?2";
inline constexpr const char* noteBeat =
    "INSERT OR REPLACE INTO beats (attempt, seen, silent, log_bytes, stage, log) "
    "VALUES (?1, ?2, ?3, ?4, ?5, ?6)";
inline constexpr const char* noteLog = "UPDATE attempts SET log = ?2 WHERE id = ?1 AND log <> ?2";
inline constexpr const char* dropBeat = "DELETE FROM beats WHERE attempt = ?1";
inline constexpr const char* beatsOfJob =
    "SELECT b.attempt, b.seen, b.silent, b.log_bytes, b.stage, b.log FROM works w INDEXED BY works_open "
    "CROSS JOIN beats b ON b.attempt = w.attempt WHERE w.job = ?1 AND w.state = 'running'";

// Those that look for nothing are left out.
inline constexpr std::array all = {
    openJobs,         readyWorks,      nextAttempt,      startWork,
    giveBackWork,     attemptBefore,   unstartJob,       dropAttempt,
    startJob,         noteProcess,     isRunning,        nextFile,
    dropUnchecked,    attemptToSettle, endAttempt,       endWork,
    anyToDo,          anyRunning,      canceledAttempts, runningOfEngine,
    aheadOfEngine,    runningOfJob,    newFilesOfJob,    dueJobs,
    aliveEngines,     lastOfFile,      clusterJobs,      foreignClusterJobs,
    jobsOfArrays,     openArrays,      openArraysOfJob,  readyWorksOfJob,
    openRuns,         openArrayWorks,  anyOpenArrayWork, openArrayWork,
    partsOfArrayWork, startArrayWork,  startClusterJob,  noteArrayAttempt,
    closeArrayWork,   taskOfArrayWork, noteTask,         noteLog,
    dropBeat,         beatsOfJob,      leftArrays,       noteEnd,
    otherOfFile,      block,           followers,        forerunners,
    notGoodAt,        waitingAt,       setWork,          unblock,
    runningWorks,     takesOfJob,      takenOfLimit,
};

} // namespace trovik::statements
