#include "tests/trovik/imagetool/Images.h"

#include "trovik/imagetool/Check.h"
#include "trovik/imagetool/Limits.h"

#include <cstdint>
#include <stdexcept>

namespace trovik {
namespace {

void require(bool good, const std::string& words) {
  if (!good) {
    throw std::runtime_error(words);
  }
}

std::vector<float> pixelsOf(const OIIO::ImageSpec& layout, const PixelFunction& pixels, int part) {
  std::vector<float> values;
  for (int y = layout.y; y < layout.y + layout.height; ++y) {
    for (int x = layout.x; x < layout.x + layout.width; ++x) {
      for (int channel = 0; channel < layout.nchannels; ++channel) {
        values.push_back(pixels(x, y + part, channel));
      }
    }
  }
  return values;
}

} // namespace

float noiseAt(int x, int y, int channel) {
  std::uint32_t hash = static_cast<std::uint32_t>(x) * 73856093U ^ static_cast<std::uint32_t>(y) * 19349663U ^
                       static_cast<std::uint32_t>(channel) * 83492791U;
  hash ^= hash >> 13U;
  hash *= 0x5bd1e995U;
  hash ^= hash >> 15U;
  return static_cast<float>(hash % 65536U) / 65535.0F;
}

std::string writeImage(const std::string& directory, const ImageKind& kind, const PixelFunction& pixels,
                       int width, int height) {
  std::string file = directory + '/' + kind.file;
  OIIO::ImageSpec layout(width, height, kind.channels, kind.type);
  if (!kind.compression.empty()) {
    layout.attribute("compression", kind.compression);
  }
  for (const auto& [name, value] : kind.attributes) {
    layout.attribute(name, value);
  }
  if (kind.tile > 0) {
    layout.tile_width = layout.tile_height = kind.tile;
  }
  const auto output = OIIO::ImageOutput::create(file);
  require(output != nullptr, OIIO::geterror());
  const std::vector<OIIO::ImageSpec> layouts(static_cast<std::size_t>(kind.parts), layout);
  // Formats that hold several parts either know them before, or take them as they come.
  const bool together =
      kind.parts > 1 && output->supports("multiimage") != 0 && output->open(file, kind.parts, layouts.data());
  for (int part = 0; part < kind.parts; ++part) {
    const auto mode = part == 0 ? OIIO::ImageOutput::Create : OIIO::ImageOutput::AppendSubimage;
    if (!together || part > 0) {
      require(output->open(file, layout, mode), output->geterror());
    }
    require(output->write_image(OIIO::TypeDesc::FLOAT, pixelsOf(layout, pixels, part).data()),
            output->geterror());
  }
  require(output->close(), output->geterror());
  return file;
}

std::string writeImage(const std::string& file, const OIIO::ImageSpec& layout, const PixelFunction& pixels) {
  const auto output = OIIO::ImageOutput::create(file);
  require(output != nullptr, OIIO::geterror());
  require(output->open(file, layout), output->geterror());
  require(output->write_image(OIIO::TypeDesc::FLOAT, pixelsOf(layout, pixels, 0).data()), output->geterror());
  require(output->close(), output->geterror());
  return file;
}

Inspection inspect(const std::string& file, bool refuseFlat) {
  image::limitLibrary();
  return image::check({file, refuseFlat});
}

std::vector<int> ReadImage::at(int x, int y) const {
  const std::size_t offset =
      (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 3;
  return {bytes.at(offset), bytes.at(offset + 1), bytes.at(offset + 2)};
}

ReadImage readImage(const std::string& file) {
  const auto input = OIIO::ImageInput::open(file);
  require(input != nullptr, OIIO::geterror());
  const OIIO::ImageSpec& layout = input->spec();
  require(layout.nchannels == 3, "it has not three channels");
  ReadImage image{layout.width, layout.height, std::vector<unsigned char>(layout.image_pixels() * 3)};
  require(input->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, image.bytes.data()), input->geterror());
  return image;
}

} // namespace trovik
