#include "trovik/queue/QueueImpl.h"

#include "host/foundation/Quoting.h"
#include "trovik/queue/Statements.h"
#include "trovik/text/UsageError.h"

#include <algorithm>

namespace trovik {

const char* const jobColumns = "id, name, type, type_name, scene, range, has_frames, state, note, priority, "
                               "retries, stop_after, slots_at_most, auto_packets, packet_time, packet_most, "
                               "memory, memory_seen, directory, output, logs, end_command, "
                               "run_on, folder, home, blocked, created, "
                               "started, ended";
const char* const attemptColumns =
    "id, job, work, engine, first, last, number, state, rule, reason, lines, log, "
    "command, exit_code, signal, good, again, ahead AND process = 0 AND state = 'running', started, ended, "
    "duration, user_time, system_time, peak_memory, bytes_read, bytes_written";
const char* const fileColumns = "id, attempt, frame, path, checked, problem, size, modified";

Moment Queue::Impl::now() const {
  return clock ? clock() : std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

void Queue::Impl::putParts(const Work& work, std::span<const WorkPart> parts) {
  const WorkPart& first = parts.front();
  if (first.run == work.run) { // spares the index of frames
    Query(database, statements::endWork, work.id, nameOf(first.state), first.tries, first.losses).run();
    return;
  }
  Query(database, "UPDATE works SET first = ?2, last = ?3, state = ?4, tries = ?5, losses = ?6 WHERE id = ?1",
        work.id, first.run.First, first.run.Last, nameOf(first.state), first.tries, first.losses)
      .run();
  for (const WorkPart& part : parts.subspan(1)) {
    Query(database,
          "INSERT INTO works (job, state, position, first, last, attempts, tries, losses, attempt) "
          "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)",
          work.job, nameOf(part.state), work.position, part.run.First, part.run.Last, work.attempts,
          part.tries, part.losses, work.attempt)
        .run();
  }
}

void Queue::Impl::insertFile(const FileRecord& file, std::int64_t attempt) {
  std::int64_t id = 1;
  if (Query row(database, statements::nextFile); row.next()) {
    id = row.number();
  }
  Query(database, statements::insertFile, id, attempt, file.frame, file.checked, file.size, file.modified,
        file.path, file.problem)
      .run();
}

bool Queue::Impl::hasToDo(JobId job) {
  return Query(database, statements::anyToDo, job).next();
}
bool Queue::Impl::hasRunning(JobId job) {
  return Query(database, statements::anyRunning, job).next();
}

void Queue::Impl::setOpen(JobId job) {
  Query(database,
        "UPDATE jobs SET state = iif(started IS NULL, 'waiting', 'running'), canceling = 0, end_due = 0, "
        "ended = NULL, alike = '', alike_count = 0 WHERE id = ?1",
        job)
      .run();
  noteLastFailure(job);
}

void Queue::Impl::endWhenDone(JobId job) {
  if (hasToDo(job) || hasRunning(job)) {
    return;
  }
  bool failed = false;
  bool canceled = false;
  {
    Query states(database, "SELECT DISTINCT state FROM works WHERE job = ?1", job);
    while (states.next()) {
      const auto state = states.state<WorkState>();
      failed = failed || state == WorkState::Failed;
      canceled = canceled || state == WorkState::Canceled;
    }
  }
  bool canceling = false;
  bool hadEnded = false;
  {
    Query row(database, "SELECT canceling, state FROM jobs WHERE id = ?1", job);
    if (row.next()) {
      canceling = row.flag();
      const auto before = row.state<JobState>();
      hadEnded = !isOpen(before) && before != JobState::Stopped;
      canceling = canceling || before == JobState::Canceled;
    }
  }
  JobState state = JobState::Good;
  if (canceled || (failed && canceling)) {
    state = failed && !canceling ? JobState::Failed : JobState::Canceled;
  } else if (failed) {
    state = JobState::Failed;
  }
  if (hadEnded) {
    Query(database, "UPDATE jobs SET state = ?2 WHERE id = ?1", job, nameOf(state)).run();
  } else {
    Query(database, "UPDATE jobs SET state = ?2, canceling = 0, end_due = 1, ended = ?3 WHERE id = ?1", job,
          nameOf(state), now())
        .run();
  }
  noteLastFailure(job);
  if (state == JobState::Good) {
    weighFollowers(job);
  }
}

void Queue::Impl::setNote(JobId job, const std::string& note) {
  Query(database, "UPDATE jobs SET note = ?2 WHERE id = ?1", job, note).run();
}

void Queue::Impl::noteLastFailure(JobId job) {
  std::string reason;
  {
    Query row(database,
              "SELECT a.reason FROM works w CROSS JOIN attempts a ON a.id = w.attempt "
              "WHERE w.job = ?1 AND w.state = 'failed' ORDER BY a.ended DESC, a.id DESC LIMIT 1",
              job);
    if (row.next()) {
      reason = row.text();
    }
  }
  setNote(job, reason);
}

RunSet framesFromText(const std::string& text, const Database& database) {
  RunSet set;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(',', at), text.size());
    FrameRun run;
    if (!ParseRun(String(text.substr(at, end - at)), run) || run.First > run.Last) {
      throw database.damaged("frames that cannot be, " + inQuotes(text));
    }
    set.add(run);
    at = end + 1;
  }
  return set;
}

namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

} // namespace

JobRecord readJob(Query& row, const Queue& queue, const std::string& home) {
  JobRecord job;
  job.id = row.number();
  job.name = row.text();
  const std::string type = row.text();
  job.typeName = row.text();
  job.scene = row.text();
  job.range = row.text();
  job.hasFrames = row.flag();
  job.state = row.state<JobState>();
  job.note = row.text();
  job.priority = row.integer();
  job.retries = row.integer();
  job.stopAfter = row.integer();
  job.slotsAtMost = row.integer();
  job.packets.automatic = row.flag();
  job.packets.time = row.duration();
  job.packets.most = row.duration();
  job.memory = row.number();
  job.memorySeen = row.number();
  job.directory = row.text();
  job.output = row.text();
  job.logs = row.text();
  if (job.logs.empty()) {
    job.logs = queue.logDirectory(job.id).Text();
  }
  const std::string endCommand = row.text();
  job.runOn = row.state<RunOn>();
  job.folder = row.text();
  job.own = row.text() == home;
  job.blocked = row.flag();
  job.created = row.moment();
  job.started = row.optionalMoment();
  job.ended = row.optionalMoment();
  try {
    job.type.FromString(type);
    for (const String& word : SplitCommandLine(endCommand)) {
      job.endCommands.push_back(word);
    }
  } catch (Exception* exception) {
    throw row.damaged("job " + std::to_string(job.id) + ": " + takeText(exception));
  }
  return job;
}

AttemptRecord readAttempt(Query& row, Database& database) {
  AttemptRecord attempt;
  attempt.id = row.number();
  attempt.job = row.number();
  attempt.work = row.number();
  attempt.engine = row.number();
  attempt.run = row.frames();
  attempt.number = row.integer();
  attempt.state = row.state<AttemptState>();
  attempt.rule = row.state<VerdictRule>();
  attempt.reason = row.text();
  attempt.lines = linesOf(row.text());
  attempt.log = row.text();
  attempt.command = row.text();
  attempt.exitCode = row.integer();
  attempt.signal = row.integer();
  attempt.good = framesFromText(row.text(), database);
  attempt.again = row.flag();
  attempt.begun = !row.flag();
  attempt.started = row.moment();
  attempt.ended = row.optionalMoment();
  attempt.duration = row.duration();
  attempt.usage = row.usage();
  return attempt;
}

FileRecord readFile(Query& row) {
  FileRecord file;
  file.id = row.number();
  file.attempt = std::max<std::int64_t>(row.number(), 0);
  file.frame = row.optionalInteger();
  file.path = row.text();
  file.checked = row.flag();
  file.problem = row.text();
  file.size = row.number();
  file.modified = row.number();
  return file;
}

} // namespace trovik
