#pragma once

#include "trovik/images/ImageProtocol.h"

#include <cstdio>

namespace trovik::image {

/// Checks a file as the request wants it.
Inspection check(const CheckRequest& request);

/// Answers requests to check files, one a line, in their order, until the
/// requests end or nobody reads the answers any more. A line that is no
/// request is answered with a problem.
void serve(std::FILE* requests, std::FILE* answers);

} // namespace trovik::image
