#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/// Frames of 1920 x 1080 pixels. What they show differs from one to the next:
/// a flat ground, slow gradients, hard edges, and noise on a share of the
/// picture, from none of it to all.
struct ImageFile {
  std::string name;
  std::size_t pixelBytes = 0; ///< inflated, with the filters of a PNG file
};

/// So many PNG files of three channels, of 8 bits, every fifth of 16; the
/// pixels in chunks of 8 KiB, as programs mostly write them.
std::vector<ImageFile> writePngs(const std::string& directory, int count);

/// The same of 16 x 9 pixels.
std::vector<ImageFile> writeSmallPngs(const std::string& directory, int count);

/// So many EXR files of half numbers in ZIP blocks, three channels and alpha.
std::vector<ImageFile> writeExrs(const std::string& directory, int count);

} // namespace bench
