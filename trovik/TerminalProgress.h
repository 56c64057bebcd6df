#pragma once

#include "trovik/Console.h"
#include "trovik/RunEvents.h"

#include <map>
#include <string>
#include <utility>

namespace trovik {

/// Images and failures as lines, and below them one live line with the state
/// of the run. It is drawn anew at events only: nothing wakes an idle program.
class TerminalProgress final : public RunEvents {
public:
  explicit TerminalProgress(Console& console) : console_(console) {}

  void runStarted(const RunInfo& info) override;
  void workStarted(const WorkInfo& work) override;
  void image(const WorkInfo& work, const Path& file) override;
  void workEnded(const WorkInfo& work, const WorkResult& result) override;
  void interrupted(int times, std::size_t running) override;
  void runEnded(const RunSummary& summary) override;

private:
  void draw();
  std::string remaining() const;

  Console& console_;
  RunInfo info_;
  std::map<std::pair<int, int>, WorkInfo> running_;
  std::size_t doneFrames_ = 0;
  std::size_t failedFrames_ = 0;
  std::size_t timedFrames_ = 0; // frames of the attempts that were measured
  Duration timed_{};            // and what they took together
  bool stopping_ = false;
};

} // namespace trovik
