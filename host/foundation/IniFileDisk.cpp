#include "host/foundation/Descriptor.h"
#include "host/foundation/Exception.h"
#include "host/foundation/FileText.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/WriteFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <span>
#include <utility>

// How parsed files come from and go to the disk.

namespace {

constexpr std::size_t k_SmallFile = std::size_t{16} << 10;

[[noreturn]] void RaiseTooLarge(const char* function, const Path& file) {
  RaiseException(function, k_ErrorLimit,
                 file.Text() + " is larger than " + std::to_string(IniFile::k_SizeLimit >> 20) +
                     " MiB, more than any settings or type file needs");
}

// The system would end a name at its first byte 0 and take another file.
bool IsName(const Path& file) {
  return !file.empty() && file.Text().find('\0') == String::npos;
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
  // files of the kernel say 0. Nearly all are small and read into memory that is
  // near already, so that their own is written once.
  std::array<char, k_SmallFile> near;
  std::string bytes;
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size >= near.size()) {
    bytes.resize(size + 1);
  }
  std::size_t used = 0;
  for (;;) {
    const std::span<char> room = bytes.empty() ? std::span<char>(near) : std::span<char>(bytes);
    const ssize_t count = read(descriptor.Number(), room.data() + used, room.size() - used);
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
    if (used == size && used < room.size()) {
      break; // the whole file: there was room for one byte more, and it did not come
    }
    if (used > IniFile::k_SizeLimit) {
      RaiseTooLarge("IniFile::Load", file);
    }
    if (used == room.size()) {
      if (bytes.empty()) {
        bytes.assign(near.data(), used);
      }
      bytes.resize(std::min(2 * used, IniFile::k_SizeLimit + 1));
    }
  }
  if (bytes.empty()) {
    bytes.assign(near.data(), used);
  } else {
    bytes.resize(used);
  }
  return bytes;
}

bool IniFile::Load(bool mustExist, bool replace) {
  if (replace) {
    Clear();
  }
  int reason = 0;
  std::optional<std::string> bytes = ReadFileText(Filename(), reason);
  if (!bytes) {
    if (mustExist) {
      RaiseException("IniFile::Load", k_ErrorSystem, "cannot read " + Filename().Text(), reason);
    }
    return false;
  }
  ParseText(std::move(*bytes), replace);
  return true;
}

void IniFile::Save() const {
  const std::string text = WriteText();
  if (text.size() > k_SizeLimit) {
    RaiseTooLarge("IniFile::Save", Filename());
  }
  WriteFileWhole("IniFile::Save", Filename(), text, Existing::Replace);
}
