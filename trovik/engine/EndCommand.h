#pragma once

#include "trovik/records/Records.h"
#include "trovik/records/RunEvents.h"

#include <map>
#include <string>
#include <vector>

namespace trovik {

/// What an end command may refer to: $(Job), $(Name), $(Type), $(Scene),
/// $(State) ("good", "failed", ...), $(Good), $(Failed) and $(Left) (numbers of
/// frames, or of works of a job without frames), $(FailedFrames) ("3,7-9"),
/// $(Summary) ("23 of 24 frames good, 1 failed"), $(OutputFolder), $(Logs).
std::map<String, String> endValues(const JobRecord& job, const RunSummary& summary);

/// The words of an end command with its references replaced. The command is
/// cut into words first, so no value can add one. Throws a UsageError for one
/// that cannot be split or names what there is not.
std::vector<String> endWords(const std::string& command, const std::map<String, String>& values);

/// Starts the job's end commands, each by itself: nobody waits for them. What
/// cannot be started is a warning; so is a job that is not this queue's own.
void startEndCommands(const JobRecord& job, const RunSummary& summary);

/// The end command that shows a note on the desktop.
extern const char* const desktopNote;

} // namespace trovik
