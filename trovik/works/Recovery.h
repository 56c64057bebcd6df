#pragma once

#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/works/FileLook.h"

#include <memory>
#include <optional>
#include <vector>

namespace trovik {

/// Takes up an attempt whose engine died: ends what is left of its programs,
/// then looks at the files that it left, so that only the frames without a
/// good one are rendered again. Nothing else may start that work before.
class Recovery {
public:
  /// `works` may be null where the job's type is not known here: nothing that
  /// the attempt left is trusted then. The inspector must outlive the recovery.
  Recovery(const LostAttempt& lost, const WorkMaker* works, bool hasFrames, ImageInspector& inspector);
  /// The same with the work's own job object, which nothing else uses; null for none.
  Recovery(LostAttempt lost, SmartHandle<Job> job, bool hasFrames, ImageInspector& inspector);
  ~Recovery();
  Recovery(const Recovery&) = delete;
  Recovery& operator=(const Recovery&) = delete;

  /// Goes on as far as it can without waiting. True when it is over.
  bool advance(Machine& machine);
  /// Valid when it is over.
  const Outcome& outcome() const { return outcome_; }
  /// Whether its outcome was handed on.
  bool isRecorded() const { return recorded_; }
  void markRecorded() { recorded_ = true; }

private:
  template <typename Step> void guard(Step step);
  void look();
  void judge();

  LostAttempt lost_;
  ImageInspector& inspector_;
  SmartHandle<Job> job_;
  bool hasFrames_;
  bool programsEnded_ = false;
  bool over_ = false;
  bool recorded_ = false;
  std::optional<FileLook> look_;
  Outcome outcome_;
};

/// The attempts of dead engines, each to be taken up. The queue holds their
/// engines' locks until `releaseLost`.
std::vector<std::unique_ptr<Recovery>> takeLostAttempts(Queue& queue, ImageInspector& inspector);

/// Takes up all of them here and now, waiting: for verbs that change jobs
/// without being an engine.
void recoverLost(Queue& queue, Machine& machine, ImageInspector& inspector);

} // namespace trovik
