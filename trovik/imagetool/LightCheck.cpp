#include "trovik/imagetool/LightCheck.h"

#include "trovik/imagetool/Formats.h"
#include "trovik/imagetool/WholePng.h"

namespace trovik::image {

std::optional<Inspection> checkLightly(const CheckRequest& request) {
  if (!isImageName(request.file)) {
    return Inspection{};
  }
  // Whether an image is flat, its pixels tell.
  const bool png = formatOf(extensionOf(request.file)) == "png";
  return png && !request.refuseFlat ? wholePng(request.file) : std::nullopt;
}

} // namespace trovik::image
