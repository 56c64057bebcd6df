#pragma once

#include "trovik/images/ImageInspector.h"
#include "trovik/jobs/JobSetup.h"
#include "trovik/machine/Machine.h"
#include "trovik/queue/Queue.h"
#include "trovik/verbs/Verbs.h"

#include <optional>

namespace trovik {

/// A job as `run` and `submit` are told it on the command line, set up and
/// checked. Whatever the user got wrong is thrown as UsageError before
/// anything is started or stored.
class Submission {
public:
  /// The options must outlive the submission.
  Submission(Session& session, const MakingOptions& options);

  const SmartHandle<Job>& job() const { return setup_.job(); }
  /// The job as the queue takes it, all of its works to be done.
  const NewJob& newJob() const { return newJob_; }
  /// Takes out the frames that have good files already. False when none is
  /// left to be worked.
  bool leaveOutGood(Queue& queue, ImageInspector& inspector, Machine& machine);

  /// Refuses a job whose first work already could not start, or whose logs
  /// could not be written: what would make every work fail alike is told once.
  void tryFirstWork() const;

private:
  void setUp();
  void describe();
  void warnOfLeftOut() const;
  void tryFolders() const;

  Session& session_;
  const MakingOptions& options_;
  JobSetup setup_;
  NewJob newJob_;
};

} // namespace trovik
