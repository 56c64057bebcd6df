#include "trovik/imagetool/LightCheck.h"

#include "trovik/imagetool/Formats.h"

namespace trovik::image {

std::optional<Inspection> LightCheck::check(const CheckRequest& request) {
  if (!isImageName(request.file)) {
    return Inspection{};
  }
  // Whether an image is flat, its pixels tell.
  const bool png = formatOf(extensionOf(request.file)) == "png";
  return png && !request.refuseFlat ? png_.check(request.file) : std::nullopt;
}

} // namespace trovik::image
