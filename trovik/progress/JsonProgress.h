#pragma once

#include "trovik/records/RunEvents.h"
#include "trovik/text/Console.h"

namespace trovik {

/// One JSON object a line: "run.started", "work.started", "work.image",
/// "work.finished", "work.failed", "work.canceled", "run.interrupted" and, as
/// the last line, "run.summary".
class JsonProgress final : public RunEvents {
public:
  explicit JsonProgress(Console& console) : console_(console) {}

  void runStarted(const RunInfo& info) override;
  void workStarted(const WorkInfo& work) override;
  void image(const WorkInfo& work, const Path& file) override;
  void workEnded(const WorkInfo& work, const WorkResult& result) override;
  void interrupted(int times, std::size_t running) override;
  void runEnded(const RunSummary& summary) override;

private:
  Console& console_;
};

} // namespace trovik
