#include "trovik/page/ServedFile.h"

#include "host/application/FileName.h"
#include "host/foundation/Path.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace trovik {

std::string FileIdentity::text() const {
  char buffer[100];
  std::snprintf(buffer, sizeof buffer, "%lx-%lx-%lx-%lx", static_cast<unsigned long>(device),
                static_cast<unsigned long>(number), static_cast<unsigned long>(size),
                static_cast<unsigned long>(modified));
  return buffer;
}

ServedFile::ServedFile(const std::string& path) {
  if (CanBeAName(Path(path))) {
    descriptor.Reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  }
  if (!descriptor.IsOpen()) {
    problem = errno == ELOOP    ? "a link lies in its place"
              : errno == ENOENT ? "it is not there any more"
                                : "it cannot be read";
    return;
  }
  struct stat facts {};
  if (fstat(descriptor.Number(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
    descriptor.Reset();
    problem = "it is no regular file";
    return;
  }
  identity = {facts.st_dev, facts.st_ino, facts.st_size,
              std::int64_t{facts.st_mtim.tv_sec} * 1'000'000'000 + facts.st_mtim.tv_nsec};
}

std::size_t ServedFile::read(std::int64_t position, std::string& buffer) const {
  while (true) {
    const ssize_t count = pread(descriptor.Number(), buffer.data(), buffer.size(), position);
    if (count >= 0 || errno != EINTR) {
      return count < 0 ? 0 : static_cast<std::size_t>(count);
    }
  }
}

} // namespace trovik
