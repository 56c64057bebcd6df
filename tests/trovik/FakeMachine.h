#pragma once

#include "host/foundation/Exception.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/machine/Interrupts.h"
#include "trovik/machine/Machine.h"

#include <algorithm>
#include <csignal>
#include <deque>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace trovik {

/// How a program of the fake machine behaves, told before it starts.
struct Script {
  /// What it prints, and how long after its start.
  std::vector<std::pair<Duration, std::string>> output;
  std::optional<Duration> ends; ///< by itself; never when absent
  int exitCode = 0;
  int signal = 0;
  bool heedsTerminate = true;
  bool outputStaysOpen = false; ///< someone outside its group holds the pipe
  /// Until when, from the start, something that it started runs on.
  std::optional<Duration> leaves;
  bool killEnds = true; ///< that; not so while it waits for a disk
};

/// A machine without programs or time: the clock stands still but for the
/// waiting, which jumps to the next event. Waiting for what never comes
/// throws, so no test can hang.
class FakeMachine final : public Machine, public InterruptSource {
public:
  std::function<Script(const ProcessStart&)> behaviour = [](const ProcessStart&) {
    Script script;
    script.ends = std::chrono::seconds(1);
    return script;
  };
  std::function<void(const ProcessStart&)> beforeStart; ///< may raise
  std::vector<ProcessStart> started;
  std::vector<std::string> signals; ///< "term" and "kill", in their order
  std::vector<Duration> interrupts; ///< when the user asks to stop
  std::size_t running = 0;
  std::size_t mostRunning = 0;

  Clock::time_point now() override { return now_; }
  Duration elapsed() const { return now_ - Clock::time_point(); }
  std::unique_ptr<Program> start(const ProcessStart& start) override;
  void wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) override;

  /// What is left of programs whose engine died: how often killOrphans finds
  /// some, and what it was asked for.
  std::size_t orphans = 0;
  std::vector<Orphans> hunted;
  std::vector<pid_t> killOrphans(const Orphans& wanted) override {
    hunted.push_back(wanted);
    if (orphans == 0) {
      return {};
    }
    --orphans;
    return {getpid()};
  }

  MemoryNow memoryState; ///< not known, unless a test says so
  MemoryNow memory(const std::vector<int>& /*groups*/) override { return memoryState; }

  bool fromUser = true;
  bool byUser() const override { return fromUser; }
  int descriptor() const override { return 1; }
  int take() override {
    int count = 0;
    while (taken_ < interrupts.size() && interrupts[taken_] <= elapsed()) {
      ++taken_;
      ++count;
    }
    return count;
  }

private:
  class FakeProgram;
  friend class FakeProgram;

  Clock::time_point now_{};
  int nextDescriptor_ = 100;
  std::size_t taken_ = 0;
  std::map<int, std::function<std::optional<Clock::time_point>()>> ready_; // by descriptor: ready from when
};

class FakeMachine::FakeProgram final : public Program {
public:
  FakeProgram(FakeMachine& machine, Script script)
      : machine_(machine), script_(std::move(script)), begin_(machine.now_),
        descriptor_(machine.nextDescriptor_) {
    machine_.nextDescriptor_ += 2;
    if (script_.ends) {
      end_ = begin_ + *script_.ends;
    }
    machine_.ready_[descriptor_] = [this] { return outputTime(); };
    machine_.ready_[descriptor_ + 1] = [this] {
      return hasEnded() && script_.leaves ? std::optional(leftUntil()) : end_;
    };
    machine_.mostRunning = std::max(machine_.mostRunning, ++machine_.running);
  }
  ~FakeProgram() override {
    machine_.ready_.erase(descriptor_);
    machine_.ready_.erase(descriptor_ + 1);
    stopCounting();
  }
  FakeProgram(const FakeProgram&) = delete;
  FakeProgram& operator=(const FakeProgram&) = delete;

  pid_t Id() const override { return descriptor_; }
  int OutputDescriptor() const override { return descriptor_; }
  int ExitDescriptor() const override { return !gone_ ? descriptor_ + 1 : -1; }

  ssize_t ReadOutput(char* buffer, std::size_t size) override {
    const auto time = outputTime();
    if (!time || *time > machine_.now_) {
      return -1;
    }
    if (read_ == script_.output.size() || begin_ + script_.output[read_].first != *time) {
      return 0;
    }
    std::string& text = script_.output[read_].second;
    const std::size_t count = std::min(size, text.size());
    std::copy_n(text.begin(), count, buffer);
    text.erase(0, count);
    if (text.empty()) {
      ++read_;
    }
    return static_cast<ssize_t>(count);
  }

  bool Wait(ProcessExit& exit, bool /*block*/) override {
    if (!hasEnded()) {
      return false;
    }
    exit = {script_.signal != 0 ? 128 + script_.signal : script_.exitCode, script_.signal};
    return true;
  }

  std::vector<pid_t> Remaining() override {
    if (!hasEnded()) {
      return {Id()};
    }
    gone_ = leftUntil() <= machine_.now_;
    if (gone_) {
      stopCounting();
    }
    return gone_ ? std::vector<pid_t>() : std::vector<pid_t>{Id() + 1};
  }

  void Terminate() override {
    machine_.signals.emplace_back("term");
    if (script_.heedsTerminate) {
      die(SIGTERM);
    }
  }
  void Kill() override {
    machine_.signals.emplace_back("kill");
    die(SIGKILL);
    if (script_.killEnds) {
      killed_ = std::min(killed_.value_or(machine_.now_), machine_.now_);
    }
  }

private:
  /// It runs until nothing is left of it, however long its object is kept.
  void stopCounting() {
    if (std::exchange(counted_, false)) {
      --machine_.running;
    }
  }
  bool hasEnded() const { return end_ && *end_ <= machine_.now_; }
  /// When the last of what it left behind has ended.
  Clock::time_point leftUntil() const {
    return std::min(begin_ + script_.leaves.value_or(Duration()), killed_.value_or(Clock::time_point::max()));
  }
  void die(int signal) {
    if (!end_ || *end_ > machine_.now_) {
      end_ = machine_.now_;
      script_.signal = signal;
    }
  }

  /// When there is output or its end to read.
  std::optional<Clock::time_point> outputTime() const {
    if (read_ < script_.output.size() && (!end_ || begin_ + script_.output[read_].first <= *end_)) {
      return begin_ + script_.output[read_].first;
    }
    return script_.outputStaysOpen ? std::nullopt : end_;
  }

  FakeMachine& machine_;
  Script script_;
  Clock::time_point begin_;
  std::optional<Clock::time_point> end_;
  std::optional<Clock::time_point> killed_;
  std::size_t read_ = 0;
  bool counted_ = true;
  bool gone_ = false; // with all that it left, and somebody knows
  int descriptor_;
};

inline std::unique_ptr<Program> FakeMachine::start(const ProcessStart& start) {
  if (beforeStart) {
    beforeStart(start);
  }
  started.push_back(start);
  return std::make_unique<FakeProgram>(*this, behaviour(start));
}

inline void FakeMachine::wait(std::vector<pollfd>& descriptors, std::optional<Duration> timeout) {
  std::optional<Clock::time_point> next;
  const auto consider = [&next](std::optional<Clock::time_point> time) {
    if (time && (!next || *time < *next)) {
      next = time;
    }
  };
  const auto readyFrom = [this](int descriptor) -> std::optional<Clock::time_point> {
    if (descriptor == 1) {
      return taken_ < interrupts.size() ? std::optional(Clock::time_point() + interrupts[taken_])
                                        : std::nullopt;
    }
    const auto found = ready_.find(descriptor);
    return found == ready_.end() ? std::nullopt : found->second();
  };
  for (const pollfd& entry : descriptors) {
    consider(readyFrom(entry.fd));
  }
  if (timeout) {
    consider(now_ + *timeout);
  }
  if (!next) {
    throw std::logic_error("the engine would wait for ever");
  }
  now_ = std::max(now_, *next);
  for (pollfd& entry : descriptors) {
    const auto time = readyFrom(entry.fd);
    entry.revents = time && *time <= now_ ? POLLIN : short{0};
  }
}

/// Looks into files without opening them: what is wrong with them is told
/// beforehand. The answer comes with the next turn, as a real one does.
class FakeInspector final : public ImageInspector {
public:
  std::map<std::string, std::string> problems; ///< by path
  std::vector<std::string> asked;
  bool hangs = false; ///< never answers
  std::size_t mostWaiting = 0;

  void ask(const Path& file, bool /*refuseFlat*/, Answer answer) override {
    asked.push_back(file.Text());
    waiting_.emplace_back(file.Text(), std::move(answer));
    mostWaiting = std::max(mostWaiting, waiting_.size());
  }
  int descriptor() const override { return -1; }
  std::optional<Clock::time_point> deadline() const override {
    return waiting_.empty() || hangs ? std::nullopt : std::optional(Clock::time_point());
  }
  void advance(Clock::time_point /*now*/) override {
    if (hangs) {
      return;
    }
    for (auto& [file, answer] : std::exchange(waiting_, {})) {
      Inspection inspection;
      inspection.image = true;
      const auto problem = problems.find(file);
      inspection.problem = problem == problems.end() ? std::string() : problem->second;
      answer(inspection);
    }
  }

private:
  std::vector<std::pair<std::string, Answer>> waiting_;
};

} // namespace trovik
