#include "trovik/reports/JobStats.h"

#include "tests/trovik/queue/QueueTest.h"

#include <algorithm>
#include <malloc.h>
#include <random>
#include <utility>

#ifdef __SANITIZE_ADDRESS__
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // its header does not come with g++
#endif

namespace trovik {
namespace {

using namespace std::chrono_literals;

constexpr Moment began{std::chrono::microseconds(1'700'000'000'000'000)};

AttemptRecord attemptOf(const std::string& frames, std::chrono::seconds from, std::chrono::seconds duration,
                        AttemptState state = AttemptState::Good, const std::string& goodFrames = "") {
  AttemptRecord attempt;
  attempt.engine = 1;
  attempt.run = runsOf(frames).front();
  attempt.state = state;
  attempt.started = began + from;
  attempt.ended = began + from + duration;
  attempt.duration = duration;
  attempt.good = setOf(state == AttemptState::Good ? frames : goodFrames);
  return attempt;
}

JobRecord jobWith(JobId id) {
  JobRecord job;
  job.id = id;
  return job;
}

void add(JobStats& stats, const JobRecord& job, const std::vector<AttemptRecord>& attempts) {
  stats.add(job, [&](const auto& take) { std::for_each(attempts.begin(), attempts.end(), take); });
}

std::size_t twoSlots(EngineId /*engine*/) {
  return 2;
}

TEST(Stats, TellTimesLossesAndUse) {
  JobStats stats;
  add(stats, jobWith(3),
      {attemptOf("1", 0s, 10s), attemptOf("2-5", 0s, 20s), attemptOf("6", 10s, 30s),
       attemptOf("7", 20s, 10s, AttemptState::Failed), attemptOf("7", 30s, 5s, AttemptState::Lost),
       attemptOf("7", 40s, 5s, AttemptState::Canceled)});
  EXPECT_EQ(stats.text(twoSlots, false), "frames      6 good, from 6 attempts\n"
                                         "median      5.0 s a frame\n"
                                         "mean        10 s a frame\n"
                                         "fastest     5.0 s each  2-5\n"
                                         "slowest     30 s  6\n"
                                         "            10 s  1\n"
                                         "            5.0 s each  2-5\n"
                                         "good        1 min 00 s  75.0 % of all rendering\n"
                                         "failed      10 s  12.5 %\n"
                                         "canceled    5.0 s  6.2 %\n"
                                         "lost        5.0 s  6.2 %\n"
                                         "slots       88.9 % used, of 2 slots\n"
                                         "throughput  480 frames an hour, in 45 s\n");
}

TEST(Stats, DrawHowTimesAreSpreadWhereThereAreEnough) {
  std::vector<AttemptRecord> attempts;
  for (int frame = 1; frame <= 7; ++frame) {
    attempts.push_back(attemptOf(std::to_string(frame), 0s, std::chrono::seconds(10 + frame % 3)));
  }
  JobStats few;
  add(few, jobWith(3), attempts);
  EXPECT_EQ(few.text(twoSlots, false).find('#'), std::string::npos);
  attempts.push_back(attemptOf("11-14", 0s, 4 * 45s)); // four frames of 45 s each
  JobStats stats;
  add(stats, jobWith(3), attempts);
  EXPECT_NE(stats.text(twoSlots, false)
                .find("frames by   from 10 s  ######################################## 7\n"
                      "their time  from 15 s  0\n"
                      "            from 20 s  0\n"
                      "            from 25 s  0\n"
                      "            from 30 s  0\n"
                      "            from 35 s  0\n"
                      "            from 40 s  0\n"
                      "            from 45 s  ####################### 4\n"),
            std::string::npos)
      << stats.text(twoSlots, false);
  Json document;
  stats.fill(document, twoSlots);
  ASSERT_EQ(document.at("histogram").size(), 8U);
  EXPECT_EQ(document.at("histogram").at(7).dump(), R"({"from":45.0,"to":50.0,"frames":4})");
  JobStats alike;
  add(alike, jobWith(3), std::vector<AttemptRecord>(10, attemptOf("1", 0s, 10s)));
  EXPECT_EQ(alike.text(twoSlots, false).find('#'), std::string::npos);
}

TEST(Stats, HostileTimesAreDrawnInFewLines) {
  std::vector<AttemptRecord> attempts(8, attemptOf("1", 0s, 1s));
  attempts[1].duration = std::chrono::microseconds::max();
  attempts[2].duration = std::chrono::microseconds::min();
  JobStats stats;
  add(stats, jobWith(3), attempts);
  const std::string text = stats.text(twoSlots, false);
  EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 40);
}

TEST(Stats, TellWhatProgramsHaveUsed) {
  const auto used = [](AttemptRecord attempt, const ProcessUsage& usage) {
    attempt.usage = usage;
    return attempt;
  };
  JobStats stats;
  add(stats, jobWith(3),
      {used(attemptOf("1", 0s, 10s), {18000000, 1000000, 1500000000, 2000000, 40000}),
       used(attemptOf("2-5", 0s, 20s), {20000000, 0, 900000000, 0, std::nullopt}),
       used(attemptOf("6", 10s, 30s, AttemptState::Failed),
            {61000000, 20000000, 11800000000, std::nullopt, std::nullopt}),
       attemptOf("7", 10s, 30s)});
  std::string text = stats.text(twoSlots, false);
  text = text.substr(text.find("processors"));
  EXPECT_EQ(text.substr(0, text.find("slots")), "processors  2 min 00 s  2.0 busy while a program ran\n"
                                                "memory      median 1.5 GB, most 11.8 GB  6\n"
                                                "files       read 2 MB, wrote 40 kB\n");
  Json document;
  stats.fill(document, twoSlots);
  EXPECT_EQ(document["usage"].dump(),
            R"({"user":99.0,"system":21.0,"memory":11800000000,"read":2000000,"written":40000})");
  EXPECT_EQ(document["medianMemory"], 1500000000);
  EXPECT_NE(stats.text(twoSlots, true).find("most 11.8 GB  6 of job 3\n"), std::string::npos);
}

TEST(Stats, HostileNumbersOfUseAreNoReasonToOverflow) {
  JobStats stats;
  AttemptRecord attempt = attemptOf("1", 0s, 0s);
  attempt.usage = ProcessUsage{INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MIN};
  add(stats, jobWith(1), {attempt, attempt});
  Json document;
  stats.fill(document, twoSlots);
  EXPECT_EQ(document["usage"]["read"], INT64_MAX);
  EXPECT_NE(stats.text(twoSlots, false).find("memory      median 9.2 EB"), std::string::npos)
      << stats.text(twoSlots, false);
}

AttemptRecord renderedBy(const std::string& program, AttemptRecord attempt) {
  attempt.command = program + " -x " + std::to_string(attempt.run.First);
  return attempt;
}

TEST(Stats, TellWhichProgramsRenderedAJob) {
  JobStats stats;
  add(stats, jobWith(1), {renderedBy("/opt/paint-1/paint", attemptOf("1", 0s, 10s))});
  add(stats, jobWith(2),
      {renderedBy("/opt/paint-1/paint", attemptOf("1-3", 0s, 10s)),
       renderedBy("\"/opt/paint 2/paint\"", attemptOf("4-5", 0s, 10s)),
       renderedBy("/opt/paint-3/paint", attemptOf("6", 0s, 10s, AttemptState::Failed)),
       renderedBy("\"/opt/paint 2/paint\"", attemptOf("2-7", 0s, 10s, AttemptState::Failed, "2"))});
  const std::string text = stats.text(twoSlots, true);
  EXPECT_EQ(text.substr(text.find("programs")),
            "programs    job 2 rendered by 2 programs: \"/opt/paint-1/paint\" (1,3), \"/opt/paint 2/paint\" "
            "(2,4-5)\n");
  Json document;
  stats.fill(document, twoSlots);
  EXPECT_EQ(document["programs"].dump(), R"([{"job":2,"by":[{"program":"/opt/paint-1/paint","frames":"1,3"},)"
                                         R"({"program":"/opt/paint 2/paint","frames":"2,4-5"}]}])");
}

TEST(Stats, AProgramThatRenderedNothingThatStandsIsNotTold) {
  JobPrograms all(true);
  all.add(renderedBy("/opt/paint-1/paint", attemptOf("1-3", 0s, 10s)));
  all.add(renderedBy("/opt/paint-2/paint", attemptOf("1-3", 0s, 10s)));
  all.add(renderedBy("\"unclosed", attemptOf("4", 0s, 10s)));
  const std::vector<ProgramShare> programs = all.shares();
  ASSERT_EQ(programs.size(), 1U);
  EXPECT_EQ(programs.front().program, "/opt/paint-2/paint");
}

TEST(Stats, GoodFramesOfAFailedPacketAreNoLoss) {
  JobStats stats;
  add(stats, jobWith(1), {attemptOf("1-4", 0s, 40s, AttemptState::Failed, "1-3")});
  EXPECT_EQ(stats.text(twoSlots, false), "frames      3 good, from 1 attempt\n"
                                         "good        30 s  75.0 % of all rendering\n"
                                         "failed      10 s  25.0 %\n"
                                         "slots       50.0 % used, of 2 slots\n"
                                         "throughput  270 frames an hour, in 40 s\n");
}

TEST(Stats, EnginesOneAfterTheOtherShareTheirSlots) {
  const auto of = [](EngineId engine, std::chrono::seconds begin) {
    AttemptRecord attempt = attemptOf("1", begin, 10s);
    attempt.engine = engine;
    return attempt;
  };
  JobStats stats;
  add(stats, jobWith(1), {of(1, 0s), of(2, 100s), of(3, 105s)});
  Json document;
  stats.fill(document, twoSlots);
  EXPECT_EQ(document["slots"], 4); // two of them at one time
}

TEST(Stats, OfSeveralJobsNameThem) {
  JobStats stats;
  add(stats, jobWith(1), {attemptOf("1", 0s, 10s)});
  add(stats, jobWith(2), {attemptOf("1", 3600s, 20s)});
  add(stats, jobWith(3), {});
  const std::string text = stats.text(twoSlots, true);
  EXPECT_EQ(text.substr(0, text.find("frames")), "jobs        3\n");
  EXPECT_NE(text.find("slowest     20 s  1 of job 2\n            10 s  1 of job 1\n"), std::string::npos)
      << text;
  EXPECT_NE(text.find("throughput  240 frames an hour, in 30 s\n"), std::string::npos)
      << "the hour in which nothing ran does not count: " << text;
}

TEST(Stats, WhatRunsIsNotReckoned) {
  JobStats stats;
  add(stats, jobWith(1), {attemptOf("1", 0s, 10s, AttemptState::Running)});
  EXPECT_TRUE(stats.empty());
}

TEST(Stats, OnlyTheFiveSlowestAreTold) {
  JobStats stats;
  std::vector<AttemptRecord> attempts;
  for (int frame = 1; frame <= 9; ++frame) {
    attempts.push_back(attemptOf(std::to_string(frame), 0s, std::chrono::seconds(frame)));
  }
  add(stats, jobWith(1), attempts);
  Json document;
  stats.fill(document, twoSlots);
  ASSERT_EQ(document.at("slowest").size(), 5U);
  EXPECT_EQ(document.at("slowest").at(4).dump(), R"({"job":1,"frames":"5","seconds":5.0})");
  EXPECT_EQ(document.at("median"), 5.0);
  EXPECT_EQ(document.at("fastest").dump(), R"({"job":1,"frames":"1","seconds":1.0})");
}

TEST(Stats, JsonHoldsTheSame) {
  JobStats stats;
  add(stats, jobWith(3), {attemptOf("1", 0s, 10s), attemptOf("2", 0s, 30s, AttemptState::Failed)});
  Json document;
  stats.fill(document, twoSlots);
  EXPECT_EQ(
      document.dump(),
      R"({"jobs":1,"attempts":2,"frames":1,"median":10.0,"mean":10.0,)"
      R"("fastest":{"job":3,"frames":"1","seconds":10.0},)"
      R"("slowest":[{"job":3,"frames":"1","seconds":10.0}],)"
      R"("histogram":[],"programs":[],"time":{"good":10.0,"failed":30.0,"canceled":0.0,"lost":0.0},"usage":null,"medianMemory":null,"lostShare":0.75,)"
      R"("slots":2,"slotsUsed":0.6667,"wall":30.0,"framesPerHour":120.0})");
}

TEST(Stats, AreThoseOfAllAttemptsTakenTogether) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int turn = 0; turn < 200; ++turn) {
    const int jobs = 1 + static_cast<int>(random() % 3);
    const int different = 1 + static_cast<int>(random() % 30); // times, so that some are alike
    JobStats stats;
    std::vector<std::pair<TimedFrames, Json>> timed;
    std::vector<std::int64_t> memory;
    for (int job = 1; job <= jobs; ++job) {
      std::vector<AttemptRecord> attempts;
      const std::size_t count = random() % 60;
      for (std::size_t i = 0; i < count; ++i) {
        const auto first = random() % 100;
        const std::string frames = std::to_string(first) + "-" + std::to_string(first + random() % 4);
        const std::chrono::seconds duration(random() % static_cast<unsigned>(different));
        attempts.push_back(attemptOf(frames, std::chrono::seconds(random() % 50), duration,
                                     random() % 4 == 0 ? AttemptState::Failed : AttemptState::Good));
        AttemptRecord& attempt = attempts.back();
        if (random() % 2 == 0) {
          attempt.usage = ProcessUsage{};
          attempt.usage->PeakMemory = static_cast<std::int64_t>(random() % static_cast<unsigned>(different));
          memory.push_back(attempt.usage->PeakMemory);
        }
        if (attempt.state == AttemptState::Good) {
          const auto all = static_cast<std::size_t>(attempt.run.Count());
          const TimedFrames time{durationOf(attempt.duration) / static_cast<Duration::rep>(all), all};
          timed.emplace_back(
              time, Json{{"job", job}, {"frames", attempt.good.text()}, {"seconds", secondsOf(time.each)}});
        }
      }
      add(stats, jobWith(job), attempts);
    }
    std::stable_sort(timed.begin(), timed.end(),
                     [](const auto& a, const auto& b) { return a.first.each > b.first.each; });
    std::sort(memory.begin(), memory.end());
    std::vector<TimedFrames> times;
    Json slowest = Json::array();
    for (const auto& [time, json] : timed) {
      times.push_back(time);
      if (slowest.size() < 5) {
        slowest.push_back(json);
      }
    }
    Json document;
    stats.fill(document, twoSlots);
    EXPECT_EQ(document["slowest"], slowest);
    EXPECT_EQ(document["fastest"], timed.empty() ? Json(nullptr) : timed.back().second);
    EXPECT_EQ(document["median"], timed.empty() ? Json(nullptr) : Json(secondsOf(medianTime(times))));
    EXPECT_EQ(document["medianMemory"], memory.empty() ? Json(nullptr) : Json(memory[memory.size() / 2]));
  }
}

/// Bytes that are allocated now.
std::size_t bytesHeld() {
#ifdef __SANITIZE_ADDRESS__
  return __sanitizer_get_current_allocated_bytes(); // the C library's own is not in use
#else
  const auto held = mallinfo2();
  return held.uordblks + held.hblkhd;
#endif
}

TEST(Stats, OfAMillionAttemptsAreReckonedInFewBytesEach) {
  constexpr std::size_t count = 100'000;
  constexpr std::size_t mostOfOne = 40;
  const std::size_t before = bytesHeld();
  ASSERT_GT(before, 0U);
  AttemptRecord attempt = attemptOf("1", 0s, 1s);
  attempt.usage = ProcessUsage{};
  attempt.command = "/opt/paint-1/paint --frames ";
  attempt.reason = std::string(200, 'r');
  JobStats stats;
  stats.add(jobWith(1), [&](const auto& take) {
    for (std::size_t i = 0; i < count; ++i) {
      attempt.run = {static_cast<int>(i), static_cast<int>(i)};
      attempt.started += 2s; // a gap between any two
      attempt.usage->PeakMemory += 1;
      take(attempt);
    }
  });
  EXPECT_LT((bytesHeld() - before) / count, mostOfOne);
  Json document;
  stats.fill(document, twoSlots);
  EXPECT_EQ(document["attempts"], count);
  EXPECT_EQ(document["wall"], static_cast<double>(count));
  EXPECT_EQ(document["medianMemory"], count / 2 + 1);
}

TEST(Stats, RecordsThatNoClockCouldHaveGivenDoNoHarm) {
  AttemptRecord attempt = attemptOf("1", 0s, 1s);
  attempt.started = Moment::max();
  attempt.duration = std::chrono::microseconds::max();
  AttemptRecord other = attemptOf("-2147483648-2147483647", 0s, 1s);
  other.started = Moment::min();
  other.duration = std::chrono::microseconds::min();
  JobStats stats;
  add(stats, jobWith(1), {attempt, other});
  EXPECT_NE(stats.text(twoSlots, true), "");
}

} // namespace
} // namespace trovik
