#include "host/foundation/WriteFile.h"

#include "host/foundation/Exception.h"
#include "host/foundation/FileFinder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace {

// The system's longest name, less what a draft adds.
constexpr std::size_t k_LongestLeaf = 200;

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

FileDraft::FileDraft(const Path& file, Existing existing, mode_t mode) : m_File(file), m_Existing(existing) {
  // The system would end a name at its first byte 0 and take another file.
  if (file.empty() || file.Text().find('\0') != String::npos) {
    m_Error = ENOENT;
    return;
  }
  if (existing == Existing::Replace && !FollowLink()) {
    return;
  }
  struct stat status {};
  const bool replaces = existing == Existing::Replace && stat(m_File.c_str(), &status) == 0;
  if (replaces) {
    mode = status.st_mode & 0777U;
    if (!S_ISREG(status.st_mode)) { // a rename would put a file in place of a device
      m_Error = S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
      return;
    }
  }
  const std::size_t leaf = m_File.Text().rfind('/') + 1; // 0 where there is none
  const String begin = m_File.Text().substr(0, leaf + k_LongestLeaf);
  static std::atomic<unsigned> s_Counter{0};
  // Two threads, or a file that an ended process of our number left behind, are
  // no obstacle.
  for (int attempt = 0; !m_Descriptor.IsOpen(); ++attempt) {
    m_Name = Path(begin + ".new-" + std::to_string(getpid()) + "-" + std::to_string(s_Counter++));
    m_Descriptor.Reset(open(m_Name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!m_Descriptor.IsOpen() && (errno != EEXIST || attempt == 100)) {
      m_Error = errno;
      return;
    }
  }
  if (replaces) {
    // What the umask took off. Where that fails the file is only more private.
    static_cast<void>(fchmod(m_Descriptor.Number(), mode));
  }
}

// Whoever linked a file wants what it leads to replaced, and the link kept.
// False where there is nothing to write.
bool FileDraft::FollowLink() {
  struct stat status {};
  if (lstat(m_File.c_str(), &status) != 0 || !S_ISLNK(status.st_mode)) {
    return true;
  }
  std::error_code error;
  const std::filesystem::path target = std::filesystem::canonical(m_File.c_str(), error);
  if (error) {
    m_Error = error.value();
    if (m_Error == ENOENT) {
      m_Link = "it is a link to " + std::filesystem::read_symlink(m_File.c_str(), error).string();
    }
    return false;
  }
  m_File = Path(target.string());
  return true;
}

String FileDraft::Reason() const {
  if (m_Error == 0) {
    return String::Null;
  }
  return std::system_category().message(m_Error) + (m_Link.empty() ? "" : " (" + m_Link + ")");
}

FileDraft::~FileDraft() {
  if (m_Descriptor.IsOpen() && !m_IsPublished) {
    unlink(m_Name.c_str());
  }
}

void FileDraft::Write(std::string_view bytes) {
  while (!bytes.empty() && m_Error == 0) {
    const ssize_t count = write(m_Descriptor.Number(), bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      m_Error = errno;
    }
  }
}

int FileDraft::Publish() {
  if (m_Error == 0) {
    m_Error = fsync(m_Descriptor.Number()) == 0 ? Rename() : errno;
  }
  if (m_Error == 0) {
    m_IsPublished = true;
    SyncDirectory(m_File);
  }
  return m_Error;
}

int FileDraft::Rename() const {
  if (m_Existing == Existing::Replace) {
    return std::rename(m_Name.c_str(), m_File.c_str()) == 0 ? 0 : errno;
  }
  if (renameat2(AT_FDCWD, m_Name.c_str(), AT_FDCWD, m_File.c_str(), RENAME_NOREPLACE) == 0) {
    return 0;
  }
  if (errno != EINVAL && errno != ENOSYS) {
    return errno;
  }
  // Some file systems cannot do that, but can link. Over a network the answer
  // to that may be lost and the repeated question refused: then the draft has
  // two names all the same.
  if (link(m_Name.c_str(), m_File.c_str()) != 0) {
    const int reason = errno;
    struct stat status {};
    if (stat(m_Name.c_str(), &status) != 0 || status.st_nlink != 2) {
      return reason;
    }
  }
  unlink(m_Name.c_str());
  return 0;
}

bool WriteFileWhole(const char* function, const Path& file, std::string_view bytes, Existing existing) {
  FileDraft draft(file, existing);
  draft.Write(bytes);
  const int reason = draft.Publish();
  if (reason == EEXIST && existing == Existing::Keep) {
    return false;
  }
  if (reason != 0) {
    RaiseException(function, k_ErrorSystem, "cannot write " + file.Text(), reason, draft.Link());
  }
  return true;
}

int MakePrivateFolder(const Path& folder) {
  const String& text = folder.Text();
  for (std::size_t end = 0; end < text.size();) {
    end = std::min(text.find('/', end + 1), text.size());
    const Path part(text.substr(0, end));
    if (IsDirectory(part)) {
      continue;
    }
    if (mkdir(part.c_str(), 0700) == 0) {
      // The umask may have taken rights of ours.
      static_cast<void>(chmod(part.c_str(), 0700));
    } else if (const int reason = errno; reason != EEXIST || !IsDirectory(part)) {
      return reason == EEXIST ? ENOTDIR : reason;
    }
  }
  return text.empty() ? ENOENT : 0;
}
