#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

// The same command again. Whether there is a job to go on with, and what becomes
// of it, is one transaction, so that of two commands at the same moment one makes
// the job and the other one finds it.
//
// Files are checked before, since that takes as long as the disk likes, and
// meanwhile others may go on with the job. So what the check says counts for
// those frames alone that are as they were when it began: no attempt was made at
// them since, and their state is the same.

namespace trovik {
namespace {

RunSet changedSince(Database& database, JobId job, AttemptId newest) {
  RunSet frames;
  Query row(database, "SELECT first, last FROM works WHERE job = ?1 AND attempt > ?2", job, newest);
  while (row.next()) {
    frames.add(row.frames());
  }
  return frames;
}

/// Whether a command that names the forerunners of the second list has made
/// the job of the first one, whatever was released since.
bool equalForerunners(std::vector<Forerunner> ofJob, const std::vector<Forerunner>& named) {
  for (Forerunner& one : ofJob) {
    one.released = false;
  }
  return ofJob == named;
}

RunSet notDone(const JobFrames& frames) {
  RunSet result = frames.ready;
  result.add(frames.failed);
  result.add(frames.canceled);
  return result;
}

} // namespace

bool Queue::isUnderWay(JobId job, EngineId olderThan) {
  return impl_->isUnderWay(job, olderThan);
}

bool Queue::Impl::isUnderWay(JobId job, EngineId olderThan) {
  Query row(
      database,
      "SELECT DISTINCT a.engine FROM works w INDEXED BY works_open CROSS JOIN attempts a ON a.id = w.attempt "
      "WHERE w.job = ?1 AND w.state = 'running'",
      job);
  while (row.next()) {
    const EngineId engine = row.number();
    if ((olderThan == 0 || engine < olderThan) &&
        (entered.contains(engine) || locks.isHeldElsewhere(engine))) {
      return true;
    }
  }
  return false;
}

std::optional<BegunJob> Queue::begun(const NewJob& job) {
  std::optional<BegunJob> result;
  impl_->database.read([&] {
    {
      bool newest = true;
      Query row(impl_->database,
                "SELECT j.id, j.state, j.canceling FROM jobs j INDEXED BY jobs_scene "
                "CROSS JOIN streams s ON s.job = j.id WHERE j.type = ?1 AND j.scene = ?2 AND j.output = ?3 "
                "AND j.run_on = ?4 AND s.packed = ?5 AND j.home = ?6 ORDER BY j.id DESC",
                job.type.GenString(), job.scene, job.output, nameOf(job.runOn), Blob{job.packed},
                impl_->home);
      while (row.next()) {
        BegunJob found;
        found.id = row.number();
        found.state = row.state<JobState>();
        if (found.state == JobState::Canceled || row.flag()) {
          continue; // the user wants nothing of it any more
        }
        if (!equalForerunners(impl_->forerunners(found.id), job.forerunners)) {
          continue; // another command
        }
        const bool open = isOpen(found.state);
        const bool isDone =
            found.state == JobState::Good && !(job.ofShot && impl_->hasUnfinishedFollower(found.id));
        if (open || (newest && !isDone)) {
          result = std::move(found);
        }
        if (open) {
          break;
        }
        newest = false;
      }
    }
    if (!result) {
      return;
    }
    result->underWay = job.runOn == RunOn::Cluster
                           ? Query(impl_->database, statements::openArraysOfJob, result->id).next()
                           : impl_->isUnderWay(result->id, 0);
    result->frames = frames(result->id);
    Query newest(impl_->database,
                 "SELECT max(coalesce((SELECT max(id) FROM attempts), 0), last_attempt) FROM queue");
    result->newest = newest.next() ? newest.number() : 0;
  });
  return result;
}

EnteredJob Queue::enter(const NewJob& job, const std::optional<BegunJob>& known, const RunSet& gone) {
  EnteredJob entered;
  impl_->database.write([&] {
    entered = {};
    entered.before = begun(job);
    if (entered.before) {
      entered.id = entered.before->id;
      impl_->goOn(*entered.before, job, known, gone, entered.again);
    } else if (!job.works.empty()) {
      entered.id = submit(job);
    }
    entered.frames = frames(entered.id);
  });
  return entered;
}

void Queue::Impl::goOn(const BegunJob& begun, const NewJob& job, const std::optional<BegunJob>& known,
                       const RunSet& gone, RunSet& again) {
  const bool open = isOpen(begun.state);
  RunSet changed;
  if (known && known->id == begun.id) {
    changed = changedSince(database, begun.id, known->newest);
    again = without(common(gone, common(known->frames.good, begun.frames.good)), changed);
  }
  const bool failed = begun.frames.failedWorks + begun.frames.canceledWorks > 0;
  if (failed && !(open && begun.underWay)) {
    retry(begun.id, std::nullopt);
  }
  if (!again.empty()) {
    makeReady(begun.id, again.runs());
  }
  if (known && known->id == begun.id) {
    takeFound(begun, job, *known, changed);
  }
  Query(database, "UPDATE jobs SET priority = ?2 WHERE id = ?1", begun.id, job.priority).run();
  setRules(begun.id, job);
  if (!open && (hasToDo(begun.id) || hasRunning(begun.id))) {
    setOpen(begun.id);
  }
  weigh(begun.id);
  weighFollowers(begun.id);
  endWhenDone(begun.id);
}

void Queue::Impl::takeFound(const BegunJob& begun, const NewJob& job, const BegunJob& known,
                            const RunSet& changed) {
  RunSet found;
  if (!job.hasFrames) {
    if (!job.works.empty() || begun.underWay || known.frames.runningWorks > 0 || !changed.empty()) {
      return;
    }
    Query(database, "UPDATE works SET state = 'good' WHERE job = ?1 AND state IN ('ready', 'waiting')",
          begun.id)
        .run();
  } else {
    for (const FrameRun& run : job.found) {
      found.add(run);
    }
    RunSet taken = changed;
    for (Query row(database, statements::openRuns, begun.id); row.next();) {
      taken.add(row.frames()); // a task of the cluster may be at them
    }
    found = without(common(found, common(notDone(known.frames), notDone(begun.frames))), taken);
    if (found.empty()) {
      return;
    }
    const std::vector<FrameRun> runs = found.runs();
    cutWorks(begun.id, runs,
             "SELECT id, first, last, position, attempts, attempt, tries, losses, state FROM works "
             "WHERE job = ?1 AND state IN ('ready', 'waiting', 'failed', 'canceled')",
             WorkState::Good);
  }
  for (const FileRecord& file : job.foundFiles) {
    if (!job.hasFrames || !file.frame || found.contains(*file.frame)) {
      insertFile(file, -begun.id);
    }
  }
}

} // namespace trovik
