#include "trovik/queue/NetworkFileSystem.h"

#include <algorithm>
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
constexpr std::array<std::pair<unsigned long, const char*>, 20> kinds = {{
    {0x6969, "NFS"},
    {0x517B, "SMB"},
    {0xFE534D42, "SMB"},
    {0xFF534D42, "SMB"},
    {0x5346414F, "AFS"},
    {0x6B414653, "AFS"},
    {0x73757245, "Coda"},
    {0x00C36400, "Ceph"},
    {0x0BD00BD0, "Lustre"},
    {0x0BD00BD3, "Lustre"},
    {0x47504653, "GPFS"},
    {0x19830326, "BeeGFS"},
    {0x01021997, "9P"},
    {0x01161970, "GFS2"},
    {0x7461636F, "OCFS2"},
    {0xAAD7AAEA, "PanFS"},
    {0x20030528, "OrangeFS"},
    {0xBACBACBC, "VMHGFS"},
    {0x786F4256, "VirtualBox shared folder"},
    {0x564C, "NCP"},
}};

// Kinds whose number is none of the above or that of FUSE, by the name in the
// table of mounts. Locks of virtiofs may end at the guest.
constexpr std::array<std::string_view, 12> mountKinds = {"virtiofs", "cvmfs",  "prl_fs",  "acfs",
                                                         "pvfs2",    "wekafs", "quobyte", "vboxsf",
                                                         "davfs",    "smbfs",  "smb3",    "cifs"};

// FUSE may be a local disk too: these are, and anything else is taken for a
// network, since a lock that is granted twice would cost the queue.
constexpr std::array<std::string_view, 14> localFuseKinds = {
    "fuseblk",      "fuse.ntfs",           "fuse.ntfs-3g", "fuse.exfat",  "fuse.ext2",
    "fuse.fuse2fs", "fuse.fuse-overlayfs", "fuse.bindfs",  "fuse.encfs",  "fuse.gocryptfs",
    "fuse.cryfs",   "fuse.mergerfs",       "fuse.lxcfs",   "fuse.unionfs"};

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
  const auto isIn = [&mountKind](const auto& names) {
    return std::find(names.begin(), names.end(), mountKind) != names.end();
  };
  if (isIn(mountKinds)) {
    return mountKind;
  }
  if (kind == fuse && !isIn(localFuseKinds)) {
    return mountKind.starts_with("fuse.") ? mountKind.substr(5) : "FUSE";
  }
  return {};
}

std::string networkFileSystem(const Path& directory) {
  struct statfs system {};
  struct stat status {};
  if (statfs(directory.c_str(), &system) != 0 || stat(directory.c_str(), &status) != 0) {
    return {}; // opening the queue tells why
  }
  // The number is of 32 bits; where it is kept in a signed type its sign is
  // spread over the rest.
  return networkFileSystem(static_cast<std::uint32_t>(system.f_type), mountKindOf(status.st_dev));
}

} // namespace trovik
