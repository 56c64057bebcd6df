#pragma once

#include "trovik/images/ImageProtocol.h"

#include <cstdio>
#include <functional>

namespace trovik::image {

/// Checks one file.
using Checker = std::function<Inspection(const CheckRequest& request)>;

/// Answers requests to check files, one a line, in their order, until the
/// requests end or nobody reads the answers any more. A line that is no
/// request is answered with a problem.
void serve(std::FILE* requests, std::FILE* answers, const Checker& check);

} // namespace trovik::image
