#pragma once

#include "host/foundation/LineSplitter.h"
#include "trovik/jobs/WorkMaker.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/records/RunEvents.h"
#include "trovik/text/LogTail.h"
#include "trovik/works/FileInspection.h"
#include "trovik/works/LogFile.h"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace trovik {

/// Recovers an attempt whose engine died: ends what is left of its programs,
/// reads its log and checks the files that it left. Nothing else may start
/// that work before.
///
/// Where the end of its program was seen, log and files give the verdict that
/// the engine would have given. Where it was not, it may have ended in any way,
/// also by a signal: the attempt is good when its success text was seen and
/// every file is good, which outweighs that; else it is lost, and only the
/// frames without a good file are rendered again. What was on its way to the
/// disk when the machine went down is not trusted, nor a log of which something
/// was left out for its length.
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
  WorkInfo work() const;
  /// Whether its outcome was handed on.
  bool isRecorded() const { return recorded_; }
  void markRecorded() { recorded_ = true; }

private:
  bool orphansEnded(Machine& machine);
  void begin();
  bool readLog();
  void onLine(std::string_view line);
  template <typename Step> void guard(Step step);
  void inspect();
  void judge();
  void takeVerdict(const ProcessJob& process);

  LostAttempt lost_;
  ImageInspector& inspector_;
  SmartHandle<Job> job_;
  bool hasFrames_;
  std::optional<Clock::time_point> killed_; // first
  bool stuckNamed_ = false;
  bool programsEnded_ = false;
  bool over_ = false;
  bool recorded_ = false;
  std::optional<LogFile> log_; // while it is read
  std::int64_t read_ = 0;
  bool logWasRead_ = false;
  bool hasGap_ = false;
  LineSplitter splitter_;
  LogTail tail_;
  bool decided_ = false;
  std::optional<FileInspection> inspection_;
  Outcome outcome_;
};

/// The attempts of dead engines, each to be recovered. The queue holds their
/// engines' locks until `releaseLost`.
std::vector<std::unique_ptr<Recovery>> takeLostAttempts(Queue& queue, ImageInspector& inspector);

/// Recovers all of them here and now, waiting: for verbs that change jobs
/// without being an engine.
void recoverLost(Queue& queue, Machine& machine, ImageInspector& inspector);

} // namespace trovik
