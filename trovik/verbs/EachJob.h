#pragma once

#include "trovik/text/Json.h"
#include "trovik/verbs/Session.h"
#include "trovik/verbs/Verbs.h"

#include <functional>
#include <string>

namespace trovik {

/// What was done with a job, for people (one or more whole lines) and as JSON.
struct JobDone {
  std::string text;
  Json json;
};

/// What an action would do: it is done, and undone again.
JobDone tried(Queue& queue, const JobRecord& job,
              const std::function<JobDone(Queue& queue, const JobRecord& job)>& action);

/// A line for people where no engine is there that takes up what waits.
std::string engineAdvice(Queue& queue);

/// Does the same with each job that the command line names, once each, and
/// tells every problem: one that is refused does not keep the others from it.
/// A text that names no job at all is thrown before anything is done. The exit
/// code is 0 for all done, 1 where some could not, 2 where none could.
///
/// `finally` is called with the queue after all that, where something was
/// done, and returns lines for people.
int forEachJob(Session& session, const EachJobOptions& options, const char* kind,
               const std::function<JobDone(Queue& queue, const JobRecord& job)>& action,
               const std::function<std::string(Queue& queue)>& finally = {});

} // namespace trovik
