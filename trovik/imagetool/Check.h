#pragma once

#include "trovik/images/ImageProtocol.h"

namespace trovik::image {

/// Looks into a file as the request wants it.
Inspection check(const CheckRequest& request);

} // namespace trovik::image
