#pragma once

#include "trovik/queue/JobView.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"

#include <optional>
#include <string>
#include <vector>

namespace trovik {

Colour colourOf(JobState state);

/// What every JSON form about a job holds.
Json jobJson(const JobView& view, Moment now);

/// What the wide form of the table has as well, of each job.
using JobUsages = std::vector<std::optional<ProcessUsage>>;

/// The table of `trovik jobs`, the newest job last. On a terminal the names
/// are cut to what fits, but in the wide form (with usages, one a job) nothing is.
std::string jobTable(const Console& console, const std::vector<JobView>& views, Moment now,
                     const std::optional<JobUsages>& usages = std::nullopt);

} // namespace trovik
