#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

// What may be changed of a job that is in the queue, and what is scarce for all.

namespace trovik {
namespace {

struct WorkToCut {
  WorkId id = 0;
  FrameRun run;
  std::int64_t position = 0;
};

std::vector<WorkToCut> cuttable(Database& database, JobId job, bool waiting) {
  RunSet given; // to tasks of a cluster
  for (Query row(database, statements::openRuns, job); row.next();) {
    given.add(row.frames());
  }
  std::vector<WorkToCut> works;
  Query row(database,
            "SELECT id, first, last, position FROM works WHERE job = ?1 AND state IN ('ready', iif(?2, "
            "'waiting', '')) AND attempts = 0 ORDER BY position, first",
            job, waiting);
  while (row.next()) {
    WorkToCut work;
    work.id = row.number();
    work.run = row.frames();
    work.position = row.number();
    if (!given.contains(work.run.First)) {
      works.push_back(work);
    }
  }
  return works;
}

std::vector<FrameRun> runsOf(const std::vector<WorkToCut>& works) {
  std::vector<FrameRun> runs;
  runs.reserve(works.size());
  for (const WorkToCut& work : works) {
    runs.push_back(work.run);
  }
  return runs;
}

std::vector<LimitShare> limitsIn(Database& database) {
  std::vector<LimitShare> limits;
  for (Query row(database, "SELECT name, amount FROM limits ORDER BY name"); row.next();) {
    LimitShare limit;
    limit.name = row.text();
    limit.amount = row.integer();
    limits.push_back(std::move(limit));
  }
  return limits;
}

} // namespace

std::int64_t takenOfLimit(Database& database, const std::string& name) {
  std::int64_t taken = 0;
  for (Query row(database, statements::takenOfLimit, name); row.next();) {
    const std::int64_t amount = row.number();
    taken += amount * row.number();
  }
  return taken;
}

void Queue::Impl::setTakes(JobId job, const std::vector<LimitShare>& takes) {
  Query(database, "DELETE FROM job_limits WHERE job = ?1", job).run();
  for (const LimitShare& share : takes) {
    Query(database, "INSERT INTO job_limits (job, name, amount) VALUES (?1, ?2, ?3)", job, share.name,
          share.amount)
        .run();
  }
  Query(database, "UPDATE jobs SET limited = ?2 WHERE id = ?1 AND limited <> ?2", job, !takes.empty()).run();
}

void Queue::Impl::setRules(JobId id, const NewJob& job) {
  Query(database,
        "UPDATE jobs SET slots_at_most = ?2, auto_packets = ?3, packet_time = ?4, packet_most = ?5, "
        "memory = ?6 WHERE id = ?1",
        id, job.slotsAtMost, job.packets.automatic && job.hasFrames, job.packets.time, job.packets.most,
        job.memory)
      .run();
  setTakes(id, job.takes);
}

/// The frames and their order stay; each work takes the rows of those that it
/// is made of.
void Queue::Impl::cutAnew(JobId job, int packet, bool waiting) {
  const std::vector<WorkToCut> works = cuttable(database, job, waiting);
  const std::vector<FrameRun> runs = trovik::cutAnew(runsOf(works), packet);
  if (runs == runsOf(works)) {
    return;
  }
  std::size_t old = 0;
  std::vector<std::int64_t> positions;
  for (const FrameRun& run : runs) {
    // In the order of both, the first frame of each lies in one of the others.
    while (run.First < works[old].run.First || run.First > works[old].run.Last) {
      ++old;
    }
    positions.push_back(works[old].position);
  }
  for (const WorkToCut& work : works) {
    Query(database, "DELETE FROM works WHERE id = ?1", work.id).run();
  }
  for (std::size_t i = 0; i < runs.size(); ++i) {
    Query(database,
          "INSERT INTO works (job, state, position, first, last, attempts, tries, losses, attempt) "
          "VALUES (?1, 'ready', ?2, ?3, ?4, 0, 0, 0, 0)",
          job, positions[i], runs[i].First, runs[i].Last)
        .run();
  }
  weigh(job);
}

void Queue::change(JobId id, const JobChange& change) {
  impl_->database.write([&] {
    const auto set = [&](const char* sql, const std::optional<int>& value) {
      if (value) {
        Query(impl_->database, sql, id, *value).run();
      }
    };
    set("UPDATE jobs SET priority = ?2 WHERE id = ?1", change.priority);
    set("UPDATE jobs SET retries = ?2 WHERE id = ?1", change.retries);
    set("UPDATE jobs SET stop_after = ?2 WHERE id = ?1", change.stopAfter);
    set("UPDATE jobs SET slots_at_most = ?2 WHERE id = ?1", change.slotsAtMost);
    if (change.takes) {
      impl_->setTakes(id, *change.takes);
    }
    if (change.packet) {
      const bool automatic = *change.packet == JobChange::automatic;
      Query(impl_->database, "UPDATE jobs SET auto_packets = ?2 WHERE id = ?1", id, automatic).run();
      impl_->cutAnew(id, automatic ? 1 : *change.packet, true);
    }
    if (change.memory) {
      Query(impl_->database, "UPDATE jobs SET memory = ?2 WHERE id = ?1", id, *change.memory).run();
    }
  });
}

std::vector<FrameRun> Queue::worksToCut(JobId id) {
  std::vector<FrameRun> runs;
  impl_->database.read([&] { runs = runsOf(cuttable(impl_->database, id, true)); });
  return runs;
}

void Queue::cut(JobId id, int packet) {
  impl_->database.write([&] { impl_->cutAnew(id, packet, false); });
}

std::vector<LimitShare> Queue::takes(JobId id) {
  std::vector<LimitShare> result;
  for (Query row(impl_->database, statements::takesOfJob, id); row.next();) {
    LimitShare share;
    share.name = row.text();
    share.amount = row.integer();
    result.push_back(std::move(share));
  }
  return result;
}

void Queue::setLimits(const std::vector<LimitShare>& limits) {
  if (limitsIn(impl_->database) == limits) { // mostly; needs no right to write
    return;
  }
  impl_->database.write([&] {
    Query(impl_->database, "DELETE FROM limits").run();
    for (const LimitShare& limit : limits) {
      Query(impl_->database, "INSERT INTO limits (name, amount) VALUES (?1, ?2)", limit.name, limit.amount)
          .run();
    }
  });
}

std::vector<LimitStand> Queue::limits() {
  std::vector<LimitStand> result;
  impl_->database.read([&] {
    result.clear();
    for (const LimitShare& limit : limitsIn(impl_->database)) {
      result.push_back(
          {limit.name, limit.amount, static_cast<int>(takenOfLimit(impl_->database, limit.name))});
    }
  });
  return result;
}

} // namespace trovik
