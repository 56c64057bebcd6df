#pragma once

#include "host/foundation/Descriptor.h"

#include <cstdint>
#include <string>

namespace trovik {

/// What tells a file, as it is now, from every other: it changes with each
/// writing.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t number = 0;
  std::int64_t size = 0;
  std::int64_t modified = 0; ///< nanoseconds since 1970

  bool operator==(const FileIdentity&) const = default;
  /// As part of the name of a file, and of a tag.
  std::string text() const;
};

/// A file that a record of the queue names, opened to be served: a regular file
/// and no link, since what a link leads to was never the job's. Opening waits
/// for nothing, be it a pipe.
struct ServedFile {
  explicit ServedFile(const std::string& path);

  bool isThere() const { return descriptor.IsOpen(); }
  /// Up to the buffer's size from a position on; 0 at the end.
  std::size_t read(std::int64_t position, std::string& buffer) const;

  Descriptor descriptor;
  FileIdentity identity;
  std::string problem; ///< why it is not served
};

} // namespace trovik
