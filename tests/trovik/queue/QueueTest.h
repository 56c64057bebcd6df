#pragma once

#include "tests/trovik/TemporaryDirectory.h"
#include "trovik/queue/Queue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace trovik {

/// A job of works as they are written, "1-3,4-6": each run is one work.
NewJob jobOf(const std::string& works);
std::vector<FrameRun> runsOf(const std::string& text);
RunSet setOf(const std::string& text);

Outcome good(AttemptId attempt);
Outcome failed(AttemptId attempt, const std::string& reason = "It broke", const std::string& goodFrames = "");
Outcome canceledOutcome(AttemptId attempt, const std::string& goodFrames = "");
Outcome lost(AttemptId attempt, const std::string& goodFrames = "");

/// All works of a job that wait for an array of a cluster, as its tasks.
std::vector<ArrayWork> arrayWorks(Queue& queue, JobId job);

FileRecord file(const std::string& path, const std::string& problem = "");

/// The error that an action is refused with; message and hint are empty when
/// it is not.
template <typename Action> QueueError queueErrorOf(Action action) {
  try {
    action();
  } catch (const QueueError& error) {
    return error;
  }
  return {};
}

/// A queue of its own, whose invariants are checked in the end.
class QueueTest : public testing::Test {
protected:
  void TearDown() override;

  std::string databaseFile() const { return directory.file("queue.db"); }
  /// Takes the next ready work.
  Claim take(std::optional<JobId> only = std::nullopt);
  /// The frames that are ready, running, good, failed and canceled, "1-3 - 4 - -".
  std::string standing(JobId job);
  JobState stateOf(JobId job) { return queue.job(job).value().state; }
  std::string noteOf(JobId job) { return queue.job(job).value().note; }
  /// Changes the database behind the queue's back.
  void change(const std::string& sql);

  TemporaryDirectory directory;
  Queue queue{Path(directory.path())};
  EngineId engine = queue.enterEngine(2);
};

} // namespace trovik
