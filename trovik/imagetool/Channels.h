#pragma once

#include <OpenImageIO/imageio.h>

#include <array>

namespace trovik::image {

/// Which channels of an image make its picture.
struct Channels {
  std::array<int, 3> colour{0, 0, 0}; ///< red, green, blue; three times the same for grey
  int alpha = -1;                     ///< -1 for none
};

/// Finds them by their names, whatever layer is before them ("beauty.R"); an
/// image that names none shows its first three, or its first as grey.
Channels channelsOf(const OIIO::ImageSpec& layout);

} // namespace trovik::image
