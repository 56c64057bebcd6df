#pragma once

#include "host/application/jobs/ProgramRun.h"
#include "host/application/jobs/RenderJob.h"
#include "host/foundation/LineSplitter.h"
#include "trovik/machine/Machine.h"
#include "trovik/records/RunEvents.h"
#include "trovik/text/LogTail.h"
#include "trovik/works/FileInspection.h"
#include "trovik/works/RunLogs.h"

#include <functional>
#include <memory>
#include <optional>
#include <unordered_set>

namespace trovik {

/// Hears of an attempt's files while it runs.
class AttemptListener {
public:
  virtual ~AttemptListener() = default;
  /// The program named a file, which need not be complete yet.
  virtual void fileNamed(const Claim& claim, const Path& file, std::optional<int> frame) = 0;
  /// A file is complete: the program has gone on to the next one, or has ended
  /// and the file is good. Each once.
  virtual void fileComplete(const WorkInfo& work, const Path& file) = 0;
};

/// One run of a work's program, from its start to its verdict. The files are
/// looked into between the program's end and the verdict.
class Attempt final : public WorkObserver, private LineJudge {
public:
  /// `job` must be a ProcessJob that nothing else uses; the inspector and the
  /// listener must outlive the attempt.
  Attempt(const WorkInfo& work, const Claim& claim, SmartHandle<Job> job, std::unique_ptr<AttemptLog> log,
          ImageInspector& inspector, AttemptListener& listener);
  ~Attempt() override;
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;

  /// What becomes of a start while the system has no process to give.
  enum class Shortage { Fails, Waits };
  enum class Start {
    Runs,
    Failed, ///< it could not be started; the result is there
    Later,  ///< there is a shortage; the attempt is of no further use
  };
  /// Makes all ready for the start, if that was not done before: what it finds to be
  /// wrong is told by the start. For a while when there is nothing else to do.
  void prepare();
  Start start(Machine& machine, Shortage shortage = Shortage::Fails);

  /// What to wait for now; -1 where there is nothing.
  int outputDescriptor() const;
  int exitDescriptor() const;
  std::optional<Clock::time_point> deadline() const;

  /// Reads what waits, but only so much in one call that other works get
  /// their turn.
  void readOutput(Clock::time_point now);
  /// Notices the program's end and deadlines that have passed. The attempt goes
  /// on until nothing is left of all that the program started.
  void advance(Clock::time_point now);
  /// The first half of that, up to the end of all that the program started.
  void advanceProgram(Clock::time_point now);
  /// Whether nothing of the program is left and `advance` has yet to judge it.
  bool awaitsVerdict() const { return run_ && run_->IsOver() && !inspection_ && !over_; }

  /// The user stopped the run: asks the program to end, or kills it.
  void cancel(Clock::time_point now, bool kill);

  bool isOver() const { return over_; }
  const WorkInfo& work() const { return work_; }
  const Claim& claim() const { return claim_; }
  const SmartHandle<Job>& job() const { return job_; }
  /// What files were there before, to be kept while the program runs.
  std::string filesBefore() const;
  /// The process group; 0 before the start.
  int process() const { return run_ ? run_->Id() : 0; }
  /// The words that were started, as text for a shell.
  const std::string& command() const { return outcome_.command; }
  /// The file of its output (empty while it printed nothing), and how much it
  /// printed, in bytes.
  Path log() const { return log_->file(); }
  std::int64_t logBytes() const { return logBytes_; }
  Clock::time_point started() const { return started_; }
  Clock::time_point lastOutput() const { return run_ ? run_->LastOutput() : started_; }
  /// Whether the program has ended and its files are looked at.
  bool isChecking() const { return inspection_.has_value(); }
  /// How the program ended, handed out once, while its files are looked into;
  /// nothing for one that was ended from outside.
  std::optional<ProgramEnd> takeEnd(Clock::time_point now);
  /// How it ended, for the reader and for the queue. Valid when it is over.
  const WorkResult& result() const { return result_; }
  const Outcome& outcome() const { return outcome_; }

  void OnImage(const Job& job, const Path& file) override;
  String OnCheckFile(const Job& job, const Path& file) override;

private:
  void onOutput(std::string_view text);
  const TextFilter* WantedTexts() override;
  void OnLine(std::string_view line) override;
  void OnPlainLines(std::string_view lines) override;
  void finish(Clock::time_point now);
  int judge();
  void conclude(int status, Clock::time_point now);
  void describe(int status);
  void confirm(const Path& file);

  WorkInfo work_;
  Claim claim_;
  SmartHandle<Job> job_;
  ProcessJob* process_;
  std::unique_ptr<AttemptLog> log_;
  ImageInspector& inspector_;
  AttemptListener& listener_;
  std::optional<FileInspection> inspection_;
  LineSplitter splitter_;
  LogTail tail_;
  std::int64_t logBytes_ = 0;
  bool decided_ = false;
  Path announced_; // the image that the program named last
  std::unordered_set<std::string> complete_;
  std::optional<bool> ready_; // once it is prepared
  ProcessStart program_;
  std::optional<ProgramRun> run_;
  Clock::time_point started_{};
  bool endTaken_ = false;
  bool over_ = false;
  WorkResult result_;
  Outcome outcome_;
};

} // namespace trovik
