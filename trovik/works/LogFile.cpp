#include "trovik/works/LogFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace trovik {

LogFile::LogFile(const Path& log)
    : descriptor_(log.empty() ? -1 : open(log.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat facts {};
  if (fstat(descriptor_.Number(), &facts) == 0 && S_ISREG(facts.st_mode)) {
    size_ = facts.st_size;
    modified_ = std::int64_t{facts.st_mtim.tv_sec} * 1'000'000'000 + facts.st_mtim.tv_nsec;
    there_ = true;
  }
}

std::size_t LogFile::read(std::int64_t position, std::string& buffer) const {
  while (true) {
    const ssize_t count = pread(descriptor_.Number(), buffer.data(), buffer.size(), position);
    if (count >= 0 || errno != EINTR) {
      return count < 0 ? 0 : static_cast<std::size_t>(count);
    }
  }
}

} // namespace trovik
