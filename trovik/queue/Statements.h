#pragma once

#include <array>

/// The statements that run for every work or every turn of an engine. A test
/// asks SQLite how it is going to run each: none may look through a table.
namespace trovik::statements {

// The index is named so that a claim among a million ready works can never
// become a search among all of them.
inline constexpr const char* openJobs =
    "SELECT id, state FROM jobs INDEXED BY jobs_open WHERE state IN ('waiting', 'running') "
    "ORDER BY priority DESC, id";
inline constexpr const char* readyWorks =
    "SELECT id, first, last, attempts, tries FROM works INDEXED BY works_open "
    "WHERE job = ?1 AND state = 'ready' ORDER BY tries, place, first LIMIT ?2";
inline constexpr const char* insertAttempt =
    "INSERT INTO attempts (id, job, work, engine, state, rule, first, last, number, started) "
    "SELECT max(coalesce((SELECT max(id) FROM attempts), 0), last_attempt) + 1, "
    "?1, ?2, ?3, 'running', 'none', ?4, ?5, ?6, ?7 FROM queue";
inline constexpr const char* startWork =
    "UPDATE works SET state = 'running', attempts = attempts + 1, attempt = ?2 WHERE id = ?1";
inline constexpr const char* startJob =
    "UPDATE jobs SET state = 'running', started = coalesce(started, ?2) WHERE id = ?1";

inline constexpr const char* noteProcess =
    "UPDATE attempts SET process = ?2 WHERE id = ?1 AND state = 'running'";
inline constexpr const char* isRunning = "SELECT 1 FROM attempts WHERE id = ?1 AND state = 'running'";
inline constexpr const char* insertFile =
    "INSERT INTO files (id, attempt, frame, checked, size, modified, path, problem) "
    "SELECT max(coalesce((SELECT max(id) FROM files), 0), last_file) + 1, "
    "?1, ?2, ?3, ?4, ?5, ?6, ?7 FROM queue";
inline constexpr const char* dropUnchecked =
    "DELETE FROM files INDEXED BY files_attempt WHERE attempt = ?1 AND checked = 0";

inline constexpr const char* attemptToSettle =
    "SELECT a.job, a.work, a.first, a.last, w.place, w.attempts, w.tries, w.losses, "
    "j.state, j.canceling, j.has_frames, j.retries, j.stop_after, j.alike, j.alike_count "
    "FROM attempts a CROSS JOIN works w ON w.id = a.work CROSS JOIN jobs j ON j.id = a.job "
    "WHERE a.id = ?1 AND a.state = 'running'";
inline constexpr const char* endAttempt =
    "UPDATE attempts SET state = ?2, rule = ?3, reason = ?4, lines = ?5, log = ?6, command = ?7, "
    "exit_code = ?8, signal = ?9, good = ?10, again = ?11, ended = ?12, duration = ?13 WHERE id = ?1";
inline constexpr const char* endWork = "UPDATE works SET state = ?2, tries = ?3, losses = ?4 WHERE id = ?1";
inline constexpr const char* anyReady =
    "SELECT 1 FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'ready' LIMIT 1";
inline constexpr const char* anyRunning =
    "SELECT 1 FROM works INDEXED BY works_open WHERE job = ?1 AND state = 'running' LIMIT 1";

inline constexpr const char* canceledAttempts =
    "SELECT a.id FROM jobs j INDEXED BY jobs_canceling "
    "CROSS JOIN works w INDEXED BY works_open ON w.job = j.id AND w.state = 'running' "
    "CROSS JOIN attempts a ON a.id = w.attempt WHERE j.canceling = 1 AND a.engine = ?1";
inline constexpr const char* runningOfEngine =
    "SELECT a.id FROM jobs j INDEXED BY jobs_unfinished "
    "CROSS JOIN works w INDEXED BY works_open ON w.job = j.id AND w.state = 'running' "
    "CROSS JOIN attempts a ON a.id = w.attempt "
    "WHERE j.state IN ('waiting', 'running', 'stopped') AND a.engine = ?1";
inline constexpr const char* dueJobs = "SELECT id FROM jobs INDEXED BY jobs_due WHERE end_due = 1";
inline constexpr const char* aliveEngines =
    "SELECT id FROM engines INDEXED BY engines_alive WHERE state = 'alive'";
inline constexpr const char* lastOfFile =
    "SELECT id, attempt, frame, path, checked, problem, size, modified FROM files INDEXED BY files_path "
    "WHERE path = ?1 AND id < ?2 ORDER BY id DESC LIMIT 1";

inline constexpr std::array all = {
    openJobs,         readyWorks,      insertAttempt,   startWork,    startJob,   noteProcess, isRunning,
    insertFile,       dropUnchecked,   attemptToSettle, endAttempt,   endWork,    anyReady,    anyRunning,
    canceledAttempts, runningOfEngine, dueJobs,         aliveEngines, lastOfFile,
};

} // namespace trovik::statements
