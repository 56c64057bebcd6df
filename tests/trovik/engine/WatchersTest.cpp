#include "tests/trovik/engine/EngineTest.h"

#include <map>
#include <set>
#include <stdexcept>
#include <sys/eventfd.h>
#include <thread>

// Threads wait for short works beside that of the engine: with real programs.

namespace trovik {
namespace {

using namespace std::chrono_literals;

/// Runs each program as a script of the shell with the work's frames, and says
/// that it has three processors, whatever this one has.
class ScriptMachine final : public Machine {
public:
  std::string script = ":";
  std::map<std::string, int> starts; ///< by frames
  std::set<std::thread::id> threads; ///< that have started programs
  bool failsBeside = false;          ///< whatever another thread than the first asks

  Clock::time_point now() override {
    if (failsBeside && std::this_thread::get_id() != first_) {
      throw std::runtime_error("no clock on this thread");
    }
    // Slow, so that works are short on every machine.
    constexpr int slowness = 100;
    return begin_ + (machine_.now() - begin_) / slowness;
  }
  std::unique_ptr<Program> start(const ProcessStart& start) override {
    ProcessStart shell = start;
    // The first of its frames, which is all of them.
    const String frames = start.Arguments.at(1).substr(0, start.Arguments.at(1).find('-'));
    ++starts[frames];
    threads.insert(std::this_thread::get_id());
    shell.Arguments = {"/bin/sh", "-c", String(script), "sh", frames};
    return machine_.start(shell);
  }
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override {
    machine_.wait(descriptors, timeout);
  }
  std::size_t processors() const override { return 3; }
  void waitBeside(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override {
    machine_.waitBeside(descriptors, timeout);
  }
  std::vector<pid_t> killOrphans(const Orphans& orphans) override { return machine_.killOrphans(orphans); }
  MemoryNow memory(const std::vector<int>& groups) override { return machine_.memory(groups); }

private:
  LocalMachine machine_;
  Clock::time_point begin_ = machine_.now();
  std::thread::id first_ = std::this_thread::get_id();
};

class Wishes final : public InterruptSource {
public:
  void stop() {
    ++wishes_;
    eventfd_write(call_.Number(), 1);
  }
  int descriptor() const override { return call_.Number(); }
  int take() override {
    eventfd_t count = 0;
    eventfd_read(call_.Number(), &count);
    return std::exchange(wishes_, 0);
  }
  bool byUser() const override { return true; }

private:
  Descriptor call_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  int wishes_ = 0;
};

class WatchersTest : public EngineTest {
protected:
  /// Says what memory a work needs: what is seen is never less than this process
  /// has, and with AddressSanitizer that is more than works claimed ahead may need.
  JobId submitSmall(const std::string& range) {
    NewJob small = entryOf(range, 0);
    small.memory = 1;
    return queue.submit(small);
  }

  bool work(JobId id) {
    LocalEngine engine(scripts, queue, inspector, wishes, recorder);
    EnginePlan plan;
    plan.only = id;
    plan.slots = 3;
    return engine.run(plan);
  }

  /// Works jobs until threads have started programs: which thread meets the end of
  /// one is not for a test to say.
  template <typename Check> void untilThreadsHaveWorked(int works, Check check) {
    constexpr int most = 50;
    for (int i = 0; i < most && scripts.threads.size() < 2; ++i) {
      scripts.starts.clear();
      recorder.events.clear();
      const JobId id = submitSmall("1-" + std::to_string(works));
      check(id);
    }
    EXPECT_GE(scripts.threads.size(), 2U) << "no thread but the engine's own has started anything";
  }

  ScriptMachine scripts;
  Wishes wishes;
};

TEST_F(WatchersTest, EachWorkIsBegunAndToldOnceWhicheverThreadMeetsItsEnd) {
  untilThreadsHaveWorked(300, [this](JobId id) {
    EXPECT_TRUE(work(id));
    EXPECT_TRUE(queue.summary(id).allGood());
    EXPECT_EQ(scripts.starts.size(), 300U);
    for (const auto& [frames, count] : scripts.starts) {
      EXPECT_EQ(count, 1) << frames;
      for (const std::string& kind : {"start " + frames + " 1/1", "good " + frames}) {
        EXPECT_EQ(std::count(recorder.events.begin(), recorder.events.end(), kind), 1) << kind;
      }
    }
  });
}

TEST_F(WatchersTest, AFailureAmongThemIsToldWithItsReason) {
  scripts.script = "[ $1 != 177 ] || exit 3";
  untilThreadsHaveWorked(300, [this](JobId id) {
    EXPECT_TRUE(work(id));
    EXPECT_EQ(queue.frames(id).good.count(), 299U);
    EXPECT_FALSE(queue.frames(id).good.contains(177));
    EXPECT_EQ(std::count_if(recorder.events.begin(), recorder.events.end(),
                            [](const std::string& event) { return event.starts_with("failed 177: "); }),
              1);
  });
}

TEST_F(WatchersTest, WhatTheyWaitForEndsWhenTheUserWishesAndNothingIsLost) {
  // Short ones first, so that threads wait for works that then never end.
  scripts.script = "[ $1 -lt 200 ] || exec sleep 1000";
  const JobId id = submitSmall("1-300");
  int ends = 0;
  recorder.watch = [&](const std::string& event) {
    if (event.starts_with("good ") && ++ends == 199) {
      wishes.stop();
    }
  };
  EXPECT_FALSE(work(id));
  EXPECT_EQ(queue.frames(id).good.count(), 199U);
  for (const AttemptRecord& attempt : queue.attempts(id)) {
    EXPECT_NE(attempt.state, AttemptState::Running) << attempt.run.Text();
  }
  recorder.watch = nullptr;
  scripts.script = ":";
  queue.resume(id);
  EXPECT_TRUE(work(id));
  EXPECT_EQ(queue.frames(id).good.count(), 300U);
  for (int frame = 1; frame < 200; ++frame) {
    EXPECT_EQ(scripts.starts[std::to_string(frame)], 1) << frame;
  }
}

TEST_F(WatchersTest, AnErrorOfAThreadIsTheEngines) {
  scripts.failsBeside = true;
  constexpr int most = 50;
  int errors = 0;
  for (int i = 0; i < most && errors == 0; ++i) {
    try {
      work(submitSmall("1-300"));
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), "no clock on this thread");
      ++errors;
    }
  }
  EXPECT_EQ(errors, 1) << "no thread has met the end of a program";
}

} // namespace
} // namespace trovik
