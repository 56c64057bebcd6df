#pragma once

#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/queue/Invariants.h"
#include "trovik/queue/Queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern const char* const CRASH_MODULE;
extern const char* const CRASH_RENDERER;
extern const char* const CRASH_TROVIK;

namespace trovik {

constexpr int frameCount = 60;
constexpr std::chrono::seconds longest(120); // for anything that is waited for

inline unsigned long environmentNumber(const char* name, unsigned long usual) {
  const char* text = std::getenv(name);
  return text == nullptr ? usual : std::strtoul(text, nullptr, 10);
}

/// Engines on a queue of its own, in which a program renders that knows when two
/// are at the same frame.
///
/// TROVIK_CRASH_KILLS is the number of kills of each test, TROVIK_CRASH_SEED the
/// seed; it is printed, so that a failure can be repeated as far as the machine's
/// timing allows.
class CrashTest : public testing::Test {
protected:
  CrashTest() : seed(environmentNumber("TROVIK_CRASH_SEED", std::random_device()())), random(seed) {
    std::cout << "seed " << seed << ", " << kills << " kills\n";
    std::filesystem::create_directory(directory.file("modules"));
    std::filesystem::create_symlink(CRASH_MODULE, directory.file("modules/Tessivar.so"));
    directory.write("modules/crash.tvx", R"([Module]
ID=6d2a7f0e-3b47-4f0e-9a53-0c1b7a5e9d11
Name=Crash
Command=$(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote) $(Journal.Enquote) $(Pause) $(Manner)
ImageStartText=saved:
CheckForMultipleFiles=No
[ErrorText]
1=fatal:
[PrimaryParameters]
1=Journal
2=Pause
3=Manner
[Journal]
Type=Text
[Pause]
Type=Integer
Default=10
[Manner]
Type=Text
Default=Plain
[OverrideDefaults]
Executable=)" + std::string(CRASH_RENDERER) + "\n");
    std::filesystem::create_directory(directory.file("images"));
    setenv("TROVIK_MODULE_PATH", directory.file("modules").c_str(), 1);
    setenv("TROVIK_STATE", directory.file("state").c_str(), 1);
    setenv("HOME", directory.path().c_str(), 1);
    unsetenv("XDG_CONFIG_HOME");
  }

  ~CrashTest() override {
    for (const pid_t engine : engines) {
      kill(engine, SIGKILL);
      waitpid(engine, nullptr, 0);
    }
  }

  pid_t start(std::vector<std::string> words) {
    words.insert(words.begin(), CRASH_TROVIK);
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, directory.file("output").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0666);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    pid_t process = 0;
    EXPECT_EQ(posix_spawn(&process, CRASH_TROVIK, &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    engines.insert(process);
    return process;
  }

  /// The exit code, 128 + signal for one that was killed; -1 in time.
  int waitFor(pid_t process) {
    const auto deadline = std::chrono::steady_clock::now() + longest;
    int status = 0;
    while (waitpid(process, &status, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) {
        ADD_FAILURE() << "process " << process << " does not end; its output:\n"
                      << readFile(directory.file("output"));
        return -1;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    engines.erase(process);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  bool hasEnded(pid_t process) {
    if (!engines.contains(process)) {
      return true;
    }
    if (waitpid(process, nullptr, WNOHANG) != process) {
      return false;
    }
    engines.erase(process);
    return true;
  }

  /// A queue that holds one new job.
  void begin(int frames, int packet, const std::string& pause = "10") {
    beginEmpty();
    submit(frames, packet, pause);
  }

  /// A queue that holds nothing.
  void beginEmpty() {
    goodFrames.clear();
    std::filesystem::remove(directory.file("journal"));
    std::filesystem::create_directory(directory.file("state")); // perhaps a mount, which cannot be removed
    for (const auto& entry : std::filesystem::directory_iterator(directory.file("state"))) {
      std::filesystem::remove_all(entry.path());
    }
  }

  /// The job as the verb wants it, with further words.
  std::vector<std::string> jobWords(const std::string& verb, int frames, int packet, const std::string& pause,
                                    const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words = {verb,       "Crash",
                                      "--range",  "1-" + std::to_string(frames),
                                      "--packet", std::to_string(packet),
                                      "--set",    "Journal=" + directory.file("journal"),
                                      "--set",    "Pause=" + pause,
                                      "--set",    "Retries=100",
                                      "--set",    "StopAfter=0",
                                      "--out",    directory.file("images")};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  void submit(int frames, int packet, const std::string& pause) {
    const pid_t process = start(jobWords("submit", frames, packet, pause));
    ASSERT_EQ(waitFor(process), 0) << readFile(directory.file("output"));
  }

  std::vector<std::string> engineWords(int slots = 2) const {
    return {"engine", "--until-empty", "--slots", std::to_string(slots)};
  }

  /// Sleeps up to so long: the moment of a kill, not a wait for anything.
  void randomMoment(int milliseconds) {
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, milliseconds * 1000)(random)));
  }

  /// Processes of the renderer that write into this test's journal, or into
  /// those of a shot's jobs.
  std::vector<pid_t> programs(const std::vector<std::string>& names = {""}) const {
    std::vector<pid_t> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
      const std::string name = entry.path().filename().string();
      if (name.find_first_not_of("0123456789") == std::string::npos && engines.count(std::stoi(name)) == 0) {
        const std::string words = readFile(entry.path().string() + "/cmdline");
        const bool ours = std::any_of(names.begin(), names.end(), [&](const std::string& one) {
          const std::string journal = directory.file(one.empty() ? "journal" : "journal-" + one);
          return words.find('\0' + journal + '\0') != std::string::npos;
        });
        if (ours && words.find(CRASH_RENDERER) != std::string::npos) {
          found.push_back(std::stoi(name));
        }
      }
    }
    return found;
  }

  /// Looks at the queue as a crash left it: it is whole, what was good before
  /// is good still, and no frame that the queue calls good has been begun
  /// again since.
  void checkQueue() {
    Queue queue(Path(directory.file("state")));
    EXPECT_EQ(brokenInvariants(directory.file("state/queue.db")), std::vector<std::string>());
    for (const JobRecord& job : queue.jobs()) {
      const RunSet now = queue.frames(job.id).good;
      const std::map<int, int> begun = begins();
      const std::map<int, std::string> last = lastWords();
      for (const auto& [frame, times] : goodFrames) {
        EXPECT_TRUE(now.contains(frame)) << "frame " << frame << " was good and is not any more";
        EXPECT_EQ(begun.at(frame), times) << "frame " << frame << " was good and was rendered again";
      }
      for (const FrameRun& run : now.runs()) {
        for (int frame = run.First; frame <= run.Last; ++frame) {
          goodFrames.emplace(frame, begun.count(frame) == 0 ? 0 : begun.at(frame));
          EXPECT_EQ(std::filesystem::file_size(directory.file("images/f_" + std::to_string(frame) + ".ppm")),
                    13U + 16 * 16 * 3)
              << "frame " << frame << " is called good";
          const auto word = last.find(frame);
          EXPECT_TRUE(word != last.end() && word->second == "done")
              << "frame " << frame << " is called good, and the last of it is "
              << (word == last.end() ? "nothing" : word->second);
        }
      }
    }
  }

  /// The same command was given several times. Whether its job has come to one
  /// of these ends; until then there is one job, as checkQueue wants it. Who
  /// comes afterwards begins anew, as it should.
  bool checkOnlyJob(const std::set<JobState>& ends) {
    Queue queue(Path(directory.file("state")));
    const std::vector<JobRecord> jobs = queue.jobs();
    const bool over = !jobs.empty() && ends.contains(jobs.back().state);
    EXPECT_TRUE(jobs.size() <= 1 || over) << jobs.size() << " jobs";
    if (jobs.size() == 1) {
      checkQueue();
    }
    begins(); // none by two at once
    return over;
  }

  std::map<int, int> begins() const {
    std::map<int, int> count;
    std::istringstream journal(readFile(directory.file("journal")));
    for (std::string word; journal >> word;) {
      int frame = 0;
      journal >> frame;
      EXPECT_NE(word, "twice") << "frame " << frame << " was rendered by two at once";
      count[frame] += word == "begin" ? 1 : 0;
    }
    return count;
  }

  /// What the journal says last of each frame.
  std::map<int, std::string> lastWords() const {
    std::map<int, std::string> last;
    std::istringstream journal(readFile(directory.file("journal")));
    int frame = 0;
    for (std::string word; journal >> word >> frame;) {
      last[frame] = word;
    }
    return last;
  }

  /// Lets an engine finish, and looks at the whole.
  void finish(int frames, const std::string& expectedState = "good") {
    const int code = waitFor(start(engineWords()));
    EXPECT_EQ(code, 0) << readFile(directory.file("output"));
    checkQueue();
    Queue queue(Path(directory.file("state")));
    for (const JobRecord& job : queue.jobs()) {
      EXPECT_EQ(nameOf(job.state), expectedState) << job.note;
      EXPECT_EQ(queue.frames(job.id).good.count(), static_cast<std::size_t>(frames));
      for (const AttemptRecord& attempt : queue.attempts(job.id)) {
        EXPECT_NE(attempt.state, AttemptState::Running) << "attempt " << attempt.id;
      }
    }
    EXPECT_EQ(goodFrames.size(), static_cast<std::size_t>(frames));
    EXPECT_TRUE(programs().empty());
  }

  /// Engine after engine of so many slots dies at a moment within the time, until
  /// one ends by itself or there were enough kills.
  template <typename Kill>
  void killEngines(unsigned long& killed, int slots, int milliseconds, Kill killEngine) {
    for (int round = 0; round < 10 && killed < kills; ++round) {
      const pid_t engine = start(engineWords(slots));
      randomMoment(milliseconds);
      if (hasEnded(engine)) {
        break;
      }
      killEngine(engine);
      waitFor(engine);
      ++killed;
      checkQueue();
    }
  }

  /// Job after job is worked by engines that die at random moments, until
  /// there were enough kills.
  template <typename Kill> void killAgainAndAgain(Kill killEngine) {
    for (unsigned long killed = 0; killed < kills && !HasFailure();) {
      begin(frameCount, 1 + static_cast<int>(killed % 7));
      killEngines(killed, 2, 250, killEngine);
      finish(frameCount);
    }
  }

  const unsigned long kills = environmentNumber("TROVIK_CRASH_KILLS", 8);
  const unsigned long seed;
  std::mt19937 random;
  TemporaryDirectory directory;
  std::set<pid_t> engines;
  std::map<int, int> goodFrames; // and how often each had been begun when it was first seen good
};

} // namespace trovik
