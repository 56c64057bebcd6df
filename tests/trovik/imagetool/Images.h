#pragma once

#include "trovik/images/ImageProtocol.h"

#include <OpenImageIO/imageio.h>

#include <functional>
#include <string>
#include <vector>

namespace trovik {

/// How a test image is to be written.
struct ImageKind {
  std::string file; ///< its name; the extension is the format
  OIIO::TypeDesc type = OIIO::TypeDesc::UINT8;
  std::string compression{}; ///< empty for the format's own
  int tile = 0;              ///< side of its tiles; 0 for lines
  int parts = 1;
  int channels = 3;
  std::vector<std::pair<std::string, int>> attributes{};
};

constexpr int imageWidth = 129;
constexpr int imageHeight = 97;

using PixelFunction = std::function<float(int x, int y, int channel)>;
/// The same noise each time: no two lines are alike.
float noiseAt(int x, int y, int channel);

/// Writes an image into a directory; returns its path. Throws
/// std::runtime_error with the library's words.
std::string writeImage(const std::string& directory, const ImageKind& kind,
                       const PixelFunction& pixels = noiseAt, int width = imageWidth,
                       int height = imageHeight);
/// The same with the layout's own windows, channel names and attributes.
std::string writeImage(const std::string& file, const OIIO::ImageSpec& layout, const PixelFunction& pixels);

/// What the program's own check finds in a file, within its limits.
Inspection inspect(const std::string& file, bool refuseFlat = false);

/// Three bytes a pixel.
struct ReadImage {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> bytes;
  std::vector<int> at(int x, int y) const;
};
ReadImage readImage(const std::string& file);

} // namespace trovik
