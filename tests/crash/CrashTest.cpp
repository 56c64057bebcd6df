// Kills the engine, its renderers and everything at once, at random moments of
// real runs, and proves each time that nothing is lost, nothing that was good
// is rendered again, no frame is rendered by two at once, and the queue is
// whole.

#include "tests/crash/CrashTest.h"

#include <algorithm>

namespace trovik {
namespace {

void killHard(pid_t engine) {
  kill(engine, SIGKILL);
}

TEST_F(CrashTest, EngineKilledAtAnyMomentLosesNothing) {
  killAgainAndAgain(killHard);
}

TEST_F(CrashTest, ProgramsOfADeadEngineEndBeforeTheirFramesRunAgain) {
  constexpr int frames = 12;
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    // Each frame takes longer than it takes to start an engine anew, so what
    // goes on rendering would meet its successor.
    begin(frames, 4, "200");
    killEngines(killed, 3, 300, killHard);
    finish(frames);
  }
}

TEST_F(CrashTest, TwoEnginesOneOfThemKilledShareOneQueue) {
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    begin(frameCount * 2, 4);
    std::vector<pid_t> pair = {start(engineWords()), start(engineWords())};
    for (std::size_t turn = 0; killed < kills; ++turn) {
      randomMoment(200);
      pid_t& victim = pair[turn % 2];
      if (hasEnded(victim)) {
        pair.erase(pair.begin() + static_cast<std::ptrdiff_t>(turn % 2));
        break;
      }
      kill(victim, SIGKILL);
      waitFor(victim);
      ++killed;
      checkQueue();
      victim = start(engineWords());
    }
    for (const pid_t engine : pair) {
      EXPECT_EQ(waitFor(engine), 0);
    }
    finish(frameCount * 2);
  }
}

// Works so short that the engine claims many ahead: what has begun is known to the
// queue, and what has not counts for nothing.
TEST_F(CrashTest, OfShortWorksThatAreClaimedAheadTheQueueKnowsWhichHadBegun) {
  constexpr int frames = 300;
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    beginEmpty();
    // Without a look into the files many ends are recorded at once.
    const std::string check = killed % 2 == 0 ? "FileCheck=None" : "FileCheck=EveryFrame";
    ASSERT_EQ(waitFor(start(jobWords("submit", frames, 1, "0", {"--set", check}))), 0)
        << readFile(directory.file("output"));
    const unsigned long before = killed;
    killEngines(killed, 2, 400, killHard);
    finish(frames);
    Queue queue(Path(directory.file("state")));
    std::map<int, int> attempts;
    for (const AttemptRecord& attempt : queue.attempts(1)) {
      ++attempts[attempt.run.First];
    }
    std::size_t unbegun = 0;
    for (const auto& [frame, times] : begins()) {
      EXPECT_LE(times, attempts[frame]) << "frame " << frame << " was begun and the queue did not know";
      unbegun += static_cast<std::size_t>(std::max(attempts[frame] - times, 0));
    }
    EXPECT_LE(unbegun, 2 * (killed - before)) << "one a slot, at the moment of a kill";
  }
}

TEST_F(CrashTest, MachineThatGoesDownLosesNothing) {
  killAgainAndAgain([this](pid_t engine) {
    kill(engine, SIGKILL);
    for (const pid_t program : programs()) {
      kill(program, SIGKILL);
    }
  });
}

TEST_F(CrashTest, RendererKilledIsTriedAgainForItsMissingFramesOnly) {
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    begin(frameCount, 6);
    const pid_t engine = start(engineWords());
    while (killed < kills && !hasEnded(engine)) {
      randomMoment(60);
      const std::vector<pid_t> found = programs();
      if (!found.empty() && kill(found[random() % found.size()], SIGKILL) == 0) {
        ++killed;
      }
    }
    if (engines.contains(engine)) {
      EXPECT_EQ(waitFor(engine), 0);
    }
    finish(frameCount);
  }
}

// The same command again and again, often twice at once, with --missing or
// without, and killed: it is one job all the time, until that has ended well.
TEST_F(CrashTest, TheSameCommandIsOneJobHoweverOftenItIsGivenAndKilled) {
  constexpr int frames = 40;
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    while (!programs().empty()) { // of a queue that is forgotten now
      for (const pid_t program : programs()) {
        kill(program, SIGKILL);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    beginEmpty();
    std::filesystem::remove_all(directory.file("images"));
    std::filesystem::create_directory(directory.file("images"));
    const int packet = 1 + static_cast<int>(killed % 5);
    const auto words = [&](bool missing) {
      return jobWords("run", frames, packet, "10",
                      missing ? std::vector<std::string>{"--missing", "--slots", "2"}
                              : std::vector<std::string>{"--slots", "2"});
    };
    bool over = false;
    while (!over && killed < kills && !HasFailure()) {
      std::vector<pid_t> twins;
      for (unsigned long count = 1 + random() % 3; count > 0; --count) {
        twins.push_back(start(words(random() % 2 == 0)));
      }
      randomMoment(300);
      for (const pid_t twin : twins) {
        if (random() % 4 != 0 && !hasEnded(twin)) {
          kill(twin, SIGKILL);
          ++killed;
        }
      }
      for (const pid_t twin : twins) {
        if (engines.contains(twin)) {
          waitFor(twin);
        }
      }
      over = checkOnlyJob({JobState::Good});
    }
    if (!over && !HasFailure()) {
      EXPECT_EQ(waitFor(start(words(false))), 0) << readFile(directory.file("output"));
      finish(frames);
    }
  }
}

// Programs that are hard to end, started by several engines, by the same command
// given again, with --missing or without, while programs and engines are killed,
// frozen, interrupted and canceled.
TEST_F(CrashTest, WhateverAProgramIsAndWhateverHappensThePromiseIsKept) {
  constexpr int frames = 30;
  const std::vector<std::string> manners = {"Plain",  "Wrapped",     "Deaf",     "Session",
                                            "Daemon", "CleanDaemon", "Straggler"};
  const auto oneOf = [this](const std::vector<std::string>& words) { return words[random() % words.size()]; };
  std::map<std::string, int> happened;
  for (unsigned long faults = 0; faults < kills && !HasFailure();) {
    beginEmpty();
    std::filesystem::remove_all(directory.file("images"));
    std::filesystem::create_directory(directory.file("images"));
    const std::string manner = oneOf(manners);
    const int packet = 1 + static_cast<int>(random() % 5);
    const auto words = [&](bool missing) {
      std::vector<std::string> more = {"--slots",          "2",     "--set",
                                       "Manner=" + manner, "--set", "SilenceLimit=2"};
      if (missing) {
        more.emplace_back("--missing");
      }
      return jobWords("run", frames, packet, "10", more);
    };
    std::string told = manner + ", packets of " + std::to_string(packet) + ":";
    bool lost = false; // an engine was killed: what it left is its successor's
    bool over = false;
    while (!over && faults < kills && !HasFailure()) {
      std::vector<pid_t> alive = {start(words(random() % 2 == 0))};
      if (random() % 3 == 0) {
        alive.push_back(start(random() % 2 == 0 ? words(random() % 2 == 0) : engineWords()));
      }
      bool canceled = false;
      for (unsigned long count = 1 + random() % 3; count > 0 && faults < kills; --count) {
        randomMoment(400);
        const std::string fault =
            oneOf({"engine killed", "engine killed", "all killed", "program killed", "program killed",
                   "program killed", "program frozen", "program frozen", "interrupted", "interrupted twice",
                   "terminated", "canceled"});
        const pid_t engine = alive[random() % alive.size()];
        const bool ofProgram = fault.starts_with("program");
        const bool ofEngine = !ofProgram && fault != "canceled";
        std::vector<pid_t> found = programs();
        bool ended = hasEnded(engine);
        while (ofProgram && found.empty() && !ended) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
          found = programs();
          ended = hasEnded(engine);
        }
        if (ofProgram ? found.empty() : ofEngine && ended) {
          break;
        }
        ++faults;
        ++happened[fault];
        told += " " + fault + ",";
        if (fault == "canceled") {
          canceled = waitFor(start({"cancel", "last"})) == 0;
        } else if (!ofEngine) {
          kill(found[random() % found.size()], fault == "program killed" ? SIGKILL : SIGSTOP);
        } else {
          const bool hard = fault.find("killed") != std::string::npos;
          kill(engine, hard ? SIGKILL : fault == "terminated" ? SIGTERM : SIGINT);
          if (fault == "interrupted twice") {
            kill(engine, SIGINT);
          }
          // An engine that is asked twice leaves, too.
          lost = lost || hard || fault == "interrupted twice";
          if (fault == "all killed") {
            for (const pid_t program : programs()) {
              kill(program, SIGKILL);
            }
          }
          waitFor(engine);
          alive.erase(std::find(alive.begin(), alive.end(), engine));
        }
        if (alive.empty() || canceled) {
          break;
        }
      }
      for (const pid_t engine : alive) {
        if (engines.contains(engine)) {
          waitFor(engine);
        }
      }
      if (!lost) {
        EXPECT_TRUE(programs().empty());
      }
      over = checkOnlyJob({JobState::Good, JobState::Canceled});
    }
    if (!over && !HasFailure()) {
      EXPECT_EQ(waitFor(start(words(false))), 0) << readFile(directory.file("output"));
      finish(frames);
    } else {
      waitFor(start(engineWords())); // ends what a dead one left
    }
    EXPECT_TRUE(programs().empty());
    if (HasFailure()) {
      std::cout << told << '\n';
    }
  }
  for (const auto& [fault, times] : happened) {
    std::cout << times << " times " << fault << '\n';
  }
}

/// When each good frame of a job became good.
std::map<int, Moment> momentsOfGood(Queue& queue, JobId job) {
  std::map<int, Moment> moments;
  for (const WorkRecord& work : queue.works(job)) {
    const std::optional<AttemptRecord> attempt = queue.attempt(work.attempt);
    if (work.state == WorkState::Good && attempt && attempt->ended) {
      for (int frame = work.run.First; frame <= work.run.Last; ++frame) {
        moments[frame] = *attempt->ended;
      }
    }
  }
  return moments;
}

// Three jobs from one file, the second one frame by frame behind the first, the
// third behind all of the second. Whoever is killed when they are put in or
// worked off: there are all three or none, and nothing begins before its time.
TEST_F(CrashTest, AShotIsRenderedInItsOrderWhateverIsKilled) {
  constexpr int frames = 20;
  std::string shot;
  const auto section = [&](const std::string& name, const std::string& more) {
    std::filesystem::create_directory(directory.file(name));
    shot += "[" + name + "]\nType=Crash\nRange=1-" + std::to_string(frames) +
            "\nJournal=" + directory.file("journal-" + name) +
            "\nRetries=100\nStopAfter=0\nOut=" + directory.file(name) + '\n' + more + '\n';
  };
  section("render", "PacketSize=auto");
  section("denoise", "AfterFrames=render:-1..1");
  section("encode", "After=denoise\nPacketSize=100");
  directory.write("shot.ini", shot);
  const std::vector<std::string> names = {"render", "denoise", "encode"};
  const auto check = [&] {
    Queue queue(Path(directory.file("state"))); // which may not have been there yet
    EXPECT_EQ(brokenInvariants(directory.file("state/queue.db")), std::vector<std::string>());
    for (const std::string& name : names) {
      std::istringstream journal(readFile(directory.file("journal-" + name)));
      std::set<int> done;
      int frame = 0;
      for (std::string word; journal >> word >> frame;) {
        EXPECT_NE(word, "twice") << name << ", frame " << frame;
      }
    }
    if (queue.jobs().empty()) {
      return false;
    }
    EXPECT_EQ(queue.jobs().size(), 3U) << "all of a shot or nothing";
    const std::map<int, Moment> rendered = momentsOfGood(queue, 1);
    for (const AttemptRecord& attempt : queue.attempts(2)) {
      for (int frame = std::max(attempt.run.First - 1, 1); frame <= std::min(attempt.run.Last + 1, frames);
           ++frame) {
        EXPECT_TRUE(rendered.contains(frame) && rendered.at(frame) <= attempt.started)
            << "frame " << attempt.run.First << " began before frame " << frame << " was good";
      }
    }
    const std::map<int, Moment> denoised = momentsOfGood(queue, 2);
    for (const AttemptRecord& attempt : queue.attempts(3)) {
      EXPECT_EQ(denoised.size(), static_cast<std::size_t>(frames)) << "the last job began before its time";
      for (const auto& [frame, moment] : denoised) {
        EXPECT_LE(moment, attempt.started) << "frame " << frame;
      }
    }
    return queue.jobs().front().state == JobState::Good;
  };
  for (unsigned long killed = 0; killed < kills && !HasFailure();) {
    while (!programs(names).empty()) { // of a queue that is forgotten now
      for (const pid_t program : programs(names)) {
        kill(program, SIGKILL);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    beginEmpty();
    for (const std::string& name : names) {
      std::filesystem::remove(directory.file("journal-" + name));
      std::filesystem::remove_all(directory.file(name));
      std::filesystem::create_directory(directory.file(name));
    }
    const pid_t submission = start({"submit", directory.file("shot.ini")});
    randomMoment(150);
    if (!hasEnded(submission)) {
      kill(submission, SIGKILL);
      waitFor(submission);
      ++killed;
      check();
    }
    ASSERT_EQ(waitFor(start({"submit", directory.file("shot.ini")})), 0)
        << readFile(directory.file("output"));
    bool over = false;
    while (!over && killed < kills && !HasFailure()) {
      std::vector<pid_t> pair = {start(engineWords()), start(engineWords())};
      randomMoment(400);
      for (const pid_t engine : pair) {
        if (random() % 3 != 0 && !hasEnded(engine)) {
          kill(engine, SIGKILL);
          ++killed;
        }
      }
      const std::vector<pid_t> found = programs(names);
      if (!found.empty() && random() % 2 == 0) {
        kill(found[random() % found.size()], SIGKILL);
        ++killed;
      }
      for (const pid_t engine : pair) {
        if (engines.contains(engine)) {
          waitFor(engine);
        }
      }
      over = check();
      if (random() % 3 == 0 && !over) { // goes on with what there is
        EXPECT_EQ(waitFor(start({"submit", directory.file("shot.ini")})), 0);
      }
    }
    EXPECT_EQ(waitFor(start(engineWords())), 0) << readFile(directory.file("output"));
    EXPECT_TRUE(check());
    EXPECT_TRUE(programs(names).empty());
  }
}

} // namespace
} // namespace trovik
