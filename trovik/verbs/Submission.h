#pragma once

#include "host/application/jobs/ExecutableSearch.h"
#include "trovik/images/ImageInspector.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/verbs/Verbs.h"

#include <memory>
#include <optional>

namespace trovik {

/// A job as `run` and `submit` are given it on the command line, set up and
/// checked. Whatever the user got wrong is thrown as UsageError before
/// anything is started or stored.
class Submission {
public:
  /// The options must outlive the submission.
  Submission(Session& session, const MakingOptions& options);
  /// One job of several that are entered in one transaction of the queue.
  Submission(Session& session, const MakingOptions& options, Queue& queue);

  const SmartHandle<Job>& job() const { return setup_.job(); }
  /// The job as the queue takes it, all of its works to be done.
  const NewJob& newJob() const { return newJob_; }
  /// Checks the files, before the job is entered or shown: with --missing the
  /// frames that have good ones already are taken out; of a job that goes on,
  /// good frames that lost theirs are to be rendered again.
  void checkFiles(Queue& queue, ImageInspector& inspector, Machine& machine);
  /// Goes on with the job that the same command began, or puts in a new one. The
  /// number is 0 where nothing is to be done.
  EnteredJob enter(Queue& queue) const;

  /// Refuses a job whose first work already could not start, or whose logs
  /// could not be written: what would make every work fail alike is reported once.
  void tryFirstWork() const;
  /// What that found, for an engine of this process.
  const std::shared_ptr<ExecutableMemory>& searches() const { return searches_; }

private:
  void setUp();
  void findForerunners();
  void describe();
  void leaveOutGood(Queue& queue, ImageInspector& inspector, Machine& machine);
  void warnOfLeftOut() const;
  void tryFolders() const;

  void prepare();
  /// The queue that the job goes into; null while there is none.
  Queue* queue();

  Session& session_;
  const MakingOptions& options_;
  Queue* given_ = nullptr;
  std::unique_ptr<Queue> opened_;
  JobSetup setup_;
  NewJob newJob_;
  std::optional<BegunJob> begun_; // before its files were checked
  RunSet gone_;                   // frames of it that lost their files
  std::shared_ptr<ExecutableMemory> searches_ = std::make_shared<ExecutableMemory>();
};

} // namespace trovik
