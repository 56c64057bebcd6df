#pragma once

#include "host/foundation/Descriptor.h"
#include "host/foundation/Path.h"

#include <cstdint>
#include <string>

namespace trovik {

/// A log opened for reading: a regular file, since a log directory that the
/// user named may hold anything, and reading a pipe would wait for ever.
class LogFile {
public:
  explicit LogFile(const Path& log);

  bool isThere() const { return there_; }
  std::int64_t size() const { return size_; } ///< bytes, when it was opened
  /// Nanoseconds since 1970.
  std::int64_t modified() const { return modified_; }

  /// Up to the buffer's size from a position on; 0 at the end.
  std::size_t read(std::int64_t position, std::string& buffer) const;

private:
  Descriptor descriptor_;
  bool there_ = false;
  std::int64_t size_ = 0;
  std::int64_t modified_ = 0;
};

} // namespace trovik
