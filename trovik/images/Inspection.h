#pragma once

#include <string>

namespace trovik {

/// What a look into a file gave.
struct Inspection {
  std::string problem; ///< why it is not good ("Truncated image (...)"); empty for good or no image
  bool image = false;  ///< whether it is of a format that was decoded
  int width = 0;
  int height = 0;
};

} // namespace trovik
