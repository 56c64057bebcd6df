#pragma once

#include "host/foundation/UID.h"
#include "trovik/newtype/TypeAnswers.h"

#include <string>
#include <vector>

namespace trovik {

/// The files that each frame must leave as far as the answers tell, as templates
/// of the parameter ExpectedFiles. None where the program names its images.
std::vector<String> expectedFilesOf(const TypeAnswers& answers);

/// Of these, the ones that would be one file for all frames of a job.
std::vector<String> sharedFilesOf(const TypeAnswers& answers);

/// A commented type file of the answers, which must have passed the checks.
/// `shortcut` may be empty.
std::string typeFileText(const TypeAnswers& answers, const UID& id, const std::string& shortcut);

} // namespace trovik
