#include "trovik/queue/QueueImpl.h"
#include "trovik/queue/Statements.h"

#include <algorithm>

// The hot path: taking works and putting down how their attempts ended.

namespace trovik {
namespace {

constexpr int lossesAllowed = 5;
constexpr std::int64_t mixed = -1; // as the number of works that failed alike: they did not

/// What becomes of the frames that an attempt did not leave good.
struct Rest {
  WorkState state = WorkState::Ready;
  int tries = 0;
  int losses = 0;
};

Rest restOf(const Outcome& outcome, const Settling& settling, const StoredWork& work) {
  Rest rest{WorkState::Ready, work.tries, work.losses};
  if (outcome.state == AttemptState::Failed) {
    ++rest.tries;
    const bool again = outcome.retryable && work.tries < settling.retries && !settling.canceling;
    rest.state = again ? WorkState::Ready : WorkState::Failed;
  } else if (settling.canceling) {
    rest.state = WorkState::Canceled;
  } else if (outcome.state == AttemptState::Lost &&
             work.losses + 1 >= std::max(lossesAllowed, settling.retries + 1)) {
    rest.state = WorkState::Failed;
  }
  if (outcome.state == AttemptState::Lost) {
    ++rest.losses;
  }
  if (work.state == WorkState::Canceled) {
    rest.state = WorkState::Canceled;
  }
  return rest;
}

std::vector<WorkPart> partsOf(const Outcome& outcome, bool hasFrames, const FrameRun& run, const Rest& rest) {
  if (outcome.state == AttemptState::Good) {
    return {{run, WorkState::Good, rest.tries, rest.losses}};
  }
  if (!hasFrames || outcome.good.empty()) {
    return {{run, rest.state, rest.tries, rest.losses}};
  }
  std::vector<WorkPart> parts;
  for (const FramePart& part : CutFrames(run, outcome.good.runs())) {
    parts.push_back({part.Run, part.Inside ? WorkState::Good : rest.state, rest.tries, rest.losses});
  }
  return parts;
}

std::string linesText(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += line;
    text += '\n';
  }
  return text;
}

/// The number of works, this one included, that all failed alike since the job
/// was submitted or retried; `mixed` when one did not.
std::int64_t alikeAfter(const Settling& settling, bool anyGood, bool failedFirst, const std::string& alike) {
  if (anyGood || settling.alikeCount < 0) {
    return mixed;
  }
  if (!failedFirst) {
    return settling.alikeCount;
  }
  return settling.alikeCount == 0 || settling.alike == alike ? settling.alikeCount + 1 : mixed;
}

std::string lossesText(const Outcome& outcome, int losses) {
  const std::string times = std::to_string(losses) + " times";
  return outcome.rule == VerdictRule::Cluster ? outcome.reason + " (" + times + ")"
                                              : "Its engine died " + times + " while it ran";
}

std::string stopNote(std::int64_t count, const std::string& reason) {
  return (count == 1 ? std::string("Stopped: the first work failed: ")
                     : "Stopped: the first " + std::to_string(count) + " works all failed alike: ") +
         reason;
}

} // namespace

bool Queue::settle(const Outcome& outcome, std::optional<Outcome>* corrected) {
  if (outcome.state == AttemptState::Running) {
    throw QueueError{QueueError::Kind::Other, "An attempt cannot be settled as running", ""};
  }
  bool again = false;
  impl_->database.write([&] { again = impl_->settle(outcome, corrected); });
  return again;
}

bool Queue::Impl::settle(const Outcome& outcome, std::optional<Outcome>* corrected) {
  Work work;
  Settling settling;
  if (!readSettling(outcome.attempt, settling, work)) {
    return false;
  }
  std::optional<Outcome> other = withoutShared(outcome, settling, work.run);
  const bool again = settleWorks(other ? *other : outcome, settling, {&work, 1});
  if (corrected != nullptr) {
    *corrected = std::move(other);
  }
  return again;
}

bool Queue::Impl::readSettling(AttemptId attempt, Settling& settling, Work& work) {
  Query row(database, statements::attemptToSettle, attempt);
  if (!row.next()) {
    return false;
  }
  work.job = settling.job = row.number();
  work.id = row.number();
  work.run = row.frames();
  work.position = row.number();
  work.attempts = row.integer();
  work.attempt = attempt;
  work.tries = row.integer();
  work.losses = row.integer();
  settling.jobState = row.state<JobState>();
  settling.canceling = row.flag();
  settling.hasFrames = row.flag();
  settling.retries = row.integer();
  settling.stopAfter = row.integer();
  settling.alike = row.text();
  settling.alikeCount = row.number();
  settling.memorySeen = row.number();
  return true;
}

bool Queue::Impl::settleWorks(const Outcome& outcome, const Settling& settling, std::span<const Work> works) {
  RunSet good;
  bool anyGood = false;
  bool leftReady = false;
  bool leftFailed = false;
  std::string reason = outcome.reason;
  for (const Work& work : works) {
    const Rest rest = restOf(outcome, settling, work);
    const std::vector<WorkPart> parts = partsOf(outcome, settling.hasFrames, work.run, rest);
    for (const WorkPart& part : parts) {
      leftReady = leftReady || part.state == WorkState::Ready;
      leftFailed = leftFailed || part.state == WorkState::Failed;
      if (part.state == WorkState::Good) {
        anyGood = true;
        if (settling.hasFrames) {
          good.add(part.run);
        }
      }
    }
    if (outcome.state == AttemptState::Lost && leftFailed) {
      reason = lossesText(outcome, rest.losses);
    }
    putParts(work, parts);
  }

  bool open = isOpen(settling.jobState) && !settling.canceling;
  if (settling.stopAfter > 0) {
    const std::string& alike = outcome.alike.empty() ? outcome.reason : outcome.alike;
    const bool failedFirst = outcome.state == AttemptState::Failed && works.front().tries == 0 &&
                             works.front().state != WorkState::Canceled;
    const std::int64_t count = alikeAfter(settling, anyGood, failedFirst, alike);
    if (count != settling.alikeCount) {
      Query(database, "UPDATE jobs SET alike = ?2, alike_count = ?3 WHERE id = ?1", settling.job,
            count > 0 ? alike : std::string(), count)
          .run();
    }
    // Where nothing waits any more the job ends by itself.
    if (open && failedFirst && count >= settling.stopAfter && hasToDo(settling.job)) {
      open = false;
      Query(database, "UPDATE jobs SET state = 'stopped', end_due = 1, note = ?2, ended = ?3 WHERE id = ?1",
            settling.job, stopNote(count, reason), now())
          .run();
    }
  }
  if (leftFailed && open) {
    setNote(settling.job, reason);
  }

  const bool again = leftReady && open;
  Query(database, statements::endAttempt, outcome.attempt, nameOf(outcome.state), nameOf(outcome.rule),
        reason, linesText(outcome.lines), outcome.log, outcome.command, outcome.exitCode, outcome.signal,
        good.text(), again, now(), outcome.duration.count(), outcome.usage)
      .run();
  // A little more would only cost writing.
  if (outcome.usage && outcome.usage->PeakMemory / 21 * 20 > settling.memorySeen) {
    Query(database, statements::noteMemory, settling.job, outcome.usage->PeakMemory).run();
  }
  Query(database, statements::dropUnchecked, outcome.attempt).run();
  for (const FileRecord& file : outcome.files) {
    insertFile(file, outcome.attempt);
  }
  if (leftReady) {
    Query(database, statements::unblock, settling.job).run();
  } else {
    endWhenDone(settling.job);
  }
  if (!good.empty()) {
    weighFollowers(settling.job, good);
  }
  return again;
}

} // namespace trovik
