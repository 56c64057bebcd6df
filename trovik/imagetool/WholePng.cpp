#include "trovik/imagetool/WholePng.h"

#include "host/foundation/Descriptor.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

// Most frames are PNG files, and nearly all of them are whole. To see that, only
// two things are needed: the check sum of each chunk, and that the pixels inflate
// to exactly as many bytes as the header announces, which have a check sum of
// their own. The image library, which does this and more, takes 0.3 s to load
// with the 260 libraries that it needs, longer than it takes to decode a frame.
//
// Inflating takes nearly all of the time that is left. What can be had beside it
// is memory: a picture of 1920 x 1080 has 1500 pages of pixels, each of which
// costs a fault when it is new, and its compressed bytes lie in hundreds of
// chunks. So the bytes of a file and of its pixels have rooms that stay, and the
// compressed bytes are moved together where they lie.
//
// So that both always say the same, nothing is called whole here that its
// decoder could object to: unusual chunks, an odd order, interlacing and
// whatever else is rare are left to it.

namespace trovik::image {
namespace {

using Bytes = std::span<std::uint8_t>;

constexpr std::size_t fileLimit = std::size_t{256} << 20U;
constexpr std::uint64_t pixelBytesLimit = std::uint64_t{512} << 20U;
constexpr std::size_t keptLimit = std::size_t{64} << 20U; // of each room, while no file is checked
constexpr std::uint32_t sideLimit = 1000000;              // the decoder's own
constexpr std::size_t extraChunkLimit = 100;              // it keeps up to 1000 of them
constexpr std::size_t extraBytesLimit = 1U << 20U;        // and up to 8 MB of one
constexpr std::array<std::uint8_t, 8> signature = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

std::uint32_t numberAt(Bytes bytes, std::size_t at) {
  return std::uint32_t{bytes[at]} << 24U | std::uint32_t{bytes[at + 1]} << 16U |
         std::uint32_t{bytes[at + 2]} << 8U | std::uint32_t{bytes[at + 3]};
}

/// All of a regular file; nothing for one that is too large or cannot be read.
Bytes contentOf(const std::string& file, Room& room) {
  // Not blocking, since whatever lies there may be a pipe.
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat facts {};
  if (!descriptor.IsOpen() || fstat(descriptor.Number(), &facts) != 0 || !S_ISREG(facts.st_mode) ||
      facts.st_size <= 0 || static_cast<std::uint64_t>(facts.st_size) > fileLimit) {
    return {};
  }
  const Bytes content = room.bytes(static_cast<std::size_t>(facts.st_size));
  std::size_t filled = 0;
  while (filled < content.size()) {
    const ssize_t got = read(descriptor.Number(), content.data() + filled, content.size() - filled);
    if (got == 0 || (got < 0 && errno != EINTR)) {
      return {};
    }
    filled += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  }
  return content;
}

struct Chunk {
  std::string type; // the bytes around it may be moved
  Bytes data;
};

/// The chunks of a file, one after the other; each has its right check sum.
class Chunks {
public:
  explicit Chunks(Bytes rest) : rest_(rest) {}

  std::optional<Chunk> next() {
    constexpr std::size_t around = 12; // length, type and check sum
    if (rest_.size() < around) {
      return std::nullopt;
    }
    const std::size_t length = numberAt(rest_, 0);
    if (length > rest_.size() - around ||
        libdeflate_crc32(0, rest_.data() + 4, length + 4) != numberAt(rest_, length + 8)) {
      return std::nullopt;
    }
    const Bytes type = rest_.subspan(4, 4);
    const Chunk chunk{{type.begin(), type.end()}, rest_.subspan(8, length)};
    rest_ = rest_.subspan(length + around);
    return chunk;
  }

private:
  Bytes rest_;
};

struct Header {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  unsigned depth = 0;  ///< bits of a sample
  unsigned colour = 0; ///< 0 grey, 2 RGB, 3 palette, 4 and 6 with alpha

  std::uint64_t channels() const { return colour == 2 ? 3 : colour == 4 ? 2 : colour == 6 ? 4 : 1; }
  /// Of one line, with the byte before it that tells its filter.
  std::uint64_t lineBytes() const { return 1 + (std::uint64_t{width} * channels() * depth + 7) / 8; }
};

std::optional<Header> headerOf(const Chunk& chunk) {
  if (chunk.type != "IHDR" || chunk.data.size() != 13) {
    return std::nullopt;
  }
  const Header header{numberAt(chunk.data, 0), numberAt(chunk.data, 4), chunk.data[8], chunk.data[9]};
  const bool sides =
      header.width > 0 && header.width <= sideLimit && header.height > 0 && header.height <= sideLimit;
  const bool wholeBytes = header.depth == 8 || header.depth == 16;
  const bool fewBits = header.depth == 1 || header.depth == 2 || header.depth == 4;
  const bool samples = header.colour == 0                         ? wholeBytes || fewBits
                       : header.colour == 3                       ? header.depth == 8 || fewBits
                       : header.colour == 2 || header.colour == 4 ? wholeBytes
                                                                  : header.colour == 6 && wholeBytes;
  // The only compression, the only filters, and no interlacing.
  const bool plain = chunk.data[10] == 0 && chunk.data[11] == 0 && chunk.data[12] == 0;
  if (!sides || !samples || !plain || header.lineBytes() > pixelBytesLimit / header.height) {
    return std::nullopt;
  }
  return header;
}

/// Chunks that say something about the image and that programs write.
bool isUsualExtra(std::string_view type, bool beforePixels) {
  static constexpr std::array<std::string_view, 2> anywhere = {"tEXt", "tIME"};
  static constexpr std::array<std::string_view, 7> before = {"gAMA", "cHRM", "sRGB", "sBIT",
                                                             "bKGD", "pHYs", "oFFs"};
  return std::ranges::find(anywhere, type) != anywhere.end() ||
         (beforePixels && std::ranges::find(before, type) != before.end());
}

bool isRightPalette(const Header& header, Bytes palette) {
  const std::size_t entries = palette.size() / 3;
  return palette.size() % 3 == 0 && entries > 0 &&
         (header.colour == 3 ? entries <= std::size_t{1} << header.depth
                             : header.colour != 0 && header.colour != 4 && entries <= 256);
}

/// The compressed pixels of a file whose chunks are all there, in their order.
/// They are moved together to where the first of them lie; nothing is left of
/// the chunks. Empty for none.
Bytes packedPixels(const Header& header, Chunks& chunks) {
  Bytes packed;
  bool palette = false;
  bool ended = false; // the pixels' chunks, which follow each other
  std::size_t extras = 0;
  while (const std::optional<Chunk> chunk = chunks.next()) {
    if (chunk->type == "IDAT" && !ended && (palette || header.colour != 3)) {
      if (packed.empty()) {
        packed = chunk->data;
      } else {
        std::memmove(packed.data() + packed.size(), chunk->data.data(), chunk->data.size());
        packed = {packed.data(), packed.size() + chunk->data.size()};
      }
      continue;
    }
    ended = !packed.empty();
    if (chunk->type == "IEND") {
      return ended && chunk->data.empty() ? packed : Bytes();
    }
    if (chunk->type == "PLTE" && !palette && !ended && isRightPalette(header, chunk->data)) {
      palette = true;
    } else if (!isUsualExtra(chunk->type, !ended) || chunk->data.size() > extraBytesLimit ||
               ++extras > extraChunkLimit) {
      return {};
    }
  }
  return {};
}

/// Whether the pixels are there, all of them and nothing behind them.
bool inflatesWhole(const Header& header, Bytes packed, libdeflate_decompressor* inflater, Room& room) {
  const std::uint64_t line = header.lineBytes();
  const std::uint64_t size = line * header.height;
  // The decoder keeps as much of the past as the first byte tells, and refuses
  // what points beyond that; here all is kept.
  const unsigned window = packed[0] >> 4U;
  if (window < 7 && size > std::uint64_t{256} << window) {
    return false;
  }
  const Bytes pixels = room.bytes(size);
  std::size_t taken = 0;
  std::size_t given = 0;
  if (libdeflate_zlib_decompress_ex(inflater, packed.data(), packed.size(), pixels.data(), size, &taken,
                                    &given) != LIBDEFLATE_SUCCESS ||
      taken != packed.size() || given != size) {
    return false;
  }
  for (std::uint64_t at = 0; at < size; at += line) {
    constexpr std::uint8_t lastFilter = 4;
    if (pixels[at] > lastFilter) {
      return false;
    }
  }
  return true;
}

} // namespace

std::span<std::uint8_t> Room::bytes(std::size_t count) {
  if (count > size_) {
    bytes_.reset(); // before there are new ones
    size_ = 0;
    bytes_ = std::make_unique_for_overwrite<std::uint8_t[]>(count);
    size_ = count;
  }
  return {bytes_.get(), count};
}

void Room::trim() {
  if (size_ > keptLimit) {
    bytes_.reset();
    size_ = 0;
  }
}

void WholePng::Release::operator()(libdeflate_decompressor* inflater) const {
  libdeflate_free_decompressor(inflater);
}

WholePng::WholePng() : inflater_(libdeflate_alloc_decompressor()) {}

std::optional<Inspection> WholePng::inspect(std::span<std::uint8_t> content) {
  if (inflater_ == nullptr || content.size() < signature.size() ||
      !std::equal(signature.begin(), signature.end(), content.begin())) {
    return std::nullopt;
  }
  Chunks chunks(content.subspan(signature.size()));
  const std::optional<Chunk> first = chunks.next();
  const std::optional<Header> header = first ? headerOf(*first) : std::nullopt;
  if (!header) {
    return std::nullopt;
  }
  const Bytes packed = packedPixels(*header, chunks);
  if (packed.empty() || !inflatesWhole(*header, packed, inflater_.get(), pixels_)) {
    return std::nullopt;
  }
  return Inspection{"", true, static_cast<int>(header->width), static_cast<int>(header->height)};
}

std::optional<Inspection> WholePng::check(const std::string& file) {
  std::optional<Inspection> inspection;
  try {
    inspection = inspect(contentOf(file, content_));
  } catch (const std::bad_alloc&) {
    inspection.reset();
  }
  content_.trim();
  pixels_.trim();
  return inspection;
}

} // namespace trovik::image
