#pragma once

#include "trovik/images/ImageProtocol.h"
#include "trovik/imagetool/WholePng.h"

#include <optional>

namespace trovik::image {

/// Answers what needs no image library.
class LightCheck {
public:
  /// For a file that is no image, and for one that is whole beyond doubt.
  /// Nothing for all others.
  std::optional<Inspection> check(const CheckRequest& request);

private:
  WholePng png_;
};

} // namespace trovik::image
