#include "trovik/cluster/TaskRun.h"

#include "host/foundation/Log.h"
#include "host/foundation/Quoting.h"
#include "tests/trovik/FakeMachine.h"
#include "tests/trovik/TemporaryDirectory.h"
#include "tests/trovik/TestJobs.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern const char* const CLUSTER_RENDERER;

namespace trovik {
namespace {

using namespace std::chrono_literals;

constexpr auto longest = 60s; // for anything that is waited for

/// Waits for an event; false when it does not come.
bool comes(const std::function<bool()>& event) {
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (!event()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

class NoInterrupts final : public InterruptSource {
public:
  int descriptor() const override { return -1; }
  int take() override { return 0; }
  bool byUser() const override { return false; }
};

/// The real machine, with something that happens after so many waits.
class SteeredMachine final : public Machine {
public:
  std::function<void(int turn)> onWait;

  Clock::time_point now() override { return machine_.now(); }
  std::unique_ptr<Program> start(const ProcessStart& start) override { return machine_.start(start); }
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override {
    machine_.wait(descriptors, timeout);
    if (onWait) {
      onWait(++turns_);
    }
  }
  std::vector<pid_t> killOrphans(const Orphans& orphans) override { return machine_.killOrphans(orphans); }

private:
  LocalMachine machine_;
  int turns_ = 0;
};

/// Finds the images of the renderer good when they are whole.
class WholeInspector final : public ImageInspector {
public:
  static constexpr std::uintmax_t size = 13 + 16 * 16 * 3;
  void ask(const Path& file, bool /*refuseFlat*/, Answer answer) override {
    std::error_code error;
    const bool whole = std::filesystem::file_size(file.Text().c_str(), error) == size;
    answer({whole ? "" : "Truncated image", true, 16, 16});
  }
  int descriptor() const override { return -1; }
  std::optional<Clock::time_point> deadline() const override { return std::nullopt; }
  void advance(Clock::time_point /*now*/) override {}
};

/// Whether a process has ended, also where nobody has reaped it.
bool isGone(int process) {
  std::string text = readFile("/proc/" + std::to_string(process) + "/stat");
  const std::size_t end = text.rfind(')');
  return end == std::string::npos || text.at(end + 2) == 'Z';
}

// Draws frames FIRST to LAST into FOLDER, and keeps a journal in CONTROL. At a
// frame with a file "hold.FRAME" there it says "held.FRAME" and waits until
// that file is gone.
constexpr const char* program = R"(#!/bin/sh
frame=$1
while [ "$frame" -le "$2" ]; do
  echo "begin $frame" >> "$4/journal"
  if [ -e "$4/hold.$frame" ]; then
    echo $$ > "$4/held.new"; mv "$4/held.new" "$4/held.$frame"
    while [ -e "$4/hold.$frame" ]; do sleep 0.02; done
  fi
  if [ -e "$4/fail.$frame" ]; then echo "fatal: cannot draw $3/f_$frame"; exit 3; fi
  echo "frame $frame by $$" > "$3/f_$frame" || exit 4
  echo "image $3/f_$frame"
  frame=$((frame + 1))
done
)";

class TaskRunTest : public testing::Test {
protected:
  TaskRunTest() {
    directory.write("draw", program);
    chmod(directory.file("draw").c_str(), 0755);
    job->SetParameter(p_Executable, directory.file("draw"));
    job->SetParameter("CommandString", "$(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote) " +
                                           EnquoteWord(directory.path()));
    job->SetParameter(p_StartDirectory, directory.path());
    job->SetParameter(p_OutputFolder, directory.file("out"));
    job->SetParameter(p_ErrorStarts, "fatal:");
    self.host = "here";
    self.boot = "b";
    self.process = getpid();
    self.node = "n1";
    times.beat = 50ms;
    times.leastBeat = 10ms;
    times.watch = 20ms;
  }

  ~TaskRunTest() override {
    for (const pid_t process : processes) {
      kill(process, SIGKILL);
      waitpid(process, nullptr, 0);
    }
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
      if (entry.path().filename().string().starts_with("hold.")) {
        std::filesystem::remove(entry.path()); // lets programs end that nobody has ended
      }
    }
  }

  /// Writes the folder for works of one array job.
  void plan(const std::vector<FrameRun>& runs, std::size_t perTask = 1,
            std::chrono::seconds patience = 1000s) {
    FolderJob entry;
    entry.queue = queue;
    entry.job = 7;
    entry.type = type.id();
    entry.typeName = "Sketch";
    entry.packed = packedJob(*job);
    folder.create(entry);
    ArrayPlan array;
    array.perTask = perTask;
    array.logs = folder.logs().Text();
    array.patience = patience;
    array.stage = staged;
    for (const FrameRun& run : runs) {
      array.works.push_back({run, 1});
    }
    works.create(array);
  }

  bool run(std::size_t index, Machine& machine, InterruptSource& interrupts, TaskGuard* guard = nullptr) {
    TaskRun task(works.directory(), index, self, machine, *images, interrupts, guard, times);
    return task.run();
  }
  bool run(std::size_t index = 0) {
    LocalMachine machine;
    NoInterrupts interrupts;
    return run(index, machine, interrupts);
  }

  enum class Guard { Yes, No };
  /// Runs a task in a process of its own.
  pid_t startTask(std::size_t index, Guard guarded = Guard::Yes) {
    const pid_t process = fork();
    if (process == 0) {
      int code = 3;
      try {
        self.process = getpid();
        std::unique_ptr<TaskGuard> guard;
        if (guarded == Guard::Yes) {
          guard = std::make_unique<TaskGuard>();
        }
        SignalInterrupts interrupts;
        LocalMachine machine;
        code = run(index, machine, interrupts, guard.get()) ? 0 : 1;
      } catch (Exception* exception) {
        std::cerr << takeText(exception) << '\n';
      }
      _exit(code);
    }
    processes.insert(process);
    return process;
  }
  /// The exit code, 128 + signal for one that was killed; -1 in time.
  int waitFor(pid_t process) {
    int status = 0;
    if (!comes([&] { return waitpid(process, &status, WNOHANG) == process; })) {
      return -1;
    }
    processes.erase(process);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  void hold(int frame) const { directory.write("hold." + std::to_string(frame), ""); }
  void release(int frame) const { std::filesystem::remove(directory.file("hold." + std::to_string(frame))); }
  /// The program's number when it waits at the frame.
  int heldAt(int frame) const {
    const std::string file = directory.file("held." + std::to_string(frame));
    EXPECT_TRUE(comes([&] { return std::filesystem::exists(file); })) << "never came to frame " << frame;
    const int process = std::atoi(readFile(file).c_str());
    std::filesystem::remove(file);
    return process;
  }
  bool beatNames(std::size_t files, std::size_t position = 0) const {
    return comes([&] {
      const std::optional<WorkBeat> beat = works.beatOf(position);
      return beat && beat->files.size() >= files;
    });
  }

  /// The frames in the order in which programs began them: "1 2 3".
  std::string journal() const {
    std::istringstream stream(readFile(directory.file("journal")));
    std::string text;
    for (std::string word, frame; stream >> word >> frame;) {
      text += (text.empty() ? "" : " ") + frame;
    }
    return text;
  }
  std::set<std::string> output() const {
    std::set<std::string> names;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(directory.file("out"), error)) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
  static std::string pathsOf(const Outcome& outcome) {
    std::string text;
    for (const FileRecord& file : outcome.files) {
      text += (text.empty() ? "" : " ") + Path(file.path).Leaf(true);
    }
    return text;
  }

  TemporaryDirectory directory;
  TestType type;
  SmartHandle<Job> job = type.makeJob();
  JobFolder folder{Path(directory.file("folder/q-7"))};
  ArrayFolder works{folder.array(1)};
  // Programs are found by it on the whole machine, where this test may run twice.
  const std::string queue = UID(true).GenString();
  FakeInspector inspector;
  ImageInspector* images = &inspector;
  TaskSelf self;
  TaskTimes times;
  bool staged = true;
  std::set<pid_t> processes;
};

using Names = std::set<std::string>;

TEST_F(TaskRunTest, TaskWorksItsPlacesAndNoOther) {
  plan({{1, 2}, {3, 3}, {4, 4}}, 2);
  EXPECT_TRUE(run(0));
  EXPECT_EQ(journal(), "1 2 3");
  EXPECT_EQ(output(), (Names{"f_1", "f_2", "f_3"}));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.claim, 1);
  EXPECT_EQ(end.node, "n1");
  EXPECT_LE(end.started, end.ended);
  EXPECT_EQ(end.outcome.state, AttemptState::Good);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Result);
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(end.outcome.log, directory.file("folder/q-7/logs/1-2.log"));
  EXPECT_EQ(end.outcome.command,
            JoinCommandLine({directory.file("draw"), "1", "2", directory.file("out"), directory.path()}));
  ASSERT_EQ(end.outcome.files.size(), 2U);
  EXPECT_EQ(end.outcome.files[1].path, directory.file("out/f_2"));
  EXPECT_EQ(end.outcome.files[1].frame, 2);
  EXPECT_EQ(end.outcome.files[1].problem, "");
  EXPECT_GT(end.outcome.duration.count(), 0);
  EXPECT_TRUE(works.hasEnded(1));
  EXPECT_EQ(works.lastClaim(2), 0);
  const WorkClaim claim = works.claimOf(0, 1).value();
  EXPECT_EQ(claim.mark, queue + "-7.1.0.1");
  EXPECT_EQ(claim.stage, directory.file("out/.trovik-" + queue + "-7.1.0.1"));
  EXPECT_GT(works.beatOf(0).value().count, 0);

  EXPECT_TRUE(run(0)); // a task that the site starts again finds all done
  EXPECT_EQ(journal(), "1 2 3");
  EXPECT_TRUE(run(1));
  EXPECT_EQ(journal(), "1 2 3 4");
  EXPECT_EQ(works.lastClaim(0), 1);
}

TEST_F(TaskRunTest, IndexBeyondThePlanIsRefused) {
  plan({{1, 1}, {2, 2}, {3, 3}}, 2);
  const Refusal refusal = refusalOf([&] { run(2); });
  EXPECT_EQ(refusal.message, "the array job in \"" + works.directory().Text() + "\" has no task 2");
  EXPECT_EQ(refusal.hint, "it has 2, counted from 0");
}

TEST_F(TaskRunTest, TextsOfAFailureAreThoseOfALocalRun) {
  plan({{1, 3}});
  directory.write("fail.2", "");
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  const std::string line = "fatal: cannot draw " + directory.file("out/f_2");
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.outcome.state, AttemptState::Failed);
  EXPECT_EQ(end.outcome.rule, VerdictRule::ErrorLine);
  EXPECT_EQ(end.outcome.reason, "Error line: " + line);
  EXPECT_EQ(end.outcome.lines, (std::vector<std::string>{"image " + directory.file("out/f_1"), line}));
  EXPECT_EQ(end.outcome.exitCode, 3);
  EXPECT_EQ(end.outcome.good.text(), "1");
  EXPECT_EQ(output(), Names{"f_1"});
}

TEST_F(TaskRunTest, ProgramThatCannotBeStartedIsAResult) {
  job->SetParameter(p_Executable, directory.file("none"));
  plan({{1, 1}});
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.outcome.state, AttemptState::Failed);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
  EXPECT_NE(end.outcome.reason.find(directory.file("none")), std::string::npos) << end.outcome.reason;
  EXPECT_FALSE(std::filesystem::exists(directory.file("out/.trovik-" + queue + "-7.1.0.1")));
}

TEST_F(TaskRunTest, NodeThatCannotWorkSaysSoForEachPlace) {
  plan({{1, 1}, {2, 2}}, 2);
  LocalMachine machine;
  NoInterrupts interrupts;
  TaskRun task(works.directory(), 0, self, machine, inspector, interrupts, nullptr, times);
  task.refuse("no module was found");
  EXPECT_TRUE(task.run());
  for (const std::size_t position : {0U, 1U}) {
    const WorkEnd end = works.endOf(position).value();
    EXPECT_EQ(end.outcome.state, AttemptState::Failed);
    EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
    EXPECT_EQ(end.outcome.reason, "no module was found");
  }
  EXPECT_EQ(journal(), "");
}

TEST_F(TaskRunTest, WhateverAModuleThrowsIsTheResultOfItsWork) {
  for (const std::string thrown : {"throw at the end", "raise at the end", "throw at the folder"}) {
    SCOPED_TRACE(thrown);
    job->SetParameter(p_Scene, thrown);
    std::filesystem::remove_all(folder.directory().Text().c_str());
    plan({{1, 1}, {2, 2}}, 2);
    const LogSink before = SetLogSink([](LogLevel, const String&) {});
    EXPECT_TRUE(run());
    SetLogSink(before);
    for (const std::size_t position : {0U, 1U}) {
      ASSERT_TRUE(works.hasEnded(position));
      const WorkEnd end = works.endOf(position).value();
      EXPECT_EQ(end.by, WorkEnd::By::Itself);
      EXPECT_EQ(end.outcome.state, AttemptState::Failed);
      EXPECT_EQ(end.outcome.reason, "The module of the type \"Sketch\" failed: " +
                                        std::string(thrown[0] == 'r' ? "raised" : "thrown") +
                                        thrown.substr(5));
    }
    EXPECT_FALSE(std::filesystem::exists(directory.file("out/.trovik-" + queue + "-7.1.0.1")));
  }
}

TEST_F(TaskRunTest, NodeWithoutProcessesIsWaitedFor) {
  FakeMachine machine;
  int refused = 0;
  machine.beforeStart = [&refused](const ProcessStart&) {
    if (refused++ < 3) {
      RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
    }
  };
  times = TaskTimes();
  plan({{1, 1}});
  std::vector<std::string> log;
  const LogSink before = SetLogSink([&log](LogLevel level, const String& text) {
    if (level >= LogLevel::Warning) {
      log.push_back(text);
    }
  });
  EXPECT_TRUE(run(0, machine, machine));
  SetLogSink(before);
  EXPECT_EQ(refused, 4);
  EXPECT_EQ(log, std::vector<std::string>{
                     "this node has no more processes to give (EAGAIN); the work is started when it has"});
  EXPECT_NE(works.endOf(0).value().outcome.rule, VerdictRule::Start) << works.endOf(0).value().outcome.reason;
  EXPECT_GT(works.beatOf(0).value().count, 1) << "it lives while it waits";
}

TEST_F(TaskRunTest, WorkFailsWhereANodeHasNoProcessesForLong) {
  FakeMachine machine;
  machine.beforeStart = [](const ProcessStart&) {
    RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
  };
  times = TaskTimes();
  plan({{1, 1}});
  const LogSink before = SetLogSink([](LogLevel, const String&) {});
  EXPECT_TRUE(run(0, machine, machine));
  SetLogSink(before);
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.outcome.state, AttemptState::Failed);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
  EXPECT_EQ(end.outcome.reason, "cannot start it: Resource temporarily unavailable");
  EXPECT_GE(machine.elapsed(), times.shortage);
  EXPECT_EQ(output(), Names{});
}

TEST_F(TaskRunTest, TaskThatIsEndedWhileItsNodeHasNoProcessesHasNotFailed) {
  FakeMachine machine;
  machine.beforeStart = [](const ProcessStart&) {
    RaiseException("Process", k_ErrorSystem, "cannot start it", EAGAIN);
  };
  machine.interrupts = {10s};
  times = TaskTimes();
  plan({{1, 1}});
  const LogSink before = SetLogSink([](LogLevel, const String&) {});
  EXPECT_TRUE(run(0, machine, machine));
  SetLogSink(before);
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Interrupted);
  EXPECT_EQ(end.outcome.reason, "The cluster ended its task");
  EXPECT_LE(machine.elapsed(), 13s);
}

TEST_F(TaskRunTest, UnknownTypeIsAResult) {
  FolderJob entry;
  plan({{1, 1}});
  entry = folder.read();
  entry.type = UID(true);
  folder.create(entry);
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.outcome.rule, VerdictRule::Start);
  EXPECT_NE(end.outcome.reason, "");
}

TEST_F(TaskRunTest, AllocatedCpusAreTheJobs) {
  job->SetParameter("CommandString", "9 8 x; $(CPUs)");
  self.cpus = 5;
  plan({{1, 1}});
  EXPECT_TRUE(run());
  EXPECT_TRUE(works.endOf(0).value().outcome.command.ends_with(" 5"))
      << works.endOf(0).value().outcome.command;
}

TEST_F(TaskRunTest, CanceledArrayIsLeftAlone) {
  plan({{1, 1}});
  works.cancel();
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "");
  EXPECT_EQ(works.lastClaim(0), 0);
  EXPECT_FALSE(works.hasEnded(0));
}

TEST_F(TaskRunTest, CanceledWorkKeepsItsGoodFrames) {
  plan({{1, 4}, {5, 5}}, 2);
  hold(3);
  const pid_t task = startTask(0);
  const int held = heldAt(3);
  works.cancel();
  EXPECT_EQ(waitFor(task), 0);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Canceled);
  EXPECT_EQ(end.outcome.state, AttemptState::Canceled);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Canceled);
  EXPECT_EQ(end.outcome.reason, "Canceled");
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(output(), (Names{"f_1", "f_2"}));
  EXPECT_EQ(works.lastClaim(1), 0);
}

TEST_F(TaskRunTest, InterruptedWorkIsLostButForItsGoodFrames) {
  plan({{1, 4}, {5, 5}}, 2);
  hold(3);
  const pid_t task = startTask(0);
  const int held = heldAt(3);
  kill(task, SIGTERM);
  EXPECT_EQ(waitFor(task), 1); // the second position has no result
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Interrupted);
  EXPECT_EQ(end.outcome.state, AttemptState::Lost);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Cluster);
  EXPECT_EQ(end.outcome.reason, "The cluster ended its task");
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(output(), (Names{"f_1", "f_2"}));
  EXPECT_EQ(journal(), "1 2 3");
}

TEST_F(TaskRunTest, InterruptOfACanceledArrayCountsAsCanceled) {
  times.beat = 60s;
  plan({{1, 4}});
  hold(2);
  const pid_t task = startTask(0);
  heldAt(2);
  works.cancel();
  kill(task, SIGTERM);
  EXPECT_EQ(waitFor(task), 0);
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::Canceled);
}

TEST_F(TaskRunTest, ProgramThatDiesOfTheInterruptBeforeItIsHeardHasNotFailed) {
  FakeMachine machine;
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.ends = 10s;
    script.signal = SIGTERM;
    return script;
  };
  times = TaskTimes();
  plan({{1, 1}});
  machine.interrupts = {10s + times.aftermath / 2};
  EXPECT_TRUE(run(0, machine, machine));
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::Interrupted);

  std::filesystem::remove_all(works.directory().Text().c_str());
  FakeMachine later;
  later.behaviour = machine.behaviour;
  plan({{1, 1}});
  later.interrupts = {10s + 2 * times.aftermath};
  EXPECT_TRUE(run(0, later, later));
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.outcome.rule, VerdictRule::Signal);
}

TEST_F(TaskRunTest, ProgramThatHeedsNoInterruptIsKilledInTime) {
  FakeMachine machine;
  machine.behaviour = [](const ProcessStart&) {
    Script script;
    script.heedsTerminate = false;
    return script;
  };
  times = TaskTimes();
  plan({{1, 1}});
  machine.interrupts = {10s};
  EXPECT_TRUE(run(0, machine, machine));
  EXPECT_EQ(machine.signals, (std::vector<std::string>{"term", "kill"}));
  EXPECT_LE(machine.elapsed(), 13s);
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::Interrupted);
}

TEST_F(TaskRunTest, TwinWaitsForTheLivingProcessAndRendersNothing) {
  plan({{1, 3}});
  hold(2);
  const pid_t first = startTask(0);
  heldAt(2);
  SteeredMachine machine;
  NoInterrupts interrupts;
  machine.onWait = [&](int turn) {
    if (turn == 20) {
      EXPECT_EQ(works.lastClaim(0), 1);
      release(2);
    }
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  EXPECT_EQ(waitFor(first), 0);
  EXPECT_EQ(journal(), "1 2 3");
  EXPECT_EQ(works.lastClaim(0), 1);
  EXPECT_EQ(works.endOf(0).value().claim, 1);
}

TEST_F(TaskRunTest, TwinThatIsInterruptedWhileItWaitsLeavesNothing) {
  plan({{1, 1}});
  hold(1);
  startTask(0);
  heldAt(1);
  const pid_t twin = startTask(0);
  kill(twin, SIGTERM);
  const int code = waitFor(twin);
  EXPECT_TRUE(code == 1 || code == 128 + SIGTERM) << code; // before its handlers were there
  EXPECT_EQ(works.lastClaim(0), 1);
  EXPECT_FALSE(works.hasEnded(0));
}

TEST_F(TaskRunTest, SuccessorRendersOnlyWhatADeadProcessLeftUndone) {
  plan({{1, 4}});
  hold(3);
  const pid_t first = startTask(0);
  const int held = heldAt(3);
  ASSERT_TRUE(beatNames(2));
  kill(first, SIGKILL);
  EXPECT_EQ(waitFor(first), 128 + SIGKILL);
  EXPECT_TRUE(comes([&] { return isGone(held); })) << "the guard did not end the program";
  release(3);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 3 4");
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Itself);
  EXPECT_EQ(end.claim, 2);
  EXPECT_EQ(end.outcome.state, AttemptState::Good);
  EXPECT_EQ(end.outcome.good.text(), "1-4");
  EXPECT_EQ(pathsOf(end.outcome), "f_1 f_2 f_3 f_4");
  EXPECT_EQ(end.outcome.log, directory.file("folder/q-7/logs/3-4.restart1.log"));
  EXPECT_EQ(output(), (Names{"f_1", "f_2", "f_3", "f_4"}));
}

TEST_F(TaskRunTest, SuccessorKnowsTheFilesThatWereNamedSinceTheLastBeat) {
  times.beat = times.leastBeat = 200s;
  plan({{1, 5}});
  hold(4);
  const pid_t first = startTask(0);
  const int held = heldAt(4);
  const std::string log = directory.file("folder/q-7/logs/1-5.log");
  ASSERT_TRUE(comes([&] { return readFile(log).ends_with("f_3\n"); }));
  EXPECT_TRUE(works.beatOf(0).value().files.empty());
  kill(first, SIGKILL);
  waitFor(first);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  release(4);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 4 4 5");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-5");
}

TEST_F(TaskRunTest, ThirdProcessTakesUpWhatTheFirstTwoLeft) {
  plan({{1, 6}});
  for (const int frame : {3, 5}) {
    hold(frame);
    const pid_t task = startTask(0);
    const int held = heldAt(frame);
    ASSERT_TRUE(beatNames(static_cast<std::size_t>(frame) - 1));
    kill(task, SIGKILL);
    waitFor(task);
    EXPECT_TRUE(comes([&] { return isGone(held); }));
    release(frame);
  }
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 3 4 5 5 6");
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 3);
  EXPECT_EQ(end.outcome.good.text(), "1-6");
  EXPECT_EQ(pathsOf(end.outcome), "f_1 f_2 f_3 f_4 f_5 f_6");
}

TEST_F(TaskRunTest, SuccessorEndsTheProgramOfADeadProcessOnItsMachine) {
  plan({{1, 4}});
  hold(3);
  const pid_t first = startTask(0, Guard::No);
  const int held = heldAt(3);
  ASSERT_TRUE(beatNames(2));
  kill(first, SIGKILL);
  waitFor(first);
  EXPECT_FALSE(isGone(held));
  SteeredMachine machine;
  NoInterrupts interrupts;
  machine.onWait = [&](int) {
    if (isGone(held)) {
      release(3);
    }
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  EXPECT_TRUE(isGone(held));
  EXPECT_EQ(journal(), "1 2 3 3 4");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-4");
}

TEST_F(TaskRunTest, ProcessThatWakesAfterTheTakeoverLeavesNoTrace) {
  plan({{1, 4}}, 1, 2s);
  hold(3);
  const pid_t first = startTask(0, Guard::No);
  heldAt(3);
  ASSERT_TRUE(beatNames(2));
  kill(first, SIGSTOP);
  self.host = "elsewhere"; // where a process number of "here" says nothing
  release(3);              // its program goes on
  const pid_t second = startTask(0);
  EXPECT_EQ(waitFor(second), 0);
  WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 2);
  EXPECT_EQ(end.outcome.good.text(), "1-4");
  const Names names = output();
  std::map<std::string, std::string> before;
  for (const std::string& name : names) {
    before[name] = readFile(directory.file("out/" + name));
  }
  EXPECT_EQ(names, (Names{"f_1", "f_2", "f_3", "f_4"}));
  kill(first, SIGCONT);
  EXPECT_EQ(waitFor(first), 0); // its place has a result
  end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 2);
  EXPECT_EQ(works.lastClaim(0), 2);
  EXPECT_EQ(output(), names);
  for (const std::string& name : names) {
    EXPECT_EQ(readFile(directory.file("out/" + name)), before[name]);
  }
}

TEST_F(TaskRunTest, ProgramOfATaskThatStandsStillIsEndedAndHasNotFailed) {
  plan({{1, 4}}, 1, 2s);
  hold(3);
  const pid_t task = startTask(0);
  const int held = heldAt(3);
  kill(task, SIGSTOP);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  kill(task, SIGCONT);
  EXPECT_EQ(waitFor(task), 0);
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.by, WorkEnd::By::Interrupted);
  EXPECT_EQ(end.outcome.state, AttemptState::Lost);
  EXPECT_EQ(end.outcome.reason, "Its task stood still for too long");
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(output(), (Names{"f_1", "f_2"}));
}

TEST_F(TaskRunTest, SilentProcessIsTakenOverAndALivingOneNever) {
  plan({{1, 2}}, 1, 1s);
  self.host = "elsewhere";
  WorkClaim claim;
  claim.host = "gone";
  claim.boot = "b";
  claim.process = 1;
  ASSERT_TRUE(works.claim(0, claim));
  // As long as it beats it lives, however long the patience is over.
  SteeredMachine machine;
  NoInterrupts interrupts;
  WorkBeat beat;
  const auto until = std::chrono::steady_clock::now() + 3s;
  bool early = false;
  machine.onWait = [&](int) {
    if (std::chrono::steady_clock::now() < until) {
      early = early || works.lastClaim(0) > 1;
      ++beat.count;
      works.beat(0, beat);
    }
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  EXPECT_FALSE(early);
  EXPECT_EQ(works.endOf(0).value().claim, 2);
}

TEST_F(TaskRunTest, DamagedClaimIsJudgedByItsBeat) {
  plan({{1, 1}}, 1, 1s);
  directory.write("folder/q-7/1/0.claim.1", "{\"version\":");
  EXPECT_TRUE(run());
  EXPECT_EQ(works.endOf(0).value().claim, 2);
  EXPECT_EQ(output(), Names{"f_1"});
}

TEST_F(TaskRunTest, WorkThatWasGivenUpIsLeftAlone) {
  plan({{1, 3}});
  hold(2);
  const pid_t task = startTask(0);
  const int held = heldAt(2);
  WorkEnd end;
  end.by = WorkEnd::By::GivenUp;
  end.outcome.state = AttemptState::Lost;
  ASSERT_TRUE(works.leave(0, end));
  EXPECT_EQ(waitFor(task), 0);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  EXPECT_EQ(works.endOf(0).value().by, WorkEnd::By::GivenUp);
  EXPECT_EQ(output(), Names{});
}

TEST_F(TaskRunTest, WhatWasPublishedBeforeADeathIsNotRenderedAgain) {
  plan({{1, 2}});
  EXPECT_TRUE(run());
  // As if the process had died between its renames and its result.
  const Moment started = works.claimOf(0, 1).value().started;
  std::filesystem::remove(works.directory().Text() + "/0.result");
  directory.write("out/.trovik-" + queue + "-7.1.0.1/left", "");
  WorkBeat beat = works.beatOf(0).value();
  FileRecord file;
  for (const int frame : {1, 2}) {
    file.path = directory.file("out/.trovik-" + queue + "-7.1.0.1/f_" + std::to_string(frame));
    file.frame = frame;
    beat.files.push_back(file);
  }
  works.beat(0, beat);
  EXPECT_TRUE(run());
  const WorkEnd end = works.endOf(0).value();
  EXPECT_EQ(end.claim, 2);
  EXPECT_GE(end.started, started);
  EXPECT_EQ(end.outcome.state, AttemptState::Good);
  EXPECT_EQ(end.outcome.good.text(), "1-2");
  EXPECT_EQ(journal(), "1 2 2"); // the last may have been at work
}

TEST_F(TaskRunTest, RacingTasksRenderEveryFrameOnce) {
  std::vector<FrameRun> runs;
  for (int frame = 1; frame <= 12; ++frame) {
    runs.push_back({frame, frame});
  }
  plan(runs, runs.size());
  std::vector<pid_t> tasks(5);
  for (pid_t& task : tasks) {
    task = startTask(0);
  }
  for (const pid_t task : tasks) {
    EXPECT_EQ(waitFor(task), 0);
  }
  std::istringstream stream(journal());
  std::multiset<int> frames;
  for (int frame = 0; stream >> frame;) {
    frames.insert(frame);
  }
  EXPECT_EQ(frames, (std::multiset<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(output().size(), 12U);
}

TEST_F(TaskRunTest, WorksWithoutAStageToo) {
  staged = false;
  plan({{1, 4}});
  hold(3);
  const pid_t first = startTask(0);
  const int held = heldAt(3);
  ASSERT_TRUE(beatNames(2));
  EXPECT_EQ(works.claimOf(0, 1).value().stage, "");
  kill(first, SIGKILL);
  waitFor(first);
  EXPECT_TRUE(comes([&] { return isGone(held); }));
  release(3);
  EXPECT_TRUE(run());
  EXPECT_EQ(journal(), "1 2 3 3 4");
  EXPECT_EQ(works.endOf(0).value().outcome.good.text(), "1-4");
  EXPECT_EQ(output(), (Names{"f_1", "f_2", "f_3", "f_4"}));
}

TEST_F(TaskRunTest, NamesThatAreNoTextSurvive) {
  const std::string odd = directory.file("out \xff");
  job->SetParameter(p_OutputFolder, odd);
  plan({{1, 1}});
  EXPECT_TRUE(run());
  EXPECT_EQ(works.endOf(0).value().outcome.files.at(0).path, odd + "/f_1");
  EXPECT_TRUE(std::filesystem::exists(odd + "/f_1"));
}

TEST_F(TaskRunTest, BeatsTellHowFarAWorkIs) {
  plan({{1, 3}});
  hold(3);
  const pid_t task = startTask(0);
  heldAt(3);
  ASSERT_TRUE(beatNames(2));
  ASSERT_TRUE(comes([&] { return works.beatOf(0).value().silent > 0.1; }));
  const WorkBeat beat = works.beatOf(0).value();
  EXPECT_EQ(beat.claim, 1);
  EXPECT_EQ(beat.stage, "running");
  EXPECT_EQ(beat.log, directory.file("folder/q-7/logs/1-3.log"));
  EXPECT_EQ(beat.logBytes, static_cast<std::int64_t>(std::filesystem::file_size(beat.log)));
  EXPECT_GE(beat.running, beat.silent);
  EXPECT_EQ(beat.files.at(1).frame, 2);
  EXPECT_TRUE(comes([&] { return works.beatOf(0).value().count > beat.count; }));
  release(3);
  EXPECT_EQ(waitFor(task), 0);
}

/// Kills tasks at random moments until their works are done: no frame is
/// rendered by two at once, none is lost, and all that is reported good is.
TEST_F(TaskRunTest, HowAProgramEndedIsKnownWhileItsFilesAreChecked) {
  plan({{1, 1}});
  SteeredMachine machine;
  NoInterrupts interrupts;
  std::optional<WorkBeat> checking;
  machine.onWait = [&](int) {
    const std::optional<WorkBeat> beat = works.beatOf(0);
    checking = beat && beat->end ? beat : checking;
  };
  EXPECT_TRUE(run(0, machine, interrupts));
  ASSERT_TRUE(checking.has_value());
  EXPECT_EQ(checking->stage, "checking");
  EXPECT_EQ(checking->end->Code, 0);
  EXPECT_EQ(checking->end->Signal, 0);
  EXPECT_EQ(checking->logBytes, static_cast<std::int64_t>(readFile(checking->log).size()));
}

TEST_F(TaskRunTest, KillsAtAnyMomentLoseNothing) {
  job->SetParameter(p_Executable, CLUSTER_RENDERER);
  job->SetParameter("CommandString", "$(SubRange.Start) $(SubRange.End) $(OutputFolder.Enquote) " +
                                         EnquoteWord(directory.file("frames")) + " 40");
  job->SetParameter(p_ExpectedFiles, "$(OutputFolder)/f_$(Frame).ppm");
  WholeInspector whole;
  images = &whole;
  constexpr std::size_t positions = 4;
  constexpr int perPlace = 6;
  std::vector<FrameRun> runs;
  runs.reserve(positions);
  for (int position = 0; position < static_cast<int>(positions); ++position) {
    runs.push_back({position * perPlace + 1, (position + 1) * perPlace});
  }
  plan(runs, positions / 2);
  const unsigned seed = std::random_device()();
  std::cout << "seed " << seed << '\n';
  std::mt19937 random(seed);
  std::vector<pid_t> tasks;
  const auto allEnded = [&] {
    for (std::size_t position = 0; position < positions; ++position) {
      if (!works.hasEnded(position)) {
        return false;
      }
    }
    return true;
  };
  int kills = 0;
  for (; kills < 40 && !allEnded(); ++kills) {
    while (tasks.size() < 3) { // so that each has one or two processes
      tasks.push_back(startTask(random() % 2, random() % 2 == 0 ? Guard::Yes : Guard::No));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 120));
    const std::size_t victim = random() % tasks.size();
    kill(tasks[victim], SIGKILL);
    waitFor(tasks[victim]);
    tasks.erase(tasks.begin() + static_cast<std::ptrdiff_t>(victim));
  }
  for (const std::size_t index : {0U, 1U}) {
    tasks.push_back(startTask(index));
  }
  for (const pid_t task : tasks) {
    EXPECT_EQ(waitFor(task), 0);
  }
  RunSet good;
  for (std::size_t position = 0; position < positions; ++position) {
    const WorkEnd end = works.endOf(position).value();
    EXPECT_EQ(end.outcome.state, AttemptState::Good) << position << ": " << end.outcome.reason;
    good.add(end.outcome.good);
  }
  EXPECT_EQ(good.text(), "1-24");
  for (int frame = 1; frame <= 24; ++frame) {
    EXPECT_EQ(std::filesystem::file_size(directory.file("out/f_" + std::to_string(frame) + ".ppm")),
              WholeInspector::size);
  }
  EXPECT_EQ(readFile(directory.file("frames")).find("twice"), std::string::npos);
  std::cout << kills << " kills\n";
}

} // namespace
} // namespace trovik
