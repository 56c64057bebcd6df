#pragma once

#include "host/foundation/Process.h"
#include "trovik/text/Json.h"

#include <optional>
#include <string>

namespace trovik {

/// What programs have used, in words: "1 min 3 s of processors, 1.8 GB of
/// memory, read 3.1 GB, wrote 20 MB".
std::string usageText(const ProcessUsage& usage);

/// Times in seconds, the rest in bytes; null where it is not known.
Json usageJson(const std::optional<ProcessUsage>& usage);

} // namespace trovik
