#pragma once

#include "tests/trovik/TestJobs.h"
#include "tests/trovik/cluster/FakeSite.h"
#include "trovik/cluster/ClusterEngine.h"
#include "trovik/cluster/TaskProcess.h"
#include "trovik/queue/Database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <set>

namespace trovik {

using namespace std::chrono_literals;

class SiteTest : public QueuedJobTest {
protected:
  SiteTest() {
    settings.folder = Path(directory.file("shared"));
    settings.program = Path("/opt/trovik/bin/trovik");
    settings.patience = 30s;
    site.site.arraySize = 1001;
    restart();
  }

  JobId submit(const std::string& range, int retries = 0) {
    NewJob entry = entryOf(range, retries);
    entry.runOn = RunOn::Cluster;
    entry.folder = settings.folder.Text();
    return user.submit(entry);
  }

  /// The engine's process ends, and another one begins.
  void restart(ClusterEngine::Duty duty = ClusterEngine::Duty::All) {
    site.hangUp();
    engine.reset();
    queue.noteContact({}); // that another process asked a moment ago is told by the clock on the wall
    engine = std::make_unique<ClusterEngine>(
        machine, queue, site, inspector, settings, duty,
        [this](const ClusterNotice& notice) { notices.push_back(notice.text + " | " + notice.hint); });
  }

  void pass(Duration time) {
    const Clock::time_point end = machine.now() + time;
    while (machine.now() < end) {
      engine->advance();
      std::vector<pollfd> none;
      machine.wait(none, std::max<Duration>(1ms, std::min<Clock::time_point>(end, engine->deadline()) -
                                                     machine.now()));
    }
    engine->advance();
  }

  ArrayFolder folderOf(std::int64_t array) const {
    return ArrayFolder(site.arrays.at(array).submission.folder);
  }

  static WorkClaim claimed(int number) {
    WorkClaim claim;
    claim.number = number;
    claim.host = "n1";
    claim.boot = "of another machine";
    claim.process = 4711;
    claim.mark = "mark-" + std::to_string(number);
    claim.node = "n1";
    claim.started = std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
    return claim;
  }

  JobId submitFitting(const std::string& range) {
    NewJob entry = entryOf(range, 0);
    entry.packets.automatic = true;
    entry.runOn = RunOn::Cluster;
    entry.folder = settings.folder.Text();
    return user.submit(entry);
  }
  /// Ends all works of an array well, after a start and their frames.
  void finishAll(std::int64_t array, double start, double frame) {
    const ArrayPlan plan = folderOf(array).plan();
    for (std::size_t position = 0; position < plan.works.size(); ++position) {
      WorkEnd end;
      end.claim = 1;
      end.outcome.state = AttemptState::Good;
      end.outcome.duration = std::chrono::microseconds(static_cast<std::int64_t>(
          (start + frame * static_cast<double>(plan.works[position].run.Count())) * 1e6));
      EXPECT_TRUE(folderOf(array).leave(position, end));
    }
    for (ClusterTask& one : site.arrays.at(array).tasks) {
      FakeSite::end(one, "COMPLETED");
    }
  }
  std::vector<std::int64_t> lengths(std::int64_t array) {
    std::vector<std::int64_t> result;
    for (const auto& work : folderOf(array).plan().works) {
      result.push_back(work.run.Count());
    }
    return result;
  }

  void begin(std::int64_t array, std::size_t position, int claim = 1) {
    EXPECT_TRUE(folderOf(array).claim(position, claimed(claim)));
    beat(array, position, claim, 1);
  }
  void beat(std::int64_t array, std::size_t position, int claim, std::int64_t count) {
    WorkBeat sign;
    sign.claim = claim;
    sign.count = count;
    sign.stage = "running";
    folderOf(array).beat(position, sign);
  }
  /// What the task of the position would leave.
  bool finish(std::int64_t array, std::size_t position, AttemptState state = AttemptState::Good,
              const std::string& reason = "") {
    WorkEnd end;
    end.claim = 1;
    end.outcome.state = state;
    end.outcome.reason = reason;
    end.outcome.rule = VerdictRule::Result;
    return folderOf(array).leave(position, end);
  }
  /// Job 1, of array 101: its work is good, its task has not ended.
  void leaveOneGoodJob() {
    const JobId id = submit("1");
    pass(3s);
    site.start();
    finish(101, 0);
    pass(5s);
    ASSERT_EQ(state(id), JobState::Good);
  }
  ClusterTask& task(std::int64_t array, std::size_t index) { return site.arrays.at(array).tasks.at(index); }
  std::string good(JobId id) { return queue.frames(id).good.text(); }
  std::string ready(JobId id) { return queue.frames(id).ready.text(); }
  std::string running(JobId id) { return queue.frames(id).running.text(); }
  JobState state(JobId id) { return queue.job(id)->state; }

  Queue user{Path(directory.file("queue"))}; // another process
  ClusterSettings settings;
  FakeSite site;
  std::vector<std::string> notices;
  std::unique_ptr<ClusterEngine> engine;
};

} // namespace trovik
