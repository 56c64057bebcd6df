#pragma once

#include <cstdint>
#include <initializer_list>

namespace trovik::image {

/// The pixels of one image, decoded. A small file may announce any number of
/// them; what is larger than this is refused before it is decoded.
constexpr std::uint64_t imageBytesLimit = std::uint64_t{32} << 30U;

/// What is decoded at a time, where the format allows parts.
constexpr std::uint64_t pieceBytesLimit = std::uint64_t{64} << 20U;

/// The smallest part that a format can be decoded in: a line or a tile.
constexpr std::uint64_t partBytesLimit = std::uint64_t{1} << 30U;

constexpr int channelLimit = 1024;

/// A product of sizes that a file tells; the largest number where it does not
/// fit, which is beyond every limit.
std::uint64_t product(std::initializer_list<std::uint64_t> factors);

/// Sets the limits of the image library. One thread: the other cores belong to
/// the renderers.
void limitLibrary();

} // namespace trovik::image
