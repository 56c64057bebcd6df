#pragma once

#include "trovik/records/Moments.h"
#include "trovik/records/RunEvents.h"
#include "trovik/text/Console.h"

#include <deque>
#include <map>
#include <string>
#include <tuple>

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
  /// A work that runs; there may be several jobs in one run.
  struct Running {
    WorkInfo work;
    std::size_t images = 0;
  };
  using Key = std::tuple<JobId, int, int>;
  static Key keyOf(const WorkInfo& work) { return {work.job, work.run.First, work.run.Last}; }

  void draw();
  std::string remaining() const;
  void noteTime(const WorkInfo& work, const Running& running, Duration duration);
  std::size_t framesDone(const Running& running) const;

  Console& console_;
  RunInfo info_;
  std::map<Key, Running> running_;
  std::size_t doneFrames_ = 0;
  std::size_t failedFrames_ = 0;
  std::deque<TimedFrames> recent_;
  std::size_t imagesOfAFrame_ = 1;
  bool stopping_ = false;
};

} // namespace trovik
