#pragma once

#include "host/foundation/Descriptor.h"
#include "trovik/page/Http.h"
#include "trovik/queue/Queue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/stat.h>

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

FileIdentity identityOf(const struct stat& facts);

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

/// Where a file of the queue lies, and what it is now, as a helper found out.
struct FoundFile {
  std::string path;
  FileIdentity identity;
  std::optional<HttpResponse> refusal; ///< where it is not served
};
/// Looks for a file by its number; a response for `foundFrom`. Throws a QueueError.
HttpResponse foundResponse(Queue& queue, std::int64_t number);
FoundFile foundFrom(HttpResponse response);

} // namespace trovik
