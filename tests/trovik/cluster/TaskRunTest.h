#pragma once

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

namespace trovik {

inline constexpr auto longest = std::chrono::seconds(60); // for anything that is waited for

/// Waits for an event; false when it does not come.
inline bool comes(const std::function<bool()>& event) {
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (!event()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
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
  MemoryNow memory(const std::vector<int>& groups) override { return machine_.memory(groups); }

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
inline bool isGone(int process) {
  std::string text = readFile("/proc/" + std::to_string(process) + "/stat");
  const std::size_t end = text.rfind(')');
  return end == std::string::npos || text.at(end + 2) == 'Z';
}

// Draws frames FIRST to LAST into FOLDER, and keeps a journal in CONTROL. At a
// frame with a file "hold.FRAME" there it says "held.FRAME" and waits until
// that file is gone.
inline constexpr const char* program = R"(#!/bin/sh
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
    times.beat = std::chrono::milliseconds(50);
    times.leastBeat = std::chrono::milliseconds(10);
    times.watch = std::chrono::milliseconds(20);
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
            std::chrono::seconds patience = std::chrono::seconds(1000)) {
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

} // namespace trovik
