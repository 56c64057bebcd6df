#pragma once

#include "trovik/records/RunEvents.h"
#include "trovik/text/Console.h"

namespace trovik {

/// One line an event, for pipes and files: started, image, finished, failed.
class PlainProgress final : public RunEvents {
public:
  /// With several jobs in one run, every message begins with its job.
  explicit PlainProgress(Console& console, bool severalJobs = false)
      : console_(console), severalJobs_(severalJobs) {}

  void runStarted(const RunInfo& info) override;
  void workStarted(const WorkInfo& work) override;
  void image(const WorkInfo& work, const Path& file) override;
  void workEnded(const WorkInfo& work, const WorkResult& result) override;
  void interrupted(int times, std::size_t running) override;
  void runEnded(const RunSummary& summary) override;

private:
  void print(JobId job, const std::string& text);

  Console& console_;
  bool severalJobs_;
};

} // namespace trovik
