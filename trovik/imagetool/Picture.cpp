#include "trovik/imagetool/Picture.h"

#include <OpenImageIO/color.h>
#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <array>
#include <cmath>
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

constexpr float brightest = 8.0F; ///< of light, so that one spark does not light its whole neighbourhood

/// The grounds under what is transparent, in light and on the screen.
constexpr std::array<float, 2> groundOnScreen = {0.20F, 0.25F};
constexpr int groundSquare = 8;

bool isLinear(const OIIO::ImageSpec& layout) {
  const std::string space = OIIO::Strutil::lower(layout.get_string_attribute("oiio:ColorSpace"));
  if (space.empty()) {
    return layout.format.is_floating_point();
  }
  return space == "linear" || space == "scene_linear" || space == "lin_srgb" || space == "acescg";
}

/// The usual curve: black at 95, white at 685 of 1023, 0.002 density a step.
float lightOfDensity(float stored) {
  const auto light = [](float code) { return std::pow(10.0F, (code - 685.0F) * 0.002F / 0.6F); };
  const float black = light(95.0F);
  return (light(stored * 1023.0F) - black) / (1.0F - black);
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

double aspectOf(const OIIO::ImageSpec& layout) {
  const bool full = layout.full_width > 0 && layout.full_height > 0;
  const double width = full ? layout.full_width : layout.width;
  const double height = full ? layout.full_height : layout.height;
  double shape = static_cast<double>(layout.get_float_attribute("PixelAspectRatio", 1.0F));
  if (!(shape > 0.05 && shape < 20.0)) {
    shape = 1.0;
  }
  return width > 0 && height > 0 ? width * shape / height : 0.0;
}

Picture::Picture(int width, int height) : roomWidth_(width), roomHeight_(height) {}

void Picture::begin(const OIIO::ImageSpec& layout) {
  channelCount_ = layout.nchannels;
  channels_ = channelsOf(layout);
  const bool density = layout.get_string_attribute("oiio:ColorSpace") == "KodakLog";
  light_ = density ? Light::Cineon : isLinear(layout) ? Light::Linear : Light::Display;

  const bool full = layout.full_width > 0 && layout.full_height > 0;
  x_ = full ? layout.full_x : layout.x;
  y_ = full ? layout.full_y : layout.y;
  fullWidth_ = full ? layout.full_width : layout.width;
  fullHeight_ = full ? layout.full_height : layout.height;
  const double aspect = aspectOf(layout);
  const bool wide = aspect * roomHeight_ > roomWidth_;
  pictureWidth_ = wide ? roomWidth_ : std::max(1, static_cast<int>(std::lround(aspect * roomHeight_)));
  pictureHeight_ = wide ? std::max(1, static_cast<int>(std::lround(roomWidth_ / aspect))) : roomHeight_;
  // A line that is left over by rounding would look like a part of the image.
  pictureWidth_ += roomWidth_ - pictureWidth_ == 1 ? 1 : 0;
  pictureHeight_ += roomHeight_ - pictureHeight_ == 1 ? 1 : 0;
  blockWidth_ = std::max<std::int64_t>(1, fullWidth_ / (2 * std::int64_t{pictureWidth_}));
  blockHeight_ = std::max<std::int64_t>(1, fullHeight_ / (2 * std::int64_t{pictureHeight_}));
  width_ = static_cast<int>((fullWidth_ + blockWidth_ - 1) / blockWidth_);
  height_ = static_cast<int>((fullHeight_ + blockHeight_ - 1) / blockHeight_);
  sums_.assign(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4, 0.0F);
}

float Picture::value(float stored) const {
  if (!std::isfinite(stored)) {
    return stored > 0.0F ? brightest : 0.0F;
  }
  switch (light_) {
  case Light::Cineon:
    return std::clamp(lightOfDensity(std::clamp(stored, 0.0F, 1.0F)), 0.0F, brightest);
  case Light::Linear:
    return std::clamp(stored, 0.0F, brightest);
  default:
    return std::clamp(stored, 0.0F, 1.0F);
  }
}

void Picture::take(const Piece& piece) {
  for (int line = 0; line < piece.height; ++line) {
    const std::int64_t y = std::int64_t{piece.y} + line - y_;
    if (y < 0 || y >= fullHeight_) {
      continue; // overscan
    }
    float* const row = sums_.data() + y / blockHeight_ * width_ * 4;
    const float* pixel = piece.row(line, channelCount_);
    for (int column = 0; column < piece.width; ++column, pixel += channelCount_) {
      const std::int64_t x = std::int64_t{piece.x} + column - x_;
      if (x < 0 || x >= fullWidth_) {
        continue;
      }
      float* const sum = row + x / blockWidth_ * 4;
      for (std::size_t i = 0; i < 3; ++i) {
        sum[i] += value(pixel[channels_.colour[i]]);
      }
      const float alpha = channels_.alpha < 0 ? 1.0F : pixel[channels_.alpha];
      sum[3] += alpha > 0.0F ? std::min(alpha, 1.0F) : 0.0F;
    }
  }
}

Pixels Picture::finish() {
  if (sums_.empty()) {
    return {};
  }
  float* sum = sums_.data();
  for (int row = 0; row < height_; ++row) {
    const std::int64_t lines = std::min(blockHeight_, fullHeight_ - row * blockHeight_);
    for (int column = 0; column < width_; ++column, sum += 4) {
      const std::int64_t count = lines * std::min(blockWidth_, fullWidth_ - column * blockWidth_);
      for (std::size_t i = 0; i < 4; ++i) {
        sum[i] /= static_cast<float>(count);
      }
      if (channels_.alpha < 0) {
        sum[3] = 1.0F;
      }
    }
  }
  const OIIO::ImageBuf blocks(OIIO::ImageSpec(width_, height_, 4, OIIO::TypeDesc::FLOAT), sums_.data());
  const OIIO::ROI size(0, pictureWidth_, 0, pictureHeight_, 0, 1, 0, 4);
  const OIIO::ImageBuf small = OIIO::ImageBufAlgo::resize(blocks, "", 0.0F, size);
  std::vector<float> values(static_cast<std::size_t>(pictureWidth_) *
                            static_cast<std::size_t>(pictureHeight_) * 4);
  if (small.has_error() || !small.get_pixels(size, OIIO::TypeDesc::FLOAT, values.data())) {
    return {};
  }

  Pixels pixels{pictureWidth_, pictureHeight_, {}};
  pixels.bytes.reserve(values.size() / 4 * 3);
  const bool light = light_ != Light::Display;
  const float* value = values.data();
  for (int y = 0; y < pictureHeight_; ++y) {
    for (int x = 0; x < pictureWidth_; ++x, value += 4) {
      const auto square = static_cast<std::size_t>((x / groundSquare + y / groundSquare) % 2);
      const float ground = light ? OIIO::sRGB_to_linear(groundOnScreen[square]) : groundOnScreen[square];
      const float through = 1.0F - std::clamp(value[3], 0.0F, 1.0F);
      for (std::size_t i = 0; i < 3; ++i) {
        const float shown = std::clamp(value[i] + through * ground, 0.0F, 1.0F);
        pixels.bytes.push_back(static_cast<std::uint8_t>(
            std::lround(255.0F * std::clamp(light ? OIIO::linear_to_sRGB(shown) : shown, 0.0F, 1.0F))));
      }
    }
  }
  return pixels;
}

} // namespace trovik::image
