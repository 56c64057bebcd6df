#pragma once

#include <cstdio>

namespace trovik::image {

/// Answers requests to look into files, one a line, in their order, until the
/// requests end or nobody reads the answers any more. A line that is no
/// request is answered with a problem.
void serve(std::FILE* requests, std::FILE* answers);

} // namespace trovik::image
