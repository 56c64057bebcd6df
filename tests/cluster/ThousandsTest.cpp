#include "trovik/cluster/ClusterEngine.h"
#include "trovik/cluster/SlurmClient.h"
#include "trovik/progress/JobFollower.h"

#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <sys/resource.h>

extern const char* const FAKE_SLURM;

// Ten thousand works on a site of 250 slots, from the submission to the
// last result. Slurm's programs are stood in for by ones that answer in the
// words of the real ones; the time of the site is made by the test, so that an
// hour takes as long as what happens in it.

namespace trovik {
namespace {

using namespace std::chrono_literals;

#ifdef __SANITIZE_ADDRESS__
constexpr int works = 2'000; // what is slow there proves nothing more
#else
constexpr int works = 10'000;
#endif
constexpr double leastPause = 2; // seconds between two questions

/// This machine, but for its clock.
class SiteClock final : public Machine {
public:
  explicit SiteClock(std::string file) : file_(std::move(file)) { pass(0s); }
  Clock::time_point now() override { return now_; }
  std::unique_ptr<Program> start(const ProcessStart& start) override { return machine_.start(start); }
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override {
    machine_.wait(descriptors, timeout);
  }
  std::vector<pid_t> killOrphans(const Orphans& orphans) override { return machine_.killOrphans(orphans); }
  MemoryNow memory(const std::vector<int>& groups) override { return machine_.memory(groups); }

  void pass(Duration time) {
    now_ += time;
    std::ofstream(file_) << seconds() << '\n';
  }
  double seconds() const { return std::chrono::duration<double>(now_.time_since_epoch()).count(); }

private:
  LocalMachine machine_;
  std::string file_;
  Clock::time_point now_ = Clock::time_point(1000s);
};

/// Nobody looks.
class NoEvents final : public RunEvents {
public:
  void runStarted(const RunInfo& /*info*/) override {}
  void workStarted(const WorkInfo& /*work*/) override { ++started; }
  void image(const WorkInfo& /*work*/, const Path& /*file*/) override {}
  void workEnded(const WorkInfo& /*work*/, const WorkResult& /*result*/) override { ++ended; }
  void interrupted(int /*times*/, std::size_t /*running*/) override {}
  void runEnded(const RunSummary& /*summary*/) override {}
  std::size_t started = 0;
  std::size_t ended = 0;
};

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// The times of the site at which its programs were called, by program.
std::map<std::string, std::vector<double>> callsIn(const std::string& file) {
  std::map<std::string, std::vector<double>> calls;
  std::ifstream stream(file);
  for (std::string line; std::getline(stream, line);) {
    std::istringstream words(line);
    double real = 0;
    double time = 0;
    long process = 0;
    std::string program;
    words >> real >> time >> process >> program;
    calls[program].push_back(time);
  }
  return calls;
}

TEST(ThousandsTest, TheSubmittingSideOfTenThousandWorksIsQuiet) {
  TemporaryDirectory directory;
  setenv("FAKE_SLURM_DIR", directory.file("site").c_str(), 1);
  setenv("PATH", (std::string(FAKE_SLURM) + ":" + std::getenv("PATH")).c_str(), 1);
  std::filesystem::create_directories(directory.file("site"));
  std::ofstream(directory.file("site/settings")) << "slots=250\nduration=30\nspread=0.5\n";

  TestType type;
  SmartHandle<Job> job = type.makeJob();
  job->SetParameter(p_Executable, "/bin/true");
  job->SetParameter("CommandString", "$(SubRange)");
  job->SetParameter(p_Range, "1-" + std::to_string(works));
  job->SetParameter(p_StartDirectory, directory.path());

  SiteClock machine(directory.file("site/now"));
  Queue queue{Path(directory.file("queue"))};
  Queue view{Path(directory.file("queue"))};
  FakeInspector inspector;
  SlurmClient client(machine);
  ClusterSettings settings;
  settings.folder = Path(directory.file("shared"));
  settings.program = Path("/opt/trovik/bin/trovik");
  NewJob entry = TestType::newJob(*job);
  entry.runOn = RunOn::Cluster;
  entry.folder = settings.folder.Text();
  const JobId id = queue.submit(entry);

  std::vector<std::string> notices;
  ClusterEngine engine(machine, queue, client, inspector, settings, ClusterEngine::Duty::All,
                       [&](const ClusterNotice& notice) { notices.push_back(notice.text); });
  NoEvents events;
  JobFollower follower(view, id, events);
  follower.beginRun();

  const double begin = machine.seconds();
  const double before = processorSeconds();
  Clock::time_point nextLook = machine.now();
  while (!follower.isOver() && machine.seconds() - begin < 7200) {
    engine.advance();
    if (machine.now() >= nextLook) {
      follower.poll();
      nextLook = machine.now() + 500ms;
    }
    if (client.isBusy()) {
      // The programs take their time, but none of the site's.
      std::vector<pollfd> descriptors;
      client.addDescriptors(descriptors);
      machine.wait(descriptors, client.deadline() <= machine.now() ? 0s : 1s);
    } else {
      machine.pass(std::max<Duration>(engine.deadline() - machine.now(), 10ms));
    }
  }
  const double minutes = (machine.seconds() - begin) / 60;
  const double perMinute = (processorSeconds() - before) / minutes;

  EXPECT_EQ(queue.job(id)->state, JobState::Good);
  EXPECT_EQ(queue.frames(id).good.text(), "1-" + std::to_string(works));
  EXPECT_EQ(queue.attempts(id).size(), static_cast<std::size_t>(works)) << "each work once";
  EXPECT_TRUE(notices.empty()) << notices.front();
  EXPECT_EQ(events.ended, static_cast<std::size_t>(works));

  const auto calls = callsIn(directory.file("site/calls"));
  const std::vector<double>& questions = calls.at("squeue");
  for (std::size_t i = 1; i < questions.size(); ++i) {
    EXPECT_GE(questions[i] - questions[i - 1], leastPause - 0.001);
  }
  std::cout << works << " works in " << minutes << " minutes of the site: " << perMinute
            << " s of CPU a minute, " << static_cast<double>(questions.size()) / minutes
            << " questions a minute, " << calls.at("sbatch").size() << " arrays\n";
#ifndef __SANITIZE_ADDRESS__
  EXPECT_LT(perMinute, 1.0);
#endif
}

} // namespace
} // namespace trovik
