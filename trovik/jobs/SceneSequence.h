#pragma once

#include "host/foundation/Path.h"
#include "host/foundation/UID.h"

#include <string>

namespace trovik {

/// The scene file of one frame, from a printf-style pattern.
Path sequenceScene(const String& format, int frame);

/// Why detection took a scene for a single file, as far as the settings, its
/// name and its neighbours on disk tell.
std::string whyNoSequence(const UID& type, const Path& scene);

} // namespace trovik
