#pragma once

#include "trovik/imagetool/Decoder.h"

#include <OpenImageIO/imageio.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace trovik::image {

/// Which channels of an image make its picture.
struct Channels {
  std::array<int, 3> colour{0, 0, 0}; ///< red, green, blue; three times the same for grey
  int alpha = -1;                     ///< -1 for none
};

/// Finds them by their names, whatever layer is before them ("beauty.R"); an
/// image that names none shows its first three, or its first as grey.
Channels channelsOf(const OIIO::ImageSpec& layout);

/// Colours as a screen shows them, three bytes a pixel.
struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> bytes;
};

/// The width of an image on a screen by its height: of its display window,
/// with the shape of its pixels. 0 where there is none.
double aspectOf(const OIIO::ImageSpec& layout);

/// Makes a small picture of an image while it is decoded, so that an image of
/// any size costs no more memory than the picture. Blocks of pixels are
/// averaged to two to four times the size that is wanted; the library's
/// filter does the rest. Values of scene light are brought into the colours of
/// a screen, what is transparent lies on a dark chequered ground, and what the
/// data window leaves free of the display window is black.
class Picture final : public PixelSink {
public:
  /// The room for the picture, in pixels; it keeps its shape.
  Picture(int width, int height);

  void begin(const OIIO::ImageSpec& layout) override;
  void take(const Piece& piece) override;

  /// No pixels when nothing was taken.
  Pixels finish();

private:
  /// How the values of an image are meant.
  enum class Light {
    Display, ///< ready for a screen
    Linear,  ///< proportional to light
    Cineon,  ///< the logarithm of a film's density
  };

  float value(float stored) const;

  int roomWidth_;
  int roomHeight_;
  int channelCount_ = 0;
  Channels channels_;
  Light light_ = Light::Display;
  std::int64_t x_ = 0; ///< of the display window
  std::int64_t y_ = 0;
  std::int64_t fullWidth_ = 0;
  std::int64_t fullHeight_ = 0;
  std::int64_t blockWidth_ = 1; ///< pixels that are averaged
  std::int64_t blockHeight_ = 1;
  int width_ = 0; ///< blocks
  int height_ = 0;
  int pictureWidth_ = 0;
  int pictureHeight_ = 0;
  std::vector<float> sums_; ///< red, green, blue and alpha of each block
};

} // namespace trovik::image
