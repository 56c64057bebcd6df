#pragma once

#include "trovik/records/RunSet.h"
#include "trovik/verbs/EachJob.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

// What is done with one job: by the verbs with each that they are given, and by
// the page. All throw a UsageError for what cannot be done, and QueueError.

/// The frames that somebody wrote: "1-24,30".
RunSet framesToRetry(const std::string& text);
/// Has works done again: these frames, or what failed or was canceled.
JobDone retryJob(Queue& queue, const JobRecord& job, const std::optional<RunSet>& named);
JobDone cancelJob(Queue& queue, const JobRecord& job, bool withFollowers);
JobDone holdJob(Queue& queue, const JobRecord& job);
JobDone releaseJob(Queue& queue, const JobRecord& job);
/// What NAME=VALUE texts are to change.
JobChange changeOf(Session& session, const std::vector<std::string>& assignments);
JobDone setJob(Queue& queue, const JobRecord& job, const JobChange& change);
/// `json`: how a cluster's messages are printed.
JobDone deleteJob(Session& session, Queue& queue, const JobRecord& job, bool json);
/// What that would do.
JobDone deletionOf(Queue& queue, const JobRecord& job);

} // namespace trovik
