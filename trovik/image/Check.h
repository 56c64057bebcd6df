#pragma once

#include "trovik/ImageProtocol.h"

namespace trovik::image {

/// Looks into a file as the request wants it.
Inspection check(const CheckRequest& request);

} // namespace trovik::image
