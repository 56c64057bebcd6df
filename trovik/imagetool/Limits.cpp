#include "trovik/imagetool/Limits.h"

#include <OpenImageIO/imageio.h>

namespace trovik::image {

std::uint64_t product(std::initializer_list<std::uint64_t> factors) {
  std::uint64_t result = 1;
  for (const std::uint64_t factor : factors) {
    if (__builtin_mul_overflow(result, factor, &result)) {
      return UINT64_MAX;
    }
  }
  return result;
}

void limitLibrary() {
  OIIO::attribute("threads", 1);
  OIIO::attribute("exr_threads", -1);
  // A file is read by the reader of its extension, or by one that knows it by
  // its first bytes; trying all of them on a broken file would be an invitation.
  OIIO::attribute("try_all_readers", 0);
  OIIO::attribute("limits:channels", channelLimit);
  OIIO::attribute("limits:imagesize_MB", static_cast<int>(imageBytesLimit >> 20U));
}

} // namespace trovik::image
