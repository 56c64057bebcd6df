#pragma once

#include "trovik/images/ImageProtocol.h"

namespace trovik::image {

/// Checks the file of the request and writes a small picture of it, a JPEG,
/// where it is a whole image; never larger than the image itself. What the
/// picture shows, see Picture. A picture that cannot be written is a problem.
Inspection drawSmall(const CheckRequest& request);

} // namespace trovik::image
