#include "tests/trovik/queue/QueueTest.h"

#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>

namespace trovik {
namespace {

// Packets that get their frames when they begin.

class QueuePackets : public QueueTest {
protected:
  /// Each frame, or run of frames, a work; "1,2,3".
  JobId submit(const std::string& works, const std::string& scene = {}) {
    NewJob job = jobOf(works);
    job.packets.automatic = true;
    job.scene = scene;
    return queue.submit(job);
  }
  static std::string single(int first, int last) {
    std::string text;
    for (int frame = first; frame != last + (first < last ? 1 : -1); frame += first < last ? 1 : -1) {
      text += (text.empty() ? "" : ",") + std::to_string(frame);
    }
    return text;
  }
  Outcome goodAfter(const Claim& claim, double seconds) {
    Outcome outcome = good(claim.attempt);
    outcome.duration = std::chrono::microseconds(static_cast<std::int64_t>(seconds * 1e6));
    return outcome;
  }
  /// Has one frame rendered so that the next packets may be up to 16 long.
  void renderOne(double seconds = 1) { queue.settle(goodAfter(take(), seconds)); }
  std::vector<std::string> claimed(std::size_t count) {
    std::vector<std::string> texts;
    for (const Claim& claim : queue.claim(engine, count, std::nullopt)) {
      texts.push_back(runText(claim.run));
      last = claim;
    }
    return texts;
  }
  Claim last;
};

using Texts = std::vector<std::string>;

TEST_F(QueuePackets, FirstOnesAreShort) {
  submit(single(1, 40));
  EXPECT_EQ(claimed(3), (Texts{"1", "2-3", "4-5"})) << "to tell starts from frames";
}

TEST_F(QueuePackets, FramesAreJoinedWhenTheyBegin) {
  const JobId job = submit(single(1, 40));
  renderOne();
  EXPECT_EQ(claimed(1), Texts{"2-17"});
  EXPECT_EQ(standing(job), "18-40 2-17 1 - -");
  EXPECT_EQ(queue.works(job).size(), 25U);
}

TEST_F(QueuePackets, FramesThatAreNoNeighboursAreNotJoined) {
  submit("1,2,3,5,6,9,8,7,10");
  renderOne();
  EXPECT_EQ(claimed(1), Texts{"2-3"});
  EXPECT_EQ(claimed(1), Texts{"5-6"});
  EXPECT_EQ(claimed(1), Texts{"7-9"}) << "descending";
  EXPECT_EQ(claimed(1), Texts{"10"}) << "not 7-10, whose order was another one";
}

TEST_F(QueuePackets, DescendingFramesMakeAscendingRuns) {
  submit(single(30, 1));
  renderOne();
  EXPECT_EQ(claimed(1), Texts{"14-29"});
}

TEST_F(QueuePackets, WhatBeganBeforeStaysAsItWas) {
  const JobId job = submit(single(1, 40));
  renderOne();
  EXPECT_EQ(claimed(1), Texts{"2-17"});
  queue.settle(lost(last.attempt, "2-5"));
  EXPECT_EQ(claimed(1), Texts{"6-17"}) << "not with 18, which never began";
  EXPECT_EQ(standing(job), "18-40 6-17 1-5 - -");
}

TEST_F(QueuePackets, WaitingFramesAreInNoPacket) {
  const JobId first = queue.submit(jobOf(single(1, 20)));
  NewJob job = jobOf(single(1, 20));
  job.packets.automatic = true;
  job.scene = "other.pov";
  job.forerunners = {{first, true, 0, 0, false}};
  const JobId second = queue.submit(job);
  for (int i = 0; i < 5; ++i) {
    queue.settle(goodAfter(take(first), 1));
  }
  queue.settle(goodAfter(take(second), 1));
  const Claim claim = take(second);
  EXPECT_EQ(runText(claim.run), "2-5");
}

TEST_F(QueuePackets, JobOfTheSameSceneTellsTheCosts) {
  submit(single(1, 3), "shot.pov");
  renderOne(1);
  renderOne(2);
  submit(single(1, 40), "shot.pov");
  EXPECT_EQ(claimed(1), Texts{"1-40"});
  queue.cancel(2);
  submit(single(1, 40), "other.pov");
  EXPECT_EQ(claimed(1), Texts{"1"});
}

TEST_F(QueuePackets, TimeOfAPacketIsWhatTheJobSays) {
  NewJob job = jobOf(single(1, 40));
  job.packets = {true, std::chrono::seconds(5), std::chrono::microseconds(0)};
  queue.submit(job);
  renderOne(1);
  EXPECT_EQ(claimed(1), Texts{"2-6"});
}

TEST_F(QueuePackets, MayBeFixedAndFreedWhileTheJobRuns) {
  const JobId job = submit(single(1, 40));
  renderOne();
  queue.change(job, {.packet = 4});
  EXPECT_EQ(claimed(1), Texts{"2-5"});
  EXPECT_EQ(queue.works(job).size(), 11U);
  queue.change(job, {.packet = JobChange::automatic});
  EXPECT_EQ(claimed(1), Texts{"6-21"});
}

TEST_F(QueuePackets, FreshAttemptsAtFailedPacketsHaveTheirFrames) {
  const JobId job = submit(single(1, 40));
  renderOne();
  EXPECT_EQ(claimed(1), Texts{"2-17"});
  queue.settle(failed(last.attempt, "It broke", "2-9"));
  EXPECT_EQ(standing(job), "18-40 - 1-9 10-17 -");
  queue.retry(job, std::nullopt);
  EXPECT_EQ(claimed(1), Texts{"10-17"});
}

/// Whatever ends how, every frame has one place, and becomes good in the end.
RC_GTEST_PROP(QueuePacketsProperty, EveryFrameIsInOneWorkAndBecomesGood, ()) {
  TemporaryDirectory directory;
  Queue queue{Path(directory.path())};
  const EngineId engine = queue.enterEngine(4);
  const int frames = *rc::gen::inRange(1, 300);
  NewJob job = jobOf("1");
  job.works.clear();
  for (int frame = 1; frame <= frames; ++frame) {
    job.works.push_back({frame, frame});
  }
  if (*rc::gen::arbitrary<bool>()) {
    std::reverse(job.works.begin(), job.works.end());
  }
  job.packets.automatic = true;
  job.packets.time = std::chrono::milliseconds(*rc::gen::inRange(1, 100'000));
  job.retries = 2;
  const JobId id = queue.submit(job);
  std::vector<Claim> running;
  for (int step = 0; step < 4000 && isOpen(queue.job(id).value().state); ++step) {
    for (Claim& claim : queue.claim(engine, 4 - running.size(), std::nullopt)) {
      RC_ASSERT(claim.run.First <= claim.run.Last);
      running.push_back(std::move(claim));
    }
    RunSet all;
    std::size_t sum = 0;
    for (const WorkRecord& work : queue.works(id)) {
      all.add(work.run);
      sum += static_cast<std::size_t>(work.run.Count());
    }
    RC_ASSERT(sum == static_cast<std::size_t>(frames));
    RC_ASSERT(all.count() == static_cast<std::size_t>(frames));
    if (running.empty()) {
      break;
    }
    const auto place = *rc::gen::inRange<std::size_t>(0, running.size());
    const Claim claim = running.at(place);
    running.erase(running.begin() + static_cast<std::ptrdiff_t>(place));
    const int how = *rc::gen::weightedElement<int>({{8, 0}, {1, 1}, {1, 2}});
    const std::string part = std::to_string(claim.run.First);
    Outcome outcome = how == 0   ? good(claim.attempt)
                      : how == 1 ? lost(claim.attempt, claim.run.Count() > 1 ? part : "")
                                 : failed(claim.attempt, "It broke", claim.run.Count() > 1 ? part : "");
    outcome.duration = std::chrono::microseconds(*rc::gen::inRange(1, 5'000'000));
    queue.settle(outcome);
  }
  RC_ASSERT(queue.frames(id).ready.empty());
  RC_ASSERT(queue.frames(id).good.count() + queue.frames(id).failed.count() ==
            static_cast<std::size_t>(frames));
}

} // namespace
} // namespace trovik
