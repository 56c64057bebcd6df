#pragma once

#include "trovik/images/ImageProtocol.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

struct libdeflate_decompressor;

namespace trovik::image {

/// Bytes that are kept from one file to the next, since memory that is new costs
/// a fault for each of its pages.
class Room {
public:
  /// So many of them, with whatever they hold. Throws std::bad_alloc.
  std::span<std::uint8_t> bytes(std::size_t count);
  /// Lets them go where there are so many that few files need them.
  void trim();

private:
  std::unique_ptr<std::uint8_t[]> bytes_;
  std::size_t size_ = 0;
};

/// Knows a PNG file that is whole beyond doubt without the image library.
class WholePng {
public:
  WholePng();

  /// What the check of such a file says. Nothing for any other file: it may be
  /// good all the same, and what is wrong with it is for the library to tell.
  std::optional<Inspection> check(const std::string& file);

private:
  struct Release {
    void operator()(libdeflate_decompressor* inflater) const;
  };

  std::optional<Inspection> inspect(std::span<std::uint8_t> content);

  std::unique_ptr<libdeflate_decompressor, Release> inflater_;
  Room content_;
  Room pixels_;
};

} // namespace trovik::image
