#pragma once

#include <cstdint>
#include <string>

namespace trovik {

// Files built byte by byte, PNG above all.

/// A number in so many bytes, the highest first; the lowest first.
std::string big(std::uint64_t value, int bytes);
std::string little(std::uint64_t value, int bytes);
std::string zeros(std::size_t count);

std::string pngChunk(const std::string& type, const std::string& data);
constexpr const char* pngSignature = "\x89PNG\r\n\x1a\n";

struct PngHeader {
  std::uint32_t width = 129;
  std::uint32_t height = 97;
  unsigned depth = 8;
  unsigned colour = 2;
  unsigned interlace = 0;
};
/// The chunk of the header.
std::string pngHeader(const PngHeader& header);

/// Bytes as a zlib stream that stores them as they are. Its first two bytes
/// tell a window: 0x78 of 32 KiB, 0x08 of 256 bytes.
std::string zlibStream(const std::string& raw, unsigned first = 0x78);

} // namespace trovik
