#include "tests/trovik/engine/EngineTest.h"
#include "trovik/records/Moments.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace trovik {
namespace {

// Packets that fit themselves, with all of the engine but programs and time.

class Packets : public EngineTest {
protected:
  /// Seconds of a start, and of each frame.
  double start = 2;
  std::function<double(int frame)> frame = [](int /*frame*/) { return 0.1; };

  Packets() {
    machine.behaviour = [this](const ProcessStart& process) {
      FrameRun run;
      ParseRun(process.Arguments.at(1), run);
      runs.push_back(run);
      double seconds = start;
      for (int number = run.First; number <= run.Last; ++number) {
        seconds += frame(number);
      }
      return script(std::chrono::nanoseconds(std::llround(seconds * 1e9)));
    };
  }

  /// How long the job takes; a packet of 0 fits itself.
  double seconds(int frames, std::size_t slots, int packet) {
    const double begun = secondsOf(machine.elapsed());
    runs.clear();
    job->SetParameter(p_Range, "1-" + std::to_string(frames));
    job->SetParameter(p_PacketSize, packet == 0 ? std::string(k_AutoPacket) : std::to_string(packet));
    NewJob entry = type.newJob(*job);
    entry.packets.automatic = packet == 0;
    LocalEngine engine(machine, timed, inspector, machine, recorder);
    EnginePlan plan;
    plan.only = timed.submit(entry);
    plan.slots = slots;
    try {
      EXPECT_TRUE(engine.run(plan));
    } catch (const QueueError& error) {
      ADD_FAILURE() << error.message;
    }
    EXPECT_EQ(timed.frames(*plan.only).good.count(), static_cast<std::size_t>(frames));
    return secondsOf(machine.elapsed()) - begun;
  }

  /// The best that any one packet size reaches; with short ones starts cost most.
  double best(int frames, std::size_t slots) {
    const int share = (frames + static_cast<int>(slots) - 1) / static_cast<int>(slots);
    double least = seconds(frames, slots, share);
    for (const int packet : {50, 100, 200, 500, share / 2 + 1, share / 3 + 1, share / 5 + 1}) {
      least = std::min(least, seconds(frames, slots, packet));
    }
    return least;
  }

  Queue::Settings settings() {
    Queue::Settings result;
    result.clock = [this] {
      return Moment(std::chrono::duration_cast<std::chrono::microseconds>(machine.elapsed()));
    };
    return result;
  }

  std::vector<FrameRun> runs;
  Queue timed{Path(directory.file("timed")), settings()};
};

TEST_F(Packets, ComeCloseToTheBestPacketThatSomebodyCouldChoose) {
  for (const std::size_t slots : {1U, 2U, 4U}) {
    for (const int frames : {1000, 3000}) {
      const double fitted = seconds(frames, slots, 0);
      EXPECT_LE(fitted, 1.15 * best(frames, slots)) << frames << " frames on " << slots << " slots";
    }
  }
}

TEST_F(Packets, ComeCloseWhereFramesDiffer) {
  frame = [](int number) { return 0.05 + 0.1 * std::abs(std::sin(number * 12.9898)); };
  EXPECT_LE(seconds(3000, 2, 0), 1.15 * best(3000, 2));
  frame = [](int number) { return number < 1500 ? 0.06 : 0.14; };
  EXPECT_LE(seconds(3000, 2, 0), 1.15 * best(3000, 2));
}

TEST_F(Packets, BeginSmallAndShrinkInTheEnd) {
  seconds(3000, 2, 0);
  ASSERT_GE(runs.size(), 6U);
  EXPECT_EQ(runs.at(0).Count(), 1);
  EXPECT_EQ(runs.at(1).Count(), 2);
  std::int64_t longest = 0;
  for (const FrameRun& run : runs) {
    longest = std::max(longest, run.Count());
  }
  EXPECT_LE(start + 0.1 * static_cast<double>(longest), 60.1) << "what a start should take";
  EXPECT_GE(start + 0.1 * static_cast<double>(longest), 40);
  EXPECT_LT(runs.back().Count(), longest);
}

TEST_F(Packets, AreRunsOfNeighboursWithEachFrameOnce) {
  seconds(1000, 3, 0);
  int next = 1;
  for (const FrameRun& run : runs) {
    EXPECT_EQ(run.First, next);
    next = run.Last + 1;
  }
  EXPECT_EQ(next, 1001);
}

TEST_F(Packets, OfSlowFramesAreSingleOnes) {
  frame = [](int /*frame*/) { return 300.0; };
  seconds(40, 4, 0);
  EXPECT_GE(runs.size(), 37U) << "those of two frames tell that no start costs much";
}

TEST_F(Packets, StartsCostNoMoreThanAFifth) {
  start = 100;
  seconds(60000, 2, 0);
  double starts = 0;
  double all = 0;
  for (const FrameRun& run : runs) {
    starts += start;
    all += start + 0.1 * static_cast<double>(run.Count());
  }
  EXPECT_LT(starts / all, 0.33) << "the first ones and the last ones are short";
}

TEST_F(Packets, StartThatTakesAllTheTimeIsFoundOutWhereTimesAreUneven) {
  start = 100;
  frame = [](int number) { return 0.1 + (number % 7 == 3 ? 4.0 : 0.0); };
  seconds(2000, 2, 0);
  EXPECT_LE(runs.size(), 30U);
}

} // namespace
} // namespace trovik
