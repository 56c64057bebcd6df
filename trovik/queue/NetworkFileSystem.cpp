#include "trovik/queue/NetworkFileSystem.h"

#include <array>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <utility>

namespace trovik {
namespace {

// From <linux/magic.h> and the sources of the file systems that it lacks.
constexpr unsigned long fuse = 0x65735546;
constexpr std::array<std::pair<unsigned long, const char*>, 7> kinds = {{
    {0x6969, "NFS"},
    {0x517B, "SMB"},
    {0xFE534D42, "SMB"},
    {0xFF534D42, "SMB"},
    {0x5346414F, "AFS"},
    {0x6B414653, "AFS"},
    {0x73757245, "Coda"},
}};

// FUSE may be a local disk too.
constexpr std::array<std::string_view, 7> fuseKinds = {"sshfs",     "rclone",     "davfs",   "s3fs",
                                                       "curlftpfs", "gvfsd-fuse", "smbnetfs"};

/// The kind of the mount with this device in the system's table; empty where
/// it is not found.
std::string mountKindOf(dev_t device) {
  const std::string wanted = std::to_string(major(device)) + ':' + std::to_string(minor(device));
  std::ifstream table("/proc/self/mountinfo");
  std::string line;
  while (std::getline(table, line)) {
    // 36 35 98:0 /root /mount options [fields] - kind source options
    std::istringstream words(line);
    std::string id;
    std::string parent;
    std::string number;
    words >> id >> parent >> number;
    const std::size_t separator = line.find(" - ");
    if (number == wanted && separator != std::string::npos) {
      std::istringstream rest(line.substr(separator + 3));
      std::string kind;
      rest >> kind;
      return kind;
    }
  }
  return {};
}

} // namespace

std::string networkFileSystem(unsigned long kind, const std::string& mountKind) {
  for (const auto& [number, name] : kinds) {
    if (number == kind) {
      return name;
    }
  }
  if (kind == fuse) {
    for (const std::string_view name : fuseKinds) {
      if (mountKind == "fuse." + std::string(name)) {
        return std::string(name);
      }
    }
  }
  return {};
}

std::string networkFileSystem(const Path& directory) {
  struct statfs system {};
  if (statfs(directory.c_str(), &system) != 0) {
    return {}; // opening the queue tells why
  }
  // The number is of 32 bits; where it is kept in a signed type its sign is
  // spread over the rest.
  const unsigned long kind = static_cast<std::uint32_t>(system.f_type);
  struct stat status {};
  const bool asksTable = kind == fuse && stat(directory.c_str(), &status) == 0;
  return networkFileSystem(kind, asksTable ? mountKindOf(status.st_dev) : std::string());
}

} // namespace trovik
