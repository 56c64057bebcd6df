#pragma once

#include "trovik/imagetool/FileBytes.h"

namespace trovik::image {

/// Raises EarlyEnd or Flaw for a TIFF file, classic or big, that its decoder
/// takes although something of it is missing or damaged.
void checkTiff(FileBytes& bytes);

} // namespace trovik::image
