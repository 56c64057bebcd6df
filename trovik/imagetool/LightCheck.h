#pragma once

#include "trovik/images/ImageProtocol.h"

#include <optional>

namespace trovik::image {

/// The answer to a request that needs no image library: for a file that is no
/// image, and for one that is whole beyond doubt. Nothing for all others.
std::optional<Inspection> checkLightly(const CheckRequest& request);

} // namespace trovik::image
