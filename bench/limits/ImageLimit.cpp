#include "bench/Race.h"
#include "bench/limits/Limits.h"

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfInputFile.h>
#include <OpenEXR/ImfThreading.h>
#include <libdeflate.h>

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bench {
namespace {

std::size_t numberAt(const unsigned char* at) {
  return std::size_t{at[0]} << 24U | std::size_t{at[1]} << 16U | std::size_t{at[2]} << 8U |
         std::size_t{at[3]};
}

} // namespace

PngLimit::PngLimit() : inflater_(libdeflate_alloc_decompressor()) {}

PngLimit::~PngLimit() {
  libdeflate_free_decompressor(inflater_);
}

bool PngLimit::isWhole(const std::string& file, std::size_t pixelBytes) {
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat facts {};
  require(descriptor >= 0 && fstat(descriptor, &facts) == 0, "cannot read " + file);
  const auto size = static_cast<std::size_t>(facts.st_size);
  if (content_.size() < size) {
    content_.resize(size);
  }
  const bool isRead = read(descriptor, content_.data(), size) == facts.st_size;
  close(descriptor);
  require(isRead, "cannot read " + file);
  std::size_t packed = 0;
  for (std::size_t at = 8; at + 12 <= size;) {
    unsigned char* const chunk = content_.data() + at;
    const std::size_t length = numberAt(chunk);
    if (length > size - at - 12 ||
        libdeflate_crc32(0, chunk + 4, length + 4) != numberAt(chunk + 8 + length)) {
      return false;
    }
    at += length + 12;
    if (std::memcmp(chunk + 4, "IDAT", 4) == 0) {
      std::memmove(content_.data() + packed, chunk + 8, length);
      packed += length;
    }
  }
  if (pixels_.size() < pixelBytes) {
    pixels_.resize(pixelBytes);
  }
  return libdeflate_zlib_decompress(inflater_, content_.data(), packed, pixels_.data(), pixelBytes,
                                    nullptr) == LIBDEFLATE_SUCCESS;
}

void exrLimit(const std::string& file) {
  Imf::setGlobalThreadCount(0);
  Imf::InputFile input(file.c_str());
  const Imath::Box2i window = input.header().dataWindow();
  const auto width = static_cast<std::size_t>(window.max.x - window.min.x) + 1;
  const auto height = static_cast<std::size_t>(window.max.y - window.min.y) + 1;
  std::size_t channels = 0;
  for (auto channel = input.header().channels().begin(); channel != input.header().channels().end();
       ++channel) {
    ++channels;
  }
  static std::vector<char> pixels; // stays
  constexpr std::size_t half = 2;
  pixels.resize(width * height * channels * half);
  Imf::FrameBuffer frame;
  std::size_t place = 0;
  for (auto channel = input.header().channels().begin(); channel != input.header().channels().end();
       ++channel, place += half) {
    require(channel.channel().type == Imf::HALF, "no half");
    frame.insert(channel.name(),
                 Imf::Slice(Imf::HALF, pixels.data() + place, channels * half, width * channels * half));
  }
  input.setFrameBuffer(frame);
  input.readPixels(window.min.y, window.max.y);
}

} // namespace bench
