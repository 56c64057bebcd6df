#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace trovik::image {

/// The file ends before what it announces.
struct EarlyEnd {};

/// Anything else that is wrong.
struct Flaw {
  std::string text;
};

enum class Order { Big, Little };

/// The bytes of a file, read one after the other. Reading or skipping beyond
/// the end raises EarlyEnd.
class FileBytes {
public:
  explicit FileBytes(const std::string& file) {
    if (buffer_.open(file, std::ios::in | std::ios::binary) != nullptr) {
      size_ = static_cast<std::uint64_t>(std::max<std::streamoff>(buffer_.pubseekoff(0, std::ios::end), 0));
      buffer_.pubseekpos(0);
    }
  }

  std::uint64_t size() const { return size_; }
  std::uint64_t position() const { return position_; }
  Order order = Order::Big;

  void seek(std::uint64_t position) {
    if (position > size_) {
      throw EarlyEnd{};
    }
    buffer_.pubseekpos(static_cast<std::streamoff>(position));
    position_ = position;
  }
  void skip(std::uint64_t count) {
    if (count > size_ - position_) {
      throw EarlyEnd{};
    }
    if (count > 0) {
      seek(position_ + count);
    }
  }
  unsigned next() {
    const int byte = buffer_.sbumpc();
    if (byte < 0) {
      throw EarlyEnd{};
    }
    ++position_;
    return static_cast<unsigned>(byte);
  }
  std::uint64_t number(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) {
      const std::uint64_t byte = next();
      value = order == Order::Big ? value << 8U | byte : value | byte << (8U * static_cast<unsigned>(i));
    }
    return value;
  }
  std::uint64_t numberAt(std::uint64_t position, int bytes) {
    seek(position);
    return number(bytes);
  }
  /// Fills it with the bytes from there on.
  void read(std::uint64_t position, std::vector<char>& content) {
    seek(position);
    const auto count = static_cast<std::streamsize>(content.size());
    if (buffer_.sgetn(content.data(), count) != count) {
      throw EarlyEnd{};
    }
    position_ += content.size();
  }
  std::string text(std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) {
      out += static_cast<char>(next());
    }
    return out;
  }

private:
  std::filebuf buffer_;
  std::uint64_t size_ = 0;
  std::uint64_t position_ = 0;
};

/// Raises EarlyEnd unless so many bytes lie at the offset.
inline void requireBytes(const FileBytes& bytes, std::uint64_t offset, std::uint64_t count) {
  if (offset > bytes.size() || count > bytes.size() - offset) {
    throw EarlyEnd{};
  }
}

} // namespace trovik::image
