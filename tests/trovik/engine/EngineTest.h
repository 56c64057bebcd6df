#pragma once

#include "tests/trovik/TestJobs.h"
#include "trovik/engine/LocalEngine.h"

#include <functional>
#include <string>
#include <vector>

namespace trovik {

using Events = std::vector<std::string>;

/// Writes events down, one line each.
class Recorder final : public RunEvents {
public:
  Events events;
  std::function<void(const std::string& event)> watch; ///< hears of each

  void runStarted(const RunInfo& info) override {
    note("run " + info.range + " frames=" + std::to_string(info.frames) +
         " works=" + std::to_string(info.works) + " slots=" + std::to_string(info.slots));
  }
  void workStarted(const WorkInfo& work) override {
    note("start " + work.title() + " " + std::to_string(work.attempt) + "/" + std::to_string(work.attempts));
  }
  void image(const WorkInfo& work, const Path& file) override {
    note("image " + work.title() + " " + file.Leaf(true));
  }
  void workEnded(const WorkInfo& work, const WorkResult& result) override {
    const char* verdict = result.verdict == Verdict::Good     ? "good "
                          : result.verdict == Verdict::Failed ? "failed "
                          : result.verdict == Verdict::Lost   ? "lost "
                                                              : "canceled ";
    note(verdict + work.title() + (result.again ? " again" : "") +
         (result.reason.empty() ? "" : ": " + result.reason));
    lines = result.lines;
    log = result.log;
    duration = result.duration;
  }
  void interrupted(int times, std::size_t running) override {
    note("interrupted " + std::to_string(times) + " running=" + std::to_string(running));
  }
  void runEnded(const RunSummary& /*summary*/) override { note("end"); }

  void note(const std::string& event) {
    events.push_back(event);
    if (watch) {
      watch(event);
    }
  }

  // Of the attempt that ended last.
  std::vector<std::string> lines;
  Path log;
  Duration duration{};
};

class EngineTest : public QueuedJobTest {
protected:
  JobId submit(const std::string& range, int retries = 0) { return queue.submit(entryOf(range, retries)); }

  RunSummary workOff(JobId id, std::size_t slots = 1) {
    const Clock::time_point begin = machine.now();
    LocalEngine engine(machine, queue, inspector, machine, recorder);
    EnginePlan plan;
    plan.only = id;
    plan.slots = slots;
    const bool finished = engine.run(plan);
    RunSummary summary = queue.summary(id);
    summary.duration = machine.now() - begin;
    summary.interrupted = !finished;
    return summary;
  }

  RunSummary run(const std::string& range, std::size_t slots = 1, int retries = 0) {
    return workOff(submit(range, retries), slots);
  }

  std::string logOf(const std::string& name) const {
    return readFile(directory.file("queue/logs/1/" + name + ".log"));
  }

  /// The frames of a start, its only argument.
  static std::string frames(const ProcessStart& start) { return start.Arguments.at(1); }

  static Script script(Duration ends, int code = 0, const std::string& output = "") {
    Script result;
    result.ends = ends;
    result.exitCode = code;
    if (!output.empty()) {
      result.output = {{ends / 2, output}};
    }
    return result;
  }

  Recorder recorder;
};

} // namespace trovik
