#pragma once

#include "trovik/images/ImageProtocol.h"

namespace trovik::image {

/// Checks a file as the request wants it, by the image library.
Inspection check(const CheckRequest& request);

} // namespace trovik::image
