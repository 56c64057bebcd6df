#pragma once

#include "trovik/images/ImageProtocol.h"

#include <optional>
#include <string>

namespace trovik::image {

/// What the check of a PNG file that is whole beyond doubt says, without the
/// image library. Nothing for any other file: it may be good all the same, and
/// what is wrong with it is for the library to tell.
std::optional<Inspection> wholePng(const std::string& file);

} // namespace trovik::image
