#include "tests/trovik/queue/Invariants.h"

#include "trovik/queue/Database.h"

#include <array>
#include <set>
#include <utility>

namespace trovik {
namespace {

/// A statement whose rows are breaches: each row is one text.
struct Rule {
  const char* breach;
  const char* sql;
};

constexpr std::array rules = {
    Rule{"unknown state of a job",
         "SELECT id || ' ' || state FROM jobs WHERE state NOT IN ('waiting', 'running', 'good', 'failed', "
         "'canceled', 'stopped')"},
    Rule{"unknown state of a work", "SELECT id || ' ' || state FROM works WHERE state NOT IN ('ready', "
                                    "'waiting', 'running', 'good', 'failed', "
                                    "'canceled')"},
    Rule{"unknown state of an attempt", "SELECT id || ' ' || state FROM attempts WHERE state NOT IN "
                                        "('running', 'good', 'failed', 'canceled', "
                                        "'lost')"},
    Rule{"a work runs backward", "SELECT id FROM works WHERE first > last"},
    Rule{"a frame stands in two works",
         "SELECT a.job || ': ' || a.first || '-' || a.last || ' and ' || b.first || '-' || b.last FROM works "
         "a "
         "JOIN works b ON a.job = b.job AND a.id < b.id AND a.first <= b.last AND b.first <= a.last"},
    Rule{"a work runs without an attempt",
         "SELECT w.id FROM works w WHERE w.state = 'running' AND NOT EXISTS (SELECT 1 FROM attempts a WHERE "
         "a.id = w.attempt AND a.work = w.id AND a.state = 'running' AND a.first = w.first AND a.last = "
         "w.last)"},
    Rule{"an attempt runs at a work that does not",
         "SELECT a.id FROM attempts a WHERE a.state = 'running' AND NOT EXISTS (SELECT 1 FROM works w WHERE "
         "w.id = a.work AND w.attempt = a.id AND w.state = 'running')"},
    Rule{"an attempt runs in an engine that has left",
         "SELECT a.id FROM attempts a JOIN engines e ON e.id = "
         "a.engine WHERE a.state = 'running' AND e.state NOT IN ('alive', 'cluster')"},
    Rule{"an attempt ended without a time, or runs with one",
         "SELECT id FROM attempts WHERE (state = 'running') <> (ended IS NULL)"},
    Rule{"a work's number of attempts is not that of its last one",
         "SELECT w.id FROM works w JOIN attempts a ON a.id = w.attempt WHERE w.attempts <> a.number"},
    Rule{"an open job has nothing to do",
         "SELECT id FROM jobs j WHERE state IN ('waiting', 'running', "
         "'stopped') AND NOT EXISTS (SELECT 1 FROM "
         "works WHERE job = j.id AND state IN ('ready', 'waiting', 'running'))"},
    Rule{
        "an ended job has something to do",
        "SELECT id FROM jobs j WHERE state IN ('good', 'failed', 'canceled') AND EXISTS (SELECT 1 FROM works "
        "WHERE job = j.id AND state IN ('ready', 'waiting', 'running'))"},
    Rule{"a good job has works that are not", "SELECT id FROM jobs j WHERE state = 'good' AND EXISTS (SELECT "
                                              "1 FROM works WHERE job = j.id AND state "
                                              "<> 'good')"},
    Rule{"a failed job has no failed work", "SELECT id FROM jobs j WHERE state = 'failed' AND NOT EXISTS "
                                            "(SELECT 1 FROM works WHERE job = j.id AND "
                                            "state = 'failed')"},
    Rule{"a job that is being canceled has ready works, or nothing that runs",
         "SELECT id FROM jobs j WHERE canceling = 1 AND (EXISTS (SELECT 1 FROM works WHERE job = j.id AND "
         "state IN ('ready', 'waiting')) OR NOT EXISTS (SELECT 1 FROM works WHERE job = j.id AND state = "
         "'running'))"},
    Rule{"a waiting job was started, or another that has attempts was not",
         "SELECT id FROM jobs j WHERE (state = 'waiting' AND started IS NOT NULL) OR (started IS NULL) <> "
         "(NOT "
         "EXISTS (SELECT 1 FROM attempts WHERE job = j.id))"},
    Rule{"an open job has an end, or another has none",
         "SELECT id FROM jobs WHERE (state IN ('waiting', 'running')) <> (ended IS NULL)"},
    Rule{"an open job's end is due",
         "SELECT id FROM jobs WHERE end_due = 1 AND state IN ('waiting', 'running')"},
    Rule{"a job has no stream",
         "SELECT id FROM jobs j WHERE NOT EXISTS (SELECT 1 FROM streams WHERE job = j.id)"},
    Rule{"an unchecked file belongs to no running attempt",
         "SELECT f.id FROM files f WHERE f.checked = 0 AND NOT EXISTS (SELECT 1 FROM attempts a WHERE a.id = "
         "f.attempt AND a.state = 'running')"},
    Rule{"a file belongs to an attempt or job that there is not",
         "SELECT id FROM files f WHERE attempt = 0 OR (attempt > 0 AND NOT EXISTS (SELECT 1 FROM attempts a "
         "WHERE "
         "a.id = f.attempt)) OR (attempt < 0 AND NOT EXISTS (SELECT 1 FROM jobs j WHERE j.id = -f.attempt))"},
    // Of jobs that wait for others.
    Rule{"a work waits in a job that waits for no other",
         "SELECT w.id FROM works w WHERE w.state = 'waiting' AND NOT EXISTS (SELECT 1 FROM forerunners f "
         "WHERE f.job = w.job AND f.released = 0)"},
    Rule{"a work waits, but all that it waits for is good",
         "SELECT w.id FROM works w WHERE w.state = 'waiting' AND NOT EXISTS (SELECT 1 FROM forerunners f "
         "LEFT JOIN jobs j ON j.id = f.after WHERE f.job = w.job AND f.released = 0 AND (j.id IS NULL OR "
         "(j.state <> 'good' AND (f.by_frame = 0 OR EXISTS (SELECT 1 FROM works n WHERE n.job = f.after AND "
         "n.state <> 'good' AND n.first <= w.last + f.high AND n.last >= w.first + f.low)))))"},
    Rule{"a blocked job has works that are ready",
         "SELECT id FROM jobs j WHERE blocked = 1 AND EXISTS (SELECT 1 FROM works w WHERE w.job = j.id AND "
         "w.state = 'ready')"},
    // Of a cluster.
    Rule{"a work of a cluster's job runs elsewhere, or one of this machine's there",
         "SELECT a.id FROM attempts a JOIN jobs j ON j.id = a.job JOIN engines e ON e.id = a.engine "
         "WHERE (j.run_on = 'cluster') <> (e.state = 'cluster')"},
    Rule{"a frame stands in two open works of arrays",
         "SELECT a.job || ': ' || p.first || '-' || p.last || ' and ' || q.first || '-' || q.last "
         "FROM arrays a JOIN array_works p ON p.array = a.id JOIN arrays b ON b.job = a.job JOIN array_works "
         "q ON "
         "q.array = b.id WHERE p.open = 1 AND q.open = 1 AND (p.array < q.array OR (p.array = q.array AND "
         "p.position < q.position)) AND p.first <= q.last AND q.first <= p.last"},
    Rule{
        "an open array work's frames are not those of works that wait, run or were canceled",
        "SELECT p.array || ' ' || p.position FROM array_works p JOIN arrays a ON a.id = p.array WHERE p.open "
        "= 1 AND "
        "p.last - p.first + 1 <> (SELECT coalesce(sum(w.last - w.first + 1), 0) FROM works w WHERE w.job = "
        "a.job AND w.first >= p.first AND w.last <= p.last AND w.state IN ('ready', 'running', 'canceled'))"},
    Rule{"an open array work's attempt does not run, or one that runs has none",
         "SELECT 'array work ' || p.array || ' ' || p.position FROM array_works p JOIN attempts a ON a.id = "
         "p.attempt "
         "WHERE p.open = 1 AND a.state <> 'running' UNION ALL SELECT 'attempt ' || a.id FROM attempts a JOIN "
         "engines e ON e.id = a.engine WHERE a.state = 'running' AND e.state = 'cluster' AND NOT EXISTS "
         "(SELECT 1 FROM array_works p WHERE p.attempt = a.id AND p.open = 1 AND p.first = a.first AND "
         "p.last = "
         "a.last)"},
    Rule{"an array with open works is over, or one without is not",
         "SELECT id FROM arrays a WHERE (state = 'over') = EXISTS (SELECT 1 FROM array_works WHERE array = "
         "a.id "
         "AND "
         "open = 1)"},
    Rule{"a beat belongs to no running attempt",
         "SELECT b.attempt FROM beats b JOIN attempts a ON a.id = b.attempt WHERE a.state <> 'running'"},
};

/// Overlaps are looked for among works with frames only: that of a job
/// without frames has a run of no meaning, 0-0, and there is one a job.
void checkFrames(Database& database, const std::map<JobId, RunSet>& submitted,
                 std::vector<std::string>& breaches) {
  for (const auto& [job, frames] : submitted) {
    Query row(database, "SELECT first, last FROM works WHERE job = ?", job);
    RunSet found;
    while (row.next()) {
      found.add(row.frames());
    }
    if (found.text() != frames.text()) {
      breaches.push_back("job " + std::to_string(job) + " has the frames " + found.text() + " instead of " +
                         frames.text());
    }
  }
}

} // namespace

std::vector<std::string> brokenInvariants(const std::string& databaseFile,
                                          const std::map<JobId, RunSet>& submitted) {
  std::vector<std::string> breaches;
  Database database{Path(databaseFile)};
  const auto ask = [&](const std::string& breach, const char* sql, const std::string& allowed) {
    Query row(database, sql);
    while (row.next()) {
      if (const std::string text = row.text(); text != allowed || allowed.empty()) {
        breaches.emplace_back(breach).append(": ").append(text);
      }
    }
  };
  database.read([&] { // one snapshot for all questions: others may write meanwhile
    ask("integrity", "PRAGMA integrity_check", "ok");
    ask("a reference leads nowhere", "PRAGMA foreign_key_check", "");
    for (const Rule& rule : rules) {
      ask(rule.breach, rule.sql, "");
    }
    checkFrames(database, submitted, breaches);
  });
  return breaches;
}

} // namespace trovik
