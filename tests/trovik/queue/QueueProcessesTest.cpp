#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/queue/Child.h"
#include "tests/trovik/queue/Invariants.h"
#include "tests/trovik/queue/QueueTest.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sqlite3.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace trovik {
namespace {

// Real processes beside each other, and processes that are killed at every
// step of their writing. The test's own process has no queue open while it
// forks: what SQLite knows of its open files must not be inherited.

class QueueProcesses : public testing::Test {
protected:
  Path folder() const { return Path(directory.path()); }
  std::string databaseFile() const { return directory.file("queue.db"); }
  TemporaryDirectory directory;
};

TEST_F(QueueProcesses, EveryWorkGoesToOneOfManyEngines) {
  constexpr int works = 400;
  {
    NewJob job = jobOf("");
    for (int frame = 1; frame <= works; ++frame) {
      job.works.push_back({frame, frame});
    }
    Queue(folder()).submit(job);
  }
  std::vector<std::unique_ptr<Child>> engines;
  for (std::size_t number = 1; number <= 4; ++number) {
    engines.push_back(std::make_unique<Child>([&, number](const Child::Tell& tell) {
      Queue queue(folder());
      const EngineId engine = queue.enterEngine(number);
      for (std::vector<Claim> claims; !(claims = queue.claim(engine, number, std::nullopt)).empty();) {
        for (const Claim& claim : claims) {
          tell(std::to_string(claim.run.First));
          queue.settle(good(claim.attempt));
        }
      }
      queue.leaveEngine(engine);
    }));
  }
  std::multiset<int> frames;
  for (const auto& engine : engines) {
    for (const std::string& line : engine->finish()) {
      frames.insert(std::atoi(line.c_str()));
    }
    EXPECT_EQ(engine->status, 0);
  }
  std::multiset<int> wanted;
  for (int frame = 1; frame <= works; ++frame) {
    wanted.insert(frame);
  }
  EXPECT_EQ(frames, wanted);
  EXPECT_EQ(Queue(folder()).job(1)->state, JobState::Good);
  EXPECT_EQ(brokenInvariants(databaseFile()), std::vector<std::string>());
}

TEST_F(QueueProcesses, ManyMakeTheSameQueueAtOnce) {
  std::vector<std::unique_ptr<Child>> children;
  children.reserve(6);
  for (int number = 0; number < 6; ++number) {
    children.push_back(std::make_unique<Child>([&](const Child::Tell& tell) {
      Queue queue(folder());
      tell(std::to_string(queue.submit(jobOf("1"))));
    }));
  }
  std::set<std::string> jobs;
  for (const auto& child : children) {
    for (const std::string& line : child->finish()) {
      jobs.insert(line);
    }
    EXPECT_EQ(child->status, 0);
  }
  EXPECT_EQ(jobs, (std::set<std::string>{"1", "2", "3", "4", "5", "6"}));
}

/// What is done before the second question that a queue is asked.
std::function<void()>* beforeSecondQuestion = nullptr;

int beforeStatement(unsigned /*event*/, void* /*context*/, void* statement, void* /*text*/) {
  const std::string sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
  if (beforeSecondQuestion != nullptr && sql == "PRAGMA application_id") {
    (*std::exchange(beforeSecondQuestion, nullptr))();
  }
  return 0;
}

int watchStatements(sqlite3* connection, char** /*error*/, const sqlite3_api_routines* /*routines*/) {
  return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, beforeStatement, nullptr);
}

TEST_F(QueueProcesses, QueueThatIsMadeWhileItIsLookedAtIsNoDamagedOne) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Child other([&](const Child::Tell& tell) {
    char byte = 0;
    if (read(ends[0], &byte, 1) == 1) {
      Queue::Settings settings;
      settings.patience = std::chrono::milliseconds(50);
      tell(std::to_string(Queue(folder(), settings).submit(jobOf("1"))));
    }
  });
  std::vector<std::string> told;
  std::function<void()> letOtherMakeIt = [&] {
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    told = other.finish(); // it made the queue, or was refused while this one looks
  };
  beforeSecondQuestion = &letOtherMakeIt;
  auto* const watch = reinterpret_cast<void (*)()>(watchStatements);
  sqlite3_auto_extension(watch);
  QueueError error;
  try {
    Queue queue(folder());
    EXPECT_NE(queue.submit(jobOf("1")), 0);
  } catch (const QueueError& thrown) {
    error = thrown;
  }
  sqlite3_cancel_auto_extension(watch);
  EXPECT_EQ(error.message, "");
  EXPECT_EQ(told.size(), 1U);
  EXPECT_EQ(beforeSecondQuestion, nullptr);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(QueueProcesses, EachEndGoesToOneProcess) {
  constexpr int count = 60;
  {
    Queue queue(folder());
    NewJob job = jobOf("");
    job.found = runsOf("1");
    for (int number = 0; number < count; ++number) {
      queue.submit(job);
    }
  }
  std::vector<std::unique_ptr<Child>> children;
  children.reserve(3);
  for (int number = 0; number < 3; ++number) {
    children.push_back(std::make_unique<Child>([&](const Child::Tell& tell) {
      Queue queue(folder());
      for (const JobRecord& job : queue.takeEnded()) {
        tell(std::to_string(job.id));
      }
    }));
  }
  std::multiset<std::string> ended;
  for (const auto& child : children) {
    for (const std::string& line : child->finish()) {
      ended.insert(line);
    }
    EXPECT_EQ(child->status, 0);
  }
  EXPECT_EQ(ended.size(), static_cast<std::size_t>(count));
  EXPECT_EQ(std::set<std::string>(ended.begin(), ended.end()).size(), static_cast<std::size_t>(count));
}

TEST_F(QueueProcesses, TheDeathOfAProcessFreesItsEngine) {
  { Queue(folder()).submit(jobOf("1-3")); }
  Child child([&](const Child::Tell& tell) {
    Queue queue(folder());
    const EngineId engine = queue.enterEngine(1);
    tell(std::to_string(queue.claim(engine, 1, std::nullopt).at(0).attempt));
    std::raise(SIGKILL);
  });
  const std::vector<std::string> lines = child.finish();
  ASSERT_EQ(lines.size(), 1U);
  Queue queue(folder());
  EXPECT_FALSE(queue.hasOtherEngine(0));
  const std::vector<LostAttempt> lostOnes = queue.takeLost();
  ASSERT_EQ(lostOnes.size(), 1U);
  EXPECT_EQ(std::to_string(lostOnes[0].attempt.id), lines[0]);
}

// What SQLite asks of the system, with a number of calls after which the
// process dies: by its own hand, which the system does not tell from a kill.

int callsLeft = 0;
bool torn = false; // the last write is done by half
sqlite3_syscall_ptr realWrite = nullptr;
sqlite3_syscall_ptr realLock = nullptr;
sqlite3_syscall_ptr realCut = nullptr;

bool isLastCall() {
  return --callsLeft == 0;
}

ssize_t dyingWrite(int descriptor, const void* bytes, std::size_t size, off_t offset) {
  const auto real = reinterpret_cast<ssize_t (*)(int, const void*, std::size_t, off_t)>(realWrite);
  if (isLastCall()) {
    if (torn) {
      real(descriptor, bytes, size / 2, offset);
    }
    std::raise(SIGKILL);
  }
  return real(descriptor, bytes, size, offset);
}

int dyingLock(int descriptor, int command, struct flock* lock) {
  if (isLastCall()) {
    std::raise(SIGKILL);
  }
  return reinterpret_cast<int (*)(int, int, struct flock*)>(realLock)(descriptor, command, lock);
}

int dyingCut(int descriptor, off_t size) {
  if (isLastCall()) {
    std::raise(SIGKILL);
  }
  return reinterpret_cast<int (*)(int, off_t)>(realCut)(descriptor, size);
}

template <typename Function> sqlite3_syscall_ptr replace(const char* name, Function function) {
  sqlite3_vfs* system = sqlite3_vfs_find(nullptr);
  sqlite3_syscall_ptr real = system->xGetSystemCall(system, name);
  EXPECT_NE(real, nullptr) << name;
  EXPECT_EQ(system->xSetSystemCall(system, name, reinterpret_cast<sqlite3_syscall_ptr>(function)), SQLITE_OK);
  return real;
}

void dieAfter(int calls) {
  callsLeft = calls;
  torn = calls % 2 == 0;
  realWrite = replace("pwrite64", &dyingWrite);
  realLock = replace("fcntl", &dyingLock);
  realCut = replace("ftruncate", &dyingCut);
}

void placeAll(Queue& queue, JobId job) {
  const std::vector<ArrayWork> works = arrayWorks(queue, job);
  if (!works.empty()) {
    queue.noteSubmitted(queue.addArray(job, 1, works).id, 4711);
  }
}

/// What the submitting side does next; the frames that were recorded as good.
std::string workOnCluster(Queue& queue, const std::function<int(int)>& below) {
  if (below(3) == 0) {
    for (const JobRecord& job : queue.clusterJobs()) {
      placeAll(queue, job.id);
    }
    return {};
  }
  const std::vector<ArrayRecord> arrays = queue.openArrays();
  if (arrays.empty()) {
    return {};
  }
  const ArrayRecord& array = arrays[static_cast<std::size_t>(below(static_cast<int>(arrays.size())))];
  const ArrayWork given = queue.openArrayWorks(array.id).at(0);
  const int kind = below(6);
  if (kind == 0) {
    if (given.attempt == 0) {
      below(2) == 0 ? queue.closeArrayWork(array.id, given.position) : queue.dropArray(array.id);
    }
    return {};
  }
  if (kind < 3) {
    AttemptBeat beat;
    beat.attempt = queue.beginArrayWork(array.id, given.position, Moment());
    queue.noteBeat(beat);
    return {};
  }
  Outcome outcome = kind == 3 ? failed(0) : kind == 4 ? canceledOutcome(0) : good(0);
  if (kind == 3) {
    outcome.good.add({given.run.First, given.run.First});
  } else if (kind == 5) {
    outcome.good.add(given.run);
  }
  queue.settleArrayWork(array.id, given.position, Moment(), outcome);
  return outcome.good.empty() ? std::string()
                              : "good " + std::to_string(array.job) + ' ' + outcome.good.text();
}

/// Works with the queue as engines and users do, in random order, and tells
/// of each frame whose being good was recorded, and of each end handed out.
void liveAndDie(const Path& place, unsigned seed, const Child::Tell& tell) {
  std::mt19937 random(seed);
  const auto below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  dieAfter(1 + below(700));
  Queue queue(place);
  const EngineId engine = queue.enterEngine(2);
  std::vector<Claim> claims;
  const auto settleOne = [&] {
    const Claim claim = claims.back();
    claims.pop_back();
    const int kind = below(4);
    Outcome outcome = kind == 0   ? failed(claim.attempt)
                      : kind == 1 ? canceledOutcome(claim.attempt)
                                  : good(claim.attempt);
    if (kind == 0) {
      outcome.good.add({claim.run.First, claim.run.First});
    } else if (kind > 1) {
      outcome.good.add(claim.run);
    }
    outcome.files = {file("/out/" + std::to_string(claim.run.First) + ".png")};
    queue.settle(outcome);
    return outcome.good.empty() ? std::string()
                                : "good " + std::to_string(claim.job) + ' ' + outcome.good.text();
  };
  for (;;) {
    std::string done;
    switch (below(12)) {
    case 0: {
      NewJob job = jobOf("1-4,5-8,9,10");
      job.retries = below(3);
      job.stopAfter = below(3);
      job.runOn = below(2) == 0 ? RunOn::Local : RunOn::Cluster;
      queue.submit(job);
      break;
    }
    case 1:
      queue.inTransaction([&] {
        for (const Claim& claim : queue.claim(engine, 2, std::nullopt)) {
          queue.noteProcess(claim.attempt, 4711);
          queue.noteFile(claim.attempt, file("/out/some.png"));
          claims.push_back(claim);
        }
      });
      break;
    case 2:
    case 3:
      if (!claims.empty()) {
        done = settleOne();
      }
      break;
    case 4:
      queue.inTransaction([&] {
        if (!claims.empty()) {
          done = settleOne();
        }
        for (const Claim& claim : queue.claim(engine, 1, std::nullopt)) {
          claims.push_back(claim);
        }
      });
      break;
    case 5:
      for (const LostAttempt& one : queue.takeLost()) {
        queue.settle(lost(one.attempt.id));
      }
      queue.releaseLost();
      break;
    case 6:
      for (const JobRecord& job : queue.takeEnded()) {
        tell("ended " + std::to_string(job.id));
      }
      break;
    case 7:
      if (const std::vector<JobRecord> jobs = queue.jobs(); !jobs.empty()) {
        const JobId job = jobs[random() % jobs.size()].id;
        below(2) == 0 ? static_cast<void>(queue.cancel(job))
                      : static_cast<void>(queue.retry(job, std::nullopt));
      }
      break;
    case 8:
    case 9:
    case 10:
      done = workOnCluster(queue, below);
      break;
    default:
      if (const std::vector<JobRecord> jobs = queue.jobs(); !jobs.empty()) {
        const JobId job = jobs[random() % jobs.size()].id;
        below(2) == 0 ? queue.stop(job, "Stopped by the user") : queue.resume(job);
      }
    }
    if (!done.empty()) {
      tell(done);
    }
  }
}

TEST_F(QueueProcesses, AKillAtAnyStepLosesNothingAndLeavesNothingHalf) {
  const char* wanted = std::getenv("TROVIK_TEST_SEED");
  const unsigned seed = wanted != nullptr ? static_cast<unsigned>(std::atoi(wanted)) : std::random_device()();
  SCOPED_TRACE("TROVIK_TEST_SEED=" + std::to_string(seed));
  std::map<JobId, RunSet> recorded; // the frames that were said to be good
  for (unsigned round = 0; round < 60; ++round) {
    Child child([&](const Child::Tell& tell) { liveAndDie(folder(), seed + round, tell); });
    for (const std::string& line : child.finish()) {
      std::istringstream words(line);
      std::string kind;
      JobId job = 0;
      std::string frames;
      words >> kind >> job >> frames;
      ASSERT_TRUE(kind == "good" || kind == "ended") << line;
      if (kind == "good") {
        recorded[job].add(setOf(frames));
      }
    }
    ASSERT_TRUE(WIFSIGNALED(child.status) && WTERMSIG(child.status) == SIGKILL) << "round " << round;

    std::map<JobId, RunSet> submitted;
    {
      Queue queue(folder());
      for (const JobRecord& job : queue.jobs()) {
        submitted[job.id] = setOf(job.range);
      }
      for (const auto& [job, frames] : recorded) {
        const RunSet goodOnes = queue.frames(job).good;
        for (const FrameRun& run : frames.runs()) {
          for (int frame = run.First; frame <= run.Last; ++frame) {
            ASSERT_TRUE(goodOnes.contains(frame))
                << "round " << round << ": frame " << frame << " of job " << job;
          }
        }
      }
    }
    ASSERT_EQ(brokenInvariants(databaseFile(), submitted), std::vector<std::string>()) << "round " << round;
  }
  EXPECT_FALSE(recorded.empty());

  // One that lives takes up all that is left and brings it to its end.
  Queue queue(folder());
  const EngineId engine = queue.enterEngine(1);
  for (const LostAttempt& one : queue.takeLost()) {
    queue.settle(lost(one.attempt.id));
  }
  queue.releaseLost();
  for (const ArrayRecord& array : queue.openArrays()) {
    for (const ArrayWork& given : queue.openArrayWorks(array.id)) {
      queue.settleArrayWork(array.id, given.position, Moment(), canceledOutcome(0));
    }
  }
  for (const JobRecord& job : queue.jobs()) {
    queue.retry(job.id, std::nullopt);
    placeAll(queue, job.id);
  }
  for (const ArrayRecord& array : queue.openArrays()) {
    for (const ArrayWork& given : queue.openArrayWorks(array.id)) {
      EXPECT_FALSE(recorded[array.job].contains(given.run.First)) << "a good frame is done again";
      queue.settleArrayWork(array.id, given.position, Moment(), good(0));
    }
  }
  for (std::vector<Claim> claims; !(claims = queue.claim(engine, 100, std::nullopt)).empty();) {
    for (const Claim& claim : claims) {
      EXPECT_FALSE(recorded[claim.job].contains(claim.run.First)) << "a good frame is done again";
      queue.settle(good(claim.attempt));
    }
  }
  for (const JobRecord& job : queue.jobs()) {
    EXPECT_EQ(job.state, JobState::Good) << job.id;
  }
  EXPECT_EQ(brokenInvariants(databaseFile()), std::vector<std::string>());
}

int writeError = 0; // what every write fails with; 0 for none

ssize_t failingWrite(int descriptor, const void* bytes, std::size_t size, off_t offset) {
  if (writeError != 0) {
    errno = writeError;
    return -1;
  }
  return reinterpret_cast<ssize_t (*)(int, const void*, std::size_t, off_t)>(realWrite)(descriptor, bytes,
                                                                                        size, offset);
}

TEST_F(QueueProcesses, AWriteThatFailsUndoesTheChangeAndTheQueueGoesOn) {
  Child child([&](const Child::Tell& tell) {
    realWrite = replace("pwrite64", &failingWrite);
    Queue queue(folder());
    for (const int error : {ENOSPC, EIO}) {
      queue.submit(jobOf("1"));
      writeError = error;
      const QueueError refused = queueErrorOf([&] { queue.submit(jobOf("2")); });
      writeError = 0;
      tell(std::to_string(static_cast<int>(refused.kind)) + ' ' + refused.message);
    }
    tell(std::to_string(queue.submit(jobOf("1"))));
    tell(std::to_string(queue.jobs().size()));
  });
  const std::string name = '"' + databaseFile() + '"';
  EXPECT_EQ(child.finish(),
            (std::vector<std::string>{std::to_string(static_cast<int>(QueueError::Kind::Full)) +
                                          " The disk of the queue is full: " + name,
                                      std::to_string(static_cast<int>(QueueError::Kind::Other)) +
                                          " The queue " + name + " failed: disk I/O error",
                                      "3", "3"}));
  EXPECT_EQ(brokenInvariants(databaseFile()), std::vector<std::string>());
}

} // namespace
} // namespace trovik
