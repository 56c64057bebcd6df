#include "trovik/imagetool/TiffStructure.h"

#include "trovik/imagetool/Limits.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace trovik::image {
namespace {

struct TiffArray {
  std::uint64_t count = 0;
  std::uint64_t position = 0;
  int width = 0; ///< bytes of one number
  std::uint64_t at(FileBytes& bytes, std::uint64_t index) const {
    return bytes.numberAt(position + index * static_cast<std::uint64_t>(width), width);
  }
};

/// The bytes of one value of a type; 0 for a type of a later day.
int tiffWidth(std::uint64_t type) {
  static constexpr std::array<int, 19> widths = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type < widths.size() ? widths[type] : 0;
}

/// Inflates what is compressed as zlib does it, up to its check sum. A decoder
/// stops when it has its pixels; where damage makes more of them than there
/// should be, it never comes to the sum.
class SumCheck {
public:
  void require(FileBytes& bytes, std::uint64_t offset, std::uint64_t count) {
    if (count > partBytesLimit) {
      throw Flaw{"a strip or tile of " + std::to_string(count) + " bytes"};
    }
    packed_.resize(count);
    bytes.read(offset, packed_);
    if (plain_.empty()) {
      plain_.resize(std::clamp<std::size_t>(4 * packed_.size(), smallest, partBytesLimit));
    }
    for (;;) {
      std::size_t taken = 0;
      std::size_t given = 0;
      // Bytes behind its end are none of the stream's.
      const libdeflate_result result = libdeflate_zlib_decompress_ex(
          inflater_.get(), packed_.data(), packed_.size(), plain_.data(), plain_.size(), &taken, &given);
      if (result == LIBDEFLATE_SUCCESS) {
        return;
      }
      if (result != LIBDEFLATE_INSUFFICIENT_SPACE) {
        throw Flaw{"a strip or tile does not match its check sum"};
      }
      if (plain_.size() >= partBytesLimit) {
        throw Flaw{"a strip or tile inflates without an end"};
      }
      plain_.resize(2 * plain_.size());
    }
  }

private:
  static constexpr std::size_t smallest = std::size_t{64} << 10U;
  static libdeflate_decompressor* made() {
    libdeflate_decompressor* inflater = libdeflate_alloc_decompressor();
    return inflater == nullptr ? throw std::bad_alloc() : inflater;
  }

  std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> inflater_{
      made(), &libdeflate_free_decompressor};
  std::vector<char> packed_;
  std::vector<char> plain_; ///< grows to what a strip needs, and all need the same
};

/// The values of every tag, since some writers put the directory and its values
/// behind the pixels, and decoders do without those that they do not need. Strips
/// only where they are compressed as JPEG: those decoders fill up what is missing,
/// while the others notice, and some writers announce a last strip that is longer
/// than it need be. The check sums where it is compressed as zlib does it.
void checkTiffDirectory(FileBytes& bytes, bool big, std::uint64_t entries) {
  std::optional<TiffArray> offsets;
  std::optional<TiffArray> counts;
  std::uint64_t compression = 1;
  bool bitsTurned = false; // of every byte
  const std::uint64_t start = bytes.position();
  for (std::uint64_t i = 0; i < entries; ++i) {
    bytes.seek(start + i * (big ? 20 : 12));
    const std::uint64_t tag = bytes.number(2);
    const std::uint64_t type = bytes.number(2);
    TiffArray array;
    array.count = bytes.number(big ? 8 : 4);
    array.width = tiffWidth(type);
    array.position = bytes.position();
    if (array.width == 0) {
      continue;
    }
    const std::uint64_t size = product({array.count, static_cast<std::uint64_t>(array.width)});
    if (size > (big ? 8 : 4)) {
      array.position = bytes.number(big ? 8 : 4);
    }
    requireBytes(bytes, array.position, size);
    if (tag == 259) {
      compression = array.at(bytes, 0);
    } else if (tag == 266) {
      bitsTurned = array.at(bytes, 0) == 2;
    } else if (tag == 273 || tag == 324) {
      offsets = array;
    } else if (tag == 279 || tag == 325) {
      counts = array;
    }
  }
  const bool jpeg = compression == 6 || compression == 7;
  const bool deflated = (compression == 8 || compression == 32946) && !bitsTurned;
  if (!offsets || !counts || (!jpeg && !deflated)) {
    return;
  }
  SumCheck sums;
  for (std::uint64_t i = 0; i < std::min(offsets->count, counts->count); ++i) {
    const std::uint64_t offset = offsets->at(bytes, i);
    const std::uint64_t count = counts->at(bytes, i);
    if (jpeg) {
      requireBytes(bytes, offset, count);
    } else if (count > 0) {
      requireBytes(bytes, offset, 1);
      sums.require(bytes, offset, std::min(count, bytes.size() - offset));
    }
  }
}

} // namespace

void checkTiff(FileBytes& bytes) {
  bytes.order = bytes.text(2) == "II" ? Order::Little : Order::Big;
  const bool big = bytes.number(2) == 43;
  bytes.skip(big ? 4 : 0);
  std::set<std::uint64_t> seen;
  std::uint64_t directory = bytes.number(big ? 8 : 4);
  while (directory != 0 && seen.insert(directory).second) {
    bytes.seek(directory);
    const std::uint64_t entries = bytes.number(big ? 8 : 2);
    const std::uint64_t size = product({entries, big ? 20U : 12U});
    requireBytes(bytes, bytes.position(), size);
    const std::uint64_t start = bytes.position();
    checkTiffDirectory(bytes, big, entries);
    directory = bytes.numberAt(start + size, big ? 8 : 4);
  }
}

} // namespace trovik::image
