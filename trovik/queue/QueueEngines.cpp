#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <unistd.h>

// Which engines there are, and what became of the works of those that died.

namespace trovik {
namespace {

/// What differs each time that the machine is started.
std::string bootId() {
  std::string id;
  std::getline(std::ifstream("/proc/sys/kernel/random/boot_id"), id);
  return id;
}

} // namespace

std::vector<EngineId> Queue::Impl::aliveEngines() {
  std::vector<EngineId> engines;
  for (Query row(database, statements::aliveEngines); row.next();) {
    engines.push_back(row.number());
  }
  return engines;
}

std::vector<AttemptId> Queue::Impl::runningOf(EngineId engine, Ahead ahead) {
  std::vector<AttemptId> attempts;
  Query row(database, statements::runningOfEngine, engine);
  while (row.next()) {
    const AttemptId attempt = row.number();
    if (const bool perhapsNotBegun = row.flag(); ahead == Ahead::With || !perhapsNotBegun) {
      attempts.push_back(attempt);
    }
  }
  std::sort(attempts.begin(), attempts.end());
  return attempts;
}

bool Queue::Impl::isAlive(EngineId engine) {
  return Query(database, "SELECT 1 FROM engines WHERE id = ?1 AND state = 'alive'", engine).next();
}

void Queue::Impl::putAway(EngineId engine, const char* state) {
  Query(database, "UPDATE engines SET state = ?2, gone = ?3 WHERE id = ?1 AND state = 'alive'", engine, state,
        now())
      .run();
}

EngineId Queue::enterEngine(std::size_t slots) {
  EngineId id = 0;
  try {
    impl_->database.write([&] {
      Query(impl_->database,
            "INSERT INTO engines (state, slots, process, boot, entered) VALUES ('alive', ?1, ?2, ?3, ?4)",
            slots, static_cast<int>(getpid()), bootId(), impl_->now())
          .run();
      id = impl_->database.lastId();
      // Before anybody sees the engine: one whose lock is free counts as dead.
      if (!impl_->locks.take(id)) {
        throw QueueError{QueueError::Kind::Other,
                         "The lock of engine " + std::to_string(id) + " is held by another process",
                         "look which process has the file open in the folder \"engines\" of the queue"};
      }
    });
  } catch (...) {
    impl_->locks.release(id);
    throw;
  }
  impl_->entered.insert(id);
  return id;
}

void Queue::leaveEngine(EngineId id) {
  if (!impl_->entered.contains(id)) {
    return;
  }
  bool left = false;
  impl_->database.write([&] {
    left = impl_->runningOf(id).empty();
    if (left) {
      impl_->putAway(id, "left");
    }
  });
  impl_->entered.erase(id);
  // With attempts that still count as running it is like one that died: others
  // find its lock free.
  if (left) {
    impl_->locks.remove(id);
  } else {
    impl_->locks.release(id);
  }
}

std::vector<LostAttempt> Queue::takeLost() {
  std::vector<EngineId> dead;
  for (const EngineId engine : impl_->aliveEngines()) {
    if (!impl_->locks.holds(engine) && impl_->locks.take(engine)) {
      dead.push_back(engine);
    }
  }
  std::vector<LostAttempt> result;
  if (dead.empty()) {
    return result;
  }
  std::vector<EngineId> gone;
  try {
    impl_->database.write([&] {
      for (const EngineId engine : dead) {
        // Another process may have put it away before its lock was free.
        std::vector<AttemptId> running;
        if (impl_->isAlive(engine)) {
          impl_->giveBackUnbegun(engine);
          running = impl_->runningOf(engine);
        }
        if (running.empty()) {
          impl_->putAway(engine, "died");
          gone.push_back(engine);
        }
        for (const AttemptId attempt : running) {
          result.push_back(impl_->lostAttempt(attempt, *this));
        }
      }
    });
  } catch (...) {
    for (const EngineId engine : dead) {
      impl_->locks.release(engine);
    }
    throw;
  }
  impl_->lost.insert(dead.begin(), dead.end());
  for (const EngineId engine : gone) {
    impl_->lost.erase(engine);
    impl_->locks.remove(engine);
  }
  return result;
}

/// Works that are claimed ahead begin in the order of their attempts, and each is
/// noted before. What was noted is only sure as long as the machine runs.
void Queue::Impl::giveBackUnbegun(EngineId engine) {
  const std::optional<AttemptId> begun = locks.noted(engine);
  if (!begun) {
    return;
  }
  std::vector<AttemptId> unbegun;
  for (Query row(database, statements::aheadOfEngine, engine, bootId(), *begun); row.next();) {
    unbegun.push_back(row.number());
  }
  for (const AttemptId attempt : unbegun) {
    giveBack(attempt);
  }
}

LostAttempt Queue::Impl::lostAttempt(AttemptId id, Queue& queue) {
  LostAttempt result;
  if (std::optional<AttemptRecord> attempt = queue.attempt(id)) {
    result.attempt = std::move(*attempt);
  }
  result.mark = markOf(id);
  {
    Query row(database,
              "SELECT a.process, e.boot, a.printed, a.files_before FROM attempts a CROSS JOIN engines e ON "
              "e.id = a.engine "
              "WHERE a.id = ?1",
              id);
    if (row.next()) {
      result.process = row.integer();
      result.sameBoot = row.text() == bootId();
      if (const std::optional<std::int64_t> printed = row.optionalNumber()) {
        const AttemptRecord& attempt = result.attempt;
        result.end = ProgramEnd{attempt.exitCode, attempt.signal, attempt.usage,   attempt.command,
                                attempt.log,      *printed,       attempt.duration};
      }
      result.filesBefore = row.text();
    }
  }
  static const std::string sql =
      std::string("SELECT ") + fileColumns +
      " FROM files INDEXED BY files_attempt WHERE attempt = ?1 AND checked = 0 ORDER BY id";
  for (Query row(database, sql.c_str(), id); row.next();) {
    result.files.push_back(readFile(row));
  }
  return result;
}

void Queue::releaseLost() {
  std::vector<EngineId> gone;
  if (impl_->lost.empty()) {
    return;
  }
  impl_->database.write([&] {
    for (const EngineId engine : impl_->lost) {
      if (impl_->runningOf(engine).empty()) {
        impl_->putAway(engine, "died");
        gone.push_back(engine);
      }
    }
  });
  for (const EngineId engine : gone) {
    impl_->locks.remove(engine);
    impl_->lost.erase(engine);
  }
  for (const EngineId engine : impl_->lost) {
    impl_->locks.release(engine);
  }
  impl_->lost.clear();
}

bool Queue::hasLost() {
  for (const EngineId engine : impl_->aliveEngines()) {
    if (!impl_->entered.contains(engine) && !impl_->locks.isHeldElsewhere(engine) &&
        !impl_->runningOf(engine).empty()) {
      return true;
    }
  }
  return false;
}

bool Queue::hasOtherEngine(EngineId own) {
  for (const EngineId engine : impl_->aliveEngines()) {
    if (engine != own && (impl_->entered.contains(engine) || impl_->locks.isHeldElsewhere(engine))) {
      return true;
    }
  }
  return false;
}

std::size_t Queue::slots(EngineId id) {
  Query row(impl_->database, "SELECT slots FROM engines WHERE id = ?1", id);
  return row.next() ? static_cast<std::size_t>(std::max<std::int64_t>(row.number(), 0)) : 0;
}

} // namespace trovik
