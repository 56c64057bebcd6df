#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>
#include <climits>
#include <set>
#include <string>
#include <utility>

// Jobs that wait for others. A work that may not begin yet has a state of its
// own, and is made ready in the very transaction that makes the last frame
// good which it needs. So a claim never looks at what waits, and whenever a
// process is killed what waits and what is ready fit to what is good.

namespace trovik {
namespace {

/// A forerunner that is still waited for, as it stands.
struct Awaited {
  Forerunner forerunner;
  bool gone = false;
  bool good = false;
};

std::vector<Awaited> awaitedBy(Database& database, const std::vector<Forerunner>& forerunners) {
  std::vector<Awaited> result;
  for (const Forerunner& one : forerunners) {
    if (one.released) {
      continue;
    }
    Query row(database, "SELECT state FROM jobs WHERE id = ?1", one.job);
    const bool known = row.next();
    result.push_back({one, !known, known && row.state<JobState>() == JobState::Good});
  }
  return result;
}

int clamped(std::int64_t frame) {
  return static_cast<int>(std::clamp<std::int64_t>(frame, INT_MIN, INT_MAX));
}

/// The forerunner's frames that those of the follower need.
FrameRun neededBy(const FrameRun& run, const Forerunner& forerunner) {
  return {clamped(std::int64_t{run.First} + forerunner.low),
          clamped(std::int64_t{run.Last} + forerunner.high)};
}

/// Whether these frames of the follower need not wait for it any more. One that
/// is gone is waited for: nobody knows what of it was good.
bool isSatisfied(Database& database, const Awaited& awaited, const FrameRun& run) {
  if (awaited.gone || !awaited.forerunner.byFrame) {
    return awaited.good;
  }
  const FrameRun needed = neededBy(run, awaited.forerunner);
  return awaited.good ||
         !Query(database, statements::notGoodAt, awaited.forerunner.job, needed.First, needed.Last).next();
}

} // namespace

std::vector<Forerunner> Queue::Impl::forerunners(JobId job) {
  std::vector<Forerunner> result;
  for (Query row(database, statements::forerunners, job); row.next();) {
    Forerunner one;
    one.job = row.number();
    one.byFrame = row.flag();
    one.low = row.integer();
    one.high = row.integer();
    one.released = row.flag();
    result.push_back(one);
  }
  return result;
}

bool Queue::Impl::hasUnfinishedFollower(JobId job) {
  Query row(database,
            "WITH RECURSIVE follower (id) AS (SELECT job FROM forerunners WHERE after = ?1 UNION "
            "SELECT f.job FROM follower CROSS JOIN forerunners f ON f.after = follower.id) "
            "SELECT 1 FROM follower CROSS JOIN jobs j ON j.id = follower.id "
            "WHERE j.state NOT IN ('good', 'canceled') LIMIT 1",
            job);
  return row.next();
}

void Queue::Impl::setWorks(JobId follower, std::span<const WorkId> works, WorkState state) {
  for (const WorkId work : works) {
    Query(database, statements::setWork, work, nameOf(state)).run();
  }
  if (state == WorkState::Ready && !works.empty()) {
    ++freed;
    Query(database, statements::unblock, follower).run();
  }
}

void Queue::Impl::weigh(JobId follower) {
  const std::vector<Forerunner> all = forerunners(follower);
  if (all.empty()) {
    return;
  }
  const std::vector<Awaited> awaited = awaitedBy(database, all);
  const bool anyGone =
      std::any_of(awaited.begin(), awaited.end(), [](const Awaited& one) { return one.gone; });
  RunSet given; // to tasks of a cluster, which may begin them at any moment
  for (Query row(database, statements::openRuns, follower); row.next();) {
    given.add(row.frames());
  }
  std::vector<WorkId> ready;
  std::vector<WorkId> waiting;
  Query row(database,
            "SELECT id, first, last, state, attempts FROM works INDEXED BY works_open "
            "WHERE job = ?1 AND state = 'ready' "
            "UNION ALL SELECT id, first, last, state, attempts FROM works INDEXED BY works_open "
            "WHERE job = ?1 AND state = 'waiting'",
            follower);
  while (row.next()) {
    const WorkId id = row.number();
    const FrameRun run = row.frames();
    const bool waits = row.state<WorkState>() == WorkState::Waiting;
    const bool hasBegun = row.integer() > 0;
    if (!waits && ((anyGone && hasBegun) || given.contains(run.First))) {
      continue;
    }
    const bool may = std::all_of(awaited.begin(), awaited.end(),
                                 [&](const Awaited& one) { return isSatisfied(database, one, run); });
    if (may == waits) {
      (may ? ready : waiting).push_back(id);
    }
  }
  setWorks(follower, waiting, WorkState::Waiting);
  setWorks(follower, ready, WorkState::Ready);
  Query(database,
        "UPDATE jobs SET blocked = EXISTS (SELECT 1 FROM works WHERE job = ?1 AND state = 'waiting') AND "
        "NOT EXISTS (SELECT 1 FROM works WHERE job = ?1 AND state = 'ready') WHERE id = ?1",
        follower)
      .run();
}

void Queue::Impl::weighAt(JobId follower, const FrameRun& frames) {
  std::vector<WorkId> ready;
  const std::vector<Awaited> awaited = awaitedBy(database, forerunners(follower));
  for (Query row(database, statements::waitingAt, follower, frames.First, frames.Last); row.next();) {
    const WorkId id = row.number();
    const FrameRun run = row.frames();
    if (std::all_of(awaited.begin(), awaited.end(),
                    [&](const Awaited& one) { return isSatisfied(database, one, run); })) {
      ready.push_back(id);
    }
  }
  setWorks(follower, ready, WorkState::Ready);
}

void Queue::Impl::weighFollowers(JobId job) {
  std::vector<JobId> found;
  for (Query row(database, statements::followers, job); row.next();) {
    found.push_back(row.number());
  }
  for (const JobId follower : found) {
    weigh(follower);
  }
}

void Queue::Impl::weighFollowers(JobId job, const RunSet& good) {
  struct Follower {
    JobId job = 0;
    int low = 0;
    int high = 0;
  };
  std::vector<Follower> found;
  for (Query row(database, statements::followers, job); row.next();) {
    const JobId follower = row.number();
    if (row.flag()) {
      const int low = row.integer();
      found.push_back({follower, low, row.integer()});
    }
  }
  for (const Follower& follower : found) {
    for (const FrameRun& run : good.runs()) {
      weighAt(follower.job, {clamped(std::int64_t{run.First} - follower.high),
                             clamped(std::int64_t{run.Last} - follower.low)});
    }
  }
}

std::vector<Forerunner> Queue::forerunners(JobId id) {
  return impl_->forerunners(id);
}

std::vector<JobId> Queue::followers(JobId id, bool all) {
  std::vector<JobId> result;
  impl_->database.read([&] {
    std::vector<JobId> asked = {id};
    for (std::size_t i = 0; i < asked.size(); ++i) {
      Query row(
          impl_->database,
          "SELECT f.job FROM forerunners f INDEXED BY forerunners_after CROSS JOIN jobs j ON j.id = f.job "
          "WHERE f.after = ?1 AND f.released = 0 AND j.state IN ('waiting', 'running', 'stopped')",
          asked[i]);
      while (row.next()) {
        const JobId follower = row.number();
        if (std::find(asked.begin(), asked.end(), follower) == asked.end()) {
          result.push_back(follower);
          asked.push_back(follower);
        }
      }
      if (!all) {
        break;
      }
    }
  });
  std::sort(result.begin(), result.end());
  return result;
}

std::vector<std::string> Queue::imagesBefore(JobId id, const FrameRun& run) {
  std::vector<std::string> images;
  impl_->database.read([&] {
    images.clear();
    const std::vector<Forerunner> before = impl_->forerunners(id);
    if (before.empty()) {
      return;
    }
    Query follower(impl_->database, "SELECT has_frames FROM jobs WHERE id = ?1", id);
    const bool hasFrames = follower.next() && follower.flag();
    std::set<std::string> seen;
    for (const Forerunner& one : before) {
      const FrameRun needed = hasFrames ? neededBy(run, one) : FrameRun{INT_MIN, INT_MAX};
      for (const char* sql : {statements::goodFilesAt, statements::foundFilesAt}) {
        for (Query row(impl_->database, sql, one.job, needed.First, needed.Last); row.next();) {
          if (std::string path = row.text(); seen.insert(path).second) {
            images.push_back(std::move(path));
          }
        }
      }
    }
  });
  return images;
}

void Queue::release(JobId id) {
  impl_->database.write([&] {
    Query(impl_->database, "UPDATE forerunners SET released = 1 WHERE job = ?1", id).run();
    impl_->weigh(id);
  });
}

} // namespace trovik
