#pragma once

#include "trovik/records/Records.h"

#include <string_view>

namespace trovik {

/// The reverse of nameOf: false for a text that is no name of the kind.
bool fromName(std::string_view name, JobState& state);
bool fromName(std::string_view name, WorkState& state);
bool fromName(std::string_view name, AttemptState& state);
bool fromName(std::string_view name, VerdictRule& rule);
bool fromName(std::string_view name, RunOn& runOn);
bool fromName(std::string_view name, ArrayRecord::State& state);

} // namespace trovik
