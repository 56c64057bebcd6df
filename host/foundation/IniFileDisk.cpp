#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileText.h"
#include "host/foundation/IniFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <optional>

// How parsed files come from and go to the disk.

namespace {

[[noreturn]] void RaiseTooLarge(const char* function, const Path& file) {
  RaiseException(function, k_ErrorLimit,
                 file.Text() + " is larger than " + std::to_string(IniFile::k_SizeLimit >> 20) +
                     " MiB, more than any settings or type file needs");
}

[[noreturn]] void RaiseUnwritable(const Path& file, int reason) {
  RaiseException("IniFile::Save", k_ErrorSystem, "cannot write " + file.Text(), reason);
}

// The system would end a name at its first byte 0 and take another file.
bool IsName(const Path& file) {
  return !file.empty() && file.Text().find('\0') == String::npos;
}

// Opens a new file beside `file` for writing; `temporary` becomes its name. Two
// threads, or a file that an ended process of our number left behind, are no
// obstacle.
Descriptor OpenBeside(const Path& file, mode_t mode, Path& temporary) {
  static std::atomic<unsigned> s_Counter{0};
  for (int attempt = 0;; ++attempt) {
    temporary = Path(file.Text() + ".new-" + std::to_string(getpid()) + "-" + std::to_string(s_Counter++));
    Descriptor descriptor(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (descriptor.IsOpen()) {
      return descriptor;
    }
    if (errno != EEXIST || attempt == 100) {
      RaiseUnwritable(file, errno);
    }
  }
}

// Writes everything down to the disk; 0, or the reason where that fails.
int WriteWhole(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return fsync(descriptor) == 0 ? 0 : errno;
}

} // namespace

// O_NONBLOCK: a named pipe in the place of the file must not hang us.
std::optional<std::string> ReadFileText(const Path& file, int& reason) {
  reason = ENOENT;
  if (!IsName(file)) {
    return std::nullopt;
  }
  const Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!descriptor.IsOpen() || fstat(descriptor.Number(), &status) != 0) {
    reason = errno;
    return std::nullopt;
  }
  if (!S_ISREG(status.st_mode)) {
    reason = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return std::nullopt;
  }
  if (status.st_size > static_cast<off_t>(IniFile::k_SizeLimit)) {
    RaiseTooLarge("IniFile::Load", file);
  }
  // The size only says where to begin: the file may grow while it is read, and
  // files of the kernel say 0.
  std::string bytes;
  bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
  std::size_t used = 0;
  for (;;) {
    const ssize_t count = read(descriptor.Number(), bytes.data() + used, bytes.size() - used);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      reason = errno;
      return std::nullopt;
    }
    if (count == 0) {
      break;
    }
    used += static_cast<std::size_t>(count);
    if (used > IniFile::k_SizeLimit) {
      RaiseTooLarge("IniFile::Load", file);
    }
    if (used == bytes.size()) {
      bytes.resize(std::min(std::max<std::size_t>(4096, 2 * used), IniFile::k_SizeLimit + 1));
    }
  }
  bytes.resize(used);
  return bytes;
}

bool IniFile::Load(bool mustExist, bool replace) {
  if (replace) {
    Clear();
  }
  int reason = 0;
  const std::optional<std::string> bytes = ReadFileText(Filename(), reason);
  if (!bytes) {
    if (mustExist) {
      RaiseException("IniFile::Load", k_ErrorSystem, "cannot read " + Filename().Text(), reason);
    }
    return false;
  }
  Parse(*bytes, replace);
  return true;
}

void IniFile::Save() const {
  const std::string text = WriteText();
  if (!IsName(Filename())) {
    RaiseUnwritable(Filename(), ENOENT);
  }
  if (text.size() > k_SizeLimit) {
    RaiseTooLarge("IniFile::Save", Filename());
  }
  struct stat status {};
  const bool replaces = stat(Filename().c_str(), &status) == 0;
  const mode_t mode = replaces ? status.st_mode & 0777U : 0666U;
  Path temporary;
  Descriptor descriptor = OpenBeside(Filename(), mode, temporary);
  if (replaces) {
    // What the umask took off. Where that fails the file is only more private.
    static_cast<void>(fchmod(descriptor.Number(), mode));
  }
  int reason = WriteWhole(descriptor.Number(), text);
  descriptor.Reset();
  if (reason == 0 && std::rename(temporary.c_str(), Filename().c_str()) != 0) {
    reason = errno;
  }
  if (reason != 0) {
    unlink(temporary.c_str());
    RaiseUnwritable(Filename(), reason);
  }
}
