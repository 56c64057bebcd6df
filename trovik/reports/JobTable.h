#pragma once

#include "trovik/queue/JobView.h"
#include "trovik/text/Console.h"
#include "trovik/text/Json.h"

#include <string>
#include <vector>

namespace trovik {

Colour colourOf(JobState state);

/// What every JSON form about a job holds.
Json jobJson(const JobView& view, Moment now);

/// The table of `trovik jobs`, the newest job last. On a terminal the names
/// are cut to what fits.
std::string jobTable(const Console& console, const std::vector<JobView>& views, Moment now);

} // namespace trovik
