#include "tests/trovik/imagetool/PngBytes.h"

namespace trovik {
namespace {

std::uint32_t crcOf(const std::string& text) {
  std::uint32_t crc = 0xffffffffU;
  for (const char character : text) {
    crc ^= static_cast<unsigned char>(character);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 1U) != 0 ? crc >> 1U ^ 0xedb88320U : crc >> 1U;
    }
  }
  return ~crc;
}

} // namespace

std::string big(std::uint64_t value, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; --i) {
    out += static_cast<char>(value >> (8U * static_cast<unsigned>(i)) & 0xffU);
  }
  return out;
}

std::string little(std::uint64_t value, int bytes) {
  const std::string reversed = big(value, bytes);
  return {reversed.rbegin(), reversed.rend()};
}

std::string zeros(std::size_t count) {
  std::string out;
  out.resize(count);
  return out;
}

std::string pngChunk(const std::string& type, const std::string& data) {
  return big(data.size(), 4) + type + data + big(crcOf(type + data), 4);
}

std::string pngHeader(const PngHeader& header) {
  return pngChunk("IHDR", big(header.width, 4) + big(header.height, 4) + big(header.depth, 1) +
                              big(header.colour, 1) + zeros(2) + big(header.interlace, 1));
}

std::string zlibStream(const std::string& raw, unsigned first) {
  std::uint32_t sum = 1;
  std::uint32_t sumOfSums = 0;
  for (const char character : raw) {
    sum = (sum + static_cast<unsigned char>(character)) % 65521U;
    sumOfSums = (sumOfSums + sum) % 65521U;
  }
  const unsigned check = (31 - first * 256 % 31) % 31; // both bytes together are a multiple of 31
  std::string stream = big(first, 1) + big(check, 1);
  constexpr std::size_t blockSize = 10000;
  for (std::size_t at = 0; at < raw.size(); at += blockSize) {
    const std::string block = raw.substr(at, blockSize);
    stream += big(at + blockSize >= raw.size() ? 1 : 0, 1) + little(block.size(), 2) +
              little(~block.size(), 2) + block;
  }
  return stream + big(sumOfSums << 16U | sum, 4);
}

} // namespace trovik
