#include "host/foundation/WriteFile.h"

#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace {

[[noreturn]] void RaiseUnwritable(const char* function, const Path& file, int reason) {
  RaiseException(function, k_ErrorSystem, "cannot write " + file.Text(), reason);
}

// Opens a new file beside `file` for writing; `temporary` becomes its name. Two
// threads, or a file that an ended process of our number left behind, are no
// obstacle.
Descriptor OpenBeside(const char* function, const Path& file, mode_t mode, Path& temporary) {
  static std::atomic<unsigned> s_Counter{0};
  for (int attempt = 0;; ++attempt) {
    temporary = Path(file.Text() + ".new-" + std::to_string(getpid()) + "-" + std::to_string(s_Counter++));
    Descriptor descriptor(
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (descriptor.IsOpen()) {
      return descriptor;
    }
    if (errno != EEXIST || attempt == 100) {
      RaiseUnwritable(function, file, errno);
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

// Gives the temporary its name; 0, or the reason where that fails.
int Rename(const Path& temporary, const Path& file, Existing existing) {
  if (existing == Existing::Replace) {
    return std::rename(temporary.c_str(), file.c_str()) == 0 ? 0 : errno;
  }
  if (renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, file.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return errno;
  }
  // Some file systems cannot do that, but can link. Over a network the answer
  // to that may be lost and the repeated question refused: then the temporary
  // has two names all the same.
  if (link(temporary.c_str(), file.c_str()) != 0) {
    const int reason = errno;
    struct stat status {};
    if (stat(temporary.c_str(), &status) != 0 || status.st_nlink != 2) {
      return reason;
    }
  }
  unlink(temporary.c_str());
  return 0;
}

// Has the file's name outlive a loss of power. Where that fails there is
// nothing that could be done.
void SyncDirectory(const Path& file) {
  const Path directory = file.Branch(true, true);
  const Descriptor descriptor(
      open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor.IsOpen()) {
    static_cast<void>(fsync(descriptor.Number()));
  }
}

} // namespace

bool WriteFileWhole(const char* function, const Path& file, std::string_view bytes, Existing existing) {
  // The system would end a name at its first byte 0 and take another file.
  if (file.empty() || file.Text().find('\0') != String::npos) {
    RaiseUnwritable(function, file, ENOENT);
  }
  struct stat status {};
  const bool replaces = existing == Existing::Replace && stat(file.c_str(), &status) == 0;
  const mode_t mode = replaces ? status.st_mode & 0777U : 0666U;
  Path temporary;
  Descriptor descriptor = OpenBeside(function, file, mode, temporary);
  if (replaces) {
    // What the umask took off. Where that fails the file is only more private.
    static_cast<void>(fchmod(descriptor.Number(), mode));
  }
  int reason = WriteWhole(descriptor.Number(), bytes);
  descriptor.Reset();
  if (reason == 0) {
    reason = Rename(temporary, file, existing);
  }
  if (reason != 0) {
    unlink(temporary.c_str());
    if (reason == EEXIST && existing == Existing::Keep) {
      return false;
    }
    RaiseUnwritable(function, file, reason);
  }
  SyncDirectory(file);
  return true;
}
