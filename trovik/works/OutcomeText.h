#pragma once

#include "host/application/jobs/RenderJob.h"
#include "trovik/records/Records.h"

#include <string>
#include <vector>

namespace trovik {

// What the queue keeps of an attempt, told by its job object.

/// The words of a command as text for a shell.
std::string commandText(const ProcessStart& start);

/// The rule that decided.
VerdictRule ruleOf(const ProcessJob& job, ProcessJob::Ended ended);

/// The files that the job has checked.
std::vector<FileRecord> fileRecords(const RenderJob& job);

/// A reason without what differs from frame to frame (every number is "#"),
/// so that alike failures can be told.
std::string alikeKey(const std::string& reason);

} // namespace trovik
