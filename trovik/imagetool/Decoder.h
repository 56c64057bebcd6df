#pragma once

#include "trovik/images/ImageProtocol.h"

#include <OpenImageIO/imageio.h>

#include <memory>
#include <string>
#include <string_view>

namespace trovik::image {

/// A rectangle of decoded pixels, with all channels of each.
struct Piece {
  int x = 0; ///< of its first pixel, in the coordinates of the image
  int y = 0;
  int width = 0;
  int height = 0;
  const float* pixels = nullptr;

  const float* row(int line, int channels) const {
    return pixels + static_cast<std::size_t>(line) * static_cast<std::size_t>(width) *
                        static_cast<std::size_t>(channels);
  }
};

/// Sees the pixels of an image's first part while it is decoded.
class PixelSink {
public:
  virtual ~PixelSink() = default;
  virtual void begin(const OIIO::ImageSpec& layout) = 0;
  virtual void take(const Piece& piece) = 0;
};

/// Decodes every part of a file (subimages, mip levels) whole, in pieces, so
/// that memory stays bounded where the format allows it. A sink (may be null)
/// sees the pixels of the first part as floats; without one they are decoded
/// as they are stored. A file that is no image has no problem.
Inspection decode(const std::string& file, PixelSink* sink);

/// Reads only what the file says about its first part: for laying out. A
/// width of 0 where that cannot be read.
OIIO::ImageSpec describe(const std::string& file);

/// "Truncated or damaged image (REASON)", with the reason of a library made
/// one line of bounded length, without the file's name.
std::string damageText(const std::string& reason, const std::string& file);

/// What is wrong with how a file is built, where the decoder of its format
/// does not notice: a missing end marker, fewer bytes than the header
/// announces. `format` is OpenImageIO's name of the format ("jpeg"). Empty for
/// a sound file, and for formats whose decoders notice all that can be noticed.
std::string structureProblem(std::string_view format, const std::string& file);

} // namespace trovik::image
