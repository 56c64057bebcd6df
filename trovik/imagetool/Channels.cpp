#include "trovik/imagetool/Channels.h"

#include <OpenImageIO/strutil.h>

#include <initializer_list>
#include <string>

namespace trovik::image {
namespace {

int find(const OIIO::ImageSpec& layout, std::initializer_list<const char*> names) {
  for (std::size_t i = 0; i < layout.channelnames.size(); ++i) {
    const std::string& full = layout.channelnames[i];
    const std::string name = full.substr(full.rfind('.') + 1);
    for (const char* wanted : names) {
      if (OIIO::Strutil::iequals(name, wanted)) {
        return static_cast<int>(i);
      }
    }
  }
  return -1;
}

} // namespace

Channels channelsOf(const OIIO::ImageSpec& layout) {
  Channels channels;
  const int red = find(layout, {"R", "red"});
  const int green = find(layout, {"G", "green"});
  const int blue = find(layout, {"B", "blue"});
  const int grey = find(layout, {"Y", "L", "luminance", "grey", "gray", "I"});
  channels.alpha = find(layout, {"A", "alpha"});
  if (red >= 0 && green >= 0 && blue >= 0) {
    channels.colour = {red, green, blue};
  } else if (grey >= 0) {
    channels.colour = {grey, grey, grey};
  } else if (layout.nchannels >= 3 && channels.alpha < 0) {
    channels.colour = {0, 1, 2};
  } else {
    const int first = channels.alpha == 0 && layout.nchannels > 1 ? 1 : 0;
    channels.colour = {first, first, first};
  }
  if (channels.alpha == channels.colour[0]) {
    channels.alpha = -1;
  }
  return channels;
}

} // namespace trovik::image
