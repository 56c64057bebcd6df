#pragma once

#include "trovik/queue/JobView.h"
#include "trovik/text/Json.h"

#include <string>
#include <vector>

namespace trovik {

/// The note of a job that a user holds.
constexpr const char* heldNote = "Held by the user";

/// "job 4"; "jobs 4, 5 and 9". " 4 5 9".
std::string jobsText(const std::vector<JobId>& jobs);
std::string numbersText(const std::vector<JobId>& jobs);

/// "job 4 is running, frame by frame". Where it is stuck: what to do.
std::string standText(const ForerunnerStand& stand);
std::string remedyText(const ForerunnerStand& stand, JobId follower);

/// What a blocked job waits for, in one line, with what to do; empty where it
/// waits for none.
std::string blockText(const std::vector<ForerunnerStand>& stands, JobId follower);

Json forerunnersJson(const std::vector<ForerunnerStand>& stands);

} // namespace trovik
